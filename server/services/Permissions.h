#pragma once

#include "services/ServiceTable.h"
#include "store/PermissionStore.h"

#include <cstdint>
#include <map>
#include <string>

namespace kvx::server {

/// The levels of the users of a project, as they are to be from now on. The creator's row stays
/// when he is left out. Who loses a right has what he held through it freed. Tells the others.
struct NewPermissions {
    std::int64_t projectId;
    std::string guid, kind;
    std::int64_t creatorId;
    std::map<std::int64_t, Levels> rows;
};
void replacePermissions(Call &call, NewPermissions wanted);

/// Who may do what in a project.
extern const ServiceTable permissionServices;

} // namespace kvx::server
