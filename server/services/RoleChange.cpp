#include "services/RoleChange.h"
#include "base/JsonText.h"
#include "services/Announcements.h"
#include "services/Withdrawal.h"
#include "store/AccessStore.h"
#include "store/Db.h"

#include <algorithm>

namespace kvx::server {

namespace {

constexpr std::size_t mostRecorded = 1000;

bool isSame(const Role &one, const Role &other)
{
    return one.id == other.id && one.name == other.name && one.rights == other.rights
        && std::equal(one.members.begin(), one.members.end(), other.members.begin(),
            other.members.end(),
            [](const RoleMember &a, const RoleMember &b) { return a.userId == b.userId; });
}

/// Some project's level may be lower than before.
bool isLess(const RoleRights &former, const RoleRights &rights)
{
    const auto lower
        = [&](const char *kind) { return levelByRole(rights, kind) < levelByRole(former, kind); };
    return lower("") || lower("BQLibrary") || lower("ResourceLibrary");
}

class JsonList {
public:
    void add(const std::string &json)
    {
        if (m_count++ < mostRecorded)
            m_text += (m_text.size() > 1 ? "," : "") + json;
    }
    std::string text() const { return m_text + ']'; }

private:
    std::size_t m_count = 0;
    std::string m_text = "[";
};

std::string rightsText(const RoleRights &rights)
{
    JsonList names;
    for (const RightName &name : rightNames) {
        if (rights.*name.right)
            names.add(jsonText(name.key));
    }
    return names.text();
}

/// The roles that are new or another than before, as they are now.
std::string rolesText(const std::vector<Role> &before, const std::vector<Role> &now)
{
    JsonList roles;
    for (const Role &role : now) {
        const auto former = std::find_if(
            before.begin(), before.end(), [&role](const Role &one) { return one.id == role.id; });
        if (former == before.end() || former->name != role.name || former->rights != role.rights)
            roles.add("{\"Name\":" + jsonText(role.name) + ",\"Rights\":" + rightsText(role.rights)
                + '}');
    }
    return roles.text();
}

std::string removedText(const std::vector<Role> &before, const std::vector<Role> &now)
{
    JsonList names;
    for (const Role &role : before) {
        if (std::none_of(
                now.begin(), now.end(), [&role](const Role &one) { return one.id == role.id; }))
            names.add(jsonText(role.name));
    }
    return names.text();
}

} // namespace

bool RoleChange::Standing::operator==(const Standing &other) const
{
    return disabled == other.disabled && roles == other.roles && roleName == other.roleName
        && rights == other.rights;
}

RoleChange::RoleChange(Db &db)
    : m_db(db)
    , m_before(look(db))
{
}

RoleChange::Snapshot RoleChange::look(Db &db)
{
    Snapshot now;
    now.roles = loadRoles(db);
    for (Account &account : loadAccounts(db)) {
        Standing &standing = now.users[account.id];
        standing.email = std::move(account.email);
        standing.disabled = account.disabled;
    }
    for (const Role &role : now.roles) {
        for (const RoleMember &member : role.members) {
            Standing &standing = now.users[member.userId];
            if (standing.roles.empty()) {
                standing.roleName = role.name;
                standing.rights = role.rights;
            }
            standing.roles.push_back(role.id);
        }
    }
    return now;
}

std::optional<RoleChange::Outcome> RoleChange::finish(
    Time now, const std::string &sender, std::int64_t session)
{
    const Snapshot after = look(m_db);
    Outcome outcome;
    JsonList users;
    const auto concerned = [&](const std::string &email, const std::string &role, bool disabled) {
        outcome.users.push_back(email);
        users.add("{\"Email\":" + jsonText(email) + ",\"Role\":" + jsonText(role)
            + (disabled ? ",\"Disabled\":1}" : "}"));
    };
    for (const auto &[userId, standing] : after.users) {
        const auto former = m_before.users.find(userId);
        const bool isNew = former == m_before.users.end();
        if (isNew ? !standing.roles.empty() : !(former->second == standing))
            concerned(standing.email, standing.roleName, standing.disabled);
    }
    for (const auto &[userId, standing] : m_before.users) {
        if (after.users.count(userId) == 0)
            concerned(standing.email, {}, false);
    }
    outcome.changed = !outcome.users.empty()
        || !std::equal(m_before.roles.begin(), m_before.roles.end(), after.roles.begin(),
            after.roles.end(), isSame);
    outcome.revision = rolesRevision(m_db);
    if (!outcome.changed)
        return outcome;
    if (countEnabledAdministrators(m_db) == 0)
        return std::nullopt;

    outcome.revision = raiseRolesRevision(m_db, session);
    outcome.detail = "{\"Revision\":" + std::to_string(outcome.revision)
        + ",\"Roles\":" + rolesText(m_before.roles, after.roles) + ",\"Removed\":"
        + removedText(m_before.roles, after.roles) + ",\"Users\":" + users.text() + '}';
    Announcement announcement = rolesAnnouncement(outcome.users);
    announcement.sender = sender;
    addAnnouncement(m_db, now, announcement);
    for (const auto &[userId, former] : m_before.users) {
        const auto standing = after.users.find(userId);
        const RoleRights rights
            = standing == after.users.end() ? RoleRights {} : standing->second.rights;
        if (!isLess(former.rights, rights))
            continue;
        for (const std::int64_t project : withdrawLost(now, userId, former.rights, rights))
            outcome.unlockedProjects.push_back(project);
    }
    return outcome;
}

std::vector<std::int64_t> RoleChange::withdrawLost(
    Time now, std::int64_t userId, const RoleRights &former, const RoleRights &rights)
{
    std::vector<std::int64_t> unlocked;
    for (const HeldProject &project : projectsHeldBy(m_db, userId)) {
        const int before = std::max(project.storedRw, levelByRole(former, project.kind));
        const int level = std::max(project.storedRw, levelByRole(rights, project.kind));
        if (level < before && level < 1
            && withdraw(m_db, now, project.id, project.guid, userId, level >= 0))
            unlocked.push_back(project.id);
    }
    return unlocked;
}

} // namespace kvx::server
