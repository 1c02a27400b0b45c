#include "store/TableStore.h"
#include "store/Db.h"

namespace kvx::server {

namespace {

constexpr std::int64_t revisionsKept = 20;

} // namespace

std::vector<SharedTable> TableStore::all()
{
    std::vector<SharedTable> tables;
    using I = std::int64_t;
    using S = std::string;
    m_db.each<S, S, I, std::optional<S>, std::optional<I>, I>(
        "SELECT name, write_right, revision, blob, user_id, at FROM shared_table ORDER BY name", {},
        [&tables](S name, S right, I revision, const std::optional<S> &blob, std::optional<I> user,
            I at) {
            tables.push_back({ std::move(name), std::move(right), revision,
                blob.value_or(std::string()), user, at });
        });
    return tables;
}

std::optional<SharedTable> TableStore::find(const std::string &name)
{
    for (SharedTable &table : all()) {
        if (table.name == name)
            return std::move(table);
    }
    return std::nullopt;
}

void TableStore::add(const SharedTable &table)
{
    m_db.run("INSERT INTO shared_table (name, write_right, revision, blob, user_id, at)"
             " VALUES (:name, :right, 0, NULL, :user, :at)",
        { { "name", table.name }, { "right", table.writeRight }, { "user", table.userId },
            { "at", table.at } });
}

void TableStore::setWriteRight(const std::string &name, const std::string &right)
{
    m_db.run("UPDATE shared_table SET write_right = :right WHERE name = :name",
        { { "right", right }, { "name", name } });
}

std::int64_t TableStore::write(
    const std::string &name, const std::string &blob, std::optional<std::int64_t> userId, Time now)
{
    const auto revision = m_db.value<std::int64_t>(
        "UPDATE shared_table SET revision = revision + 1, blob = :blob, user_id = :user, at = :now"
        " WHERE name = :name RETURNING revision",
        { { "blob", blob }, { "user", userId }, { "now", now }, { "name", name } });
    if (!revision)
        throw DbError(DbError::Kind::Other, "there is no table " + name);
    m_db.run("INSERT INTO shared_table_revision (name, revision, blob, user_id, at)"
             " VALUES (:name, :revision, :blob, :user, :now)",
        { { "name", name }, { "revision", *revision }, { "blob", blob }, { "user", userId },
            { "now", now } });
    m_db.run("DELETE FROM shared_table_revision WHERE name = :name AND revision <= :last",
        { { "name", name }, { "last", *revision - revisionsKept } });
    return *revision;
}

} // namespace kvx::server
