#include "store/LockList.h"
#include "store/Db.h"

namespace kvx::server {

using I = std::int64_t;
using T = std::string;

std::vector<ListedLock> listLocks(Db &db, const std::optional<std::int64_t> &projectId)
{
    std::vector<ListedLock> locks;
    db.each<I, bool, T, T, T, I, T, Time, Time>(
        "SELECT p.id, 1, p.guid, p.name, coalesce(u.email, ''), p.lock_session, "
        "coalesce(s.device, ''), p.lock_since, p.lock_until FROM project p "
        "LEFT JOIN users u ON u.id = p.lock_user LEFT JOIN session s ON s.id = p.lock_session "
        "WHERE p.lock_session IS NOT NULL AND p.id = coalesce(:project, p.id) "
        "UNION ALL SELECT p.id, 0, p.guid, p.name, coalesce(u.email, ''), p.plock_session, "
        "coalesce(s.device, ''), 0, 0 FROM project p "
        "LEFT JOIN users u ON u.id = p.plock_user LEFT JOIN session s ON s.id = p.plock_session "
        "WHERE p.plock_session IS NOT NULL AND p.id = coalesce(:project, p.id) "
        "ORDER BY 1, 2 DESC",
        { { "project", projectId } },
        [&locks](
            I, bool save, T guid, T name, T email, I session, T device, Time since, Time until) {
            ListedLock lock;
            lock.kind = save ? ListedLock::Kind::Save : ListedLock::Kind::Project;
            lock.projectGuid = std::move(guid);
            lock.projectName = std::move(name);
            lock.email = std::move(email);
            lock.sessionId = session;
            lock.device = std::move(device);
            if (save) {
                lock.since = since;
                lock.until = until;
            }
            locks.push_back(std::move(lock));
        });
    return locks;
}

} // namespace kvx::server
