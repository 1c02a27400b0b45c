#pragma once

#include "services/ServiceTable.h"

namespace kvx::server {

extern const ServiceTable loginServices;

} // namespace kvx::server
