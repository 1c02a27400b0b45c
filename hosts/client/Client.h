#pragma once

#include "client/FailureMemory.h"
#include "client/OpenProject.h"

#include <KVXCollaboration/KVXErrorCode.h>
#include <KVXCollaboration/KVXRole.h>
#include <KVXCollaboration/TProjectsType.h>
#include <QJsonObject>
#include <QMap>
#include <QObject>
#include <QSet>
#include <QString>
#include <QTimer>
#include <map>
#include <memory>

class KVXProjectInfo;

namespace kvx::host {

struct ClientOptions {
    QString host;
    QString port;
    QString email;
    QString password;
    QString plugin; ///< path of the plug-in library
    QString home; ///< local copies lie below it
    int proxyType = 0; ///< a KVXNetworkProxy::Type
    QString proxyHost;
    int proxyPort = 0;
    QString proxyUser;
    QString proxyPassword;
    KVXProjectDatabase::ClashChoice clash = KVXProjectDatabase::ClashChoice::Refuse;
};

/// One user at work: loads the plug-in, logs in, keeps the open projects and the connection.
/// After a broker failure it logs in again (after 1, 2, 5, 10, then every 30 seconds) and reads
/// again what it may have missed. A colleague's save whose fetching failed is fetched again after
/// the same pauses. Host thread; lives as long as the process.
class Client : public QObject {
    Q_OBJECT
public:
    explicit Client(const ClientOptions &options);
    ~Client() override;

    /// Loads the plug-in, logs in and reads the list. KVXOk also when only the broker could not be
    /// reached: brokerError() then tells why no notifications come.
    KVXErrorCode begin(QString *error);
    /// Closes what is open, ends the session and unloads the plug-in.
    void end();

    int triesLeft() const;
    /// What failed before is no reason for what fails from here on.
    void forgetFailures() { m_network.forget(); }
    /// Which side wins where unsaved edits clash; for what is opened from here on, too.
    void setClashChoice(KVXProjectDatabase::ClashChoice choice);
    const QString &brokerError() const { return m_brokerError; }
    const ClientOptions &options() const { return m_options; }

    /// By GUID, else by name. Null when the list has no such project.
    KVXProjectInfo *find(const QString &nameOrGuid) const;
    /// The open project; opened now where it is not.
    OpenProject *use(const QString &nameOrGuid, OpenProject::Failure *failure);
    /// Creates a project with this content and keeps it open.
    OpenProject *create(const QString &name, TProjectsType type, const content::Bill &bill,
        OpenProject::Failure *failure);
    bool isOpen(const QString &guid) const { return m_open.count(guid) > 0; }
    bool close(const QString &guid);
    /// Opens the project anew without its unsaved edits; the copy that holds them is put aside as
    /// where.
    OpenProject *discard(const QString &guid, QString *where, OpenProject::Failure *failure);

    /// Reads the project list again and closes what the user may no longer see.
    void readListAnew();

    /// Who holds the project's save lock and since when; empty when it is free.
    QString saveLockHolder(const OpenProject &project) const;
    /// The same once the lock has come free or that many seconds are over; the server may hold the
    /// last question back for some seconds more.
    QString waitForSaveLock(const OpenProject &project, int seconds) const;

Q_SIGNALS:
    /// Something a user may want to see: "projectSaved", "connectionLost" …; the data name the
    /// project and what else belongs to it.
    void happened(const QString &event, const QJsonObject &data);

private:
    using Permissions = QMap<KVXRole::RolePermissionType, int>;

    KVXErrorCode login();
    void keepAlive();
    QJsonObject postService(const QJsonObject &request) const;
    void connectSignals();
    void report(const QString &event, const QString &guid);
    void onNotify(const QJsonObject &message);
    void onRights(const Permissions &before, const Permissions &now);
    void closeWithoutAccess();
    void reconnect();
    void resynchronise();
    void fetchLater(const QString &guid);
    void fetchMissed();
    QString folderOf(const QString &guid) const;
    OpenProject *keep(std::unique_ptr<OpenProject> project);

    FailureMemory m_network;
    ClientOptions m_options;
    QString m_brokerError;
    std::map<QString, std::unique_ptr<OpenProject>> m_open;
    QTimer m_reconnect;
    QTimer m_keepAlive;
    QTimer m_fetch;
    QSet<QString> m_missed; ///< projects with a save that could not be fetched
    int m_attempt = 0;
    int m_fetches = 0;
    bool m_ending = false;
    bool m_loggedIn = false;
};

} // namespace kvx::host
