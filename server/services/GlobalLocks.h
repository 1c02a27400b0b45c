#pragma once

#include "services/ServiceTable.h"

namespace kvx::server {

/// "GlobalLock", "GlobalUnlock".
extern const ServiceTable globalLockServices;

/// A chore: removes locks whose time is over, with a log line each.
void endGlobalLocks(const Environment &environment, Db &db);

} // namespace kvx::server
