#pragma once

#include "store/Db.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace kvx::test {

/// A copy of everything in a server's database, to compare with and to go back to. Made once, when
/// the schema is there; the copies lie in the same database.
class StoreImage {
public:
    explicit StoreImage(server::Db &db);

    /// Under that name, a word; in place of the one before.
    void keep(const std::string &name);
    void putBack(const std::string &name);

    /// The rows of each table as text, but for what every request may write: when a session was
    /// heard of, failed logins with their audit rows, and keys that were given out.
    std::map<std::string, std::string> contents();
    /// All of them in one text.
    std::string digest();
    std::map<std::string, std::int64_t> rowCounts();
    /// The statements that made the tables and indexes.
    std::string schema();

private:
    server::Db &m_db;
    std::vector<std::string> m_tables;
    std::map<std::string, std::string> m_columns;
};

} // namespace kvx::test
