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
    Site(const QString &buildFolder, const QString &brokerScript);
    ~Site();

    bool start();
    void stop();
    /// Makes an account with a random password.
    bool addUser(const QString &email, const QString &name);

    QString kvx() const;
    QString server() const;
    host::ShellProcess::Account account(const QString &email) const;
    const QString &error() const { return m_error; }

private:
    bool startBroker();
    bool startServer();
    QString path(const QString &name) const { return m_folder.filePath(name); }

    QString m_build;
    QString m_brokerScript;
    QTemporaryDir m_folder;
    QProcess m_broker;
    QProcess m_server;
    int m_brokerPort = 0;
    int m_port = 0;
    QString m_error;
};

} // namespace kvx::demo
