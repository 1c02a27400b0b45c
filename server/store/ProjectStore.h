#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvx::server {

class Db;

/// A project's row, without the additional information (which may be long).
struct Project {
    std::int64_t id = 0;
    std::string guid; ///< as given at creation
    std::string name;
    std::string kind;
    std::int64_t creatorId = 0;
    Time created = 0;
    std::int64_t editorId = 0;
    Time modified = 0;
    std::int64_t logVersion = -1; ///< -1: nothing saved yet
    std::string amount;
    std::int64_t state = 0;
    std::int64_t bidStatus = 0;
    std::string addendumOf; ///< GUID of the project it amends, or empty
    std::optional<std::string> fileBlob; ///< the project file of version `logVersion`
    std::string fileMd5;
    std::string chain; ///< the chain digest of version `logVersion`
    std::int64_t revision = 0; ///< rises with every change that others hear of
    std::optional<std::int64_t>
        lockSession; ///< holder of the log lock, also after its lease ran out
    std::optional<std::int64_t> lockUser;
    std::int64_t lockGeneration = 0;
    Time lockSince = 0;
    Time lockUntil = 0;
    std::optional<std::int64_t> projectLockSession;
    std::optional<std::int64_t> projectLockUser;
    std::optional<Time> removedAt;
    std::optional<std::int64_t> removedBy;

    bool isRemoved() const { return removedAt.has_value(); }
};

/// The projects. Every change is part of the caller's writing transaction. The revision is raised
/// by the announcement that follows each change of what a record shows.
class ProjectStore {
public:
    explicit ProjectStore(Db &db)
        : m_db(db)
    {
    }

    /// By GUID without regard to case; removed projects too.
    std::optional<Project> find(std::string_view guid);
    std::optional<Project> find(std::int64_t id);

    /// What a project's record shows: the row with the people's names, and the additional
    /// information.
    struct Shown {
        Project project;
        std::string creatorName, creatorEmail, editorName, editorEmail, info;
    };
    std::optional<Shown> shown(std::int64_t id);
    /// The same for all living projects, in order of creation.
    void eachShown(const std::function<void(const Shown &)> &act);
    /// By name without regard to case, living or removed projects.
    std::vector<std::int64_t> named(std::string_view name, bool removed);
    /// By name without regard to case, living projects only.
    bool isNameTaken(std::string_view name);

    struct Listed {
        std::int64_t id;
        std::int64_t revision;
        std::string kind;
    };
    /// All living projects in order of creation.
    std::vector<Listed> listed();

    struct New {
        std::string guid, name, kind, amount, addendumOf;
        std::int64_t creatorId = 0, state = 0, bidStatus = 0;
        Time now = 0;
    };
    /// The new project's key. Throws a unique DbError when the name or the GUID is taken.
    std::int64_t insert(const New &project);

    /// Throws a unique DbError when the name is taken.
    void rename(std::int64_t id, std::string_view name, std::int64_t editorId, Time now);
    struct Fields {
        std::optional<std::string> amount;
        std::optional<std::int64_t> state, bidStatus;
    };
    void update(std::int64_t id, const Fields &fields, std::int64_t editorId, Time now);
    /// Removes the project from all lists and frees its name; the GUID stays taken. No user stands
    /// for the administration.
    void remove(std::int64_t id, const std::optional<std::int64_t> &userId, Time now);
    /// Takes it back from the trash under that name, without an owner of any lock. Throws a unique
    /// DbError when the name is taken.
    void restore(std::int64_t id, std::string_view name);
    struct Removed {
        std::int64_t id = 0;
        std::string guid, name, kind;
        Time at = 0;
        std::string byName, byEmail; ///< empty for the administration
        bool purged = false; ///< only the row is left
    };
    /// All removed projects, by time.
    std::vector<Removed> removed();

    /// Removed before `before` and not purged yet.
    std::vector<std::int64_t> removedBefore(Time before, int maximum);
    /// Forgets everything about a removed project but its row, which keeps the GUID taken.
    void purge(std::int64_t id);

    /// Additional information, compact JSON text of an object.
    std::string info(std::int64_t id);
    void setInfo(std::int64_t id, std::string_view info);

    /// The project's lock: who alone may change it.
    void setProjectLock(std::int64_t id, std::int64_t sessionId, std::int64_t userId);
    void freeProjectLock(std::int64_t id);
    void freeProjectLockOfSession(std::int64_t id, std::int64_t sessionId);
    void freeProjectLockOfUser(std::int64_t id, std::int64_t userId);

    /// The next number for a generated project name; never the same twice.
    std::int64_t nextNameNumber();

private:
    Db &m_db;
};

} // namespace kvx::server
