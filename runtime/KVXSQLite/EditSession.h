#pragma once

#include "KVXSQLite/Connection.h"
#include "KVXSQLite/RecordingSession.h"

#include <functional>
#include <memory>
#include <string>

namespace kvx::sqlite {

/// The host's connection: hands it out for reading, runs edits on it as recorded transactions and
/// keeps every write out that would not be recorded.
class EditSession {
public:
    explicit EditSession(Connection &connection);
    ~EditSession();

    /// Installs the guards; from now on only `edit` and `internal` can change the file.
    Status start();
    void stop();

    bool isOpen() const { return m_mode == Mode::Edit; }
    /// One recorded transaction; see KVXProjectDatabase::edit. Without `record` the changes become
    /// part of the content as it is.
    Status edit(const std::function<bool(sqlite3 *)> &function, bool record);
    /// A transaction of the library itself: committed when the function succeeds. It does not wait
    /// for the disk: either a checkpoint follows, or what a power cut takes back is found out by
    /// the next synchronisation, which meets the own log, or was known of an earlier version too.
    Status internal(const std::function<Status()> &function);

private:
    enum class Mode { Reading, Edit, Internal };

    Status begin();
    Status runEdit(const std::function<bool(sqlite3 *)> &function, bool record);
    Status finish(const RecordingSession *session);
    bool allows(int action, const char *first, const char *second);
    static int authorize(void *self, int action, const char *first, const char *second,
        const char *database, const char *trigger);
    static int beforeCommit(void *self);

    Connection &m_connection;
    /// Present for the life of the connection: a statement that was prepared while no session
    /// existed may empty a table without telling a session made later.
    std::unique_ptr<RecordingSession> m_hook;
    Mode m_mode = Mode::Reading;
    std::string m_refused;
};

} // namespace kvx::sqlite
