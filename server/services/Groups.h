#pragma once

#include "services/ServiceTable.h"

namespace kvx::server {

/// Groups of projects.
extern const ServiceTable groupServices;

} // namespace kvx::server
