#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kvx::server {

class Db;

/// A lock of the whole server, one of each type.
struct GlobalLock {
    std::int64_t type = 0; ///< the application's
    std::int64_t userId = 0; ///< the holder
    std::string name; ///< the holder's, as sent
    std::string email; ///< the holder's, as sent
    std::optional<std::int64_t> sessionId; ///< the session that ends it
    Time until = 0; ///< free from here on
};

class GlobalLockStore {
public:
    explicit GlobalLockStore(Db &db)
        : m_db(db)
    {
    }

    /// Also one that has expired and was not removed yet.
    std::optional<GlobalLock> find(std::int64_t type);
    std::vector<GlobalLock> all();
    /// Takes or renews; the caller has judged that it may.
    void put(const GlobalLock &lock, Time now);
    void remove(std::int64_t type);
    /// Removes what ended before `now`, and says what that was.
    std::vector<GlobalLock> removeExpired(Time now);

private:
    Db &m_db;
};

} // namespace kvx::server
