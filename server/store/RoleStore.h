#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kvx::server {

class Db;

/// The permissions of a role. A user has those of his first role in order, and no others.
struct RoleRights {
    bool allProjectReadWrite = false;
    bool allProjectReview = false;
    bool exportProject = false;
    bool exportUnitRate = false;
    bool uploadReportSetting = false;
    bool readOnlyRateLibrary = false;
    bool readWriteRateLibrary = false;
    bool readWriteBQLibrary = false;
    bool administrator = false;
};

struct RoleMember {
    std::int64_t userId = 0;
    std::string name;
    std::string email;
    int productVersion = 0;
};

struct Role {
    std::int64_t id = 0;
    std::string name;
    RoleRights rights;
    std::vector<RoleMember> members;
};

/// All roles in order, with their members by e-mail.
std::vector<Role> loadRoles(Db &db);

/// The role that counts for a user, without members; nothing for a user without role.
std::optional<Role> firstRoleOf(Db &db, std::int64_t userId);

std::optional<std::int64_t> findRole(Db &db, const std::string &name);

/// A new role behind all others; its key.
std::int64_t addRole(Db &db, const std::string &name, const RoleRights &rights);

/// False where nothing was to change.
bool assignRole(Db &db, std::int64_t roleId, std::int64_t userId);
bool unassignRole(Db &db, std::int64_t roleId, std::int64_t userId);

/// Enabled users whose first role is an administrator's.
std::int64_t countEnabledAdministrators(Db &db);

/// Raised with every change of roles or their members.
std::int64_t rolesRevision(Db &db);
std::int64_t raiseRolesRevision(Db &db);

/// {"RoleID", "Name", the nine permissions as 0 or 1, "Revision"} and, where asked for, "users".
std::string roleJson(const Role &role, std::int64_t revision, bool withUsers);

} // namespace kvx::server
