#pragma once

#include "KVXSQLite/Statement.h"
#include "KVXSQLite/Status.h"

#include <map>
#include <memory>
#include <string>

struct sqlite3;

namespace kvx::sqlite {

/// One hardened connection to a project file: no triggers, no views, no extensions, no attached
/// databases, tight limits, a busy time-out of five seconds. Host connections sync every commit;
/// the apply connection leaves that to the checkpoint, since a log can be fetched again.
class Connection {
public:
    enum class Role { Host, Apply };

    Connection() = default;
    ~Connection();
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    Status open(const std::string &path, Role role);
    /// Fails with Refused when a statement of the host is not finalized.
    Status close();
    sqlite3 *handle() const { return m_handle; }

    /// Runs statements without parameters; `doing` names the step in the error text.
    Status exec(const char *sql, const char *doing);
    /// A statement kept for the life of the connection, reset.
    Statement &kept(const char *sql);
    /// The last failure of this connection as a status.
    Status error(const std::string &doing) const;
    /// The same for a result code of a function that leaves none at the connection.
    static Status error(const std::string &doing, int code);

    Status begin();
    Status commit();
    /// Whether commits wait until they are on the disk; checkpoints always do.
    Status waitForDisk(bool wait);
    /// Rolls back when a transaction is open.
    void rollback();
    bool inTransaction() const;

private:
    sqlite3 *m_handle = nullptr;
    std::map<std::string, std::unique_ptr<Statement>, std::less<>> m_kept;
};

/// Ends what the connection runs once the time is up, for as long as the object lives.
class Deadline {
public:
    Deadline(sqlite3 *connection, int limit); // milliseconds
    ~Deadline();
    Deadline(const Deadline &) = delete;
    Deadline &operator=(const Deadline &) = delete;

private:
    static int expired(void *self);

    sqlite3 *m_connection;
    std::int64_t m_end;
};

} // namespace kvx::sqlite
