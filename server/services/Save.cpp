#include "services/Save.h"
#include "base/Config.h"
#include "base/Text.h"
#include "services/Access.h"
#include "services/FileNames.h"
#include "store/Db.h"
#include "store/LogStore.h"
#include "store/ProjectStore.h"
#include "store/StageStore.h"

#include <FailPoint.h>
#include <limits>

namespace kvx::server {

namespace {

/// The amount to store; nothing where it is empty or cannot be kept, which is no reason to refuse
/// a save.
std::optional<std::string> savedAmount(const Request &request)
{
    const Json *amount = request.find("Amount");
    if (amount && amount->IsNumber())
        return compactJson(*amount);
    if (!amount || !amount->IsString() || amount->GetStringLength() == 0
        || amount->GetStringLength() > 64)
        return std::nullopt;
    return std::string(amount->GetString(), amount->GetStringLength());
}

bool isNameOfLog(const std::string &fileName, const Project &project, std::int64_t version)
{
    const auto name = parseFileName(fileName);
    return name && name->kind == FileName::Kind::ChangeLog && name->version == version
        && guidKey(name->guid) == guidKey(project.guid);
}

Reply published(std::int64_t version, const std::string &chain)
{
    return Reply::ok().set("LogVersion", version).set("Chain", chain);
}

Reply sendServerToMerge(Call &call)
{
    if (KVX_FAIL_POINT("publish/begun"))
        throw DbError(DbError::Kind::Other, "disk I/O error");
    const Request &request = call.request();
    const Caller &caller = call.caller();
    const std::int64_t before
        = request.integer("LogVersion", -1, std::numeric_limits<std::int32_t>::max() - 1);
    const std::string logFile = request.text("LogFilename", 1000);
    const auto project = ProjectStore(call.db()).find(call.project().id);
    LogStore logs(call.db());

    // Also when it has released the lock since: the next holder begins a new generation.
    if (project->logVersion == before + 1) {
        const auto log = logs.log(project->id, project->logVersion);
        if (log && log->sessionId == caller.sessionId && log->generation == project->lockGeneration)
            return published(project->logVersion, log->chain); // the reply was lost
    }
    if (project->lockSession != caller.sessionId)
        return Reply::refused(StatusCode::LockNotHeld);
    if (!call.project().canWrite())
        return Reply::refused(StatusCode::NotAllowed);
    if (!call.project().lockedBy.empty())
        return Reply::refused(StatusCode::ProjectLocked, { call.project().lockedBy });
    if (before < project->logVersion)
        return Reply::refused(StatusCode::VersionBehind);
    if (before > project->logVersion)
        return Reply::refused(StatusCode::VersionAhead);
    const std::int64_t version = before + 1;
    if (!isNameOfLog(logFile, *project, version))
        return Reply::refused(StatusCode::WrongLogName);

    StageStore stages(call.db());
    const auto log = stages.get(project->id, StageStore::Part::Log, project->lockGeneration);
    const auto file = stages.get(project->id, StageStore::Part::File, project->lockGeneration);
    if (!log || !file)
        return Reply::refused(StatusCode::UploadMissing);
    if (KVX_FAIL_POINT("publish/checked"))
        throw DbError(DbError::Kind::Other, "disk I/O error");

    LogStore::Publication publication;
    publication.projectId = project->id;
    publication.version = version;
    publication.sessionId = caller.sessionId;
    publication.userId = caller.userId;
    publication.generation = project->lockGeneration;
    publication.device = caller.device;
    publication.logBlob = log->blob;
    publication.logMd5 = log->md5;
    publication.logSize = log->size;
    publication.fileBlob = file->blob;
    publication.fileMd5 = file->md5;
    publication.amount = savedAmount(request);
    publication.now = wallTime();
    publication.chain = chainDigest({ project->chain, project->guid, version, log->blob, file->blob,
        caller.userId, publication.now });
    if (!logs.publish(publication))
        return Reply::refused(StatusCode::LockNotHeld);
    if (KVX_FAIL_POINT("publish/applied"))
        throw DbError(DbError::Kind::Full, "database or disk is full");
    logs.forgetFiles(project->id, version - call.config().keepFiles);
    stages.drop(project->id);

    call.audit(static_cast<int>(StatusCode::Ok), logFile, std::to_string(version));
    announceRecord(call, project->id, "Save");
    call.wakeHeld(logLockKey(project->id));
    if (KVX_FAIL_POINT("publish/before the commit"))
        throw DbError(DbError::Kind::Full, "database or disk is full");
    return published(version, publication.chain);
}

} // namespace

const ServiceTable saveServices = {
    { "sendservertomerge", sendServerToMerge, ProjectReader | NamesCaller | Writes },
};

} // namespace kvx::server
