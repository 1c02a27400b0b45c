#include "RealProxy.h"

#include <QElapsedTimer>
#include <QFile>
#include <QThread>
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kvx::test {

namespace {

const int StartLimit = 10'000; // ms

sockaddr_in loopback(int port)
{
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    return address;
}

bool accepts(int port)
{
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    const bool connected
        = ::connect(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    ::close(socket);
    return connected;
}

} // namespace

RealProxy::~RealProxy()
{
    m_process.terminate();
    if (!m_process.waitForFinished(3000)) {
        m_process.kill();
        m_process.waitForFinished();
    }
}

int RealProxy::freePort()
{
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    EXPECT_EQ(::bind(socket, reinterpret_cast<sockaddr *>(&address), size), 0);
    EXPECT_EQ(::getsockname(socket, reinterpret_cast<sockaddr *>(&address), &size), 0);
    ::close(socket);
    return ntohs(address.sin_port);
}

bool RealProxy::start(const QString &program, const QStringList &arguments, int port)
{
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    m_process.setStandardOutputFile(path(QStringLiteral("log")));
    m_process.start(program, arguments);
    QElapsedTimer timer;
    timer.start();
    while (m_process.waitForStarted(StartLimit) && timer.elapsed() < StartLimit) {
        if (accepts(port)) {
            m_port = port;
            return true;
        }
        // Somebody else took the port meanwhile; the caller tries another one.
        if (m_process.waitForFinished(20))
            return false;
    }
    return false;
}

QByteArray RealProxy::log() const
{
    QFile file(path(QStringLiteral("log")));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

HttpProxy::HttpProxy(const QString &user, const QString &password)
{
    for (int attempt = 0; attempt < 5 && port() == 0; ++attempt) {
        const int free = freePort();
        QFile configuration(path(QStringLiteral("conf")));
        EXPECT_TRUE(configuration.open(QIODevice::WriteOnly));
        configuration.write("Listen 127.0.0.1\nTimeout 20\nMaxClients 20\nLogLevel Info\nPort "
            + QByteArray::number(free) + '\n');
        if (!user.isEmpty())
            configuration.write("BasicAuth " + user.toUtf8() + ' ' + password.toUtf8() + '\n');
        configuration.close();
        start(QStringLiteral("tinyproxy"),
            { QStringLiteral("-d"), QStringLiteral("-c"), configuration.fileName() }, free);
    }
    EXPECT_NE(port(), 0) << log().constData();
}

SocksProxy::SocksProxy(const QString &user, const QString &password)
{
    for (int attempt = 0; attempt < 5 && port() == 0; ++attempt) {
        const int free = freePort();
        QStringList arguments { QStringLiteral("-i"), QStringLiteral("127.0.0.1"),
            QStringLiteral("-p"), QString::number(free) };
        if (!user.isEmpty())
            arguments << QStringLiteral("-u") << user << QStringLiteral("-P") << password;
        start(QStringLiteral("microsocks"), arguments, free);
    }
    EXPECT_NE(port(), 0) << log().constData();
}

} // namespace kvx::test
