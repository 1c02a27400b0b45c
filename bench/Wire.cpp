#include "Wire.h"

#include <QJsonDocument>
#include <arpa/inet.h>
#include <cstring>
#include <netinet/tcp.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace kvx::bench {

namespace {

[[noreturn]] void failWire(const char *doing)
{
    throw std::runtime_error(std::string(doing) + ": " + std::strerror(errno));
}

/// The value of a header; the name in lower case and with its colon.
QByteArray headerValue(const QByteArray &head, const QByteArray &name)
{
    const int at = head.toLower().indexOf("\r\n" + name);
    if (at < 0)
        return {};
    const int begin = at + 2 + name.size();
    return head.mid(begin, head.indexOf("\r\n", begin) - begin).trimmed();
}

} // namespace

Wire::Wire(const QString &address)
    : m_host(address.toLatin1())
    , m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    const QList<QByteArray> parts = m_host.split(':');
    sockaddr_in server = {};
    server.sin_family = AF_INET;
    inet_pton(AF_INET, parts.first().constData(), &server.sin_addr);
    server.sin_port = htons(static_cast<std::uint16_t>(parts.last().toInt()));
    const int on = 1;
    setsockopt(m_socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (connect(m_socket, reinterpret_cast<sockaddr *>(&server), sizeof server) != 0) {
        close(m_socket);
        failWire("connecting");
    }
}

Wire::~Wire()
{
    close(m_socket);
}

QByteArray Wire::message(const QByteArray &body) const
{
    QByteArray text = "POST /kvx/service HTTP/1.1\r\nHost: " + m_host
        + "\r\nContent-Type: application/json\r\nContent-Length: "
        + QByteArray::number(body.size());
    if (!m_cookie.isEmpty())
        text += "\r\nCookie: " + m_cookie;
    return text + "\r\n\r\n" + body;
}

void Wire::send(const QByteArray &message)
{
    for (int sent = 0; sent < message.size();) {
        const ssize_t count = ::send(m_socket, message.constData() + sent,
            static_cast<std::size_t>(message.size() - sent), MSG_NOSIGNAL);
        if (count < 0)
            failWire("sending");
        sent += static_cast<int>(count);
    }
}

bool Wire::receive(QByteArray *body)
{
    char part[65536];
    const ssize_t count = recv(m_socket, part, sizeof part, 0);
    if (count <= 0)
        failWire("receiving");
    m_buffer.append(part, static_cast<int>(count));
    const int headEnd = m_buffer.indexOf("\r\n\r\n");
    if (headEnd < 0)
        return false;
    const QByteArray head = m_buffer.left(headEnd + 2);
    const int length = headerValue(head, "content-length:").toInt();
    if (m_buffer.size() < headEnd + 4 + length)
        return false;
    if (!head.startsWith("HTTP/1.1 200"))
        throw std::runtime_error(m_buffer.left(500).toStdString());
    takeCookie(head);
    if (body)
        *body = m_buffer.mid(headEnd + 4, length);
    m_buffer.clear();
    return true;
}

void Wire::takeCookie(const QByteArray &head)
{
    const QByteArray cookie = headerValue(head, "set-cookie:");
    if (!cookie.isEmpty())
        m_cookie = cookie.left(cookie.indexOf(';'));
}

QByteArray Wire::post(const QByteArray &body)
{
    send(message(body));
    QByteArray reply;
    while (!receive(&reply)) { }
    return reply;
}

QJsonObject Wire::call(const QJsonObject &request)
{
    const QByteArray body = post(QJsonDocument(request).toJson(QJsonDocument::Compact));
    const QJsonObject reply = QJsonDocument::fromJson(body).object();
    if (reply.value(QLatin1String("statuscode")).toInt() != 1)
        throw std::runtime_error(body.left(500).toStdString());
    return reply;
}

QJsonObject Wire::login(const QString &email, const QString &password)
{
    return call({ { QStringLiteral("service"), QStringLiteral("login") },
        { QStringLiteral("Email"), email }, { QStringLiteral("Password"), password },
        { QStringLiteral("Version"), QStringLiteral("1") },
        { QStringLiteral("FingerPrint"), QStringLiteral("bench") },
        { QStringLiteral("serverApiVersion"), QStringLiteral("1") },
        { QStringLiteral("productType"), QStringLiteral("kvx") } });
}

} // namespace kvx::bench
