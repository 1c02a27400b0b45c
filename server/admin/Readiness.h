#pragma once

#include "http/HttpServer.h"

#include <functional>

namespace kvx::server {

class DbPool;
class Publisher;
struct Environment;

/// What /readyz says: one line each for database, store, schema, publisher and broker. A broker
/// that is away is reported and no reason to be taken out of service.
class Readiness {
public:
    /// `publisher` is null where nothing is published.
    Readiness(const Environment &environment, DbPool &pool, const Publisher *publisher);

    /// Asks the database on one of its threads and answers there.
    void check(std::function<void(HealthReport)> answer) const;

private:
    const Environment &m_environment;
    DbPool &m_pool;
    const Publisher *m_publisher;
};

} // namespace kvx::server
