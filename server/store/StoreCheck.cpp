#include "store/StoreCheck.h"
#include "base/Digest.h"
#include "store/AuditStore.h"
#include "store/BlobStore.h"
#include "store/Db.h"
#include "store/LogStore.h"
#include "store/RoleStore.h"

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <vector>

namespace kvx::server {

namespace {

using I = std::int64_t;
using S = std::string;

S digestOfFile(const S &path)
{
    std::ifstream file(path, std::ios::binary);
    Digest digest(Digest::Kind::Sha256);
    std::vector<char> buffer(256 * 1024);
    while (file.read(buffer.data(), static_cast<std::streamsize>(buffer.size())), file.gcount() > 0)
        digest.add({ buffer.data(), static_cast<std::size_t>(file.gcount()) });
    return file.bad() ? S() : digest.finish();
}

} // namespace

void StoreCheck::run(bool deep)
{
    const Transaction snapshot(m_db, Transaction::Kind::Read);
    checkDatabase();
    checkLogs();
    checkLocks();
    checkNumbers();
    checkRights();
    checkAudit();
    checkBlobs(deep);
}

/// The database's own look at its pages and references.
void StoreCheck::checkDatabase()
{
    m_db.each<S>("PRAGMA integrity_check", {}, [this](const S &line) {
        if (line != "ok")
            m_fault("the database is damaged: " + line);
    });
    m_db.each<S, std::optional<I>, S>(
        "SELECT \"table\", rowid, parent FROM pragma_foreign_key_check", {},
        [this](const S &table, const std::optional<I> &row, const S &parent) {
            m_fault("row " + std::to_string(row.value_or(0)) + " of " + table
                + " refers to a row of " + parent + " that is not there");
        });
}

/// Versions dense, and their digests chained from the first to the project's own.
void StoreCheck::checkLogs()
{
    struct Project {
        S guid, chain;
        I version = -1, last = -1, logs = 0;
        bool removed = false;
    };
    std::map<I, Project> projects;
    m_db.each<I, S, S, I, std::optional<I>>(
        "SELECT id, guid, chain, log_version, removed_at FROM project", {},
        [&projects](I id, S guid, S chain, I version, std::optional<I> removed) {
            projects[id]
                = { std::move(guid), std::move(chain), version, -1, 0, removed.has_value() };
        });
    std::set<std::pair<I, I>> barriers;
    m_db.each<I, I>("SELECT project_id, version FROM barrier", {},
        [&barriers](I project, I version) { barriers.emplace(project, version); });

    std::map<I, S> chains;
    m_db.each<I, I, S, S, I, I, S>(
        "SELECT project_id, version, blob, file_digest, user_id, at, chain"
        " FROM project_log ORDER BY project_id, version",
        {}, [&](I id, I version, const S &log, const S &file, I user, I at, const S &chain) {
            Project &project = projects[id];
            const bool follows
                = version == project.last + 1 || barriers.count({ id, version - 1 }) > 0;
            if (!follows) {
                m_fault("project " + project.guid + ": version " + std::to_string(version)
                    + " follows " + std::to_string(project.last));
            }
            if (chain != chainDigest({ chains[id], project.guid, version, log, file, user, at }))
                m_fault("project " + project.guid + ": the chain of digests breaks at version "
                    + std::to_string(version));
            project.last = version;
            ++project.logs;
            chains[id] = chain;
        });
    for (const auto &[id, project] : projects) {
        const bool purged = project.removed && project.logs == 0;
        const bool atEnd
            = project.version == project.last || barriers.count({ id, project.version });
        if (!purged && !atEnd)
            m_fault("project " + project.guid + " stands at version "
                + std::to_string(project.version) + ", its last log is "
                + std::to_string(project.last));
        if (!purged && project.logs > 0 && project.chain != chains[id])
            m_fault("project " + project.guid + ": its digest is not that of its last version");
    }
}

void StoreCheck::checkLocks()
{
    m_db.each<S>("SELECT guid FROM project WHERE (lock_session IS NULL) <> (lock_user IS NULL)"
                 " OR (plock_session IS NULL) <> (plock_user IS NULL)",
        {}, [this](const S &guid) { m_fault("project " + guid + ": half a lock"); });
    m_db.each<S>("SELECT p.guid FROM project p WHERE p.lock_session IS NOT NULL AND NOT EXISTS"
                 " (SELECT 1 FROM session s WHERE s.id = p.lock_session"
                 " AND s.user_id = p.lock_user)",
        {}, [this](const S &guid) {
            m_fault("project " + guid + ": its save lock belongs to a session that is over");
        });
    m_db.each<S, S>("SELECT p.guid, s.part FROM stage s JOIN project p ON p.id = s.project_id"
                    " WHERE p.lock_session IS NULL OR p.lock_session <> s.session_id"
                    " OR p.lock_gen <> s.generation",
        {}, [this](const S &guid, const S &part) {
            m_fault("project " + guid + ": an upload (" + part + ") waits without a lock");
        });
    m_db.each<I>("SELECT g.type FROM global_lock g WHERE g.session_id IS NOT NULL AND NOT EXISTS"
                 " (SELECT 1 FROM session s WHERE s.id = g.session_id)",
        {}, [this](I type) {
            m_fault("global lock " + std::to_string(type) + " belongs to a session that is over");
        });
}

/// No item number was given twice, or is still to be given.
void StoreCheck::checkNumbers()
{
    I project = 0;
    I last = 0;
    m_db.each<I, S, I, I, I>(
        "SELECT b.project_id, p.guid, b.min_id, b.max_id, p.next_item FROM item_block b"
        " JOIN project p ON p.id = b.project_id ORDER BY b.project_id, b.min_id",
        {}, [&](I id, const S &guid, I from, I to, I next) {
            const S block = std::to_string(from) + " to " + std::to_string(to);
            if (id == project && from <= last)
                m_fault("project " + guid + ": item numbers " + block + " were given twice");
            if (from < 1 || to < from || to >= next)
                m_fault("project " + guid + ": item numbers " + block
                    + " do not fit the counter at " + std::to_string(next));
            project = id;
            last = to;
        });
}

void StoreCheck::checkRights()
{
    m_db.each<S, S>("SELECT p.guid, u.email FROM project_permission r"
                    " JOIN project p ON p.id = r.project_id JOIN users u ON u.id = r.user_id"
                    " WHERE r.rw NOT BETWEEN -1 AND 8 OR r.money NOT BETWEEN -1 AND 8"
                    " OR r.addendum NOT BETWEEN -1 AND 8 OR r.report NOT BETWEEN -1 AND 8",
        {}, [this](const S &guid, const S &email) {
            m_fault("project " + guid + ": the levels of " + email + " are out of range");
        });
    if (countEnabledAdministrators(m_db) == 0)
        m_fault("no enabled user is an administrator");
}

void StoreCheck::checkAudit()
{
    eachBrokenAuditRow(m_db, [this](I process, I number) {
        m_fault("the audit log of process " + std::to_string(process) + " breaks at entry "
            + std::to_string(number));
    });
}

void StoreCheck::checkBlobs(bool deep)
{
    const BlobStore blobs(m_dataFolder);
    m_db.each<S, I>(
        "SELECT sha256, size FROM blob ORDER BY sha256", {}, [&](const S &sha256, I size) {
            const S path = blobs.path(sha256);
            std::error_code error;
            const auto bytes = std::filesystem::file_size(path, error);
            if (error)
                m_fault("content " + sha256 + " is missing: " + error.message());
            else if (bytes != static_cast<std::uintmax_t>(size))
                m_fault("content " + sha256 + " has " + std::to_string(bytes) + " bytes instead of "
                    + std::to_string(size));
            else if (deep && digestOfFile(path) != sha256)
                m_fault("content " + sha256 + " is damaged");
        });
}

} // namespace kvx::server
