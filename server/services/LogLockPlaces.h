#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <utility>

namespace kvx::server {

/// The order in which waiting saves asked for a log lock. A save keeps its place from one request
/// to the next for ten seconds: while it synchronises, and between two tries. Any thread.
class LogLockPlaces {
public:
    struct Place {
        std::uint64_t number = 0; ///< lower is earlier
        Time held = 0; ///< how long earlier requests of this save were held back, in milliseconds
    };
    /// The session's place at this project; a new one at the end where it has none.
    Place of(std::int64_t projectId, std::int64_t sessionId, Time now);
    /// Notes that a request was answered after `held` milliseconds; the place stays for a while.
    void keep(std::int64_t projectId, std::int64_t sessionId, Time held, Time now);
    void leave(std::int64_t projectId, std::int64_t sessionId);

private:
    struct Entry {
        Place place;
        Time until = 0;
    };
    Entry &entry(std::int64_t projectId, std::int64_t sessionId, Time now);

    std::mutex m_mutex;
    std::map<std::pair<std::int64_t, std::int64_t>, Entry> m_entries;
    std::uint64_t m_last = 0;
};

} // namespace kvx::server
