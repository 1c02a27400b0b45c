#include "KVXSQLite/Statement.h"

#include <sqlite3.h>

namespace kvx::sqlite {

Statement::Statement(sqlite3 *connection, const char *sql)
{
    m_failed
        = sqlite3_prepare_v3(connection, sql, -1, SQLITE_PREPARE_PERSISTENT, &m_statement, nullptr);
}

Statement::~Statement()
{
    sqlite3_finalize(m_statement);
}

void Statement::note(int code)
{
    if (m_failed == SQLITE_OK)
        m_failed = code;
}

Statement &Statement::bind(std::int64_t value)
{
    note(sqlite3_bind_int64(m_statement, ++m_next, value));
    return *this;
}

Statement &Statement::bind(double value)
{
    note(sqlite3_bind_double(m_statement, ++m_next, value));
    return *this;
}

Statement &Statement::bind(std::string_view text)
{
    note(sqlite3_bind_text64(m_statement, ++m_next, text.data() ? text.data() : "", text.size(),
        SQLITE_TRANSIENT, SQLITE_UTF8));
    return *this;
}

Statement &Statement::bind(const Bytes &blob)
{
    // A null pointer would bind NULL; an empty blob is a value.
    const void *data = blob.empty() ? static_cast<const void *>("") : blob.data();
    note(sqlite3_bind_blob64(m_statement, ++m_next, data, blob.size(), SQLITE_TRANSIENT));
    return *this;
}

Statement &Statement::bindNull()
{
    note(sqlite3_bind_null(m_statement, ++m_next));
    return *this;
}

int Statement::step()
{
    const int code = m_failed != SQLITE_OK ? m_failed : sqlite3_step(m_statement);
    if (code != SQLITE_ROW)
        reset();
    return code;
}

bool Statement::run()
{
    int code = step();
    while (code == SQLITE_ROW)
        code = step();
    return code == SQLITE_DONE;
}

void Statement::reset()
{
    sqlite3_reset(m_statement);
    m_next = 0;
    if (m_statement)
        m_failed = SQLITE_OK;
}

std::int64_t Statement::integer(int column) const
{
    return sqlite3_column_int64(m_statement, column);
}

double Statement::real(int column) const
{
    return sqlite3_column_double(m_statement, column);
}

std::string Statement::text(int column) const
{
    const auto *data = reinterpret_cast<const char *>(sqlite3_column_text(m_statement, column));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(m_statement, column));
    return data ? std::string(data, size) : std::string();
}

Bytes Statement::blob(int column) const
{
    const auto *data = static_cast<const unsigned char *>(sqlite3_column_blob(m_statement, column));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(m_statement, column));
    return data ? Bytes(data, data + size) : Bytes();
}

int Statement::type(int column) const
{
    return sqlite3_column_type(m_statement, column);
}

} // namespace kvx::sqlite
