#include "KVXSQLite/Connection.h"

#include "KVXSQLite/ChangesetReader.h"

#include <chrono>
#include <sqlite3.h>
#include <system_error>

namespace kvx::sqlite {

namespace {

constexpr int busyTimeout = 5000;
// What one edit changed is kept as one value until it is published, and may be as large as a log.
constexpr int longestValue = ChangesetReader::maxBytes;

void limitConnection(sqlite3 *db)
{
    sqlite3_db_config(db, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(db, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(db, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    sqlite3_db_config(db, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
    sqlite3_db_config(db, SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0, nullptr);
    sqlite3_db_config(db, SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
    sqlite3_db_config(db, SQLITE_DBCONFIG_DQS_DDL, 0, nullptr);
    sqlite3_db_config(db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 0, nullptr);
    sqlite3_limit(db, SQLITE_LIMIT_LENGTH, longestValue);
    sqlite3_limit(db, SQLITE_LIMIT_SQL_LENGTH, 100'000);
    sqlite3_limit(db, SQLITE_LIMIT_COLUMN, 200);
    // A change of a wide table compares every column: the expression is as deep as the table is
    // wide.
    sqlite3_limit(db, SQLITE_LIMIT_EXPR_DEPTH, 300);
    sqlite3_limit(db, SQLITE_LIMIT_VDBE_OP, 250'000);
    sqlite3_limit(db, SQLITE_LIMIT_ATTACHED, 0);
    sqlite3_limit(db, SQLITE_LIMIT_TRIGGER_DEPTH, 10);
    sqlite3_busy_timeout(db, busyTimeout);
}

Failure failureOf(int code)
{
    switch (code & 0xff) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return Failure::Busy;
    case SQLITE_FULL:
        return Failure::DiskFull;
    case SQLITE_IOERR:
    case SQLITE_READONLY:
    case SQLITE_CANTOPEN:
    case SQLITE_PERM:
        return Failure::Io;
    case SQLITE_CORRUPT:
        return Failure::Damaged;
    case SQLITE_NOTADB:
        return Failure::NotAProject;
    case SQLITE_INTERRUPT:
        return Failure::Interrupted;
    default:
        return Failure::Internal;
    }
}

std::int64_t milliseconds()
{
    using namespace std::chrono;
    return duration_cast<std::chrono::milliseconds>(steady_clock::now().time_since_epoch()).count();
}

} // namespace

Connection::~Connection()
{
    m_kept.clear();
    sqlite3_close_v2(m_handle);
}

Status Connection::open(const std::string &path, Role role)
{
    const int code = sqlite3_open_v2(path.c_str(), &m_handle, SQLITE_OPEN_READWRITE, nullptr);
    if (code != SQLITE_OK)
        return error("opening " + path);
    sqlite3_extended_result_codes(m_handle, 1);
    limitConnection(m_handle);
    if (sqlite3_db_readonly(m_handle, "main") == 1)
        return { Failure::Io, "opening " + path + ": the file is read-only" };
    // Published edits need not be overwritten with zeros when they leave the pending table.
    const char *settings = role == Role::Host
        ? "PRAGMA cell_size_check=ON; PRAGMA mmap_size=0; PRAGMA secure_delete=OFF; "
          "PRAGMA foreign_keys=ON; PRAGMA synchronous=FULL"
        : "PRAGMA cell_size_check=ON; PRAGMA mmap_size=0; PRAGMA secure_delete=OFF; "
          "PRAGMA foreign_keys=ON; PRAGMA synchronous=NORMAL";
    return exec(settings, "preparing the connection");
}

Status Connection::close()
{
    m_kept.clear();
    if (sqlite3_close(m_handle) != SQLITE_OK)
        return { Failure::Refused, "closing the project: a statement of the host is still in use" };
    m_handle = nullptr;
    return {};
}

Status Connection::exec(const char *sql, const char *doing)
{
    return sqlite3_exec(m_handle, sql, nullptr, nullptr, nullptr) == SQLITE_OK ? Status()
                                                                               : error(doing);
}

Statement &Connection::kept(const char *sql)
{
    auto &entry = m_kept[sql];
    if (!entry)
        entry = std::make_unique<Statement>(m_handle, sql);
    entry->reset();
    return *entry;
}

Status Connection::error(const std::string &doing) const
{
    const int code = m_handle ? sqlite3_extended_errcode(m_handle) : SQLITE_NOMEM;
    std::string text = m_handle ? sqlite3_errmsg(m_handle) : sqlite3_errstr(code);
    if (failureOf(code) == Failure::Io && sqlite3_system_errno(m_handle) != 0)
        text += " (" + std::generic_category().message(sqlite3_system_errno(m_handle)) + ')';
    return { failureOf(code), doing + ": " + text };
}

Status Connection::error(const std::string &doing, int code)
{
    return { failureOf(code), doing + ": " + sqlite3_errstr(code) };
}

Status Connection::begin()
{
    // IMMEDIATE: only at the start of a transaction does the busy time-out apply.
    return kept("BEGIN IMMEDIATE").run() ? Status() : error("starting a transaction");
}

Status Connection::commit()
{
    if (kept("COMMIT").run())
        return {};
    const Status failed = error("committing");
    rollback();
    return failed;
}

Status Connection::waitForDisk(bool wait)
{
    return exec(
        wait ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=NORMAL", "preparing the connection");
}

void Connection::rollback()
{
    if (inTransaction())
        kept("ROLLBACK").run();
}

bool Connection::inTransaction() const
{
    return sqlite3_get_autocommit(m_handle) == 0;
}

Deadline::Deadline(sqlite3 *connection, int limit)
    : m_connection(connection)
    , m_end(milliseconds() + limit)
{
    sqlite3_progress_handler(connection, 1000, &Deadline::expired, this);
}

Deadline::~Deadline()
{
    sqlite3_progress_handler(m_connection, 0, nullptr, nullptr);
}

int Deadline::expired(void *self)
{
    return milliseconds() > static_cast<Deadline *>(self)->m_end ? 1 : 0;
}

} // namespace kvx::sqlite
