#include "services/Files.h"
#include "base/Config.h"
#include "base/Text.h"
#include "services/FileNames.h"
#include "services/FilesUpload.h"
#include "store/BlobStore.h"
#include "store/Db.h"
#include "store/FileStore.h"
#include "store/LogStore.h"
#include "store/ProjectStore.h"

namespace kvx::server {

namespace {

struct Found {
    std::string blob;
    std::string md5;
    std::optional<std::int64_t> logVersion; ///< of a project file
};

std::optional<Found> findOwn(Call &call, FileStore::Owner owner, const std::string &name)
{
    const auto file = FileStore(call.db()).find(owner, name);
    return file ? std::optional(Found { file->blob, file->md5, {} }) : std::nullopt;
}

/// The published file; the same nothing for a missing one and for one of a foreign project.
std::optional<Found> findPublished(Call &call, const FileName &name)
{
    if (name.kind == FileName::Kind::Own)
        return findOwn(call, { FileStore::Owner::Kind::User, call.caller().userId }, name.name);
    const auto access = call.findProject(name.guid);
    if (!access || name.kind == FileName::Kind::BadChangeLog)
        return std::nullopt;
    if (name.kind == FileName::Kind::Attachment)
        return findOwn(call, { FileStore::Owner::Kind::Project, access->id }, name.name);
    if (name.kind == FileName::Kind::ChangeLog) {
        const auto log = LogStore(call.db()).log(access->id, name.version);
        return log ? std::optional(Found { log->blob, log->md5, {} }) : std::nullopt;
    }
    const auto project = ProjectStore(call.db()).find(access->id);
    if (!project->fileBlob)
        return std::nullopt;
    return Found { *project->fileBlob, project->fileMd5, project->logVersion };
}

Reply download(Call &call)
{
    const auto found = findPublished(call, requestedFile(call.request()));
    if (!found)
        return Reply::refused(StatusCode::NoSuchFile);
    const BlobStore blobs(call.config().data);
    Reply reply = Reply::file(
        { blobs.path(found->blob), BlobStore::size(call.db(), found->blob), found->blob });
    if (found->logVersion)
        reply.set("LogVersion", *found->logVersion);
    return reply;
}

Reply hasUpload(Call &call)
{
    const auto found = findPublished(call, requestedFile(call.request()));
    const std::string md5 = lowerAscii(call.request().text("md5", std::string()));
    if (!found || (!md5.empty() && md5 != found->md5))
        return Reply::refused(StatusCode::NoSuchFile);
    return Reply::ok();
}

} // namespace

const ServiceTable fileServices = {
    { "upload", receiveUpload, NeedsUser | Writes | Light, beforeUpload },
    { "download", download, NeedsUser | Light },
    { "hasupload", hasUpload, NeedsUser | Light },
};

} // namespace kvx::server
