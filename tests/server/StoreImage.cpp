#include "StoreImage.h"

namespace kvx::test {

using namespace kvx::server;

namespace {

/// When a session was heard of, and the lease that goes with it.
bool isVolatile(const std::string &table, const std::string &column)
{
    return (table == "session" && column == "last_seen")
        || (table == "project" && column == "lock_until");
}

bool countsLogins(const std::string &table)
{
    return table == "login_failure" || table == "audit" || table == "counter";
}

} // namespace

StoreImage::StoreImage(Db &db)
    : m_db(db)
{
    m_db.execute("PRAGMA synchronous = OFF");
    for (const auto &[name] : m_db.rows<std::string>(
             "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite%'"))
        m_tables.push_back(name);
    for (const std::string &table : m_tables) {
        std::string columns;
        for (const auto &[column] : m_db.rows<std::string>(
                 "SELECT name FROM pragma_table_info(:table)", { { "table", table } })) {
            if (!isVolatile(table, column))
                columns += (columns.empty() ? "" : "||','||") + ("quote(" + column + ')');
        }
        m_columns[table] = columns;
    }
}

void StoreImage::keep(const std::string &name)
{
    Transaction transaction(m_db, Transaction::Kind::Write);
    for (const std::string &table : m_tables) {
        const std::string copy = name + '_' + table;
        m_db.execute("DROP TABLE IF EXISTS " + copy);
        m_db.execute("CREATE TABLE " + copy + " AS SELECT * FROM " + table);
    }
    transaction.commit();
}

void StoreImage::putBack(const std::string &name)
{
    Transaction transaction(m_db, Transaction::Kind::Write);
    m_db.execute("PRAGMA defer_foreign_keys = ON");
    for (const std::string &table : m_tables)
        m_db.execute("DELETE FROM " + table);
    for (const std::string &table : m_tables)
        m_db.execute("INSERT INTO " + table + " SELECT * FROM " + name + '_' + table);
    transaction.commit();
}

std::map<std::string, std::string> StoreImage::contents()
{
    std::map<std::string, std::string> contents;
    for (const std::string &table : m_tables) {
        if (!countsLogins(table))
            contents[table] = m_db.value<std::string>("SELECT coalesce(group_concat("
                                      + m_columns[table] + ", x'0a'), '') FROM " + table)
                                  .value();
    }
    return contents;
}

std::string StoreImage::digest()
{
    std::string all;
    for (const auto &[table, rows] : contents())
        all += table + '\n' + rows + '\n';
    return all;
}

std::map<std::string, std::int64_t> StoreImage::rowCounts()
{
    std::map<std::string, std::int64_t> counts;
    for (const std::string &table : m_tables)
        counts[table] = m_db.value<std::int64_t>("SELECT count(*) FROM " + table).value();
    return counts;
}

std::string StoreImage::schema()
{
    return m_db
        .value<std::string>("SELECT group_concat(coalesce(sql, name), x'0a') FROM sqlite_master")
        .value();
}

} // namespace kvx::test
