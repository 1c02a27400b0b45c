#pragma once

#include <KVXExport.h>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace kvx::sqlite {

using Bytes = std::vector<unsigned char>;

/// A prepared statement. Parameters are bound in order by `bind`; a failure to prepare or bind
/// shows in the result of `step`. Must end before its connection closes.
class KVXSQLITE_API Statement {
public:
    Statement(sqlite3 *connection, const char *sql);
    ~Statement();
    Statement(const Statement &) = delete;
    Statement &operator=(const Statement &) = delete;

    Statement &bind(std::int64_t value);
    Statement &bind(int value) { return bind(static_cast<std::int64_t>(value)); }
    Statement &bind(double value);
    Statement &bind(std::string_view text);
    Statement &bind(const char *text) { return bind(std::string_view(text)); }
    Statement &bind(const Bytes &blob);
    Statement &bindNull();

    /// SQLITE_ROW, SQLITE_DONE or an error code; after anything but a row it is reset and takes
    /// parameters from the first again.
    int step();
    /// True when the statement ran to its end; rows are skipped.
    bool run();
    void reset();

    std::int64_t integer(int column) const;
    double real(int column) const;
    std::string text(int column) const;
    Bytes blob(int column) const;
    int type(int column) const;

private:
    void note(int code);

    sqlite3_stmt *m_statement = nullptr;
    int m_failed = 0;
    int m_next = 0;
};

} // namespace kvx::sqlite
