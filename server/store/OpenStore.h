#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kvx::server {

class Db;
struct Config;

/// Who has which project open, and in which session.
class OpenStore {
public:
    explicit OpenStore(Db &db)
        : m_db(db)
    {
    }

    struct Open {
        std::int64_t sessionId = 0;
        std::string device; ///< of that session
        Time lastSeen = 0; ///< of that session
        Time ends = 0; ///< of that session
        bool holdsLock = false; ///< that session holds a log lock, here or elsewhere
    };
    /// Where the user has the project open; nothing when nowhere or in a session that has ended.
    std::optional<Open> of(std::int64_t projectId, std::int64_t userId);

    /// A request of that session came at this time last; nothing when it has ended.
    std::optional<Time> lastSeen(std::int64_t sessionId);

    struct Editor {
        std::int64_t userId = 0;
        std::string name;
        std::string email;
        Time since = 0;
        Time lastSeen = 0, ends = 0; ///< of that session
        bool holdsLock = false;
    };
    /// Everybody who has the project open, present or not, by time of opening.
    std::vector<Editor> opened(std::int64_t projectId);
    /// Users who are present with the project open, by time of opening.
    std::vector<Editor> editors(std::int64_t projectId, const Config &config, Time now);

    void set(std::int64_t projectId, std::int64_t userId, std::int64_t sessionId, Time now);
    /// False when the session did not have it open.
    bool close(std::int64_t projectId, std::int64_t userId, std::int64_t sessionId);
    void closeAll(std::int64_t projectId, std::int64_t userId);
    void closeEverywhere(std::int64_t projectId);

private:
    Db &m_db;
};

} // namespace kvx::server
