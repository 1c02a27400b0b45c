#pragma once

#include "services/ServiceTable.h"

namespace kvx::server {

extern const ServiceTable roleServices;

} // namespace kvx::server
