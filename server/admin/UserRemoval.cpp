#include "admin/UserRemoval.h"
#include "admin/AdminSession.h"
#include "admin/RoleEdit.h"
#include "services/Permissions.h"
#include "services/RoleChange.h"
#include "services/Withdrawal.h"
#include "store/PermissionStore.h"

namespace kvx::server {

namespace {

/// A removed project keeps a row of its creator, which tells it from a purged one.
void withdrawFromTrash(Db &db, const Project &project, std::int64_t userId)
{
    if (project.creatorId == userId)
        PermissionStore(db).set(project.id, userId, {});
    else
        PermissionStore(db).clear(project.id, userId);
}

void withdrawFrom(AdminChange &change, const Project &project, std::int64_t userId)
{
    NewPermissions wanted { project.id, project.guid, project.kind, project.creatorId, {} };
    for (const StoredLevels &row : PermissionStore(change.db()).of(project.id)) {
        if (row.userId != userId)
            wanted.rows[row.userId] = row.levels;
    }
    if (project.creatorId == userId)
        wanted.rows[userId] = {}; // left out, it would stay as it is
    replacePermissions(change.call(), std::move(wanted));
}

} // namespace

std::int64_t removeAccount(AdminChange &change, const User &user)
{
    Db &db = change.db();
    RoleChange roleChange(db);
    endSessionsOf(db, user.id);
    const auto rows = PermissionStore(db).ofUser(user.id);
    for (const auto &row : rows) {
        const auto project = ProjectStore(db).find(row.projectId);
        if (project->isRemoved())
            withdrawFromTrash(db, *project, user.id);
        else
            withdrawFrom(change, *project, user.id);
    }
    freeAllItems(db, change.now(), user.id);
    deleteUser(db, user.id, wallTime());
    finishRoleChange(change, roleChange);
    return static_cast<std::int64_t>(rows.size());
}

} // namespace kvx::server
