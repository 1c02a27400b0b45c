#pragma once

#include <KVXCollaboration/KVXRole.h>
#include <QStringList>

namespace kvx::host {

/// The nine permissions of a role in the order of KVXRole::RolePermissionType.
const QStringList &permissionNames();

/// Names of those that are set.
QStringList namesOf(const QMap<KVXRole::RolePermissionType, int> &permissions);

} // namespace kvx::host
