#pragma once

#include "KVXSQLite/CommandFile.h"
#include "KVXSQLite/Rebase.h"

#include <QString>

namespace kvx::sqlite {

/// Executes change logs on a project file, on a connection of its own: the version a log carries
/// is written in the transaction of its changes.
class ApplyLog {
public:
    explicit ApplyLog(Connection &connection)
        : m_connection(connection)
    {
    }

    /// See IKVXSQLiteModel::execute. With a winner, a clash is resolved; `conflictsFile` then
    /// gets the path of the file that keeps both versions, if one was needed.
    Status execute(const CommandFile &log, const QString &projectFile, Rebase::Winner winner,
        QString *conflictsFile);

    /// What a project that has just been downloaded needs: see KVXProjectDatabase::Origin.
    Status adopt();

    /// How long one log may take; milliseconds.
    void setTimeLimit(int milliseconds) { m_timeLimit = milliseconds; }

private:
    Status transaction(const CommandFile &log, const QString &projectFile, Rebase::Winner winner,
        QString *conflictsFile);
    Status applyOthers(const CommandFile &log, const QString &projectFile, Rebase::Winner winner,
        QString *conflictsFile);
    Status adoptInTransaction();
    Status currentSchema();

    Connection &m_connection;
    Schema m_schema;
    std::int64_t m_schemaCookie = -1;
    int m_timeLimit = 120'000;
};

} // namespace kvx::sqlite
