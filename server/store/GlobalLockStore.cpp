#include "store/GlobalLockStore.h"
#include "store/Db.h"

namespace kvx::server {

namespace {

/// Those of that type, and those over at that time, where given.
std::vector<GlobalLock> load(Db &db, std::optional<std::int64_t> type, std::optional<Time> over)
{
    std::vector<GlobalLock> locks;
    using I = std::int64_t;
    db.each<I, I, std::string, std::string, std::optional<I>, Time>(
        "SELECT type, user_id, name, email, session_id, until FROM global_lock"
        " WHERE type = COALESCE(:type, type) AND until <= COALESCE(:over, until) ORDER BY type",
        { { "type", type }, { "over", over } },
        [&locks](I own, I user, std::string name, std::string email, std::optional<I> session,
            Time until) {
            locks.push_back({ own, user, std::move(name), std::move(email), session, until });
        });
    return locks;
}

} // namespace

std::optional<GlobalLock> GlobalLockStore::find(std::int64_t type)
{
    const std::vector<GlobalLock> found = load(m_db, type, {});
    return found.empty() ? std::nullopt : std::optional(found.front());
}

std::vector<GlobalLock> GlobalLockStore::all()
{
    return load(m_db, {}, {});
}

void GlobalLockStore::put(const GlobalLock &lock, Time now)
{
    m_db.run("INSERT INTO global_lock (type, user_id, name, email, session_id, at, until)"
             " VALUES (:type, :user, :name, :email, :session, :now, :until)"
             " ON CONFLICT (type) DO UPDATE SET user_id = :user, name = :name, email = :email,"
             " session_id = :session, at = :now, until = :until",
        { { "type", lock.type }, { "user", lock.userId }, { "name", lock.name },
            { "email", lock.email }, { "session", lock.sessionId }, { "now", now },
            { "until", lock.until } });
}

void GlobalLockStore::remove(std::int64_t type)
{
    m_db.run("DELETE FROM global_lock WHERE type = :type", { { "type", type } });
}

std::vector<GlobalLock> GlobalLockStore::removeExpired(Time now)
{
    const std::vector<GlobalLock> expired = load(m_db, {}, now);
    for (const GlobalLock &lock : expired)
        remove(lock.type);
    return expired;
}

} // namespace kvx::server
