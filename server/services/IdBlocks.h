#pragma once

#include "services/ServiceTable.h"

namespace kvx::server {

/// Ranges of item numbers.
extern const ServiceTable idBlockServices;

} // namespace kvx::server
