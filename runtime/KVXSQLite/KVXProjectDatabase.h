#pragma once

#include "KVXSQLite/Status.h"

#include <KVXCollaboration/IKVXProjectDatabase.h>
#include <KVXExport.h>
#include <QByteArray>
#include <QString>
#include <functional>
#include <memory>

struct sqlite3;

namespace kvx::sqlite {
struct OpenProject;
}

/// An open project file: its content tables, the user's edits that are not published yet, and the
/// log version the content stands at. Host thread only.
///
/// At every commit the content equals "published version" + "pending edits". Every edit is
/// durable, together with its record in the pending edits, when `edit` returns. Operations
/// returning bool leave the cause of a failure in `errorText` and `failure`, and have then
/// changed nothing.
///
/// The life of a shared project: `create`, any number of `edit` calls that fill it, `sealBase`,
/// upload of the file as version -1. From then on edits are recorded. A save calls `prepareSave`
/// from the additional-info object and `published` when its result was 1 or 5. Logs of other
/// users come in through `model()->execute`. Format: docs/change-logs.md.
class KVXSQLITE_API KVXProjectDatabase : public IKVXProjectDatabase {
public:
    /// Local: this user's own copy, pending edits included. Downloaded: fresh from the server; a
    /// file that was uploaded by a save becomes the version this save published, and no pending
    /// edit of its author stays. Use Downloaded once, at the first opening after the download.
    enum class Origin { Local, Downloaded };

    /// What happens when a log clashes with pending edits. Refuse: execute fails, nothing changes.
    /// Mine / Theirs: the pending edits are undone, the log applied and the edits reapplied item
    /// by item; where both changed the same item this side wins, and both versions are kept in
    /// `conflictsFile`. An edit that fits in neither way (its row was deleted) is kept there too.
    enum class ClashChoice { Refuse, Mine, Theirs };

    /// One or more statements on the given connection, inside a transaction; true keeps them.
    using Edit = std::function<bool(sqlite3 *connection)>;

    /// A new project file at version -1; `path` must not exist. `schemaSql` creates the content
    /// tables: CREATE TABLE and CREATE INDEX only. Null on failure, with the cause in `error`.
    static std::unique_ptr<KVXProjectDatabase> create(
        const QString &path, const QString &projectGuid, const QString &schemaSql, QString *error);

    /// Opens and checks a project file: regular file, structure, format version, project GUID,
    /// shareable schema. `schemaSql` may be empty; else the file must have exactly the tables it
    /// creates. Triggers and views of the file never run. Null on failure; `failure` may be null.
    static std::unique_ptr<KVXProjectDatabase> open(const QString &path, const QString &projectGuid,
        Origin origin, const QString &schemaSql, QString *error,
        kvx::sqlite::Failure *failure = nullptr);

    ~KVXProjectDatabase() override;

    IKVXSQLiteModel *model() override;
    QString path() const;
    QString projectGuid() const;
    int logVersion() const;
    bool isSealed() const;

    /// The connection for reading (and, inside `edit`, for writing). Statements must be reset or
    /// finalized before `edit`, `prepareSave` or `checkpoint`. Writes outside `edit` are refused.
    sqlite3 *connection() const;

    /// Runs the function in a transaction that records what it changes. It may change rows of the
    /// content tables and use savepoints; schema changes, transaction control and the bookkeeping
    /// tables are refused. An exception rolls back and passes through.
    bool edit(const Edit &function);

    /// Recorded edits not yet published (one per `edit` that changed something).
    int pendingCount() const;

    /// Ends the filling of a new project: what it holds now is the base that is uploaded as a
    /// whole. Checkpoints. Calling it again is harmless.
    bool sealBase();

    /// Writes the pending edits as the command file of version logVersion() + 1 and makes the
    /// project file complete for its upload. `author` is an e-mail. No pending edit gives a
    /// command file without changes. May be repeated; every call is a publication of its own.
    bool prepareSave(const QString &commandFile, const QString &author);

    /// The save whose command file was prepared last has been published as `version`. Where the
    /// file cannot note that now, `settle` does, which the next save and the next log call first.
    bool published(int version);
    /// Makes up for a `published` that failed; true when there is nothing to make up for.
    bool settle();

    /// Keeps the server's digest over all versions up to this one, the last of which must be
    /// logVersion(). With it a later opening finds out that the server has gone another way since.
    bool noteHistory(int version, const QString &chain);
    /// What the copy at `path` kept, without opening it as a project. False when there is nothing.
    static bool history(const QString &path, int *version, QString *chain);

    void setClashChoice(ClashChoice choice);
    /// The conflicts file written last by this object, or empty.
    QString conflictsFile() const;

    /// Brings everything into the main file and syncs it; called before an upload and after a
    /// merge pass. Fails while another process or an unfinished statement reads.
    bool checkpoint();

    /// Checkpoints and closes; later calls fail. The destructor does the same, without a report.
    bool close();

    /// Digest of the content tables (names, columns, rows): equal for equal contents, whatever
    /// order they came in. 32 bytes, empty on failure.
    QByteArray contentDigest() const;

    QString errorText() const;
    kvx::sqlite::Failure failure() const;

private:
    explicit KVXProjectDatabase(std::unique_ptr<kvx::sqlite::OpenProject> project);

    std::unique_ptr<kvx::sqlite::OpenProject> m_project;
};
