#pragma once

#include "services/ServiceTable.h"

namespace kvx::server {

struct Config;
class Db;

/// What a start finishes or drops before the first request: files left half received, uploads staged
/// for a lock that nobody holds. Leases that had not run out at `lastSeen`, the last sign of the
/// former run, get a full term: nobody could renew them meanwhile.
void recoverSaves(Db &db, const Config &config, Time lastSeen, Time now);

/// The end of a save: what was staged becomes the next version.
extern const ServiceTable saveServices;

} // namespace kvx::server
