#include "projectdata/KVXCWProjectDataImpl.h"

#include "frame/KVXServerInfo.h"
#include "frame/Log.h"
#include "frame/ServiceRequest.h"
#include "login/CurrentUser.h"
#include "projectdata/KVXCWIDManagerImpl.h"

#include <FailPoint.h>
#include <KVXCollaboration/IKVXCWProjectAdditionalInfo.h>
#include <KVXCollaboration/IKVXProjectDatabase.h>
#include <KVXCollaboration/KVXCWFileService.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCommon/KVXZipFile.h>
#include <KVXSQLite/IKVXSQLiteModel.h>
#include <KVXSQLite/IKVXSQLiteModelCommandFile.h>
#include <QDir>
#include <QFile>
#include <QPointer>
#include <QThread>
#include <QUuid>
#include <algorithm>
#include <exception>

namespace {

constexpr int NoLogYet = -1;
constexpr int LogVersionUnknown = -2;
// Kept as is: log numbers have at most nine digits; a version above is no version.
constexpr int HighestLogVersion = 999999999;

enum LockReply { LockStale = 0, LockMine = 1, LockBusy = 2 };
constexpr int MostLockWaits = 180;

QString logName(const QString &guid, int version)
{
    return guid + QLatin1String("_log") + QString::number(version);
}

QString temporaryPath(const QString &name)
{
    return QDir::tempPath() + QLatin1Char('/') + name;
}

QString freshTemporaryPath()
{
    return temporaryPath(QUuid::createUuid().toString());
}

/// Kept as is: refused before anything is sent. The GUID comes from the server; a name made of it
/// must stay inside the temporary directory.
bool isFlatFileName(const QString &name)
{
    return !name.contains(QLatin1Char('/')) && !name.contains(QLatin1Char('\\'))
        && !name.contains(QChar(QChar::Null));
}

int requestLogLock(const QString &guid, int version, bool release)
{
    const ServiceReply reply = ServiceRequest("loglock")
                                   .set("Email", kvx::currentUserEmail())
                                   .set("ProjectGUID", guid)
                                   .set("LogVersion", version)
                                   .set("ReleaseLock", release)
                                   .post();
    return reply.ok() ? reply.integer("Lock") : -1;
}

} // namespace

KVXCWProjectDataImpl::KVXCWProjectDataImpl()
    : m_pause([](int seconds) { QThread::sleep(static_cast<unsigned long>(seconds)); })
{
}

KVXCWProjectDataImpl::~KVXCWProjectDataImpl()
{
    clearLogFiles(); // Kept as is: no later pass would delete them.
}

void KVXCWProjectDataImpl::setProjectGuid(const QString &guid)
{
    m_projectGuid = guid;
    m_logVersion = std::max(NoLogYet, getLogVersion());
    m_unloadable.clear();
    m_synced = false;
}

void KVXCWProjectDataImpl::setProjectDatabase(IKVXProjectDatabase *database)
{
    m_projectDatabase = database;
}

QString KVXCWProjectDataImpl::projectGuid() const
{
    return m_projectGuid;
}

KVXCWProjectData::ErrorCode KVXCWProjectDataImpl::saveProject(IKVXCWProjectAdditionalInfo *info)
{
    m_lockRetries = 0;
    const ErrorCode result = doSaveProject(info);
    KVX_INFO("KVXCWProjectDataImpl.saveProject, Result=%1", result);
    return result;
}

KVXCWProjectData::ErrorCode KVXCWProjectDataImpl::doSaveProject(IKVXCWProjectAdditionalInfo *info)
{
    const QPointer<KVXCWProjectDataImpl> self(this);
    for (;;) { // every retry starts from a fresh synchronisation
        KVX_INFO("KVXCWProjectDataImpl.doSaveProject");
        const ErrorCode synced = syncLogs();
        if (synced != Success)
            return synced;
        if (!self)
            return SaveCancelled;
        if (KVX_FAIL_POINT("save/asking for the lock"))
            return synced;
        const int lock = logLock(false);
        if (KVX_FAIL_POINT("save/lock answered"))
            return synced;
        KVX_INFO("KVXCWProjectDataImpl.doSaveProject.logLock, Result=%1", lock);
        switch (lock) {
        case LockStale:
            continue; // Kept as is: at once and without counting; only the server ends this.
        case LockBusy:
            if (!waitForLock())
                return LockWaitExhausted;
            if (!self)
                return SaveCancelled;
            continue;
        case LockMine:
            return publishAndRelease(info);
        default:
            return synced; // Kept as is: no lock service means nothing to publish.
        }
    }
}

/// Waits 2, 4, 1, 2, 4, 1 … seconds. False: that was tried often enough.
bool KVXCWProjectDataImpl::waitForLock()
{
    static constexpr int seconds[] = { 1, 2, 4 };
    if (++m_lockRetries > MostLockWaits)
        return false;
    const std::function<void(int)> pause = m_pause;
    pause(seconds[m_lockRetries % 3]);
    return true;
}

KVXCWProjectData::ErrorCode KVXCWProjectDataImpl::publishAndRelease(
    IKVXCWProjectAdditionalInfo *info)
{
    const QPointer<KVXCWProjectDataImpl> self(this);
    const QString guid = m_projectGuid;
    const int lockedVersion = m_logVersion;
    ErrorCode result = SaveCancelled;
    std::exception_ptr thrown; // by the host: its own to catch, once the lock is free
    try {
        result = publish(info);
    } catch (...) {
        thrown = std::current_exception();
    }
    if (KVX_FAIL_POINT("save/releasing the lock"))
        return result;
    if (self && m_projectGuid == guid) {
        logLock(true);
    } else {
        // The project was closed meanwhile; its lock must not outlive it.
        const bool published = result == Success || result == CheckOutFailed;
        requestLogLock(guid, published ? lockedVersion + 1 : lockedVersion, true);
    }
    if (thrown)
        std::rethrow_exception(thrown);
    if (KVX_FAIL_POINT("save/lock released"))
        return result;
    KVX_INFO("KVXCWProjectDataImpl.doSaveProject.releaseLogLock");
    return result;
}

/// Under the lock. Success and CheckOutFailed: the log is published.
KVXCWProjectData::ErrorCode KVXCWProjectDataImpl::publish(IKVXCWProjectAdditionalInfo *info)
{
    const QPointer<KVXCWProjectDataImpl> self(this);
    const QString guid = m_projectGuid;
    const auto closed = [&] { return !self || m_projectGuid != guid; };

    bool proceed = true;
    emit aboutToSaveProject(proceed);
    if (!proceed || closed())
        return SaveCancelled;
    if (!info || !info->isReady())
        return AdditionalInfoNotReady;
    if (closed())
        return SaveCancelled;
    QMap<QString, QVariant> map;
    info->additionalInfo(map);
    if (closed())
        return SaveCancelled;

    // The log goes first: a project file is never uploaded without its log.
    KVX_INFO("KVXCWProjectDataImpl.doSaveProject.uploadLogFile and uploadProjectFile");
    if (!uploadLogFile(map.value(QStringLiteral("ProjectLogFile")).toString()))
        return UploadFailed;
    if (KVX_FAIL_POINT("save/log uploaded"))
        return UploadFailed;
    if (closed())
        return SaveCancelled;
    if (!uploadProjectFile(map.value(QStringLiteral("ProjectFile")).toString()))
        return UploadFailed;
    if (KVX_FAIL_POINT("save/file uploaded"))
        return UploadFailed;
    if (closed())
        return SaveCancelled;

    KVX_INFO("KVXCWProjectDataImpl.doSaveProject.sendServerToMerge");
    if (!sendServerToMerge(map))
        return SendToMergeFailed;
    if (KVX_FAIL_POINT("save/merge answered"))
        return SendToMergeFailed;
    if (closed())
        return CheckOutFailed;
    ++m_logVersion;

    if (KVX_FAIL_POINT("save/checking new items out"))
        return CheckOutFailed;
    KVX_INFO("KVXCWProjectDataImpl.doSaveProject.checkOutNewItems");
    auto *items
        = qobject_cast<KVXCWIDManagerImpl *>(KVXCollaborator::getInstance()->idManager(guid));
    return items && items->checkOutNewItems() ? Success : CheckOutFailed;
}

int KVXCWProjectDataImpl::getLogVersion() const
{
    const ServiceReply reply = ServiceRequest("getlogversion")
                                   .set("Email", kvx::currentUserEmail())
                                   .set("ProjectGUID", m_projectGuid)
                                   .post();
    const int version = reply.integer("LogVersion");
    return reply.ok() && version <= HighestLogVersion ? version : LogVersionUnknown;
}

/// LockReply, another value of the server, or -1 when the request failed.
int KVXCWProjectDataImpl::logLock(bool release) const
{
    return requestLogLock(m_projectGuid, m_logVersion, release);
}

bool KVXCWProjectDataImpl::uploadLogFile(const QString &logFile) const
{
    const QString name = logName(m_projectGuid, m_logVersion + 1);
    if (!KVXServerInfo::getInstance()->isConfigured() || !isFlatFileName(name))
        return false;
    if (KVX_FAIL_POINT("save/packing"))
        return false;
    const QString archivePath = temporaryPath(name);
    // Kept as is: an archive that could not be packed fails at the upload.
    KVXZipFile::compressFiles(archivePath, { { name, logFile } }, QString());
    const ServiceReply reply
        = ServiceRequest("upload").set("LocalFileName", archivePath).set("FileName", name).post();
    KVX_INFO("uploadLogFile: %1-%2", logFile, reply.rawStatus());
    return reply.ok();
}

bool KVXCWProjectDataImpl::uploadProjectFile(const QString &projectFile) const
{
    const QString guid = m_projectGuid; // the file service may outlive this object
    KVXCWFileService *files = KVXCollaborator::getInstance()->fileService();
    return files && files->upload(QString(), guid, projectFile, QMap<QString, QVariant>());
}

bool KVXCWProjectDataImpl::sendServerToMerge(const QMap<QString, QVariant> &info) const
{
    return ServiceRequest("sendservertomerge")
        .set("Email", kvx::currentUserEmail())
        .set("ProjectGUID", m_projectGuid)
        .set("LogVersion", m_logVersion)
        .set("LogFilename", logName(m_projectGuid, m_logVersion + 1))
        .set("Amount", info.value(QStringLiteral("Amount")).toString())
        .post()
        .ok();
}

KVXCWProjectData::ErrorCode KVXCWProjectDataImpl::syncLogs()
{
    const QPointer<KVXCWProjectDataImpl> self(this);
    KVX_INFO("KVXCWProjectDataImpl::syncLogs");
    m_synced = false;
    if (KVX_FAIL_POINT("sync/asking for the version"))
        return GetLogVersionFailed;
    const int server = getLogVersion();
    if (server == LogVersionUnknown || KVX_FAIL_POINT("sync/version known"))
        return GetLogVersionFailed;
    // Kept as is: a pass that finds nothing to fetch is not marked as synchronised.
    if (!self || server == NoLogYet || m_logVersion >= server)
        return Success;
    if (!downloadLogs(server))
        return DownloadLogsFailed;
    if (!mergeLogs())
        return MergeLogsFailed;
    KVXCWIDManager *items = KVXCollaborator::getInstance()->idManager(m_projectGuid);
    if (!items || !items->syncCheckOutStates()) {
        KVX_INFO("syncCheckOutStates failed.");
        return CheckOutFailed;
    }
    KVX_INFO("syncCheckOutStates successed.");
    if (self)
        m_synced = true;
    return Success;
}

bool KVXCWProjectDataImpl::downloadLogs(int targetVersion)
{
    KVX_INFO("KVXCWProjectDataImpl::downloadLogs");
    if (!KVXServerInfo::getInstance()->isConfigured())
        return false;
    const QPointer<KVXCWProjectDataImpl> self(this);
    clearLogFiles();
    ServiceRequest request("download");
    for (int version = m_logVersion + 1; version <= targetVersion; ++version) {
        const QString local = freshTemporaryPath();
        const bool received = request.set("LocalFileName", local)
                                  .set("FileName", logName(m_projectGuid, version))
                                  .post()
                                  .ok();
        if (!self || !received) {
            QFile::remove(local);
            if (self) {
                KVX_WARN("Download log failed, Will clear log list");
                clearLogFiles();
            }
            return false;
        }
        KVX_INFO("Download log success, LocalFileName=%1", local);
        m_logFiles.append(local);
    }
    return true;
}

bool KVXCWProjectDataImpl::mergeLogs()
{
    KVX_INFO("KVXCWProjectDataImpl::mergeLogs: logCount=%1", m_logFiles.size());
    const QPointer<KVXCWProjectDataImpl> self(this);
    const QStringList logFiles = m_logFiles;
    const int firstVersion = m_logVersion + 1;
    for (int i = 0; i < logFiles.size(); ++i) {
        if (!mergeOneLog(logFiles.at(i))) {
            KVX_WARN("Merge log file failed: no=%1, filename=%2", i + 1, logFiles.at(i));
            return false;
        }
        // Kept as is: the success line has the failure line's level.
        KVX_WARN("Merge log file successed: no=%1, filename=%2", i + 1, logFiles.at(i));
        if (!self)
            return false;
        // Not counted up: the host may have synchronised again from inside the execution.
        m_logVersion = std::max(m_logVersion, firstVersion + i);
    }
    clearLogFiles();
    return true;
}

/// Kept as is: a folder that was unpacked is removed only when its log was executed.
bool KVXCWProjectDataImpl::mergeOneLog(const QString &archivePath)
{
    const QString folder = freshTemporaryPath();
    QMap<QString, QString> files;
    if (KVX_FAIL_POINT("merge/unpacking"))
        return false;
    if (!KVXZipFile::extractFiles(archivePath, folder, files, QString())) {
        KVX_INFO("extractFiles failed");
        return false;
    }
    const QString path = files.isEmpty() ? QString() : files.first();
    if (!QFile::exists(path))
        return false;
    std::unique_ptr<IKVXSQLiteModelCommandFile> commandFile(CreateSQLiteModelCommandFile());
    if (!commandFile->loadFromFile(path)) {
        KVX_INFO("loadFromFile failed");
        m_unloadable.push_back(std::move(commandFile)); // Kept as is: it lives on.
        return false;
    }
    IKVXSQLiteModel *model = m_projectDatabase ? m_projectDatabase->model() : nullptr;
    const int result = model ? model->execute(commandFile.get(), 0) : 0;
    KVX_INFO("mergeOneLog: %1-%2", path, result);
    commandFile.reset();
    // One file, as a rule: reading the folder first takes longer than both.
    if (!QFile::remove(path) || !QDir().rmdir(folder))
        QDir(folder).removeRecursively();
    return result != 0 && !KVX_FAIL_POINT("merge/log applied");
}

void KVXCWProjectDataImpl::clearLogFiles()
{
    for (const QString &file : qAsConst(m_logFiles))
        QFile::remove(file);
    m_logFiles.clear();
}
