#pragma once

#include "KVXSQLite/ApplyLog.h"
#include "KVXSQLite/EditSession.h"
#include "KVXSQLite/Model.h"

#include <QString>
#include <optional>

namespace kvx::sqlite {

/// The parts of an open project file and what involves several of them.
/// KVXProjectDatabase is its face to the host and says what each operation means.
struct OpenProject {
    explicit OpenProject(const QString &file);

    Status open(const QString &projectGuid, bool downloaded, const QString &schemaSql);
    bool execute(CommandFile *commandFile, int mode);
    Status edit(const std::function<bool(sqlite3 *)> &function);
    Status seal();
    Status prepareSave(const QString &commandFile, const QString &author);
    Status published(int version);
    Status settle();
    Status noteHistory(int version, const std::string &chain);
    Status checkpoint();
    Status close();

    /// A failure once the project is closed.
    Status usable() const;
    /// Keeps the outcome for the host; true for a success.
    bool note(const Status &status);
    /// The same for a getter: a success does not wipe out an earlier failure.
    void noteFailure(const Status &status);

    QString path;
    QString guid;
    Connection host;
    Connection apply;
    Schema schema;
    EditSession edits;
    ApplyLog log;
    Model model;
    Status last;
    Rebase::Winner winner = Rebase::Winner::Nobody;
    QString conflictsFile;
    bool closed = false;
    std::optional<int> unnoted; ///< a version of ours that the file does not know of yet

private:
    Status notePublished(int version);
    Status writeSave(const QString &commandFile, CommandHeader *header);
};

} // namespace kvx::sqlite
