#include "admin/GroupCommands.h"
#include "admin/AdminSession.h"
#include "admin/Listing.h"
#include "services/Groups.h"
#include "store/GroupStore.h"

namespace kvx::server {

namespace {

int listGroups(AdminSession &session, const CommandArguments &)
{
    const Transaction snapshot(session.db(), Transaction::Kind::Read);
    Listing listing({ { "name", "Group" }, { "kind", "Kind" }, { "creator", "Creator" },
        { "projects", "Projects" } });
    for (const ProjectGroup &group : GroupStore(session.db()).all()) {
        listing.add({ group.name, group.kind, findUser(session.db(), group.creatorId).value().email,
            projectsInGroup(session.db(), group.name) });
    }
    return session.done("groups", listing);
}

} // namespace

const AdminCommandTable groupCommands = {
    { "group", "list", "list the groups of projects", {}, listGroups },
};

} // namespace kvx::server
