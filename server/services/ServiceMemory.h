#pragma once

#include "ocr/OcrWork.h"
#include "services/ItemsTold.h"
#include "services/LogLockPlaces.h"
#include "services/ProjectRecord.h"

namespace kvx::server {

/// Where the sweep of the blobs goes on.
struct BlobSweep {
    std::string last; ///< digest of the last row looked at
    int folder = 0; ///< 0..255, of those at the store's first level
};

/// What the services remember between requests. Nothing here is the only copy of anything.
struct ServiceMemory {
    RecordCache records;
    LogLockPlaces lockPlaces;
    ItemsTold itemsTold;
    BlobSweep blobSweep;
    OcrWork ocr;
};

} // namespace kvx::server
