#pragma once

class IKVXSQLiteModelCommandFile;
class QString;
class QStringList;

/// The tables of one open project database, as the synchroniser and the ID manager see them.
/// Belongs to its project database. Host thread only.
class IKVXSQLiteModel {
public:
    virtual ~IKVXSQLiteModel() = default;

    /// Applies a loaded change log as one transaction together with the version it carries.
    /// `mode` is 0. Non-zero on success, which includes a log that the file already holds; 0 when
    /// nothing was changed: a clash with edits not yet published, a gap before this log, another
    /// project or schema, a damaged log, a full disk.
    virtual int execute(IKVXSQLiteModelCommandFile *commandFile, int mode) = 0;

    /// The names of the project's tables, without the file's own bookkeeping.
    virtual QStringList tables() = 0;

    /// The highest ID in use in `table` that lies in min..max, both included; -1 when there is
    /// none, the table is unknown or its primary key is not one single INTEGER column.
    virtual int highestId(const QString &table, int min, int max) = 0;
};
