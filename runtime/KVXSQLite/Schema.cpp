#include "KVXSQLite/Schema.h"

#include "KVXSQLite/Connection.h"

#include <algorithm>
#include <sodium.h>
#include <sqlite3.h>

namespace kvx::sqlite {

namespace {

Status notShareable(const std::string &table, const std::string &reason)
{
    return { Failure::BadSchema, "table \"" + table + "\" cannot be shared: " + reason };
}

void appendField(std::string *out, const std::string &field)
{
    *out += std::to_string(field.size()) + ":" + field;
}

bool sameWord(std::string_view a, const char *b)
{
    return sqlite3_stricmp(std::string(a).c_str(), b) == 0;
}

Status readColumns(Connection &connection, Table *table, std::string *description)
{
    *description += "T";
    appendField(description, table->name);
    Statement columns(connection.handle(),
        "SELECT name, type, \"notnull\", pk, hidden FROM pragma_table_xinfo(?) ORDER BY cid");
    columns.bind(table->name);
    int keyColumns = 0;
    std::string nullableKey;
    int integerColumn = -1;
    int code = columns.step();
    for (; code == SQLITE_ROW; code = columns.step()) {
        const std::string name = columns.text(0);
        const std::string type = columns.text(1);
        const auto key = static_cast<unsigned char>(columns.integer(3));
        if (columns.integer(4) != 0)
            return notShareable(table->name, "column \"" + name + "\" is generated");
        if (key > 0) {
            ++keyColumns;
            if (columns.integer(2) == 0)
                nullableKey = name;
            std::string upper = type;
            std::transform(upper.begin(), upper.end(), upper.begin(),
                [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
            if (upper.find("INT") != std::string::npos)
                integerColumn = static_cast<int>(table->columns.size());
        }
        *description += "C";
        appendField(description, name);
        appendField(description, type);
        *description += columns.integer(2) != 0 ? "1" : "0";
        *description += ":" + std::to_string(key) + ";";
        table->columns.push_back(name);
        table->key.push_back(key);
    }
    if (code != SQLITE_DONE)
        return connection.error("reading the columns of " + table->name);
    if (keyColumns == 0)
        return notShareable(table->name, "it has no PRIMARY KEY");
    if (keyColumns == 1)
        table->integerKey = integerColumn;
    if (!nullableKey.empty()) {
        // The row ID itself is never NULL; it has no index of its own.
        Statement index(
            connection.handle(), "SELECT 1 FROM pragma_index_list(?) WHERE origin = 'pk'");
        if (index.bind(table->name).step() != SQLITE_DONE)
            return notShareable(table->name,
                "column \"" + nullableKey + "\" of its PRIMARY KEY is not declared NOT NULL");
    }
    return {};
}

Status checkForeignKeys(Connection &connection, const Table &table)
{
    Statement keys(connection.handle(),
        "SELECT \"table\" FROM pragma_foreign_key_list(?)"
        " WHERE on_update <> 'NO ACTION' OR on_delete <> 'NO ACTION'");
    if (keys.bind(table.name).step() == SQLITE_DONE)
        return {};
    return notShareable(table.name,
        "its foreign key to \"" + keys.text(0)
            + "\" has an action other than NO ACTION; applying a change log would change rows that "
              "no"
              " log names");
}

} // namespace

bool isReservedTable(std::string_view name)
{
    return sameWord(name.substr(0, 7), "sqlite_") || sameWord(name.substr(0, 4), "kvx_");
}

std::string quoted(std::string_view identifier)
{
    std::string result = "\"";
    for (const char c : identifier)
        result.append(c == '"' ? 2 : 1, c);
    return result + "\"";
}

Status Schema::read(Connection &connection, Schema *schema)
{
    Schema result;
    Statement names(connection.handle(),
        "SELECT name, rootpage FROM sqlite_schema WHERE type = 'table' ORDER BY name COLLATE "
        "BINARY");
    int code = names.step();
    for (; code == SQLITE_ROW; code = names.step()) {
        Table table;
        table.name = names.text(0);
        if (isReservedTable(table.name))
            continue;
        if (names.integer(1) == 0)
            return notShareable(table.name, "it is a virtual table");
        result.m_tables.push_back(std::move(table));
    }
    if (code != SQLITE_DONE)
        return connection.error("reading the tables");

    std::string description;
    for (Table &table : result.m_tables) {
        Status status = readColumns(connection, &table, &description);
        if (status.ok())
            status = checkForeignKeys(connection, table);
        if (!status.ok())
            return status;
    }
    crypto_hash_sha256(result.m_fingerprint.data(),
        reinterpret_cast<const unsigned char *>(description.data()), description.size());
    *schema = std::move(result);
    return {};
}

Status Schema::fromSql(const std::string &sql, Schema *schema)
{
    Connection memory;
    Status status = memory.open(":memory:", Connection::Role::Host);
    if (status.ok())
        status = memory.exec(sql.c_str(), "creating the content tables");
    return status.ok() ? read(memory, schema) : status;
}

const Table *Schema::find(std::string_view name) const
{
    for (const Table &table : m_tables)
        if (table.name == name)
            return &table;
    return nullptr;
}

} // namespace kvx::sqlite
