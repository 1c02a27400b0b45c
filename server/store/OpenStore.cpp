#include "store/OpenStore.h"
#include "store/Db.h"
#include "store/SessionStore.h"

#include <algorithm>

namespace kvx::server {

using I = std::int64_t;

std::optional<OpenStore::Open> OpenStore::of(std::int64_t projectId, std::int64_t userId)
{
    std::optional<Open> found;
    m_db.each<I, std::string, I, I, bool>(
        "SELECT s.id, s.device, s.last_seen, s.ends,"
        " EXISTS (SELECT 1 FROM log_lock_at_work l WHERE l.lock_session = s.id)"
        " FROM project_open o JOIN session s ON s.id = o.session_id"
        " WHERE o.project_id = :project AND o.user_id = :user",
        { { "project", projectId }, { "user", userId } },
        [&found](I session, std::string device, I seen, I ends, bool holdsLock) {
            found = Open { session, std::move(device), seen, ends, holdsLock };
        });
    return found;
}

std::vector<OpenStore::Editor> OpenStore::opened(std::int64_t projectId)
{
    std::vector<Editor> editors;
    m_db.each<I, std::string, std::string, I, I, I, bool>(
        "SELECT u.id, u.name, u.email, o.since, s.last_seen, s.ends,"
        " EXISTS (SELECT 1 FROM log_lock_at_work l WHERE l.lock_session = s.id) FROM project_open o"
        " JOIN session s ON s.id = o.session_id JOIN users u ON u.id = o.user_id"
        " WHERE o.project_id = :project ORDER BY o.since, u.id",
        { { "project", projectId } },
        [&editors](
            I user, std::string name, std::string email, I since, I seen, I ends, bool holdsLock) {
            editors.push_back(
                { user, std::move(name), std::move(email), since, seen, ends, holdsLock });
        });
    return editors;
}

std::vector<OpenStore::Editor> OpenStore::editors(
    std::int64_t projectId, const Config &config, Time now)
{
    std::vector<Editor> present = opened(projectId);
    const auto absent = [&](const Editor &editor) {
        return !isSessionPresent(config, now, editor.lastSeen)
            || !isSessionLive(config, now, editor.lastSeen, editor.ends, editor.holdsLock);
    };
    present.erase(std::remove_if(present.begin(), present.end(), absent), present.end());
    return present;
}

void OpenStore::set(std::int64_t projectId, std::int64_t userId, std::int64_t sessionId, Time now)
{
    m_db.run("INSERT INTO project_open (project_id, user_id, session_id, since)"
             " VALUES (:project, :user, :session, :now) ON CONFLICT (project_id, user_id)"
             " DO UPDATE SET session_id = excluded.session_id, since = excluded.since",
        { { "project", projectId }, { "user", userId }, { "session", sessionId }, { "now", now } });
}

bool OpenStore::close(std::int64_t projectId, std::int64_t userId, std::int64_t sessionId)
{
    return m_db.run("DELETE FROM project_open WHERE project_id = :project AND user_id = :user"
                    " AND session_id = :session",
               { { "project", projectId }, { "user", userId }, { "session", sessionId } })
        > 0;
}

void OpenStore::closeAll(std::int64_t projectId, std::int64_t userId)
{
    m_db.run("DELETE FROM project_open WHERE project_id = :project AND user_id = :user",
        { { "project", projectId }, { "user", userId } });
}

void OpenStore::closeEverywhere(std::int64_t projectId)
{
    m_db.run("DELETE FROM project_open WHERE project_id = :project", { { "project", projectId } });
}

std::optional<Time> OpenStore::lastSeen(std::int64_t sessionId)
{
    return m_db.value<Time>(
        "SELECT last_seen FROM session WHERE id = :id", { { "id", sessionId } });
}

} // namespace kvx::server
