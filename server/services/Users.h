#pragma once

#include "services/ServiceTable.h"

namespace kvx::server {

extern const ServiceTable userServices;

} // namespace kvx::server
