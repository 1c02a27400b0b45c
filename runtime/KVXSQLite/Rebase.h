#pragma once

#include "KVXSQLite/ApplyChangeset.h"
#include "KVXSQLite/ConflictsFile.h"
#include "KVXSQLite/PendingEdits.h"

namespace kvx::sqlite {

/// Puts the pending edits on top of a log instead of below it: undoes them, applies the log, makes
/// them again and records what they now change. Inside the open transaction of the connection.
class Rebase {
public:
    enum class Winner { Nobody, Mine, Theirs };

    Rebase(Connection &connection, const Schema &schema)
        : m_connection(connection)
        , m_schema(schema)
    {
    }

    /// With Nobody the first edit that does not fit fails it all with Clash; else it is noted in
    /// `conflicts` and decided.
    Status run(const Bytes &log, std::size_t records, Winner winner, ConflictsFile *conflicts);

    /// Takes the pending edits after `sequence` out of the content.
    Status undo(std::int64_t sequence, Bytes *edits);

private:
    Status redo(const Bytes &edits, Winner winner, ConflictsFile *conflicts);
    Status redoOneByOne(const Bytes &edits, Winner winner, ConflictsFile *conflicts);
    Status redoItem(const ChangesetReader &item, Winner winner, bool lastPass,
        ConflictsFile *conflicts, bool *done);

    Connection &m_connection;
    const Schema &m_schema;
};

} // namespace kvx::sqlite
