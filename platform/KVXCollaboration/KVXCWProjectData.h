#pragma once

#include <KVXExport.h>
#include <QObject>
#include <QString>

class IKVXCWProjectAdditionalInfo;
class IKVXProjectDatabase;

/// Saving and synchronisation of one opened project. Host thread; blocks for the length of the
/// transfers, a save also while a colleague holds the save lock (up to seven minutes). Not two
/// operations of one object at once. The order of the virtual operations is binding.
class KVXCOLLABORATION_API KVXCWProjectData : public QObject {
    Q_OBJECT
public:
    /// The numbers are part of the interface; 8 is never produced.
    enum ErrorCode {
        Success = 1,
        GetLogVersionFailed = 2,
        DownloadLogsFailed = 3,
        MergeLogsFailed = 4,
        CheckOutFailed = 5,
        UploadFailed = 6,
        SendToMergeFailed = 7,
        LockWaitExhausted = 9,
        AdditionalInfoNotReady = 10,
        SaveCancelled = 11
    };

    ~KVXCWProjectData() override = default;

    /// Asks the server for its version: a project counts as being at it when it is opened.
    virtual void setProjectGuid(const QString &guid) = 0;
    /// Borrowed; null detaches.
    virtual void setProjectDatabase(IKVXProjectDatabase *database) = 0;
    virtual QString projectGuid() const = 0;
    /// Publishes the user's changes as the next version. Success is also returned when the save
    /// lock could not be asked for: whether something was published tells logVersion().
    virtual ErrorCode saveProject(IKVXCWProjectAdditionalInfo *info) = 0;
    /// Fetches and applies the versions that the server has and the local copy lacks.
    virtual ErrorCode syncLogs() = 0;

    /// The version that the local database is at; -1 before the first.
    int logVersion() const { return m_logVersion; }
    /// True after a pass that fetched and applied logs and ran to its end.
    bool isSynced() const { return m_synced; }

Q_SIGNALS:
    /// Under the save lock, before anything is sent; a receiver may clear proceed.
    void aboutToSaveProject(bool &proceed);

protected:
    int m_logVersion = -1;
    bool m_synced = false;
};
