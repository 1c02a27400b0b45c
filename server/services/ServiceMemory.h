#pragma once

#include "services/ItemsTold.h"
#include "services/LogLockPlaces.h"
#include "services/ProjectRecord.h"

namespace kvx::server {

/// What the services remember between requests. Nothing here is the only copy of anything.
struct ServiceMemory {
    RecordCache records;
    LogLockPlaces lockPlaces;
    ItemsTold itemsTold;
};

} // namespace kvx::server
