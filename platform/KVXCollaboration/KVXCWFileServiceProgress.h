#pragma once

#include <KVXExport.h>
#include <QtGlobal>

/// Receives the progress of a file transfer, on the calling thread.
class KVXCOLLABORATION_API KVXCWFileServiceProgress {
public:
    virtual ~KVXCWFileServiceProgress() = default;
    /// Bytes moved so far and in all (0: not known).
    virtual void setProgress(qint64 done, qint64 total) = 0;

    /// The transport's callback: receiver is a KVXCWFileServiceProgress or null.
    static void progress(void *receiver, qint64 done, qint64 total);
};
