#pragma once

#include "base/Clock.h"
#include "store/RoleStore.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kvx::server {

class Db;
struct Config;

/// What one user may do with one project. Levels: -1 none, "ProjectRW" 0 read, 1 and above write,
/// 9 by role.
struct ProjectAccess {
    std::int64_t id = 0;
    std::string guid;
    std::string name;
    std::string kind;
    std::int64_t creatorId = 0;
    std::int64_t revision = 0;
    int logVersion = -1;
    bool hasFile = false;

    int rw = -1; ///< effective levels: the higher of stored and by role
    int money = -1;
    int addendum = -1;
    int report = -1;
    bool owner = false; ///< the creator who still has write access, or an administrator

    /// Name of another user who holds the project lock in a live session; empty when nobody does.
    std::string lockedBy;
    std::string lockedByEmail;

    bool canRead() const { return rw >= 0; }
    bool canWrite() const { return rw >= 1; }
};

/// The level that a role alone gives for projects of a kind: -1, 0 or 9.
int levelByRole(const RoleRights &rights, const std::string &kind);

/// The living project of that GUID, seen by that user; nothing when there is none, when it is
/// removed, or when the user may not read it: the three look alike from outside.
std::optional<ProjectAccess> findProject(Db &db, const Config &config, Time now,
    const std::string &guid, std::int64_t userId, const RoleRights &rights);

/// A living project in which a user has something that goes with his rights: a log lock, a project
/// lock, check-outs, or the project open.
struct HeldProject {
    std::int64_t id = 0;
    std::string guid;
    std::string kind;
    int storedRw = -1; ///< of that user
};
std::vector<HeldProject> projectsHeldBy(Db &db, std::int64_t userId);

} // namespace kvx::server
