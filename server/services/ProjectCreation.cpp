#include "services/ProjectCreation.h"
#include "base/Text.h"
#include "services/Access.h"
#include "services/ProjectFields.h"
#include "store/Db.h"
#include "store/PermissionStore.h"
#include "store/ProjectStore.h"

namespace kvx::server {

namespace {

constexpr Time creationRepeatWindow = 10 * 60'000;

/// What both services refuse, in their order; the project's fields are filled in.
std::optional<Reply> refuseNew(Call &call, ProjectStore::New &project)
{
    const Request &request = call.request();
    project.kind = request.text("Type", 100);
    project.name = nameOf(request, "Name", 200);
    project.guid = request.guid("ProjectGUID");
    project.creatorId = call.caller().userId;
    project.now = wallTime();
    project.amount = amountOf(request).value_or("");
    project.state = numberOf(request, "ProjectState").value_or(0);
    const bool innerName = isInnerLibraryName(project.name);
    const bool innerGuid = isInnerLibraryGuid(project.guid);
    if ((innerName || innerGuid)
        && !(innerName && innerGuid && project.kind == "ResourceLibrary" && isAdministrator(call)))
        return Reply::refused(StatusCode::NotAllowed);
    return std::nullopt;
}

bool isRepeat(const Project &existing, const ProjectStore::New &project)
{
    return !existing.isRemoved() && existing.name == project.name
        && existing.creatorId == project.creatorId && existing.logVersion == -1
        && project.now - existing.created < creationRepeatWindow;
}

/// Creates the project, or refuses. `source` is the amended project of an addendum.
Reply create(Call &call, const ProjectStore::New &project, const ProjectAccess *source)
{
    ProjectStore projects(call.db());
    if (const auto existing = projects.find(project.guid)) {
        return isRepeat(*existing, project) ? Reply::ok() : Reply::refused(StatusCode::GuidTaken);
    }
    if (projects.isNameTaken(project.name))
        return Reply::refused(StatusCode::NameTaken, { project.name });

    const std::int64_t id = projects.insert(project);
    PermissionStore permissions(call.db());
    permissions.set(id, call.caller().userId, { 1, 1, 1, 1 });
    if (source)
        permissions.copyForAddendum(source->id, id);

    announceWholeRecord(call, id, "New");
    call.audit(static_cast<int>(StatusCode::Ok), project.guid, project.name);
    return Reply::ok();
}

Reply newProject(Call &call)
{
    ProjectStore::New project;
    if (const auto refusal = refuseNew(call, project))
        return *refusal;
    return create(call, project, nullptr);
}

Reply addendumProject(Call &call)
{
    ProjectStore::New project;
    if (const auto refusal = refuseNew(call, project))
        return *refusal;
    project.bidStatus = numberOf(call.request(), "BidStatus").value_or(0);
    project.addendumOf = call.project().guid;
    return create(call, project, &call.project());
}

} // namespace

const ServiceTable projectCreationServices = {
    { "newproject", newProject, CreatesKind | NamesCaller | NamesCreator | Writes },
    { "addendumproject", addendumProject,
        CreatesKind | AmendsProject | NamesCaller | NamesCreator | Writes },
};

} // namespace kvx::server
