#include "KVXSQLite/RecordingSession.h"

#include "KVXSQLite/Schema.h"

#include <sqlite3.h>

namespace kvx::sqlite {

namespace {

int recordsTable(void *, const char *table)
{
    return isReservedTable(table) ? 0 : 1;
}

} // namespace

RecordingSession::RecordingSession(Connection &connection)
{
    int code = sqlite3session_create(connection.handle(), "main", &m_session);
    if (code == SQLITE_OK) {
        sqlite3session_table_filter(m_session, recordsTable, nullptr);
        code = sqlite3session_attach(m_session, nullptr);
    }
    if (code != SQLITE_OK)
        m_status = { Failure::Internal, std::string("recording changes: ") + sqlite3_errstr(code) };
}

RecordingSession::~RecordingSession()
{
    if (m_session)
        sqlite3session_delete(m_session);
}

void RecordingSession::pause()
{
    if (m_session)
        sqlite3session_enable(m_session, 0);
}

Status RecordingSession::changes(Bytes *changeset) const
{
    int size = 0;
    void *data = nullptr;
    const int code = sqlite3session_changeset(m_session, &size, &data);
    if (code != SQLITE_OK)
        return { Failure::Internal, std::string("recording changes: ") + sqlite3_errstr(code) };
    const auto *begin = static_cast<const unsigned char *>(data);
    changeset->assign(begin, begin + size);
    sqlite3_free(data);
    return {};
}

} // namespace kvx::sqlite
