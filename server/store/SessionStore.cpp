#include "store/SessionStore.h"
#include "base/Config.h"
#include "base/Digest.h"
#include "store/Db.h"

#include <algorithm>

namespace kvx::server {

namespace {

/// `last_seen` need not be exact; it is written at most this often.
Time touchInterval(const Config &config)
{
    return std::min({ Time { 60'000 }, config.sessionIdle / 4, config.sessionPresence / 4 });
}

/// Calls `act(session, whether it has a save under way)` for each live session of the user.
template <class Act>
void eachLiveSession(Db &db, const Config &config, Time now, std::int64_t userId, Act act)
{
    db.each<std::int64_t, Time, Time, bool>(
        "SELECT s.id, s.last_seen, s.ends, "
        "EXISTS (SELECT 1 FROM log_lock_at_work l WHERE l.lock_session = s.id) "
        "FROM session s WHERE s.user_id = :user",
        { { "user", userId } }, [&](std::int64_t id, Time lastSeen, Time ends, bool holdsLock) {
            if (isSessionLive(config, now, lastSeen, ends, holdsLock))
                act(id, holdsLock);
        });
}

} // namespace

bool isSessionLive(const Config &config, Time now, Time lastSeen, Time ends, bool holdsLock)
{
    return now - lastSeen < config.sessionIdle && (now < ends || holdsLock);
}

bool isSessionPresent(const Config &config, Time now, Time lastSeen)
{
    return now - lastSeen < config.sessionPresence;
}

std::optional<SessionRow> findSession(
    Db &db, const Config &config, Time now, const std::string &token)
{
    const auto row = db.row<std::int64_t, std::int64_t, std::string, std::string, std::string, Time,
        Time, std::optional<Time>>(
        "SELECT s.id, u.id, u.email, u.name, s.device, s.last_seen, s.ends, "
        "(SELECT min(l.lock_until) FROM log_lock_at_work l WHERE l.lock_session = s.id) "
        "FROM session s JOIN users u ON u.id = s.user_id WHERE s.token = :token AND u.disabled = 0",
        { { "token", sha256(token) } });
    if (!row)
        return std::nullopt;
    SessionRow session;
    std::tie(session.id, session.userId, session.email, session.name, session.device,
        session.lastSeen, session.ends, session.lockUntil)
        = *row;
    if (!isSessionLive(config, now, session.lastSeen, session.ends, session.lockUntil.has_value()))
        return std::nullopt;
    return session;
}

std::int64_t addSession(Db &db, const Config &config, Time now, const NewSession &session)
{
    const std::int64_t id = nextKey(db, "session");
    db.run(
        "INSERT INTO session (id, token, user_id, device, address, app_version, product, created, "
        "last_seen, ends) VALUES (:id, :token, :user, :device, :address, :version, :product, "
        ":now, :seen, :ends)",
        { { "id", id }, { "token", sha256(session.token) }, { "user", session.userId },
            { "device", session.device }, { "address", session.address },
            { "version", session.appVersion }, { "product", session.product }, { "now", now },
            { "seen", now }, { "ends", now + config.sessionAbsolute } });
    return id;
}

bool isTouchDue(const Config &config, Time now, const SessionRow &session)
{
    return now - session.lastSeen >= touchInterval(config)
        || (session.lockUntil && *session.lockUntil - now < config.lockLease * 3 / 4);
}

void touchSession(Db &db, const Config &config, Time now, std::int64_t sessionId)
{
    db.run("UPDATE session SET last_seen = :now WHERE id = :id AND last_seen < :before",
        { { "now", now }, { "id", sessionId }, { "before", now } });
    // Also a lease that has run out: nobody has taken the lock meanwhile, or it would be his.
    db.run("UPDATE project SET lock_until = :until WHERE lock_until < :soon AND id IN"
           " (SELECT l.id FROM log_lock_at_work l WHERE l.lock_session = :id)",
        { { "until", now + config.lockLease }, { "id", sessionId },
            { "soon", now + config.lockLease * 3 / 4 } });
}

EndedSession endSession(Db &db, std::int64_t sessionId)
{
    EndedSession ended;
    for (const auto &[projectId] : db.rows<std::int64_t>(
             "SELECT id FROM project WHERE lock_session = :id", { { "id", sessionId } }))
        ended.unlockedProjects.push_back(projectId);
    db.run("UPDATE project SET lock_session = NULL, lock_user = NULL, lock_until = 0 "
           "WHERE lock_session = :id",
        { { "id", sessionId } });
    db.run("DELETE FROM stage WHERE session_id = :id", { { "id", sessionId } });
    db.run("UPDATE project SET plock_session = NULL, plock_user = NULL WHERE plock_session = :id",
        { { "id", sessionId } });
    db.run("DELETE FROM project_open WHERE session_id = :id", { { "id", sessionId } });
    db.run("DELETE FROM global_lock WHERE session_id = :id", { { "id", sessionId } });
    db.run("DELETE FROM session WHERE id = :id", { { "id", sessionId } });
    return ended;
}

EndedSession endSessionsOf(Db &db, std::int64_t userId, std::int64_t except)
{
    EndedSession all;
    for (const auto &[id] :
        db.rows<std::int64_t>("SELECT id FROM session WHERE user_id = :user AND id <> :except",
            { { "user", userId }, { "except", except } })) {
        const EndedSession ended = endSession(db, id);
        all.unlockedProjects.insert(all.unlockedProjects.end(), ended.unlockedProjects.begin(),
            ended.unlockedProjects.end());
    }
    return all;
}

std::vector<std::int64_t> expiredSessions(Db &db, const Config &config, Time now, int maximum)
{
    std::vector<std::int64_t> found;
    db.each<std::int64_t>(
        "SELECT s.id FROM session s WHERE s.last_seen <= :idle OR (s.ends <= :now AND NOT EXISTS "
        "(SELECT 1 FROM log_lock_at_work l WHERE l.lock_session = s.id)) LIMIT :maximum",
        { { "idle", now - config.sessionIdle }, { "now", now }, { "maximum", maximum } },
        [&found](std::int64_t id) { found.push_back(id); });
    return found;
}

std::vector<LiveSession> liveSessions(Db &db, const Config &config, Time now)
{
    std::vector<LiveSession> found;
    db.each<std::string, std::string, Time, Time, bool>(
        "SELECT u.email, s.address, s.last_seen, s.ends, CASE WHEN s.ends > :now THEN 0 ELSE "
        "EXISTS (SELECT 1 FROM log_lock_at_work l WHERE l.lock_session = s.id) END "
        "FROM session s JOIN users u ON u.id = s.user_id WHERE u.disabled = 0",
        { { "now", now } },
        [&](std::string email, std::string address, Time lastSeen, Time ends, bool holdsLock) {
            if (isSessionLive(config, now, lastSeen, ends, holdsLock))
                found.push_back({ std::move(email), std::move(address) });
        });
    return found;
}

std::optional<std::int64_t> longestIdleSession(Db &db, std::int64_t userId)
{
    return db.value<std::int64_t>(
        "SELECT s.id FROM session s WHERE s.user_id = :user AND NOT EXISTS "
        "(SELECT 1 FROM log_lock_at_work l WHERE l.lock_session = s.id) ORDER BY s.last_seen, s.id "
        "LIMIT 1",
        { { "user", userId } });
}

std::int64_t countLiveSessions(Db &db, const Config &config, Time now, std::int64_t userId)
{
    std::int64_t count = 0;
    eachLiveSession(db, config, now, userId, [&count](std::int64_t, bool) { ++count; });
    return count;
}

std::int64_t countSessionsAtWork(
    Db &db, const Config &config, Time now, std::int64_t userId, std::int64_t except)
{
    std::int64_t count = 0;
    eachLiveSession(db, config, now, userId,
        [&count, except](std::int64_t id, bool holdsLock) { count += holdsLock && id != except; });
    return count;
}

void dropUnheldStages(Db &db)
{
    db.run(
        "DELETE FROM stage WHERE NOT EXISTS (SELECT 1 FROM project p WHERE p.id = stage.project_id "
        "AND p.lock_session = stage.session_id AND p.lock_gen = stage.generation)");
}

void renewOpenLeases(Db &db, Time since, Time until)
{
    db.run("UPDATE project SET lock_until = :until WHERE lock_session IS NOT NULL "
           "AND lock_until >= :since",
        { { "until", until }, { "since", since } });
}

std::string logLockKey(std::int64_t projectId)
{
    return "log-lock:" + std::to_string(projectId);
}

} // namespace kvx::server
