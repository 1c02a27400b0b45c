#include "services/Tidying.h"
#include "base/Config.h"
#include "services/Call.h"
#include "services/ServiceMemory.h"
#include "store/BlobStore.h"
#include "store/Db.h"
#include "store/ProjectStore.h"

namespace kvx::server {

namespace {

constexpr Time day = 24 * 3'600'000;
constexpr int blobsAtOnce = 2000;
constexpr int projectsAtOnce = 5;

} // namespace

void sweepBlobs(const Environment &environment, Db &db)
{
    const BlobStore blobs(environment.config.data);
    const Time before = environment.clock.now() - day;
    BlobSweep &sweep = environment.memory->blobSweep;
    sweep.last = blobs.dropUnused(db, sweep.last, before, blobsAtOnce);
    blobs.dropStray(db, sweep.folder, environment.clock.forFiles() - day);
    sweep.folder = (sweep.folder + 1) % BlobStore::folderCount;
}

void purgeTrash(const Environment &environment, Db &db)
{
    const Time before = environment.clock.now() - environment.config.trashDays * day;
    ProjectStore projects(db);
    for (const std::int64_t id : projects.removedBefore(before, projectsAtOnce))
        projects.purge(id);
}

} // namespace kvx::server
