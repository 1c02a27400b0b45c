#pragma once

#include "KVXSQLite/Statement.h"
#include "KVXSQLite/Status.h"

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace kvx::sqlite {

class Connection;
using Digest = std::array<unsigned char, 32>;

/// A content table as it stands in the file.
struct Table {
    std::string name;
    std::vector<std::string> columns;
    /// Per column its place in the primary key, counted from 1, or 0: as a changeset carries it.
    Bytes key;
    /// The column of a primary key that is one INTEGER column, else -1.
    int integerKey = -1;
};

/// The content tables of a project file, ordered by name; the bookkeeping and SQLite's own tables
/// are left out.
class Schema {
public:
    /// Reads the tables. Fails with BadSchema, naming table and reason, when one of them cannot be
    /// shared: its changes would be recorded incompletely or not at all.
    static Status read(Connection &connection, Schema *schema);
    /// The tables that the statements create, tried in memory.
    static Status fromSql(const std::string &sql, Schema *schema);

    const std::vector<Table> &tables() const { return m_tables; }
    const Table *find(std::string_view name) const;
    /// SHA-256 of names, types, NOT NULL and keys of all columns; see docs/change-logs.md.
    const Digest &fingerprint() const { return m_fingerprint; }

private:
    std::vector<Table> m_tables;
    Digest m_fingerprint {};
};

/// True for names that belong to SQLite or to this library, in any letter case.
bool isReservedTable(std::string_view name);
/// The identifier in double quotes.
std::string quoted(std::string_view identifier);

} // namespace kvx::sqlite
