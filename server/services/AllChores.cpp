#include "notify/Janitor.h"

#include "ocr/OcrEngine.h"
#include "services/GlobalLocks.h"
#include "services/Tidying.h"

namespace kvx::server {

const std::vector<Chore> &allChores()
{
    static const std::vector<Chore> chores = {
        { "trash", purgeTrash },
        { "blobs", sweepBlobs },
        { "global locks", endGlobalLocks },
        { "recognition", dropOldOcrJobs },
    };
    return chores;
}

} // namespace kvx::server
