#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kvx::server {

class Db;

/// Minutes worked, by user and day.
class WorkingTimeStore {
public:
    explicit WorkingTimeStore(Db &db)
        : m_db(db)
    {
    }

    /// Adds to a user's day ("yyyy-MM-dd"), which has 1,440 minutes at most.
    void add(std::int64_t userId, const std::string &day, std::int64_t minutes);

    /// Of `minutes` that a session reports, those it can have worked: all its reports together
    /// never exceed its age by more than ten minutes. Counts them.
    std::int64_t grant(std::int64_t sessionId, std::int64_t minutes, Time now);

    struct Row {
        std::string day;
        std::string email;
        std::string name;
        std::int64_t minutes = 0;
    };
    /// From one day to another, both included, by day and e-mail.
    std::vector<Row> between(const std::string &from, const std::string &to);

private:
    Db &m_db;
};

} // namespace kvx::server
