#pragma once

#include <array>
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

    bool operator==(const RoleRights &other) const;
    bool operator!=(const RoleRights &other) const { return !(*this == other); }
};

/// A permission's name in requests and replies.
struct RightName {
    const char *key;
    bool RoleRights::*right;
};
/// All of them, in the order in which they are sent.
extern const std::array<RightName, 9> rightNames;

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

/// Who has an account.
struct Account {
    std::int64_t id = 0;
    std::string email;
    bool disabled = false;
};
std::vector<Account> loadAccounts(Db &db);

/// A new role behind all others; its key.
std::int64_t addRole(Db &db, const std::string &name, const RoleRights &rights);

/// What a change of the whole table makes of one role. Names may trade places between roles: see
/// releaseRoleNames.
void setRole(
    Db &db, std::int64_t id, const std::string &name, const RoleRights &rights, int position);
void setRoleMembers(Db &db, std::int64_t id, const std::vector<std::int64_t> &users);
void removeRole(Db &db, std::int64_t id);
/// Frees the names of all roles, so that a change in one transaction may give them out anew.
void releaseRoleNames(Db &db);

/// False where nothing was to change.
bool assignRole(Db &db, std::int64_t roleId, std::int64_t userId);
bool unassignRole(Db &db, std::int64_t roleId, std::int64_t userId);

/// Enabled users whose first role is an administrator's.
std::int64_t countEnabledAdministrators(Db &db);

/// Raised with every change of roles or their members.
std::int64_t rolesRevision(Db &db);
std::int64_t raiseRolesRevision(Db &db, std::int64_t session = 0);

/// Who made the latest changes: `session` all of those after revision `since`.
struct LatestRolesChange {
    std::int64_t session = 0; ///< 0: a command
    std::int64_t since = 0;
};
LatestRolesChange latestRolesChange(Db &db);

/// {"RoleID", "Name", the nine permissions as 0 or 1, "Revision"} and, where asked for, "users".
std::string roleJson(const Role &role, std::int64_t revision, bool withUsers);

} // namespace kvx::server
