#include "services/Access.h"
#include "base/Config.h"
#include "services/Announcements.h"
#include "services/ProjectRecord.h"
#include "store/Db.h"
#include "store/MetaStore.h"
#include "store/OpenStore.h"
#include "store/PermissionStore.h"
#include "store/ProjectStore.h"

#include <algorithm>
#include <sys/statvfs.h>

namespace kvx::server {

bool isProjectKind(const Config &config, const std::string &kind)
{
    for (const char *fixed : { "Estimate", "Tender", "Addendum", "BQLibrary", "ResourceLibrary" }) {
        if (kind == fixed)
            return true;
    }
    return std::find(config.projectKinds.begin(), config.projectKinds.end(), kind)
        != config.projectKinds.end();
}

bool isAdministrator(const Call &call)
{
    return call.caller().rights.administrator;
}

bool mayChange(const Call &call, std::int64_t ownerId)
{
    return ownerId == call.caller().userId || isAdministrator(call);
}

bool mayCreate(const Call &call, const std::string &kind)
{
    const RoleRights &rights = call.caller().rights;
    if (rights.administrator)
        return true;
    if (kind == "BQLibrary")
        return rights.readWriteRateLibrary || rights.readWriteBQLibrary;
    if (kind == "ResourceLibrary")
        return rights.readWriteRateLibrary;
    if (call.config().projectCreate == "allreadwrite")
        return rights.allProjectReadWrite;
    return call.caller().hasRole;
}

int levelOf(Db &db, std::int64_t projectId, const std::string &kind, std::int64_t userId)
{
    const auto stored = PermissionStore(db).of(projectId, userId);
    const auto role = firstRoleOf(db, userId);
    return std::max(stored ? stored->projectRw : -1, role ? levelByRole(role->rights, kind) : -1);
}

std::optional<Reply> refuseOpenElsewhere(Call &call, std::int64_t projectId)
{
    const Caller &caller = call.caller();
    const auto open = OpenStore(call.db()).of(projectId, caller.userId);
    if (!open || open->sessionId == caller.sessionId || open->device == caller.device
        || !isSessionPresent(call.config(), call.now(), open->lastSeen)
        || !isSessionLive(call.config(), call.now(), open->lastSeen, open->ends, open->holdsLock))
        return std::nullopt;
    return Reply::refused(StatusCode::OpenElsewhere, { open->device });
}

bool isInMaintenance(Call &call)
{
    return metaValue(call.db(), "read_only") == "1";
}

bool hasSpace(const Config &config)
{
    struct statvfs space { };
    if (statvfs(config.data.c_str(), &space) != 0)
        return true; // the write itself will say what is wrong
    return static_cast<std::int64_t>(space.f_bavail) * static_cast<std::int64_t>(space.f_frsize)
        >= config.diskReserve;
}

void announceItems(Call &call, std::int64_t projectId, const std::string &guid,
    const std::string &command, std::int64_t module)
{
    call.announce(itemsAnnouncement(projectId, guid, command, module));
}

void announceWholeRecord(
    Call &call, std::int64_t projectId, const std::string &command, std::vector<std::string> alsoTo)
{
    Announcement announcement;
    announcement.type = "notifymsg_projectlist";
    announcement.command = command;
    announcement.projectId = projectId;
    announcement.alsoTo = std::move(alsoTo);
    call.announce(std::move(announcement));
}

void announceRecord(Call &call, std::int64_t projectId, const std::string &command)
{
    Announcement announcement;
    announcement.type = "notifymsg_projectlist";
    announcement.command = command;
    announcement.content = shortRecord(call.db(), projectId, command);
    announcement.projectId = projectId;
    call.announce(std::move(announcement));
}

void announceInfo(
    Call &call, std::int64_t projectId, const std::string &guid, const std::string &info)
{
    Announcement announcement;
    announcement.type = "notifymsg_projectlist";
    announcement.command = "UpdateAddionalInfo";
    announcement.content = "{\"Command\":\"UpdateAddionalInfo\",\"ProjectGUID\":" + jsonText(guid)
        + ",\"AdditionalInfo\":" + info + '}';
    announcement.projectId = projectId;
    call.announce(std::move(announcement));
}

} // namespace kvx::server
