#include "services/FilesUpload.h"
#include "base/Config.h"
#include "base/Text.h"
#include "services/Access.h"
#include "services/FileNames.h"
#include "services/LogArchive.h"
#include "store/BlobStore.h"
#include "store/Db.h"
#include "store/FileStore.h"
#include "store/LogStore.h"
#include "store/ProjectStore.h"
#include "store/StageStore.h"

#include <cerrno>
#include <system_error>

namespace kvx::server {

namespace {

/// Where an upload goes, once everything speaks for it.
struct Target {
    enum class Kind { StagedLog, StagedFile, FirstFile, Attachment, Own } kind = Kind::Own;
    FileName name;
    std::int64_t projectId = 0;
    std::string projectGuid;
    std::int64_t generation = 0; ///< of the log lock, where staged
    bool afterFirstSave = false;
};

std::string sizeText(std::int64_t bytes)
{
    return std::to_string(bytes >> 20) + " MiB";
}

std::optional<Reply> refuseStaged(Call &call, const Project &project, Target &target)
{
    if (const auto refusal = refuseOpenElsewhere(call, project.id))
        return refusal;
    if (target.name.kind == FileName::Kind::BadChangeLog)
        return Reply::refused(StatusCode::WrongLogName);
    const bool holdsLock = project.lockSession == call.caller().sessionId;
    const bool isFile = target.name.kind == FileName::Kind::ProjectFile;
    target.generation = project.lockGeneration;
    target.afterFirstSave = project.logVersion >= 0;
    if (!holdsLock && isFile && project.logVersion == -1
        && project.creatorId == call.caller().userId) {
        target.kind = Target::Kind::FirstFile;
        return std::nullopt;
    }
    if (!holdsLock)
        return Reply::refused(StatusCode::LockNotHeld);
    target.kind = isFile ? Target::Kind::StagedFile : Target::Kind::StagedLog;
    if (isFile || target.name.version == project.logVersion + 1)
        return std::nullopt;
    return Reply::refused(target.name.version <= project.logVersion ? StatusCode::VersionBehind
                                                                    : StatusCode::VersionAhead);
}

/// The one place that judges an upload; it runs before the bytes come and again before the rows.
std::optional<Reply> refuseUpload(Call &call, Target &target)
{
    const Request &request = call.request();
    target.name = requestedFile(request);
    const FileName &name = target.name;
    const std::string md5 = request.text("md5", std::string());
    if (!md5.empty() && !isHex(md5, 32))
        throw BadRequest("\"md5\" must be 32 hexadecimal digits");
    // Before the lock: a save without space was given none, and is to hear the real reason.
    if (!hasSpace(call.config()))
        return Reply::refused(StatusCode::StorageFull);
    if (name.kind != FileName::Kind::Own) {
        const auto access = call.findProject(name.guid);
        if (!access)
            return Reply::refused(StatusCode::NoSuchProject);
        if (!access->canWrite())
            return Reply::refused(StatusCode::NotAllowed);
        if (!access->lockedBy.empty())
            return Reply::refused(StatusCode::ProjectLocked, { access->lockedBy });
        target.projectId = access->id;
        target.projectGuid = access->guid;
        if (name.kind == FileName::Kind::Attachment) {
            target.kind = Target::Kind::Attachment;
        } else {
            const auto project = ProjectStore(call.db()).find(access->id);
            if (auto refusal = refuseStaged(call, *project, target))
                return refusal;
        }
    }
    return std::nullopt;
}

Reply stage(Call &call, const Target &target)
{
    const ReceivedFile &file = *call.file();
    const auto part
        = target.kind == Target::Kind::StagedLog ? StageStore::Part::Log : StageStore::Part::File;
    StageStore(call.db()).put(target.projectId, part,
        { target.generation, call.caller().sessionId, file.sha256, file.md5, file.size },
        call.now());
    LogStore(call.db()).renew(
        target.projectId, call.caller().sessionId, call.now() + call.config().lockLease);
    return Reply::ok();
}

Reply setFirstFile(Call &call, const Target &target)
{
    const ReceivedFile &file = *call.file();
    const auto project = ProjectStore(call.db()).find(target.projectId);
    if (project->fileBlob) {
        return *project->fileBlob == file.sha256 ? Reply::ok()
                                                 : Reply::refused(StatusCode::BaseExists);
    }
    LogStore(call.db()).setFirstFile(target.projectId, file.sha256, file.md5);
    call.audit(static_cast<int>(StatusCode::Ok), target.projectGuid, "first file");
    return Reply::ok();
}

Reply keepNamed(Call &call, const Target &target)
{
    const bool own = target.kind == Target::Kind::Own;
    const FileStore::Owner owner { own ? FileStore::Owner::Kind::User
                                       : FileStore::Owner::Kind::Project,
        own ? call.caller().userId : target.projectId };
    const std::int64_t quota = own ? call.config().userQuota : call.config().projectQuota;
    const ReceivedFile &file = *call.file();
    FileStore files(call.db());
    const auto former = files.find(owner, target.name.name);
    if (files.usedBytes(owner) - (former ? former->size : 0) + file.size > quota)
        return Reply::refused(StatusCode::QuotaExceeded, { sizeText(quota) });
    files.put(owner, target.name.name, { file.sha256, file.md5, file.size }, call.caller().userId,
        call.now());
    return Reply::ok();
}

/// The rows, in the transaction that judges once more.
Reply keepFile(Call &call)
{
    Target target;
    if (const auto refusal = refuseUpload(call, target))
        return *refusal;
    const ReceivedFile &file = *call.file();
    BlobStore(call.config().data).record(call.db(), file.path, file.sha256, file.size, call.now());
    switch (target.kind) {
    case Target::Kind::StagedLog:
    case Target::Kind::StagedFile:
        return stage(call, target);
    case Target::Kind::FirstFile:
        return setFirstFile(call, target);
    default:
        return keepNamed(call, target);
    }
}

} // namespace

Reply beforeUpload(Call &call)
{
    Target target;
    const auto refusal = refuseUpload(call, target);
    return refusal ? *refusal : Reply::ok();
}

Reply receiveUpload(Call &call)
{
    Target target;
    if (const auto refusal = refuseUpload(call, target))
        return *refusal;
    const ReceivedFile &file = *call.file();
    const std::string md5 = lowerAscii(call.request().text("md5", std::string()));
    if (!md5.empty() && md5 != file.md5)
        return Reply::refused(StatusCode::Damaged);

    const bool check = target.kind == Target::Kind::StagedLog && call.config().logsCheck != "none";
    const std::string entry
        = check ? logName(target.projectGuid, target.name.version) : std::string();
    const bool whole = check && call.config().logsCheck == "changeset";
    Reply reply
        = Reply::after([data = call.config().data, path = file.path, sha256 = file.sha256, entry,
                           whole, guid = target.projectGuid, version = target.name.version] {
              std::optional<std::string> fault;
              if (!entry.empty())
                  fault = faultOfLogArchive(path, entry);
              if (!fault && whole)
                  fault = faultOfArchivedCommandFile(path, guid, version);
              if (fault)
                  return Reply::refusing(StatusCode::BadArchive, *fault);
              try {
                  BlobStore(data).place(path, sha256);
              } catch (const std::system_error &error) {
                  if (error.code().value() != ENOSPC && error.code().value() != EDQUOT)
                      throw;
                  return Reply::refusing(StatusCode::StorageFull);
              }
              return Reply::Continuation(keepFile);
          });
    // A stage that a power cut took back is missed by the merge, and the client saves again. Before
    // the first save what is staged now may be published at once when its rows are written.
    if (target.kind == Target::Kind::StagedLog
        || (target.kind == Target::Kind::StagedFile && target.afterFirstSave))
        reply.setLazy();
    return reply;
}

} // namespace kvx::server
