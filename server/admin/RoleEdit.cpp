#include "admin/RoleEdit.h"
#include "admin/AdminSession.h"
#include "services/RoleChange.h"

#include <algorithm>

namespace kvx::server {

Role roleNamed(Db &db, const std::string &name)
{
    const auto id = findRole(db, name);
    const std::vector<Role> roles = loadRoles(db);
    const auto found = std::find_if(
        roles.begin(), roles.end(), [&id](const Role &role) { return id && role.id == *id; });
    if (found == roles.end())
        throw CommandRefused("there is no role \"" + name + "\"");
    return *found;
}

bool finishRoleChange(AdminChange &change, RoleChange &roleChange)
{
    const auto outcome = roleChange.finish(change.now());
    if (!outcome)
        throw CommandRefused("at least one enabled administrator must remain");
    return outcome->changed;
}

} // namespace kvx::server
