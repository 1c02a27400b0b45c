#include "Sink.h"

#include <QFile>
#include <algorithm>
#include <arpa/inet.h>
#include <cstdlib>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace kvx::bench {

namespace {

constexpr char answer[] = "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n"
                          "Content-Length: 31\r\n\r\n{\"statuscode\":1,\"LogVersion\":1}";

long lengthOf(const std::string &head)
{
    const std::size_t at = head.find("Content-Length:");
    return at == std::string::npos ? 0 : std::atol(head.c_str() + at + 15);
}

int createIn(const QByteArray &folder)
{
    std::string path = folder.toStdString() + "/stored-XXXXXX";
    return mkostemp(path.data(), O_CLOEXEC);
}

bool syncAndClose(int file)
{
    const bool synced = fsync(file) == 0;
    return close(file) == 0 && synced;
}

} // namespace

QByteArray Sink::fileReply(int number) const
{
    QFile file(m_files.value(number));
    file.open(QIODevice::ReadOnly);
    const QByteArray bytes = file.readAll();
    return "HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(bytes.size()) + "\r\n\r\n"
        + bytes;
}

Sink::Sink(const QString &folder)
    : m_folder(folder)
    , m_listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(m_listener, reinterpret_cast<sockaddr *>(&address), size) != 0
        || listen(m_listener, 128) != 0
        || getsockname(m_listener, reinterpret_cast<sockaddr *>(&address), &size) != 0)
        throw std::runtime_error("the bare server cannot listen");
    m_port = ntohs(address.sin_port);
    m_acceptor = std::thread([this] { accept(); });
}

Sink::~Sink()
{
    shutdown(m_listener, SHUT_RDWR);
    m_acceptor.join();
    for (const int connection : m_connections)
        shutdown(connection, SHUT_RDWR);
    for (std::thread &thread : m_threads)
        thread.join();
    for (const int connection : m_connections)
        close(connection);
    close(m_listener);
}

QString Sink::address() const
{
    return QStringLiteral("127.0.0.1:%1").arg(m_port);
}

void Sink::accept()
{
    for (;;) {
        const int connection = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0)
            return;
        const int on = 1;
        setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        m_connections.push_back(connection);
        m_threads.emplace_back([this, connection] { serve(connection); });
    }
}

void Sink::serve(int connection)
{
    std::vector<char> part(std::size_t { 256 } << 10);
    const QByteArray folder = QFile::encodeName(m_folder);
    std::string head;
    for (;;) {
        const ssize_t count = recv(connection, part.data(), part.size(), 0);
        if (count <= 0)
            return;
        head.append(part.data(), static_cast<std::size_t>(count));
        const std::size_t end = head.find("\r\n\r\n");
        if (end == std::string::npos)
            continue;
        const bool store = head.compare(0, 11, "POST /store") == 0;
        const int file = store ? createIn(folder) : -1;
        long left = lengthOf(head);
        const auto take = [&](const char *data, long size) {
            left -= size;
            return !store || write(file, data, static_cast<std::size_t>(size)) == size;
        };
        bool well = take(head.data() + end + 4, static_cast<long>(head.size() - end - 4));
        while (left > 0 && well) {
            const ssize_t more = recv(connection, part.data(), part.size(), 0);
            well = more > 0 && take(part.data(), more);
        }
        if (store)
            well = syncAndClose(file) && syncAndClose(open(folder.constData(), O_RDONLY)) && well;
        const QByteArray reply = head.compare(0, 11, "POST /file/") == 0
            ? fileReply(std::atoi(head.c_str() + 11))
            : QByteArray::fromRawData(answer, sizeof answer - 1);
        head.clear();
        if (!well
            || ::send(connection, reply.constData(), static_cast<std::size_t>(reply.size()),
                   MSG_NOSIGNAL)
                < 0)
            return;
    }
}

} // namespace kvx::bench
