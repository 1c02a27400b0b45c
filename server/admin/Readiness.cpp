#include "admin/Readiness.h"
#include "base/Config.h"
#include "notify/GuardFeed.h"
#include "notify/Publisher.h"
#include "services/Call.h"
#include "store/Db.h"
#include "store/DbPool.h"
#include "store/MetaStore.h"
#include "store/Migrations.h"

#include <sys/statvfs.h>
#include <unistd.h>

namespace kvx::server {

namespace {

std::string storeState(const Config &config)
{
    for (const std::string &folder : { config.blobFolder(), config.temporaryFolder() }) {
        if (access(folder.c_str(), W_OK | X_OK) != 0)
            return "not writable";
    }
    struct statvfs space { };
    if (statvfs(config.blobFolder().c_str(), &space) != 0)
        return "not reachable";
    const auto left = static_cast<std::int64_t>(space.f_bavail * space.f_frsize);
    return left < config.diskReserve ? "below the reserve" : "ok";
}

std::string guardState(GuardFeed::State state)
{
    switch (state) {
    case GuardFeed::State::Ok:
        return "ok";
    case GuardFeed::State::None:
        return "none";
    case GuardFeed::State::Away:
        break;
    }
    return "away";
}

} // namespace

Readiness::Readiness(const Environment &environment, DbPool &pool, const Publisher &publisher,
    const GuardFeed &guard)
    : m_environment(environment)
    , m_pool(pool)
    , m_publisher(publisher)
    , m_guard(guard)
{
}

void Readiness::check(std::function<void(HealthReport)> answer) const
{
    m_pool.read([this, answer = std::move(answer)](Db &db) {
        HealthReport report;
        const auto add = [&report](const char *name, const std::string &state, bool matters) {
            report.text += std::string(name) + ": " + state + '\n';
            report.good = report.good && (!matters || state == "ok");
        };
        std::string database = "ok";
        std::string schema = "ok";
        try {
            if (metaValue(db, "epoch") != m_environment.epoch)
                database = "not the one this server was started with";
            if (!pendingMigrations(db).empty())
                schema = "older than this program";
        } catch (const MigrationError &error) {
            schema = error.what();
        } catch (const DbError &error) {
            database = error.what();
        }
        add("database", database, true);
        add("store", storeState(m_environment.config), true);
        add("schema", schema, true);
        add("publisher", m_publisher.isHeldBack() ? "off" : "ok", false);
        add("broker", m_publisher.isConnected() ? "ok" : "away", false);
        add("guard", guardState(m_guard.state()), false);
        answer(report);
    });
}

} // namespace kvx::server
