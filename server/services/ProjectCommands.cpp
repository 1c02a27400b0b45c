#include "services/ProjectCommands.h"
#include "base/Config.h"
#include "base/Text.h"
#include "services/Access.h"
#include "services/ProjectFields.h"
#include "store/Db.h"
#include "store/ItemStore.h"
#include "store/OpenStore.h"
#include "store/ProjectStore.h"
#include "store/StageStore.h"

namespace kvx::server {

namespace {

constexpr Time removalRepeatWindow = 24 * 3'600'000;
constexpr std::size_t maximumInfo = 256 * 1024;

std::string joined(const std::vector<OpenStore::Editor> &editors)
{
    std::string names;
    for (const auto &editor : editors)
        names += (names.empty() ? "" : ", ") + editor.name;
    return names;
}

// The remover may repeat the request when the project is gone.
Reply removeProjectOfCaller(Call &call)
{
    if (!call.hasProject()) {
        const auto removed = ProjectStore(call.db()).find(call.request().guid("ProjectGUID"));
        const bool repeat = removed && removed->removedBy == call.caller().userId
            && call.now() - removed->removedAt.value_or(0) < removalRepeatWindow;
        return repeat ? Reply::ok() : Reply::refused(StatusCode::NoSuchProject);
    }
    const ProjectAccess &project = call.project();
    if (const auto refusal = refuseRemoval(call, project))
        return *refusal;
    removeProject(call, project.id, call.caller().userId);
    call.audit(static_cast<int>(StatusCode::Ok), project.guid, project.name);
    return Reply::ok();
}

Reply updateProject(Call &call)
{
    const Request &request = call.request();
    ProjectStore::Fields fields;
    fields.amount = amountOf(request);
    fields.state = numberOf(request, "ProjectState");
    fields.bidStatus = numberOf(request, "BidStatus");
    ProjectStore(call.db()).update(call.project().id, fields, call.caller().userId, wallTime());
    announceRecord(call, call.project().id, "Update");
    return Reply::ok();
}

Reply renameProject(Call &call)
{
    const std::string oldName = call.request().text("OldName");
    const std::string newName = nameOf(call.request(), "NewName", 200);
    const ProjectAccess &project = call.project();
    if (project.name == newName)
        return Reply::ok();
    if (!project.lockedBy.empty())
        return Reply::refused(StatusCode::ProjectLocked, { project.lockedBy });
    if (project.name != displayName(oldName, 200))
        return Reply::refused(StatusCode::NameChanged, { oldName });
    if (isInnerLibraryName(newName) || isInnerLibraryGuid(project.guid))
        return Reply::refused(StatusCode::NotAllowed);
    try {
        ProjectStore(call.db()).rename(project.id, newName, call.caller().userId, wallTime());
    } catch (const DbError &error) {
        if (!error.isUnique())
            throw;
        return Reply::refused(StatusCode::NameTaken, { newName });
    }
    announceRecord(call, project.id, "Rename");
    call.audit(static_cast<int>(StatusCode::Ok), oldName, newName);
    return Reply::ok();
}

/// The object as compact text, sent as an object or as a text that holds one.
std::string infoOf(const Request &request)
{
    const Json *info = request.find("AdditionalInfo");
    std::string text;
    if (info && info->IsObject()) {
        text = compactJson(*info);
    } else if (info && info->IsString() && info->GetStringLength() > 0) {
        // Checked like a request of its own: depth, duplicate keys, encoding.
        const std::string sent(info->GetString(), info->GetStringLength());
        text = compactJson(Request::parse(sent, "AdditionalInfo")->json());
    } else {
        throw BadRequest("\"AdditionalInfo\" must be an object");
    }
    if (text.size() > maximumInfo)
        throw BadRequest("\"AdditionalInfo\" is longer than 256 KiB");
    return text;
}

Reply updateAdditionalInfo(Call &call)
{
    const ProjectAccess &project = call.project();
    const std::string info = infoOf(call.request());
    ProjectStore(call.db()).setInfo(project.id, info);
    announceInfo(call, project.id, project.guid, info);
    return Reply::ok();
}

} // namespace

std::optional<Reply> refuseRemoval(Call &call, const ProjectAccess &project)
{
    const auto editors = OpenStore(call.db()).editors(project.id, call.config(), call.now());
    if (!editors.empty())
        return Reply::refused(StatusCode::ProjectInUse, { joined(editors) });
    if (!project.lockedBy.empty())
        return Reply::refused(StatusCode::ProjectLocked, { project.lockedBy });
    return std::nullopt;
}

void removeProject(Call &call, std::int64_t projectId, const std::optional<std::int64_t> &removedBy)
{
    ItemStore(call.db()).checkInProject(projectId, call.now());
    StageStore(call.db()).drop(projectId);
    OpenStore(call.db()).closeEverywhere(projectId);
    ProjectStore(call.db()).remove(projectId, removedBy, call.now());
    call.wakeHeld(logLockKey(projectId));
    announceRecord(call, projectId, "Remove");
}

const ServiceTable projectCommandServices = {
    { "removeproject", removeProjectOfCaller, ProjectOwner | MayBeGone | NamesCaller | Writes },
    { "updateproject", updateProject, ProjectWriter | NamesCaller | Unlocked | Writes },
    { "renameproject", renameProject, ProjectWriter | NamesCaller | Writes },
    { "updateprojectadditionalinfo", updateAdditionalInfo,
        ProjectWriter | NamesCaller | Unlocked | Writes },
};

} // namespace kvx::server
