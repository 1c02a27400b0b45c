#include "services/Roles.h"
#include "store/Db.h"
#include "store/RoleStore.h"

namespace kvx::server {

namespace {

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

} // namespace

const ServiceTable roleServices = {
    { "getroles", getRoles, NeedsUser },
};

} // namespace kvx::server
