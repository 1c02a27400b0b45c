#pragma once

#include "KVXSQLite/Bookkeeping.h"

#include <QString>

namespace kvx::sqlite {

/// Creates and checks project files.
class ProjectFile {
public:
    /// Lays out a new file at `path`, which must not exist. On failure nothing is left of it.
    static Status create(const QString &path, const QString &projectGuid, const QString &schemaSql);

    /// Checks what can be seen before SQLite opens the file. A freshly downloaded file must be
    /// complete by itself; what a former file of that name left beside it is removed.
    static Status checkOutside(const QString &path, bool downloaded);

    /// Opens the connection and checks structure, bookkeeping, project and schema.
    /// `schemaSql` may be empty: then any shareable schema will do.
    static Status open(Connection *connection, const QString &path, const QString &projectGuid,
        const QString &schemaSql, Schema *schema);
};

} // namespace kvx::sqlite
