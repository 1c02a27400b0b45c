#include "demo/Site.h"

#include <KVXNetwork/KVXNetwork.h>
#include <QElapsedTimer>
#include <QFile>
#include <QUuid>
#include <arpa/inet.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace kvx::demo {

namespace {

constexpr char brokerUser[] = "kvx-server";

/// A port that nobody listens on right now.
int freePort()
{
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    int port = 0;
    if (bind(listener, reinterpret_cast<sockaddr *>(&address), size) == 0
        && getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size) == 0)
        port = ntohs(address.sin_port);
    close(listener);
    return port;
}

QString local(int port)
{
    return QStringLiteral("127.0.0.1:%1").arg(port);
}

void end(QProcess &process)
{
    if (process.state() == QProcess::NotRunning)
        return;
    process.terminate();
    if (!process.waitForFinished(30000)) {
        process.kill();
        process.waitForFinished();
    }
}

} // namespace

Site::Site(
    const QString &buildFolder, const QString &brokerScript, const QStringList &serverOptions)
    : m_build(buildFolder)
    , m_brokerScript(brokerScript)
    , m_serverOptions(serverOptions)
{
}

Site::~Site()
{
    stop();
}

bool Site::start()
{
    return startBroker() && startServer();
}

void Site::stop()
{
    end(m_server);
    end(m_broker);
}

void Site::stopBroker()
{
    end(m_broker);
}

void Site::stopServer()
{
    end(m_server);
}

void Site::killServer()
{
    m_server.kill();
    m_server.waitForFinished();
}

bool Site::startBroker()
{
    if (m_brokerPort == 0)
        m_brokerPort = freePort();
    m_broker.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QStringList arguments { QStringLiteral("--port"), QString::number(m_brokerPort),
        QStringLiteral("--data"), path(QStringLiteral("broker")) };
    if (m_guarded) {
        const QString file = path(QStringLiteral("broker.password"));
        if (!QFile::exists(file) && !writePassword(file))
            return false;
        arguments << QStringLiteral("--server")
                  << QLatin1String(brokerUser) + QLatin1Char(':') + file;
    }
    m_broker.start(m_brokerScript, arguments);
    while (m_broker.waitForReadyRead(60000)) {
        if (m_broker.readAllStandardOutput().contains("ready"))
            return true;
    }
    m_error = QStringLiteral("the broker did not start");
    return false;
}

bool Site::writePassword(const QString &name)
{
    QFile file(name);
    if (file.open(QIODevice::WriteOnly) && file.setPermissions(QFile::ReadOwner | QFile::WriteOwner)
        && file.write(QUuid::createUuid().toByteArray(QUuid::WithoutBraces) + '\n') > 0)
        return true;
    m_error = file.errorString();
    return false;
}

bool Site::startServer()
{
    QFile password(path(QStringLiteral("broker.password")));
    if (password.open(QIODevice::ReadOnly)) {
        // The command line would show it to everybody on this machine.
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("KVX_BROKER_USER"), QLatin1String(brokerUser));
        environment.insert(QStringLiteral("KVX_BROKER_PASSWORD"),
            QString::fromLatin1(password.readAll().trimmed()));
        m_server.setProcessEnvironment(environment);
    }
    if (m_port == 0)
        m_port = freePort();
    m_server.setProcessChannelMode(QProcess::MergedChannels);
    // A restart keeps what the one before had to say.
    m_server.setStandardOutputFile(outputFile(), QIODevice::Append);
    m_server.start(m_build + QLatin1String("/server/kvx-server"),
        QStringList { QStringLiteral("serve"), QStringLiteral("--data"),
            path(QStringLiteral("data")), QStringLiteral("--listen"), local(m_port),
            QStringLiteral("--admin.listen"), local(freePort()), QStringLiteral("--broker.url"),
            QLatin1String("tcp://") + local(m_brokerPort), QStringLiteral("--broker.publicPort"),
            QString::number(m_brokerPort), QStringLiteral("--admin-password-file"),
            path(QStringLiteral("admin.password")) }
            + m_serverOptions);
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 30000 && m_server.state() != QProcess::NotRunning) {
        if (KVXNetwork::getInstance()->ping(QStringLiteral("127.0.0.1"), m_port))
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    QFile log(outputFile());
    if (log.open(QIODevice::ReadOnly))
        m_error
            = QStringLiteral("the server did not start: %1").arg(QString::fromUtf8(log.readAll()));
    return false;
}

bool Site::addUser(const QString &email, const QString &name, const QString &role)
{
    QFile file(account(email).passwordFile);
    if (!writePassword(file.fileName()))
        return false;
    if (!file.open(QIODevice::ReadOnly)) {
        m_error = file.errorString();
        return false;
    }
    QStringList arguments { QStringLiteral("user"), QStringLiteral("add"), email,
        QStringLiteral("--name"), name };
    if (!role.isEmpty())
        arguments << QStringLiteral("--role") << role;
    return administer(arguments, file.readAll());
}

bool Site::administer(const QStringList &arguments, const QByteArray &input, int limitMs)
{
    QProcess command;
    command.setProcessChannelMode(QProcess::MergedChannels);
    command.start(m_build + QLatin1String("/server/kvx-server"),
        arguments + QStringList { QStringLiteral("--data"), path(QStringLiteral("data")) });
    command.write(input);
    command.closeWriteChannel();
    const bool ended = command.waitForFinished(limitMs);
    if (ended && command.exitStatus() == QProcess::NormalExit && command.exitCode() == 0)
        return true;
    m_error = QString::fromUtf8(command.readAll());
    if (!ended)
        m_error += QStringLiteral("kvx-server %1 did not end within %2 s")
                       .arg(arguments.join(QLatin1Char(' ')), QString::number(limitMs / 1000));
    return false;
}

QString Site::kvx() const
{
    return m_build + QLatin1String("/bin/kvx");
}

QString Site::server() const
{
    return local(m_port);
}

host::ShellProcess::Account Site::account(const QString &email) const
{
    return { email, path(email + QLatin1String(".password")),
        path(email + QLatin1String(".home")) };
}

host::ShellProcess::Account Site::administrator() const
{
    return { QStringLiteral("admin@localhost"), path(QStringLiteral("admin.password")),
        path(QStringLiteral("admin.home")) };
}

} // namespace kvx::demo
