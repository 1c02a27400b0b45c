#pragma once

#include "services/ServiceTable.h"

namespace kvx::server {

/// The lock that a save holds, and the version it starts from.
extern const ServiceTable logLockServices;

} // namespace kvx::server
