#pragma once

#include "KVXSQLite/KVXProjectDatabase.h"
#include "client/Histories.h"
#include "content/BillStore.h"

#include <KVXCollaboration/KVXCWProjectData.h>
#include <QLockFile>
#include <QString>
#include <memory>

class KVXCWIDManager;

namespace kvx::host {

/// A shared project that is open on this machine: the local copy, its edits and its saves.
/// The copy lies in a folder of its own and stays there when the project is closed; edits that are
/// not saved yet survive in it. Host thread.
class OpenProject {
public:
    struct Failure {
        int code = 0; ///< the server's status code where it refused, else 0
        QString text;
        bool clash = false; ///< unsaved edits and a colleague's change meet: a choice decides
    };

    /// What a save came to. An unreachable lock service counts as success for the plug-in, so
    /// published tells the truth.
    struct SaveResult {
        KVXCWProjectData::ErrorCode code = KVXCWProjectData::Success;
        bool published = false;
        int version = -1;
        QString text;
    };

    /// Creates the local file of a new project, fills it and uploads it as the base. The project
    /// must have been created on the server and opened there.
    static std::unique_ptr<OpenProject> createBase(const QString &name, const QString &guid,
        const QString &folder, const content::Bill &bill, Histories &histories, Failure *failure);
    /// Opens the project on the server, then brings the local copy to the server's version. A copy
    /// with unsaved edits that cannot be brought there stays as it is, and the project closed.
    static std::unique_ptr<OpenProject> open(const QString &name, const QString &guid,
        const QString &folder, KVXProjectDatabase::ClashChoice clash, Histories &histories,
        Failure *failure);
    /// Closes the file. The project list must have closed the project before: its managers borrow
    /// the database.
    ~OpenProject();

    const QString &guid() const { return m_guid; }
    KVXProjectDatabase &database() { return *m_database; }
    content::BillStore bill() const { return content::BillStore(m_database->connection()); }
    KVXCWProjectData *synchronizer() const;
    KVXCWIDManager *ids() const;

    /// A number for a new row; -1 when there is none.
    int newId();
    SaveResult save();
    KVXCWProjectData::ErrorCode sync();
    /// Keeps in the copy what the server said of its version, if it said so. After whatever raised
    /// the version without save or sync: a colleague's save that the plug-in merged.
    void noteHistory();
    /// Set by open when a damaged copy was put aside.
    const QString &notice() const { return m_notice; }

    static QString textOf(KVXCWProjectData::ErrorCode code);
    /// What stood behind a failed save or synchronisation, in brackets; empty when nobody knows.
    QString reasonOf(KVXCWProjectData::ErrorCode code) const;
    /// Renames the local copy in the folder of a project that is not open; where receives its new
    /// path. The next opening fetches a fresh one.
    static bool putAside(const QString &folder, QString *where);

private:
    OpenProject(const QString &guid, const QString &folder, Histories &histories);
    bool lockFolder(Failure *failure);
    void sweepDownloads();
    bool openLocalCopy(KVXProjectDatabase::ClashChoice clash, Failure *failure);
    bool catchUp(int version, QString *reason);
    bool fetch(const QString &name, Failure *failure);
    void attach();
    QString projectFile() const;

    QString m_guid;
    QString m_folder;
    Histories &m_histories; ///< outlives this
    QString m_notice;
    std::unique_ptr<QLockFile> m_lock;
    std::unique_ptr<KVXProjectDatabase> m_database;
};

} // namespace kvx::host
