#include "client/ShellProcess.h"

#include <QElapsedTimer>
#include <QJsonDocument>

namespace kvx::host {

namespace {

QString eventName(const QJsonObject &object)
{
    return object.value(QLatin1String("event")).toString();
}

} // namespace

bool ShellProcess::start(const QString &program, const QString &server, const Account &account,
    const QStringList &moreOptions)
{
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process.start(program,
        QStringList { QStringLiteral("--json"), QStringLiteral("--server"), server,
            QStringLiteral("--user"), account.email, QStringLiteral("--password-file"),
            account.passwordFile, QStringLiteral("--home"), account.home }
            + moreOptions + QStringList { QStringLiteral("shell") });
    if (!m_process.waitForStarted()) {
        m_error = m_process.errorString();
        return false;
    }
    QJsonObject object;
    while (readLine(60000, object)) {
        if (eventName(object) == QLatin1String("ready"))
            return true;
        if (object.contains(QLatin1String("exit"))) {
            m_error = object.value(QLatin1String("error")).toString();
            return false;
        }
        m_events.append(object);
    }
    m_error = QStringLiteral("%1 ended without a word").arg(program);
    return false;
}

ShellProcess::~ShellProcess()
{
    stop();
}

bool ShellProcess::stop()
{
    if (!isRunning())
        return true;
    m_process.closeWriteChannel();
    if (m_process.waitForFinished(10000))
        return m_process.exitStatus() == QProcess::NormalExit;
    kill();
    return false;
}

void ShellProcess::kill()
{
    m_process.kill();
    m_process.waitForFinished();
}

QJsonObject ShellProcess::run(const QString &command, int limitMs)
{
    send(command);
    return result(limitMs);
}

void ShellProcess::send(const QString &command)
{
    m_process.write(command.toUtf8() + '\n');
    m_process.waitForBytesWritten(10000);
}

QJsonObject ShellProcess::result(int limitMs)
{
    QElapsedTimer timer;
    timer.start();
    QJsonObject object;
    while (readLine(limitMs - static_cast<int>(timer.elapsed()), object)) {
        if (object.contains(QLatin1String("exit")))
            return object;
        m_events.append(object);
    }
    return {};
}

QList<QJsonObject> ShellProcess::takeEvents()
{
    QJsonObject object;
    while (readLine(0, object))
        m_events.append(object);
    QList<QJsonObject> taken;
    taken.swap(m_events);
    return taken;
}

bool ShellProcess::waitForEvent(const QString &name, int limitMs)
{
    for (const QJsonObject &event : qAsConst(m_events)) {
        if (eventName(event) == name)
            return true;
    }
    QElapsedTimer timer;
    timer.start();
    QJsonObject object;
    while (readLine(limitMs - static_cast<int>(timer.elapsed()), object)) {
        m_events.append(object);
        if (eventName(object) == name)
            return true;
    }
    return false;
}

bool ShellProcess::readLine(int limitMs, QJsonObject &object)
{
    QElapsedTimer timer;
    timer.start();
    m_process.waitForReadyRead(0);
    while (!m_process.canReadLine()) {
        const qint64 left = limitMs - timer.elapsed();
        if (left <= 0 || !m_process.waitForReadyRead(static_cast<int>(left))) {
            if (!m_process.canReadLine())
                return false;
        }
    }
    object = QJsonDocument::fromJson(m_process.readLine()).object();
    return true;
}

QString ShellProcess::quoted(const QString &text)
{
    QString inner = text;
    inner.replace(QLatin1Char('\\'), QLatin1String("\\\\"));
    inner.replace(QLatin1Char('"'), QLatin1String("\\\""));
    return QLatin1Char('"') + inner + QLatin1Char('"');
}

} // namespace kvx::host
