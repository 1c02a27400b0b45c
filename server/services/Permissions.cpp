#include "services/Permissions.h"
#include "base/Text.h"
#include "services/Access.h"
#include "services/Withdrawal.h"
#include "store/Db.h"
#include "store/PermissionStore.h"
#include "store/UserStore.h"

#include <map>
#include <set>

namespace kvx::server {

namespace {

constexpr int byRoleLevel = 9;

struct Wanted {
    std::int64_t userId = 0;
    std::string email;
    Levels levels;
};

int levelIn(const JsonObject &entry, const char *key)
{
    return static_cast<int>(entry.optionalInteger(key, -1, byRoleLevel).value_or(-1));
}

/// Entries that a client sends back as they stand in a record for users who see it by role.
bool isByRole(const Levels &levels)
{
    return levels.money == byRoleLevel && levels.addendum == byRoleLevel
        && levels.report == byRoleLevel;
}

/// The rows that the request asks for. Throws BadRequest; an unknown user refuses.
std::optional<Reply> readWanted(Call &call, std::vector<Wanted> &wanted)
{
    std::set<std::string> seen;
    for (const JsonObject &entry : call.request().objects("userperms", 2000)) {
        const std::string email = canonicalEmail(entry.text("Email", 1000));
        const Levels levels { levelIn(entry, "ProjectRW"), levelIn(entry, "Money"),
            levelIn(entry, "Addendum"), levelIn(entry, "Report") };
        if (!seen.insert(email).second)
            throw BadRequest("\"userperms\" names " + email + " twice");
        const auto user = findUser(call.db(), email);
        if (!user)
            return Reply::refused(StatusCode::NoSuchUser, { email });
        if (isByRole(levels))
            continue;
        for (const int level : { levels.projectRw, levels.money, levels.addendum, levels.report }) {
            if (level == byRoleLevel) {
                throw BadRequest("\"userperms\" gives " + email
                    + " the level 9, which stands for rights by role and cannot be given");
            }
        }
        wanted.push_back({ user->id, email, levels });
    }
    return std::nullopt;
}

Reply projectPermission(Call &call)
{
    const ProjectAccess &project = call.project();
    std::vector<Wanted> wanted;
    if (const auto refusal = readWanted(call, wanted))
        return *refusal;
    const bool administrator = isAdministrator(call);
    std::map<std::int64_t, Levels> rows;
    for (const Wanted &entry : wanted) {
        if (entry.userId == project.creatorId && entry.levels.projectRw < 1 && !administrator)
            return Reply::refused(StatusCode::CreatorKeepsAccess);
        rows[entry.userId] = entry.levels;
    }

    replacePermissions(
        call, { project.id, project.guid, project.kind, project.creatorId, std::move(rows) });
    call.audit(static_cast<int>(StatusCode::Ok), project.guid,
        compactJson(*call.request().find("userperms")));
    return Reply::ok();
}

} // namespace

void replacePermissions(Call &call, NewPermissions wanted)
{
    PermissionStore permissions(call.db());
    std::map<std::int64_t, int> before; // effective levels of everybody who had a row
    std::map<std::int64_t, std::string> emails;
    for (const StoredLevels &row : permissions.of(wanted.projectId)) {
        before[row.userId] = levelOf(call.db(), wanted.projectId, wanted.kind, row.userId);
        emails[row.userId] = row.email;
        if (row.userId == wanted.creatorId)
            wanted.rows.try_emplace(row.userId, row.levels);
        if (wanted.rows.count(row.userId) == 0)
            permissions.clear(wanted.projectId, row.userId);
    }
    for (const auto &[userId, levels] : wanted.rows)
        permissions.set(wanted.projectId, userId, levels);

    std::vector<std::string> shutOut;
    for (const auto &[userId, level] : before) {
        const int now = levelOf(call.db(), wanted.projectId, wanted.kind, userId);
        if (now < 0 && level >= 0)
            shutOut.push_back(emails[userId]);
        if (now < 1 && level >= 0 && now != level
            && withdraw(call.db(), call.now(), wanted.projectId, wanted.guid, userId, now >= 0))
            call.wakeHeld(logLockKey(wanted.projectId));
    }

    announceWholeRecord(call, wanted.projectId, "PermissionChanged", std::move(shutOut));
}

const ServiceTable permissionServices = {
    { "projectpermission", projectPermission, ProjectOwner | NamesCaller | Unlocked | Writes },
};

} // namespace kvx::server
