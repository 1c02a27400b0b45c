#pragma once

#include "KVXSQLite/Connection.h"

struct sqlite3_session;

namespace kvx::sqlite {

/// Records the changes made to the content tables through one connection while the object lives.
class RecordingSession {
public:
    explicit RecordingSession(Connection &connection);
    ~RecordingSession();
    RecordingSession(const RecordingSession &) = delete;
    RecordingSession &operator=(const RecordingSession &) = delete;

    /// Whether the session could be made; nothing is recorded otherwise.
    Status status() const { return m_status; }
    /// Keeps the recording hook installed without recording.
    void pause();
    /// The net changes so far; empty when there are none.
    Status changes(Bytes *changeset) const;

private:
    sqlite3_session *m_session = nullptr;
    Status m_status;
};

} // namespace kvx::sqlite
