#include "store/TemplateStore.h"
#include "base/Text.h"
#include "store/Db.h"

namespace kvx::server {

namespace {

constexpr std::int64_t versionsKept = 10;

/// Those that are not removed and for which the condition on `t` holds.
std::vector<Template> load(Db &db, const std::string &condition = {}, DbParams parameters = {})
{
    std::vector<Template> found;
    using I = std::int64_t;
    using S = std::string;
    db.each<S, S, I, S, S, I, S, I, S, S, I, I>(
        "SELECT t.id, t.name, t.type, t.author, t.author_email, t.author_id, t.project_version,"
        " t.version, v.blob, v.md5, t.created, t.modified FROM template t"
        " JOIN template_version v ON v.template_id = t.id AND v.version = t.version"
        " WHERE t.deleted_at IS NULL"
            + condition + " ORDER BY t.name_key",
        parameters,
        [&found](S own, S name, I type, S author, S authorEmail, I owner, S projectVersion,
            I version, S blob, S md5, I created, I modified) {
            found.push_back({ std::move(own), std::move(name), type, std::move(author),
                std::move(authorEmail), owner, std::move(projectVersion), version, std::move(blob),
                std::move(md5), created, modified });
        });
    return found;
}

std::optional<Template> first(std::vector<Template> found)
{
    return found.empty() ? std::nullopt : std::optional(std::move(found.front()));
}

} // namespace

std::optional<Template> TemplateStore::find(const std::string &id)
{
    return first(load(m_db, " AND t.id = :id", { { "id", id } }));
}

std::optional<Template> TemplateStore::findByName(std::string_view name)
{
    return first(load(m_db, " AND t.live_name_key = :key", { { "key", foldedKey(name) } }));
}

bool TemplateStore::wasDeleted(const std::string &id)
{
    return m_db
        .value<std::int64_t>(
            "SELECT deleted_at FROM template WHERE id = :id AND deleted_at IS NOT NULL",
            { { "id", id } })
        .has_value();
}

std::vector<Template> TemplateStore::all()
{
    return load(m_db);
}

void TemplateStore::add(const Template &added)
{
    m_db.run("INSERT INTO template (id, name, name_key, live_name_key, type, author, author_email,"
             " author_id, project_version, version, created, modified)"
             " VALUES (:id, :name, :key, :key, :type, :author, :email, :owner, :projectVersion,"
             " :version, :created, :modified)",
        { { "id", added.id }, { "name", added.name }, { "key", foldedKey(added.name) },
            { "type", added.type }, { "author", added.author }, { "email", added.authorEmail },
            { "owner", added.ownerId }, { "projectVersion", added.projectVersion },
            { "version", added.version }, { "created", added.created },
            { "modified", added.modified } });
    addBytes(added);
}

void TemplateStore::addVersion(const Template &changed)
{
    m_db.run("UPDATE template SET name = :name, type = :type, author = :author,"
             " author_email = :email, project_version = :projectVersion, version = :version,"
             " modified = :modified WHERE id = :id",
        { { "name", changed.name }, { "type", changed.type }, { "author", changed.author },
            { "email", changed.authorEmail }, { "projectVersion", changed.projectVersion },
            { "version", changed.version }, { "modified", changed.modified },
            { "id", changed.id } });
    addBytes(changed);
    m_db.run("DELETE FROM template_version WHERE template_id = :id AND version <= :last",
        { { "id", changed.id }, { "last", changed.version - versionsKept } });
}

void TemplateStore::addBytes(const Template &of)
{
    m_db.run("INSERT INTO template_version (template_id, version, blob, md5, at)"
             " VALUES (:id, :version, :blob, :md5, :at)",
        { { "id", of.id }, { "version", of.version }, { "blob", of.blob }, { "md5", of.md5 },
            { "at", of.modified } });
}

void TemplateStore::rename(const std::string &id, std::string_view name, Time now)
{
    m_db.run("UPDATE template SET name = :name, name_key = :key, live_name_key = :key,"
             " modified = :now WHERE id = :id",
        { { "name", name }, { "key", foldedKey(name) }, { "now", now }, { "id", id } });
}

void TemplateStore::remove(const std::string &id, Time now)
{
    m_db.run("UPDATE template SET deleted_at = :now, live_name_key = NULL WHERE id = :id",
        { { "now", now }, { "id", id } });
}

} // namespace kvx::server
