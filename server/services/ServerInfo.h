#pragma once

#include "services/ServiceTable.h"

namespace kvx::server {

extern const ServiceTable serverInfoServices;

} // namespace kvx::server
