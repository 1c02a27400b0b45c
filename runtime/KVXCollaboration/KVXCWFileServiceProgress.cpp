#include <KVXCollaboration/KVXCWFileServiceProgress.h>

void KVXCWFileServiceProgress::progress(void *receiver, qint64 done, qint64 total)
{
    if (receiver)
        static_cast<KVXCWFileServiceProgress *>(receiver)->setProgress(done, total);
}
