#include "KVXSQLite/ContentDigest.h"

#include "KVXSQLite/Connection.h"

#include <cstring>
#include <sodium.h>
#include <sqlite3.h>

namespace kvx::sqlite {

namespace {

class Sink {
public:
    Sink() { crypto_hash_sha256_init(&m_state); }
    void mark(char c) { add(&c, 1); }
    void number(std::uint64_t value)
    {
        unsigned char bytes[8];
        for (int i = 7; i >= 0; --i, value >>= 8)
            bytes[i] = static_cast<unsigned char>(value & 0xff);
        add(bytes, sizeof bytes);
    }
    void field(const std::string &text)
    {
        number(text.size());
        add(text.data(), text.size());
    }
    void end(Digest *digest) { crypto_hash_sha256_final(&m_state, digest->data()); }

private:
    void add(const void *data, std::size_t size)
    {
        crypto_hash_sha256_update(&m_state, static_cast<const unsigned char *>(data), size);
    }
    crypto_hash_sha256_state m_state;
};

std::string selectByKey(const Table &table)
{
    std::string columns;
    for (const std::string &column : table.columns)
        columns += (columns.empty() ? "" : ", ") + quoted(column);
    std::string order;
    for (std::size_t place = 1; place <= table.key.size(); ++place)
        for (std::size_t i = 0; i < table.key.size(); ++i)
            if (table.key[i] == place)
                order += (order.empty() ? "" : ", ") + quoted(table.columns[i]);
    return "SELECT " + columns + " FROM " + quoted(table.name) + " ORDER BY " + order;
}

void addValue(Sink *sink, const Statement &row, int column)
{
    switch (row.type(column)) {
    case SQLITE_INTEGER:
        sink->mark('I');
        sink->number(static_cast<std::uint64_t>(row.integer(column)));
        break;
    case SQLITE_FLOAT: {
        const double value = row.real(column);
        std::uint64_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        sink->mark('R');
        sink->number(bits);
        break;
    }
    case SQLITE_TEXT:
        sink->mark('T');
        sink->field(row.text(column));
        break;
    case SQLITE_BLOB: {
        const Bytes blob = row.blob(column);
        sink->mark('B');
        sink->field(std::string(blob.begin(), blob.end()));
        break;
    }
    default:
        sink->mark('N');
    }
}

} // namespace

Status contentDigest(Connection &connection, const Schema &schema, Digest *digest)
{
    Sink sink;
    for (const Table &table : schema.tables()) {
        sink.mark('t');
        sink.field(table.name);
        for (const std::string &column : table.columns) {
            sink.mark('c');
            sink.field(column);
        }
        Statement rows(connection.handle(), selectByKey(table).c_str());
        int code = rows.step();
        for (; code == SQLITE_ROW; code = rows.step()) {
            sink.mark('r');
            for (std::size_t i = 0; i < table.columns.size(); ++i)
                addValue(&sink, rows, static_cast<int>(i));
        }
        if (code != SQLITE_DONE)
            return connection.error("reading table " + table.name);
    }
    sink.end(digest);
    return {};
}

} // namespace kvx::sqlite
