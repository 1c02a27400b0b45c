#include "store/GroupStore.h"
#include "base/Text.h"
#include "store/Db.h"

namespace kvx::server {

std::optional<ProjectGroup> GroupStore::find(std::string_view name)
{
    std::optional<ProjectGroup> found;
    m_db.each<std::int64_t, std::string, std::string, std::int64_t>(
        "SELECT id, name, kind, creator_id FROM project_group WHERE name_key = :key",
        { { "key", foldedKey(name) } },
        [&found](std::int64_t id, std::string own, std::string kind, std::int64_t creator) {
            found = ProjectGroup { id, std::move(own), std::move(kind), creator };
        });
    return found;
}

std::vector<ProjectGroup> GroupStore::all()
{
    std::vector<ProjectGroup> groups;
    m_db.each<std::int64_t, std::string, std::string, std::int64_t>(
        "SELECT id, name, kind, creator_id FROM project_group ORDER BY name_key", {},
        [&groups](std::int64_t id, std::string name, std::string kind, std::int64_t creator) {
            groups.push_back({ id, std::move(name), std::move(kind), creator });
        });
    return groups;
}

void GroupStore::insert(std::string_view name, std::string_view kind, std::int64_t creatorId)
{
    m_db.run("INSERT INTO project_group (id, name, name_key, kind, creator_id)"
             " VALUES (:id, :name, :key, :kind, :creator)",
        { { "id", nextKey(m_db, "project group") }, { "name", name }, { "key", foldedKey(name) },
            { "kind", kind }, { "creator", creatorId } });
}

void GroupStore::rename(std::int64_t id, std::string_view name)
{
    m_db.run("UPDATE project_group SET name = :name, name_key = :key WHERE id = :id",
        { { "name", name }, { "key", foldedKey(name) }, { "id", id } });
}

void GroupStore::remove(std::int64_t id)
{
    m_db.run("DELETE FROM project_group WHERE id = :id", { { "id", id } });
}

void GroupStore::eachCandidate(std::string_view fragment,
    const std::function<void(std::int64_t projectId, const std::string &info)> &act)
{
    std::string pattern = "%";
    for (const char c : fragment) {
        if (c == '%' || c == '_' || c == '^')
            pattern += '^';
        pattern += c;
    }
    pattern += '%';
    m_db.each<std::int64_t, std::string>(
        "SELECT id, info FROM project WHERE removed_at IS NULL AND info LIKE :pattern ESCAPE '^'"
        " ORDER BY id",
        { { "pattern", pattern } },
        [&act](std::int64_t id, const std::string &info) { act(id, info); });
}

} // namespace kvx::server
