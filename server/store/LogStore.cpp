#include "store/LogStore.h"
#include "base/Digest.h"
#include "store/Db.h"
#include "store/StageStore.h"

namespace kvx::server {

using I = std::int64_t;

std::optional<std::int64_t> LogStore::take(
    std::int64_t projectId, std::int64_t sessionId, std::int64_t userId, Time now, Time until)
{
    const auto generation = m_db.value<I>(
        "UPDATE project SET lock_session = :session, lock_user = :user, lock_gen = lock_gen + 1,"
        " lock_since = :since, lock_until = :until WHERE id = :id AND removed_at IS NULL"
        " AND (lock_session IS NULL OR lock_until < :now OR (lock_session = :session"
        " AND NOT EXISTS (SELECT 1 FROM log_lock_at_work l WHERE l.id = project.id)))"
        " RETURNING lock_gen",
        { { "session", sessionId }, { "user", userId }, { "since", wallTime() }, { "until", until },
            { "id", projectId }, { "now", now } });
    if (generation)
        StageStore(m_db).drop(projectId);
    return generation;
}

bool LogStore::renew(std::int64_t projectId, std::int64_t sessionId, Time until)
{
    return m_db.run(
               "UPDATE project SET lock_until = :until WHERE id = :id AND EXISTS (SELECT 1"
               " FROM log_lock_at_work l WHERE l.id = project.id AND l.lock_session = :session)",
               { { "until", until }, { "id", projectId }, { "session", sessionId } })
        == 1;
}

bool LogStore::release(std::int64_t projectId, std::int64_t sessionId)
{
    const bool held = m_db.run("UPDATE project SET lock_session = NULL, lock_user = NULL"
                               " WHERE id = :id AND lock_session = :session",
                          { { "id", projectId }, { "session", sessionId } })
        == 1;
    if (held)
        StageStore(m_db).drop(projectId);
    return held;
}

bool LogStore::releaseOfUser(std::int64_t projectId, std::int64_t userId)
{
    const bool held = m_db.run("UPDATE project SET lock_session = NULL, lock_user = NULL"
                               " WHERE id = :id AND lock_user = :user",
                          { { "id", projectId }, { "user", userId } })
        == 1;
    if (held)
        StageStore(m_db).drop(projectId);
    return held;
}

bool LogStore::revoke(std::int64_t projectId)
{
    const bool held
        = m_db.run("UPDATE project SET lock_session = NULL, lock_user = NULL,"
                   " lock_gen = lock_gen + 1 WHERE id = :id AND lock_session IS NOT NULL",
              { { "id", projectId } })
        == 1;
    if (held)
        StageStore(m_db).drop(projectId);
    return held;
}

bool LogStore::publish(const Publication &p)
{
    if (m_db.run("UPDATE project SET log_version = :version, file_blob = :file, file_md5 = :md5,"
                 " chain = :chain, amount = COALESCE(:amount, amount), editor_id = :user,"
                 " modified = :now WHERE id = :id AND log_version = :before"
                 " AND lock_session = :session AND lock_gen = :generation",
            { { "version", p.version }, { "file", p.fileBlob }, { "md5", p.fileMd5 },
                { "chain", p.chain }, { "amount", p.amount }, { "user", p.userId },
                { "now", p.now }, { "id", p.projectId }, { "before", p.version - 1 },
                { "session", p.sessionId }, { "generation", p.generation } })
        != 1)
        return false;
    m_db.run(
        "INSERT INTO project_log (project_id, version, blob, md5, size, user_id, session_id, "
        "lock_gen,"
        " device, at, amount, file_blob, file_digest, chain)"
        " SELECT id, log_version, :blob, :md5, :size, :user, :session, :generation, :device, :now,"
        " amount, file_blob, file_blob, chain FROM project WHERE id = :id",
        { { "blob", p.logBlob }, { "md5", p.logMd5 }, { "size", p.logSize }, { "user", p.userId },
            { "session", p.sessionId }, { "generation", p.generation }, { "device", p.device },
            { "now", p.now }, { "id", p.projectId } });
    return true;
}

bool LogStore::setFirstFile(std::int64_t projectId, const std::string &blob, const std::string &md5)
{
    return m_db.run("UPDATE project SET file_blob = :blob, file_md5 = :md5"
                    " WHERE id = :id AND log_version = -1 AND file_blob IS NULL",
               { { "blob", blob }, { "md5", md5 }, { "id", projectId } })
        == 1;
}

void LogStore::forgetFiles(std::int64_t projectId, std::int64_t version)
{
    m_db.run(
        "UPDATE project_log SET file_blob = NULL WHERE project_id = :id AND version <= :version"
        " AND file_blob IS NOT NULL AND version > :floor",
        { { "id", projectId }, { "version", version }, { "floor", version - 8 } });
}

std::string chainDigest(const ChainLink &link)
{
    const std::string separator = "\n";
    return sha256(link.before + separator + link.guid + separator + std::to_string(link.version)
        + separator + link.logDigest + separator + link.fileDigest + separator
        + std::to_string(link.userId) + separator + std::to_string(link.at));
}

std::optional<LogStore::Log> LogStore::log(std::int64_t projectId, std::int64_t version)
{
    std::optional<Log> found;
    m_db.each<std::string, std::string, I, I, I, std::string, I>(
        "SELECT blob, md5, size, session_id, lock_gen, chain, at FROM project_log"
        " WHERE project_id = :id AND version = :version",
        { { "id", projectId }, { "version", version } },
        [&found](std::string blob, std::string md5, I size, I session, I generation,
            std::string chain, I at) {
            found = Log { std::move(blob), std::move(md5), size, session, generation,
                std::move(chain), at };
        });
    return found;
}

} // namespace kvx::server
