#pragma once

#include "services/ServiceTable.h"

namespace kvx::server {

/// Check-out and check-in of items.
extern const ServiceTable itemServices;

} // namespace kvx::server
