#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kvx::server {

class Db;

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
    };
    /// Users whose session with the project open made a request at `seenAfter` or later, by time of
    /// opening.
    std::vector<Editor> editors(std::int64_t projectId, Time seenAfter);

    void set(std::int64_t projectId, std::int64_t userId, std::int64_t sessionId, Time now);
    /// False when the session did not have it open.
    bool close(std::int64_t projectId, std::int64_t userId, std::int64_t sessionId);
    void closeAll(std::int64_t projectId, std::int64_t userId);
    void closeEverywhere(std::int64_t projectId);

private:
    Db &m_db;
};

} // namespace kvx::server
