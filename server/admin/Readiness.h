#pragma once

#include "http/HttpServer.h"

#include <functional>

namespace kvx::server {

class DbPool;
class GuardFeed;
class Publisher;
struct Environment;

/// What /readyz says: one line each for database, store, schema, publisher, broker and guard.
/// The last three are reported and no reason to be taken out of service.
class Readiness {
public:
    Readiness(const Environment &environment, DbPool &pool, const Publisher &publisher,
        const GuardFeed &guard);

    /// Asks the database on one of its threads and answers there.
    void check(std::function<void(HealthReport)> answer) const;

private:
    const Environment &m_environment;
    DbPool &m_pool;
    const Publisher &m_publisher;
    const GuardFeed &m_guard;
};

} // namespace kvx::server
