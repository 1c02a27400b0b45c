#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kvx::server {

class Db;

/// A session as the administration sees it; also one that is over and not tidied away yet.
struct ListedSession {
    std::int64_t id = 0;
    std::int64_t userId = 0;
    std::string email;
    std::string device;
    std::string address;
    std::string appVersion;
    std::string product;
    Time created = 0;
    Time lastSeen = 0;
    Time ends = 0;
    std::int64_t saveLocks = 0;
    std::int64_t openProjects = 0;
};

/// All sessions, or one user's, by the time of the login.
std::vector<ListedSession> listSessions(
    Db &db, const std::optional<std::int64_t> &userId = std::nullopt);

} // namespace kvx::server
