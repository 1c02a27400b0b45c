#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kvx::server {

class Db;
struct Config;

/// A live session and its user.
struct SessionRow {
    std::int64_t id = 0;
    std::int64_t userId = 0;
    std::string email;
    std::string name;
    std::string device;
    Time lastSeen = 0;
    Time ends = 0;
    std::optional<Time> lockUntil; ///< earliest end of lease of its saves under way
};

struct NewSession {
    std::int64_t userId = 0;
    std::string token;
    std::string device;
    std::string address;
    std::string appVersion;
    std::string product;
};

/// The session of a token (the cookie's text), when it is live and its user enabled.
std::optional<SessionRow> findSession(
    Db &db, const Config &config, Time now, const std::string &token);

std::int64_t addSession(Db &db, const Config &config, Time now, const NewSession &session);

/// Idle time and absolute end judged with the clock. A session outlives its absolute end as long as
/// it holds a log lock whose save is not published (log_lock_at_work in the schema).
bool isSessionLive(const Config &config, Time now, Time lastSeen, Time ends, bool holdsLock);

/// A session with a request within `session.presence`.
bool isSessionPresent(const Config &config, Time now, Time lastSeen);

/// Whether `touchSession` has something to write.
bool isTouchDue(const Config &config, Time now, const SessionRow &session);

/// Notes that the session was heard of, and renews the leases of its saves under way.
void touchSession(Db &db, const Config &config, Time now, std::int64_t sessionId);

/// The projects that a session's end has freed, so that those who wait can be woken.
struct EndedSession {
    std::vector<std::int64_t> unlockedProjects;
};

/// Ends a session, whatever the cause, and frees what ends with it: log locks (with their staged
/// uploads), project locks, open projects, global locks bound to it. Inside the caller's
/// transaction.
EndedSession endSession(Db &db, std::int64_t sessionId);

/// All sessions of a user but `except` (0: all).
EndedSession endSessionsOf(Db &db, std::int64_t userId, std::int64_t except = 0);

/// Sessions that are over by the clock; at most `maximum` a call.
std::vector<std::int64_t> expiredSessions(Db &db, const Config &config, Time now, int maximum);

/// Every live session of an enabled user.
struct LiveSession {
    std::string email;
    std::string address; ///< from which he logged in
};
std::vector<LiveSession> liveSessions(Db &db, const Config &config, Time now);

/// The session without a save under way that was idle longest.
std::optional<std::int64_t> longestIdleSession(Db &db, std::int64_t userId);
std::int64_t countLiveSessions(Db &db, const Config &config, Time now, std::int64_t userId);
/// Those of the live sessions that have a save under way, but for one.
std::int64_t countSessionsAtWork(
    Db &db, const Config &config, Time now, std::int64_t userId, std::int64_t except);

/// After a restart: staged uploads of a lock that is no longer held go.
void dropUnheldStages(Db &db);

/// After a restart: leases that ran beyond `since` run until `until`.
void renewOpenLeases(Db &db, Time since, Time until);

/// The name under which requests wait for a project's log lock (Reply::held, Call::wakeHeld).
std::string logLockKey(std::int64_t projectId);

} // namespace kvx::server
