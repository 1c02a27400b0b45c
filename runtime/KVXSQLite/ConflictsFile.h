#pragma once

#include "KVXSQLite/ChangesetReader.h"
#include "KVXSQLite/Schema.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

struct sqlite3_changeset_iter;

namespace kvx::sqlite {

/// The pending edits that did not fit a log, with both versions of each row, as the JSON file
/// that the host shows. docs/change-logs.md describes it.
class ConflictsFile {
public:
    /// The row as it stands in the file now: call it from a fit rule. Null for a deleted row.
    static QJsonValue theirRow(const Table &table, int conflict, sqlite3_changeset_iter *change);

    /// Adds one edit. `keptMine`: it was made although the other side changed the row too.
    void add(const Table &table, const ChangesetReader &mine, const QJsonValue &theirs,
        const QString &reason, bool keptMine);

    bool isEmpty() const { return m_conflicts.isEmpty(); }
    /// Writes a new file beside the project file and syncs it. The path comes back in `path`.
    Status write(
        const QString &projectFile, int logVersion, const QString &author, QString *path) const;

private:
    QJsonArray m_conflicts;
};

} // namespace kvx::sqlite
