#include "PeerServer.h"

#include "Stand.h"

#include <QElapsedTimer>
#include <QFile>
#include <arpa/inet.h>
#include <csignal>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kvx::bench {

namespace {

int freePort()
{
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    require(bind(listener, reinterpret_cast<sockaddr *>(&address), size) == 0
            && getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size) == 0,
        QStringLiteral("no port is free"));
    close(listener);
    return ntohs(address.sin_port);
}

bool listens(int port)
{
    const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<quint16>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool open
        = connect(connection, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
    close(connection);
    return open;
}

class Child : public QProcess {
protected:
    void setupChildProcess() override { prctl(PR_SET_PDEATHSIG, SIGTERM); }
};

} // namespace

PeerServer::PeerServer(
    const QString &program, QStringList arguments, const QString &configFile, QString config)
    : m_process(std::make_unique<Child>())
    , m_port(freePort())
{
    const QString port = QString::number(m_port);
    if (!configFile.isEmpty()) {
        QFile file(configFile);
        require(file.open(QIODevice::WriteOnly)
                && file.write(config.replace(QLatin1String("PORT"), port).toUtf8()) > 0,
            configFile);
    }
    arguments.replaceInStrings(QStringLiteral("PORT"), port);
    arguments.replaceInStrings(QStringLiteral("CONFIG"), configFile);
    m_process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process->start(program, arguments);
    require(m_process->waitForStarted(), program + QLatin1String(" cannot be started"));
    QElapsedTimer timer;
    timer.start();
    while (!listens(m_port)) {
        require(timer.elapsed() < 10'000 && !m_process->waitForFinished(20),
            program + QLatin1String(" does not listen"));
    }
}

PeerServer::~PeerServer()
{
    m_process->terminate();
    m_process->waitForFinished(5'000);
}

} // namespace kvx::bench
