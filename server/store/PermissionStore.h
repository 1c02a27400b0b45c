#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kvx::server {

class Db;

/// What a user may do in a project. -1 is none; "ProjectRW" 0 is reading, above writing; the other
/// three are granted by any value but -1.
struct Levels {
    int projectRw = -1;
    int money = -1;
    int addendum = -1;
    int report = -1;
};

/// A user's stored levels in one project.
struct StoredLevels {
    std::int64_t userId = 0;
    std::string name;
    std::string email;
    Levels levels;
};

/// The rows of the projects' permission tables; nobody's by-role rights stand here.
class PermissionStore {
public:
    explicit PermissionStore(Db &db)
        : m_db(db)
    {
    }

    std::optional<Levels> of(std::int64_t projectId, std::int64_t userId);
    /// All rows of the project, by name.
    std::vector<StoredLevels> of(std::int64_t projectId);

    struct OfUser {
        std::int64_t projectId;
        Levels levels;
    };
    /// All rows of the user, by project.
    std::vector<OfUser> ofUser(std::int64_t userId);

    struct WithRole {
        std::int64_t userId = 0;
        std::string name;
        std::string email;
        std::int64_t roleId = 0; ///< the first in order: the one that counts
        std::optional<std::int64_t> lastLogin;
    };
    /// All rows, by project and name.
    struct InProject {
        std::int64_t projectId;
        StoredLevels stored;
    };
    std::vector<InProject> all();
    /// Every enabled user who has a role, by name.
    std::vector<WithRole> usersWithRole();

    void set(std::int64_t projectId, std::int64_t userId, const Levels &levels);
    void clear(std::int64_t projectId, std::int64_t userId);
    /// Copies the rows with a granted "Addendum" to another project, except those it has already.
    void copyForAddendum(std::int64_t fromProject, std::int64_t toProject);

private:
    Db &m_db;
};

} // namespace kvx::server
