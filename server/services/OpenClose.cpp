#include "services/OpenClose.h"
#include "base/Config.h"
#include "services/Access.h"
#include "store/Db.h"
#include "store/LogStore.h"
#include "store/OpenStore.h"
#include "store/ProjectStore.h"

namespace kvx::server {

namespace {

Reply openProject(Call &call)
{
    const ProjectAccess &project = call.project();
    const Caller &caller = call.caller();
    OpenStore opens(call.db());
    const auto open = opens.of(project.id, caller.userId);
    const bool repeated = open && open->sessionId == caller.sessionId;
    if (!repeated && !project.lockedBy.empty())
        return Reply::refused(StatusCode::ProjectLocked, { project.lockedBy });
    if (const auto refusal = refuseOpenElsewhere(call, project.id))
        return *refusal;
    if (!repeated)
        opens.set(project.id, caller.userId, caller.sessionId, wallTime());
    return Reply::ok().set("LogVersion", project.logVersion).set("Epoch", call.environment().epoch);
}

// Any well-formed GUID: a host must be able to close what was removed or taken from it.
Reply closeProject(Call &call)
{
    const auto project = ProjectStore(call.db()).find(call.request().guid("ProjectGUID"));
    if (!project)
        return Reply::ok();
    const Caller &caller = call.caller();
    if (LogStore(call.db()).release(project->id, caller.sessionId))
        call.wakeHeld(logLockKey(project->id));
    ProjectStore(call.db()).freeProjectLockOfSession(project->id, caller.sessionId);

    OpenStore opens(call.db());
    const auto open = opens.of(project->id, caller.userId);
    if (opens.close(project->id, caller.userId, caller.sessionId) || !open
        || !isSessionLive(call.config(), call.now(), open->lastSeen, open->ends, open->holdsLock))
        return Reply::ok();
    call.keepChanges();
    return Reply::refused(StatusCode::NotOpenHere);
}

Reply withHolder(Reply reply, const std::string &name, const std::string &email)
{
    return reply.set("LockedName", name).set("LockedEmail", email);
}

Reply lockProject(Call &call)
{
    const ProjectAccess &project = call.project();
    const Caller &caller = call.caller();
    const bool release = call.request().flag("ReleaseLock");
    ProjectStore projects(call.db());
    if (release) {
        if (!project.lockedBy.empty() && !isAdministrator(call)) {
            return withHolder(
                Reply::refused(StatusCode::NotAllowed), project.lockedBy, project.lockedByEmail);
        }
        projects.freeProjectLock(project.id);
        return withHolder(Reply::ok(), {}, {});
    }
    if (!project.lockedBy.empty()) {
        return withHolder(Reply::refused(StatusCode::ProjectLocked, { project.lockedBy }),
            project.lockedBy, project.lockedByEmail);
    }
    projects.setProjectLock(project.id, caller.sessionId, caller.userId);
    return withHolder(Reply::ok(), caller.name, caller.email);
}

/// A release goes through in maintenance too.
ServiceRule rulesOfLock(const Request &request)
{
    const Json *release = request.find("ReleaseLock");
    return release && release->IsTrue() ? InMaintenance : Anonymous;
}

Reply onlineEditors(Call &call)
{
    std::string users = "[";
    for (const auto &editor :
        OpenStore(call.db()).editors(call.project().id, call.config(), call.now())) {
        if (users.size() > 1)
            users += ',';
        users += "{\"Name\":" + jsonText(editor.name) + ",\"Email\":" + jsonText(editor.email)
            + ",\"Since\":" + jsonText(minuteText(editor.since)) + '}';
    }
    return Reply::ok().setJson("users", users + ']');
}

} // namespace

const ServiceTable openCloseServices = {
    { "openproject", openProject, ProjectReader | NamesCaller | Writes },
    { "closeproject", closeProject, NeedsUser | NamesCaller | Writes | InMaintenance },
    { "projectlock", lockProject, ProjectWriter | NamesCaller | Writes, nullptr, rulesOfLock },
    { "onlineeditors", onlineEditors, ProjectReader | NamesCaller },
};

} // namespace kvx::server
