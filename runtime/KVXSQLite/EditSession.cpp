#include "KVXSQLite/EditSession.h"

#include "KVXSQLite/PendingEdits.h"
#include "KVXSQLite/Schema.h"

#include <sqlite3.h>

namespace kvx::sqlite {

namespace {

bool readsSchema(const char *pragma)
{
    for (const char *name : { "table_info", "table_xinfo", "table_list", "index_list", "index_info",
             "foreign_key_list", "foreign_key_check" })
        if (sqlite3_stricmp(pragma, name) == 0)
            return true;
    return false;
}

} // namespace

EditSession::EditSession(Connection &connection)
    : m_connection(connection)
{
}

EditSession::~EditSession()
{
    stop();
}

Status EditSession::start()
{
    m_hook = std::make_unique<RecordingSession>(m_connection);
    m_hook->pause();
    sqlite3_set_authorizer(m_connection.handle(), &EditSession::authorize, this);
    sqlite3_commit_hook(m_connection.handle(), &EditSession::beforeCommit, this);
    return m_hook->status();
}

void EditSession::stop()
{
    if (!m_hook)
        return;
    sqlite3_set_authorizer(m_connection.handle(), nullptr, nullptr);
    sqlite3_commit_hook(m_connection.handle(), nullptr, nullptr);
    m_hook.reset();
}

Status EditSession::begin()
{
    Status status = m_connection.begin();
    if (status.failure == Failure::Busy
        && sqlite3_txn_state(m_connection.handle(), "main") != SQLITE_TXN_NONE)
        status.text = "a query of the host is still running on the project's connection";
    return status;
}

Status EditSession::internal(const std::function<Status()> &function)
{
    if (m_mode != Mode::Reading)
        return { Failure::Refused, "an edit transaction is open" };
    m_mode = Mode::Internal;
    Status status = m_connection.waitForDisk(false);
    if (status.ok())
        status = begin();
    if (status.ok()) {
        status = function();
        if (status.ok())
            status = m_connection.commit();
        else
            m_connection.rollback();
    }
    const Status waiting = m_connection.waitForDisk(true);
    m_mode = Mode::Reading;
    return status.ok() ? waiting : status;
}

Status EditSession::edit(const std::function<bool(sqlite3 *)> &function, bool record)
{
    if (m_mode != Mode::Reading)
        return { Failure::Refused, "an edit transaction is already open" };
    m_mode = Mode::Internal;
    Status status = begin();
    if (status.ok()) {
        try {
            status = runEdit(function, record);
        } catch (...) {
            m_mode = Mode::Internal;
            m_connection.rollback();
            m_mode = Mode::Reading;
            throw;
        }
        if (!status.ok())
            m_connection.rollback();
    }
    m_mode = Mode::Reading;
    return status;
}

Status EditSession::runEdit(const std::function<bool(sqlite3 *)> &function, bool record)
{
    std::unique_ptr<RecordingSession> session;
    if (record) {
        session = std::make_unique<RecordingSession>(m_connection);
        if (!session->status().ok())
            return session->status();
    }
    m_refused.clear();
    m_mode = Mode::Edit;
    const bool kept = function(m_connection.handle());
    Status given = m_connection.error("the edit was given up");
    m_mode = Mode::Internal;
    if (!kept) {
        if (!m_refused.empty())
            given.text = "the edit was given up: an edit may not " + m_refused;
        else if (given.failure == Failure::Internal)
            given.failure = Failure::EditGivenUp;
        return given;
    }
    if (!m_connection.inTransaction())
        return { Failure::EditGivenUp, "the edit was rolled back by one of its statements" };
    return finish(session.get());
}

Status EditSession::finish(const RecordingSession *session)
{
    if (session) {
        Bytes changes;
        Status status = session->changes(&changes);
        if (status.ok() && !changes.empty())
            status = PendingEdits(m_connection).append(changes.data(), changes.size());
        if (!status.ok())
            return status;
    }
    return m_connection.commit();
}

bool EditSession::allows(int action, const char *first, const char *second)
{
    switch (action) {
    case SQLITE_SELECT:
    case SQLITE_READ:
    case SQLITE_FUNCTION:
    case SQLITE_RECURSIVE:
    case SQLITE_SAVEPOINT:
        return true;
    case SQLITE_PRAGMA:
        if (!second || readsSchema(first))
            return true;
        m_refused = std::string("set PRAGMA ") + first;
        return false;
    case SQLITE_INSERT:
    case SQLITE_UPDATE:
    case SQLITE_DELETE:
        if (sqlite3_strnicmp(first, "sqlite_", 7) == 0)
            m_refused = "change the schema";
        else if (isReservedTable(first))
            m_refused = std::string("write to ") + first;
        else if (m_mode != Mode::Edit)
            m_refused = "write outside of edit()";
        else
            return true;
        return false;
    case SQLITE_TRANSACTION:
        m_refused = std::string("use ") + first;
        return false;
    default:
        m_refused = "change the schema or attach databases";
        return false;
    }
}

int EditSession::authorize(
    void *self, int action, const char *first, const char *second, const char *, const char *)
{
    auto *session = static_cast<EditSession *>(self);
    return session->m_mode == Mode::Internal || session->allows(action, first, second)
        ? SQLITE_OK
        : SQLITE_DENY;
}

int EditSession::beforeCommit(void *self)
{
    // A statement prepared inside an edit and stepped after it would commit unrecorded.
    return static_cast<EditSession *>(self)->m_mode == Mode::Internal ? 0 : 1;
}

} // namespace kvx::sqlite
