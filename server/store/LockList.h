#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kvx::server {

class Db;

/// A lock that somebody holds in a project.
struct ListedLock {
    enum class Kind { Save, Project } kind = Kind::Save;
    std::string projectGuid, projectName;
    std::string email; ///< of the holder
    std::int64_t sessionId = 0;
    std::string device; ///< of that session
    std::optional<Time> since, until; ///< of a save lock
};

/// The save and project locks of all projects, or of one, by project. A save lock whose lease has
/// run out and that nobody has taken since is listed too: "until" tells.
std::vector<ListedLock> listLocks(
    Db &db, const std::optional<std::int64_t> &projectId = std::nullopt);

} // namespace kvx::server
