#include "admin/RoleCommands.h"
#include "admin/AdminCommand.h"
#include "store/Db.h"
#include "store/RoleStore.h"
#include "store/UserStore.h"

namespace kvx::server {

int listRolesCommand(AdminSession &session)
{
    const std::int64_t revision = rolesRevision(session.db());
    std::string json = ",\"roles\":[";
    std::string text;
    for (const Role &role : loadRoles(session.db())) {
        if (json.back() == '}')
            json += ',';
        json += roleJson(role, revision, true);
        text += (text.empty() ? "" : "\n") + role.name;
        for (const RoleMember &member : role.members)
            text += "\n\t" + member.email + '\t' + member.name;
    }
    return session.done(text, json + ']');
}

int assignRoleCommand(
    AdminSession &session, const std::string &role, const std::string &email, bool assign)
{
    const User user = session.user(email);
    const auto id = findRole(session.db(), role);
    if (!id)
        throw CommandRefused("there is no role \"" + role + "\"");
    Transaction transaction(session.db(), Transaction::Kind::Write);
    const bool changed = assign ? assignRole(session.db(), *id, user.id)
                                : unassignRole(session.db(), *id, user.id);
    if (!changed)
        return session.done(
            user.email + (assign ? " has" : " does not have") + " that role already.");
    if (countEnabledAdministrators(session.db()) == 0)
        throw CommandRefused("at least one enabled administrator must remain");
    session.announceRoles({ user.email });
    session.audit(assign ? "role assign" : "role unassign", user.email, role);
    transaction.commit();
    return session.done(user.email + (assign ? " has" : " no longer has") + " that role now.");
}

} // namespace kvx::server
