#include "admin/RoleCommands.h"
#include "admin/AdminSession.h"
#include "admin/Listing.h"
#include "admin/RoleEdit.h"
#include "base/JsonText.h"
#include "base/Text.h"
#include "services/RoleChange.h"

#include <algorithm>

namespace kvx::server {

namespace {

constexpr std::size_t longestRoleName = 100;

std::string rightsOf(const Role &role)
{
    std::string names;
    for (const RightName &name : rightNames) {
        if (role.rights.*name.right)
            names += (names.empty() ? "" : " ") + std::string(name.key);
    }
    return names;
}

std::string roleMember(Db &db, const Role &role)
{
    return ",\"role\":" + roleJson(role, rolesRevision(db), true);
}

int listRoles(AdminSession &session, const CommandArguments &)
{
    const Transaction snapshot(session.db(), Transaction::Kind::Read);
    const std::int64_t revision = rolesRevision(session.db());
    std::string json = ",\"roles\":[";
    Listing listing({ { "name", "Role" }, { "members", "Members" }, { "rights", "Permissions" } });
    for (const Role &role : loadRoles(session.db())) {
        if (json.back() == '}')
            json += ',';
        json += roleJson(role, revision, true);
        listing.add({ role.name, role.members.size(), rightsOf(role) });
    }
    return session.json() ? session.done({}, json + ']') : session.done("roles", listing);
}

int showRole(AdminSession &session, const CommandArguments &arguments)
{
    const Transaction snapshot(session.db(), Transaction::Kind::Read);
    const Role role = roleNamed(session.db(), arguments.text("role"));
    const std::string rights = rightsOf(role);
    std::string text = role.name + "\nPermissions: " + (rights.empty() ? "none" : rights)
        + "\nMembers: " + std::to_string(role.members.size());
    for (const RoleMember &member : role.members)
        text += "\n  " + member.email + "  " + member.name;
    return session.done(text, roleMember(session.db(), role));
}

int changeMembership(AdminSession &session, const CommandArguments &arguments, bool assign)
{
    AdminChange change(session);
    const User user = session.user(arguments.text("email"));
    const Role role = roleNamed(change.db(), arguments.text("role"));
    const std::string members
        = ",\"email\":" + jsonText(user.email) + ",\"role\":" + jsonText(role.name);
    RoleChange roleChange(change.db());
    const bool changed = assign ? assignRole(change.db(), role.id, user.id)
                                : unassignRole(change.db(), role.id, user.id);
    if (!changed)
        return session.done(
            user.email + (assign ? " has that role already." : " does not have that role."),
            members);
    finishRoleChange(change, roleChange);
    change.audit(user.email, role.name);
    change.commit();
    return session.done(
        user.email + (assign ? " has" : " no longer has") + " that role now.", members);
}

int assignMember(AdminSession &session, const CommandArguments &arguments)
{
    return changeMembership(session, arguments, true);
}

int unassignMember(AdminSession &session, const CommandArguments &arguments)
{
    return changeMembership(session, arguments, false);
}

/// "ExportProject=1".
void applyRight(RoleRights &rights, const std::string &given)
{
    const std::size_t equals = given.find('=');
    const std::string key = given.substr(0, equals);
    const std::string value = equals == std::string::npos ? "" : given.substr(equals + 1);
    const auto name = std::find_if(rightNames.begin(), rightNames.end(),
        [&key](const RightName &right) { return lowerAscii(right.key) == lowerAscii(key); });
    if (name == rightNames.end()) {
        std::string known;
        for (const RightName &right : rightNames)
            known += (known.empty() ? "" : ", ") + std::string(right.key);
        throw CommandUsage("there is no permission \"" + key + "\", only " + known);
    }
    if (value != "0" && value != "1")
        throw CommandUsage("\"" + given + "\" must be " + name->key + "=0 or " + name->key + "=1");
    rights.*name->right = value == "1";
}

std::string checkedRoleName(const std::string &text)
{
    const auto name = displayName(text, longestRoleName);
    if (!name)
        throw CommandRefused("the name of a role must have 1 to 100 characters");
    return *name;
}

/// The role as it is to be, at its place among the others.
void storeRole(Db &db, const Role &wanted, const std::optional<std::int64_t> &place)
{
    std::vector<Role> roles = loadRoles(db);
    const auto own = std::find_if(
        roles.begin(), roles.end(), [&wanted](const Role &role) { return role.id == wanted.id; });
    auto index = static_cast<std::size_t>(own - roles.begin());
    roles.erase(own);
    if (place)
        index = static_cast<std::size_t>(*place) - 1;
    roles.insert(
        roles.begin() + static_cast<std::ptrdiff_t>(std::min(index, roles.size())), wanted);
    int position = 0;
    for (const Role &role : roles)
        setRole(db, role.id, role.name, role.rights, ++position);
}

int setRoleRights(AdminSession &session, const CommandArguments &arguments)
{
    AdminChange change(session);
    Db &db = change.db();
    RoleChange roleChange(db);
    const std::string given = arguments.text("role");
    std::optional<std::int64_t> place;
    if (arguments.has("--place")) {
        place = arguments.number("--place");
        if (*place < 1)
            throw CommandUsage("--place counts from 1");
    }
    Role role;
    if (arguments.has("--new")) {
        if (findRole(db, given))
            throw CommandRefused("there is a role \"" + given + "\" already");
        role.id = addRole(db, checkedRoleName(given), {});
        role.name = checkedRoleName(given);
    } else {
        role = roleNamed(db, given);
    }
    for (const std::string &right : arguments.texts("permission"))
        applyRight(role.rights, right);
    if (arguments.has("--name")) {
        role.name = checkedRoleName(arguments.text("--name"));
        const auto other = findRole(db, role.name);
        if (other && *other != role.id)
            throw CommandRefused("there is a role \"" + role.name + "\" already");
    }
    storeRole(db, role, place);
    const Role now = roleNamed(db, role.name);
    if (!finishRoleChange(change, roleChange))
        return session.done(role.name + " is so already.", roleMember(db, now));
    const std::string rights = rightsOf(now);
    change.audit(given, (now.name == given ? "" : now.name + ": ") + rights);
    change.commit();
    return session.done(now.name + " has now: " + (rights.empty() ? "no permission" : rights) + '.',
        roleMember(db, now));
}

const CommandOption roleName { "role", "the role's name" };
const CommandOption memberEmail { "email", "the user's e-mail" };

} // namespace

const AdminCommandTable roleCommands = {
    { "role", "list", "list the roles in order; the first one of a user counts", {}, listRoles },
    { "role", "show", "show a role's permissions and members", { roleName }, showRole },
    { "role", "assign", "give a role to a user", { roleName, memberEmail }, assignMember },
    { "role", "unassign", "take a role from a user", { roleName, memberEmail }, unassignMember },
    { "role", "set", "change a role's permissions, name or place, or make a role",
        { roleName,
            { "permission", "permissions to give or take, as in ExportProject=1",
                CommandOption::Texts, CommandOption::Optional },
            { "--name", "its new name" },
            { "--place", "its place in the order, from 1", CommandOption::Number },
            { "--new", "make a role of that name", CommandOption::Flag } },
        setRoleRights },
};

} // namespace kvx::server
