#include "notify/Janitor.h"
#include "base/Config.h"
#include "base/Log.h"
#include "services/Call.h"
#include "store/AuditStore.h"
#include "store/Db.h"
#include "store/DbPool.h"
#include "store/MetaStore.h"
#include "store/OutboxStore.h"
#include "store/ProcessStore.h"
#include "store/SessionStore.h"
#include "store/ThrottleStore.h"

#include <algorithm>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace kvx::server {

namespace {

constexpr Time day = 24 * 3'600'000;
constexpr int sessionsAtOnce = 50;

using WakeHeld = std::function<void(const std::string &)>;

void endSessions(const Environment &environment, Db &db, const WakeHeld &wakeHeld)
{
    std::vector<std::int64_t> expired;
    do {
        expired = expiredSessions(db, environment.config, environment.clock.now(), sessionsAtOnce);
        for (const std::int64_t session : expired) {
            for (const std::int64_t project : endSession(db, session).unlockedProjects)
                wakeHeld(logLockKey(project));
        }
    } while (!expired.empty());
}

} // namespace

Janitor::Janitor(
    const Environment &environment, DbPool &pool, std::function<void(const std::string &)> wakeHeld)
    : m_environment(environment)
    , m_pool(pool)
    , m_wakeHeld(std::move(wakeHeld))
    , m_thread([this] { run(); })
{
}

Janitor::~Janitor()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_ending = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void Janitor::run()
{
    const Time interval = std::clamp<Time>(m_environment.config.sessionIdle / 2, 200, 60'000);
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_ending) {
        lock.unlock();
        round();
        lock.lock();
        m_changed.wait_for(lock, std::chrono::milliseconds(interval), [this] { return m_ending; });
    }
}

void Janitor::round()
{
    const Environment &environment = m_environment;
    const Time now = environment.clock.now();
    sweepFolder(environment.config.temporaryFolder(), environment.clock.forFiles() - day);

    // The chores may still stand in the queue when this object has gone: they hold no part of it.
    std::vector<Chore> chores = {
        { "clock",
            [now](
                const Environment &, Db &db) { setMetaValue(db, "clock", std::to_string(now)); } },
        { "process",
            [now](const Environment &env, Db &db) { noteProcess(db, env.processId, now); } },
        { "outbox", [now](const Environment &, Db &db) { dropSentRows(db, now - day); } },
        { "throttle",
            [now](const Environment &, Db &db) {
                dropFailuresBefore(db, now - longestThrottleWindow);
            } },
        { "audit",
            [now](const Environment &env, Db &db) {
                dropAuditBefore(db, now - env.config.auditDays * day);
            } },
        { "sessions",
            [wakeHeld = m_wakeHeld](
                const Environment &env, Db &db) { endSessions(env, db, wakeHeld); } },
    };
    chores.insert(chores.end(), allChores().begin(), allChores().end());
    for (const Chore &chore : chores) {
        m_pool.write([&environment, chore](Db &db) {
            try {
                Transaction transaction(db, Transaction::Kind::Write);
                chore.work(environment, db);
                transaction.commit();
            } catch (const std::exception &error) {
                logLine(LogLevel::Warning, "chore failed",
                    { { "chore", chore.name }, { "cause", error.what() } });
            }
        });
    }
}

void sweepFolder(const std::string &folder, Time before)
{
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator(folder, error)) {
        struct stat status { };
        const std::string path = entry.path().string();
        if (lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)
            && static_cast<Time>(status.st_mtime) * 1000 < before)
            unlink(path.c_str());
    }
}

} // namespace kvx::server
