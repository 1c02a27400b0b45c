#pragma once

#include "client/ShellProcess.h"

#include <QProcess>
#include <QString>
#include <QTemporaryDir>
#include <memory>

namespace kvx::demo {

/// A server and its broker on free ports of this machine, with their data in a temporary folder
/// that goes at the end.
class Site {
public:
    /// serverOptions are added to those of "kvx-server serve".
    Site(const QString &buildFolder, const QString &brokerScript,
        const QStringList &serverOptions = {});
    ~Site();

    /// Before the start: the broker goes without its guard.
    void withoutGuard() { m_guarded = false; }

    bool start();
    void stop();
    /// The broker alone; it comes back on the same port.
    bool startBroker();
    void stopBroker();
    /// The server alone, with the same data on the same port. kill: without a chance to tidy up.
    bool startServer();
    void stopServer();
    void killServer();
    /// Makes an account with a random password; an empty role gives it none.
    bool addUser(const QString &email, const QString &name,
        const QString &role = QStringLiteral("Estimator"));

    /// A command of kvx-server on this server's data; ended when it takes longer than the limit.
    bool administer(
        const QStringList &arguments, const QByteArray &input = {}, int limitMs = 30000);

    QString kvx() const;
    QString server() const;
    host::ShellProcess::Account account(const QString &email) const;
    /// The one that the server makes at its first start.
    host::ShellProcess::Account administrator() const;
    /// The server's database and files.
    QString dataFolder() const { return path(QStringLiteral("data")); }
    /// What the server wrote to its standard output and error, since the first start.
    QString outputFile() const { return path(QStringLiteral("server.out")); }
    int brokerPort() const { return m_brokerPort; }
    qint64 serverPid() const { return m_server.processId(); }
    const QString &error() const { return m_error; }

private:
    QString path(const QString &name) const { return m_folder.filePath(name); }
    bool writePassword(const QString &name);

    QString m_build;
    QString m_brokerScript;
    QStringList m_serverOptions;
    QTemporaryDir m_folder;
    QProcess m_broker;
    QProcess m_server;
    bool m_guarded = true;
    int m_brokerPort = 0;
    int m_port = 0;
    QString m_error;
};

} // namespace kvx::demo
