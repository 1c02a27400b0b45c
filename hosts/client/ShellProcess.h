#pragma once

#include <QJsonObject>
#include <QList>
#include <QProcess>
#include <QString>
#include <QStringList>

namespace kvx::host {

/// A kvx process that is driven by a program: one user in his own process, commands in, JSON
/// results out. Blocks while it waits; needs no event loop.
class ShellProcess {
public:
    struct Account {
        QString email;
        QString passwordFile;
        QString home;
    };

    /// Starts "kvx --json … shell" and waits until it is logged in. False with error() otherwise.
    bool start(const QString &program, const QString &server, const Account &account,
        const QStringList &moreOptions = {});
    /// Ends the session in order; kills the process when it does not end within ten seconds.
    ~ShellProcess();
    bool stop();
    void kill();

    /// Sends one command and waits for its result; an empty object after the limit.
    QJsonObject run(const QString &command, int limitMs = 60000);
    void send(const QString &command);
    QJsonObject result(int limitMs = 60000);

    /// Events since the last call; reads what has arrived.
    QList<QJsonObject> takeEvents();
    bool waitForEvent(const QString &name, int limitMs = 10000);

    bool isRunning() const { return m_process.state() == QProcess::Running; }
    qint64 pid() const { return m_process.processId(); }
    const QString &error() const { return m_error; }
    /// An argument of a command in quotes.
    static QString quoted(const QString &text);

private:
    bool readLine(int limitMs, QJsonObject &object);

    QProcess m_process;
    QList<QJsonObject> m_events;
    QString m_error;
};

} // namespace kvx::host
