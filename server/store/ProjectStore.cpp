#include "store/ProjectStore.h"
#include "base/Text.h"
#include "store/Db.h"

namespace kvx::server {

namespace {

using I = std::int64_t;
using T = std::string;
using OptI = std::optional<std::int64_t>;
using OptT = std::optional<std::string>;

template <class Key> std::optional<Project> projectWhere(Db &db, const char *sql, Key key)
{
    std::optional<Project> found;
    db.each<I, T, T, T, I, I, I, I, I, T, I, I, T, OptT, T, T, I, OptI, OptI, I, I, I, OptI, OptI,
        OptI, OptI>(sql, { { "key", key } },
        [&found](I id, T guid, T name, T kind, I creator, I created, I editor, I modified,
            I version, T amount, I state, I bid, T addendumOf, OptT fileBlob, T fileMd5, T chain,
            I revision, OptI lockSession, OptI lockUser, I lockGen, I lockSince, I lockUntil,
            OptI plockSession, OptI plockUser, OptI removedAt, OptI removedBy) {
            found = Project { id, std::move(guid), std::move(name), std::move(kind), creator,
                created, editor, modified, version, std::move(amount), state, bid,
                std::move(addendumOf), std::move(fileBlob), std::move(fileMd5), std::move(chain),
                revision, lockSession, lockUser, lockGen, lockSince, lockUntil, plockSession,
                plockUser, removedAt, removedBy };
        });
    return found;
}

} // namespace

std::optional<Project> ProjectStore::find(std::string_view guid)
{
    return projectWhere(m_db,
        "SELECT id, guid, name, kind, creator_id, created, editor_id, modified, log_version, "
        "amount,"
        " state, bid_status, addendum_of, file_blob, file_md5, chain, revision, lock_session,"
        " lock_user, lock_gen, lock_since, lock_until, plock_session, plock_user, removed_at, "
        "removed_by"
        " FROM project WHERE guid_key = :key",
        guidKey(guid));
}

std::optional<Project> ProjectStore::find(std::int64_t id)
{
    return projectWhere(m_db,
        "SELECT id, guid, name, kind, creator_id, created, editor_id, modified, log_version, "
        "amount,"
        " state, bid_status, addendum_of, file_blob, file_md5, chain, revision, lock_session,"
        " lock_user, lock_gen, lock_since, lock_until, plock_session, plock_user, removed_at, "
        "removed_by"
        " FROM project WHERE id = :key",
        id);
}

namespace {

template <class Act> void forEachShown(Db &db, const char *sql, DbParams params, Act act)
{
    db.each<I, T, T, T, I, I, I, I, T, I, I, T, I, T, T, T, T, T>(sql, params,
        [&act](I id, T guid, T name, T kind, I creator, I created, I modified, I version, T amount,
            I state, I bid, T addendumOf, I revision, T creatorName, T creatorEmail, T editorName,
            T editorEmail, T info) {
            ProjectStore::Shown shown;
            Project &project = shown.project;
            project.id = id;
            project.guid = std::move(guid);
            project.name = std::move(name);
            project.kind = std::move(kind);
            project.creatorId = creator;
            project.created = created;
            project.modified = modified;
            project.logVersion = version;
            project.amount = std::move(amount);
            project.state = state;
            project.bidStatus = bid;
            project.addendumOf = std::move(addendumOf);
            project.revision = revision;
            shown.creatorName = std::move(creatorName);
            shown.creatorEmail = std::move(creatorEmail);
            shown.editorName = std::move(editorName);
            shown.editorEmail = std::move(editorEmail);
            shown.info = std::move(info);
            act(std::move(shown));
        });
}

} // namespace

std::optional<ProjectStore::Shown> ProjectStore::shown(std::int64_t id)
{
    std::optional<Shown> found;
    forEachShown(m_db,
        "SELECT p.id, p.guid, p.name, p.kind, p.creator_id, p.created, p.modified, p.log_version,"
        " p.amount, p.state, p.bid_status, p.addendum_of, p.revision, c.name, c.email, e.name, "
        "e.email,"
        " p.info FROM project p JOIN users c ON c.id = p.creator_id JOIN users e ON e.id = "
        "p.editor_id"
        " WHERE p.id = :id",
        { { "id", id } }, [&found](Shown shown) { found = std::move(shown); });
    return found;
}

void ProjectStore::eachShown(const std::function<void(const Shown &)> &act)
{
    forEachShown(m_db,
        "SELECT p.id, p.guid, p.name, p.kind, p.creator_id, p.created, p.modified, p.log_version,"
        " p.amount, p.state, p.bid_status, p.addendum_of, p.revision, c.name, c.email, e.name, "
        "e.email,"
        " p.info FROM project p JOIN users c ON c.id = p.creator_id JOIN users e ON e.id = "
        "p.editor_id"
        " WHERE p.removed_at IS NULL ORDER BY p.id",
        {}, act);
}

std::vector<std::int64_t> ProjectStore::named(std::string_view name, bool removed)
{
    std::vector<I> found;
    m_db.each<I>(removed ? "SELECT id FROM project WHERE name_key = :key AND live_name_key IS NULL"
                         : "SELECT id FROM project WHERE live_name_key = :key",
        { { "key", foldedKey(name) } }, [&found](I id) { found.push_back(id); });
    return found;
}

bool ProjectStore::isNameTaken(std::string_view name)
{
    return m_db
        .value<I>(
            "SELECT id FROM project WHERE live_name_key = :key", { { "key", foldedKey(name) } })
        .has_value();
}

std::vector<ProjectStore::Listed> ProjectStore::listed()
{
    std::vector<Listed> projects;
    m_db.each<I, I, T>(
        "SELECT id, revision, kind FROM project WHERE removed_at IS NULL ORDER BY id", {},
        [&projects](I id, I revision, T kind) {
            projects.push_back({ id, revision, std::move(kind) });
        });
    return projects;
}

std::int64_t ProjectStore::insert(const New &project)
{
    const I id = nextKey(m_db, "project");
    const T key = foldedKey(project.name);
    m_db.run(
        "INSERT INTO project (id, guid, guid_key, name, name_key, live_name_key, kind, creator_id,"
        " created, editor_id, modified, amount, state, bid_status, addendum_of, revision)"
        " VALUES (:id, :guid, :guid_key, :name, :key, :live, :kind, :creator, :created, :editor,"
        " :modified, :amount, :state, :bid, :addendum_of, 1)",
        { { "id", id }, { "guid", project.guid }, { "guid_key", guidKey(project.guid) },
            { "name", project.name }, { "key", key }, { "live", key }, { "kind", project.kind },
            { "creator", project.creatorId }, { "created", project.now },
            { "editor", project.creatorId }, { "modified", project.now },
            { "amount", project.amount }, { "state", project.state }, { "bid", project.bidStatus },
            { "addendum_of", project.addendumOf } });
    return id;
}

void ProjectStore::rename(std::int64_t id, std::string_view name, std::int64_t editorId, Time now)
{
    const T key = foldedKey(name);
    m_db.run("UPDATE project SET name = :name, name_key = :key, live_name_key = :live,"
             " editor_id = :editor, modified = :now WHERE id = :id",
        { { "name", name }, { "key", key }, { "live", key }, { "editor", editorId }, { "now", now },
            { "id", id } });
}

void ProjectStore::update(std::int64_t id, const Fields &fields, std::int64_t editorId, Time now)
{
    m_db.run(
        "UPDATE project SET amount = COALESCE(:amount, amount), state = COALESCE(:state, state),"
        " bid_status = COALESCE(:bid, bid_status), editor_id = :editor, modified = :now"
        " WHERE id = :id",
        { { "amount", fields.amount }, { "state", fields.state }, { "bid", fields.bidStatus },
            { "editor", editorId }, { "now", now }, { "id", id } });
}

void ProjectStore::remove(std::int64_t id, const std::optional<std::int64_t> &userId, Time now)
{
    m_db.run("UPDATE project SET removed_at = :now, removed_by = :user, live_name_key = NULL,"
             " lock_session = NULL, lock_user = NULL, plock_session = NULL, plock_user = NULL"
             " WHERE id = :id",
        { { "now", now }, { "user", userId }, { "id", id } });
}

void ProjectStore::restore(std::int64_t id, std::string_view name)
{
    const T key = foldedKey(name);
    m_db.run("UPDATE project SET removed_at = NULL, removed_by = NULL, name = :name,"
             " name_key = :key, live_name_key = :live WHERE id = :id",
        { { "name", name }, { "key", key }, { "live", key }, { "id", id } });
}

std::vector<ProjectStore::Removed> ProjectStore::removed()
{
    std::vector<Removed> found;
    m_db.each<I, T, T, T, I, T, T, bool>(
        "SELECT p.id, p.guid, p.name, p.kind, p.removed_at, COALESCE(u.name, ''),"
        " COALESCE(u.email, ''), CASE WHEN EXISTS (SELECT 1 FROM project_permission m"
        " WHERE m.project_id = p.id) THEN 0 ELSE 1 END FROM project p"
        " LEFT JOIN users u ON u.id = p.removed_by"
        " WHERE p.removed_at IS NOT NULL ORDER BY p.removed_at, p.id",
        {}, [&found](I id, T guid, T name, T kind, I at, T byName, T byEmail, bool purged) {
            found.push_back({ id, std::move(guid), std::move(name), std::move(kind), at,
                std::move(byName), std::move(byEmail), purged });
        });
    return found;
}

std::vector<std::int64_t> ProjectStore::removedBefore(Time before, int maximum)
{
    // The creator's permission row goes with the purge and never before.
    std::vector<I> found;
    m_db.each<I>("SELECT id FROM project p WHERE removed_at IS NOT NULL AND removed_at < :before"
                 " AND EXISTS (SELECT 1 FROM project_permission m WHERE m.project_id = p.id)"
                 " ORDER BY id LIMIT :maximum",
        { { "before", before }, { "maximum", maximum } }, [&found](I id) { found.push_back(id); });
    return found;
}

void ProjectStore::purge(std::int64_t id)
{
    m_db.run("DELETE FROM stage WHERE project_id = :id", { { "id", id } });
    m_db.run("DELETE FROM item WHERE project_id = :id", { { "id", id } });
    m_db.run("DELETE FROM item_holder WHERE project_id = :id", { { "id", id } });
    m_db.run("DELETE FROM item_block WHERE project_id = :id", { { "id", id } });
    m_db.run("DELETE FROM project_open WHERE project_id = :id", { { "id", id } });
    m_db.run("DELETE FROM project_log WHERE project_id = :id", { { "id", id } });
    m_db.run("DELETE FROM barrier WHERE project_id = :id", { { "id", id } });
    m_db.run("DELETE FROM file WHERE owner_kind = 'project' AND owner_id = :id", { { "id", id } });
    m_db.run("DELETE FROM project_permission WHERE project_id = :id", { { "id", id } });
    m_db.run("UPDATE project SET file_blob = NULL, file_md5 = '', info = '{}' WHERE id = :id",
        { { "id", id } });
}

std::string ProjectStore::info(std::int64_t id)
{
    return m_db.value<T>("SELECT info FROM project WHERE id = :id", { { "id", id } })
        .value_or("{}");
}

void ProjectStore::setInfo(std::int64_t id, std::string_view info)
{
    m_db.run("UPDATE project SET info = :info WHERE id = :id", { { "info", info }, { "id", id } });
}

void ProjectStore::setProjectLock(std::int64_t id, std::int64_t sessionId, std::int64_t userId)
{
    m_db.run("UPDATE project SET plock_session = :session, plock_user = :user WHERE id = :id",
        { { "session", sessionId }, { "user", userId }, { "id", id } });
}

void ProjectStore::freeProjectLock(std::int64_t id)
{
    m_db.run("UPDATE project SET plock_session = NULL, plock_user = NULL WHERE id = :id",
        { { "id", id } });
}

void ProjectStore::freeProjectLockOfSession(std::int64_t id, std::int64_t sessionId)
{
    m_db.run("UPDATE project SET plock_session = NULL, plock_user = NULL"
             " WHERE id = :id AND plock_session = :session",
        { { "id", id }, { "session", sessionId } });
}

void ProjectStore::freeProjectLockOfUser(std::int64_t id, std::int64_t userId)
{
    m_db.run("UPDATE project SET plock_session = NULL, plock_user = NULL"
             " WHERE id = :id AND plock_user = :user",
        { { "id", id }, { "user", userId } });
}

std::int64_t ProjectStore::nextNameNumber()
{
    return nextKey(m_db, "project name");
}

} // namespace kvx::server
