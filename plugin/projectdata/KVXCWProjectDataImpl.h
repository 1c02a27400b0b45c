#pragma once

#include <KVXCollaboration/KVXCWProjectData.h>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <functional>
#include <memory>
#include <vector>

class IKVXSQLiteModelCommandFile;

/// Saves one project as numbered change logs on the server and fetches the logs of others.
/// Host thread. A receiver or the host's own code called from here may close the project; the
/// operation under way then returns at once, and a save lock that was won is still released.
/// The meta-object is the interface's.
class KVXCWProjectDataImpl : public KVXCWProjectData {
public:
    KVXCWProjectDataImpl();
    /// Deletes downloaded logs that were not applied.
    ~KVXCWProjectDataImpl() override;

    void setProjectGuid(const QString &guid) override;
    void setProjectDatabase(IKVXProjectDatabase *database) override;
    QString projectGuid() const override;
    ErrorCode saveProject(IKVXCWProjectAdditionalInfo *info) override;
    ErrorCode syncLogs() override;

    /// Replaces the sleep (in seconds) while a colleague holds the save lock.
    void setPause(const std::function<void(int)> &pause) { m_pause = pause; }

private:
    ErrorCode doSaveProject(IKVXCWProjectAdditionalInfo *info);
    ErrorCode publishAndRelease(IKVXCWProjectAdditionalInfo *info);
    ErrorCode publish(IKVXCWProjectAdditionalInfo *info);
    bool waitForLock();

    int getLogVersion() const;
    int logLock(bool release) const;
    bool uploadLogFile(const QString &logFile) const;
    bool uploadProjectFile(const QString &projectFile) const;
    bool sendServerToMerge(const QMap<QString, QVariant> &info) const;

    bool downloadLogs(int targetVersion);
    bool mergeLogs();
    bool mergeOneLog(const QString &archivePath);
    void clearLogFiles();

    QStringList m_logFiles; // archives downloaded and not yet merged, in version order
    int m_lockRetries = 0;
    std::vector<std::unique_ptr<IKVXSQLiteModelCommandFile>> m_unloadable;
    QString m_projectGuid;
    IKVXProjectDatabase *m_projectDatabase = nullptr; // borrowed
    std::function<void(int)> m_pause;
};
