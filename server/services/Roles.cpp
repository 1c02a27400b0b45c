#include "services/Roles.h"
#include "base/Text.h"
#include "services/ProjectFields.h"
#include "services/RoleChange.h"
#include "store/Db.h"
#include "store/RoleStore.h"
#include "store/UserStore.h"

#include <algorithm>
#include <limits>
#include <map>
#include <set>

namespace kvx::server {

namespace {

constexpr std::size_t mostRoles = 500;

Reply getRoles(Call &call)
{
    const std::int64_t revision = rolesRevision(call.db());
    std::string roles = "[";
    for (const Role &role : loadRoles(call.db())) {
        if (roles.size() > 1)
            roles += ',';
        roles += roleJson(role, revision, true);
    }
    return Reply::ok().setJson("Roles", roles + ']');
}

using Members = std::set<std::int64_t>;

/// One role of the table as it shall be.
struct Wanted {
    std::int64_t id = 0; ///< 0: not known yet, or new
    std::string name;
    RoleRights rights;
    Members members;
};

struct WantedTable {
    std::vector<Wanted> roles;
    std::optional<std::int64_t> revision; ///< the lowest that was sent back
};

/// Thrown where an e-mail has no account.
struct UnknownUser {
    std::string email;
};

class Accounts {
public:
    explicit Accounts(Db &db)
        : m_db(db)
    {
    }
    std::int64_t idOf(const std::string &email)
    {
        const auto [known, isNew] = m_ids.try_emplace(email, 0);
        if (isNew) {
            const auto user = findUser(m_db, email);
            if (!user)
                throw UnknownUser { email };
            known->second = user->id;
        }
        return known->second;
    }

private:
    Db &m_db;
    std::map<std::string, std::int64_t> m_ids;
};

constexpr std::int64_t anyNumber = std::numeric_limits<std::int64_t>::max();

WantedTable readTable(Call &call)
{
    WantedTable table;
    Accounts accounts(call.db());
    std::set<std::string> names;
    std::set<std::int64_t> ids;
    for (const JsonObject &entry : call.request().objects("Roles", mostRoles)) {
        Wanted role;
        role.id = entry.optionalInteger("RoleID", 0, anyNumber).value_or(0);
        role.name = nameOf(entry, "Name", 100);
        for (const RightName &right : rightNames)
            role.rights.*right.right = entry.integer(right.key, 0, 1) == 1;
        for (const JsonObject &user : entry.objects("users")) {
            const std::string email = canonicalEmail(user.text("Email", 1000));
            if (!role.members.insert(accounts.idOf(email)).second)
                throw BadRequest("the role \"" + role.name + "\" names " + email + " twice");
        }
        if (!names.insert(foldedKey(role.name)).second)
            throw BadRequest("\"Roles\" has two roles named \"" + role.name + '"');
        if (role.id != 0 && !ids.insert(role.id).second)
            throw BadRequest("\"Roles\" has the role " + std::to_string(role.id) + " twice");
        if (const auto revision = entry.optionalInteger("Revision", 0, anyNumber))
            table.revision = std::min(*revision, table.revision.value_or(*revision));
        table.roles.push_back(std::move(role));
    }
    return table;
}

/// Roles that were sent without a key are found by their name. False when a key is not known: that
/// role has been removed meanwhile.
bool findKeys(const std::vector<Role> &present, std::vector<Wanted> &wanted)
{
    std::map<std::string, std::int64_t> free;
    std::set<std::int64_t> known;
    for (const Role &role : present) {
        free[foldedKey(role.name)] = role.id;
        known.insert(role.id);
    }
    for (const Wanted &role : wanted) {
        if (role.id != 0 && known.erase(role.id) == 0)
            return false;
    }
    for (Wanted &role : wanted) {
        const auto named = free.find(foldedKey(role.name));
        if (role.id == 0 && named != free.end() && known.erase(named->second) == 1)
            role.id = named->second;
    }
    return true;
}

Members membersOf(const Role &role)
{
    Members members;
    for (const RoleMember &member : role.members)
        members.insert(member.userId);
    return members;
}

bool isSameRole(const Role &role, const Wanted &wanted)
{
    return role.id == wanted.id && role.name == wanted.name && role.rights == wanted.rights
        && membersOf(role) == wanted.members;
}

/// Somebody else has changed the table since it was read. What the same session has changed it
/// knows, also when it did not read the table again.
bool isStale(Call &call, const std::optional<std::int64_t> &revision)
{
    if (!revision || *revision == rolesRevision(call.db()))
        return false;
    const LatestRolesChange latest = latestRolesChange(call.db());
    return latest.session != call.caller().sessionId || *revision < latest.since
        || *revision > rolesRevision(call.db());
}

void store(Db &db, const std::vector<Role> &present, const std::vector<Wanted> &wanted)
{
    std::map<std::int64_t, const Role *> former;
    for (const Role &role : present)
        former[role.id] = &role;
    std::map<std::int64_t, const Role *> removed = former;
    for (const Wanted &role : wanted)
        removed.erase(role.id);
    for (const auto &[id, role] : removed)
        removeRole(db, id);
    releaseRoleNames(db);
    int position = 0;
    for (const Wanted &role : wanted) {
        const std::int64_t id = role.id != 0 ? role.id : addRole(db, role.name, role.rights);
        setRole(db, id, role.name, role.rights, ++position);
        if (role.id == 0 || membersOf(*former.at(id)) != role.members)
            setRoleMembers(db, id, { role.members.begin(), role.members.end() });
    }
}

Reply revisionReply(std::int64_t revision)
{
    return Reply::ok().set("Revision", revision);
}

Reply replaceTable(Call &call, WantedTable table)
{
    Db &db = call.db();
    const std::vector<Role> present = loadRoles(db);
    if (!findKeys(present, table.roles))
        return Reply::refused(StatusCode::RolesChanged);
    if (std::equal(
            present.begin(), present.end(), table.roles.begin(), table.roles.end(), isSameRole))
        return revisionReply(rolesRevision(db));
    if (isStale(call, table.revision))
        return Reply::refused(StatusCode::RolesChanged);

    RoleChange change(db);
    store(db, present, table.roles);
    const auto outcome = change.finish(call.now(), call.caller().email, call.caller().sessionId);
    if (!outcome)
        return Reply::refused(StatusCode::LastAdministrator);
    call.noteAnnounced();
    for (const std::int64_t project : outcome->unlockedProjects)
        call.wakeHeld(logLockKey(project));
    call.audit(static_cast<int>(StatusCode::Ok), "roles", outcome->detail);
    return revisionReply(outcome->revision);
}

Reply updateRoles(Call &call)
{
    try {
        return replaceTable(call, readTable(call));
    } catch (const UnknownUser &unknown) {
        return Reply::refused(StatusCode::NoSuchUser, { unknown.email });
    }
}

} // namespace

const ServiceTable roleServices = {
    { "getroles", getRoles, NeedsUser },
    { "updateroles", updateRoles, Administrator | NamesCaller | LargeBody | Writes },
};

} // namespace kvx::server
