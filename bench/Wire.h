#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace kvx::bench {

/// One kept HTTP connection, as bare as can be: what it costs is the floor of any client. Throws
/// std::runtime_error on every failure.
class Wire {
public:
    explicit Wire(const QString &address);
    ~Wire();
    Wire(const Wire &) = delete;
    Wire &operator=(const Wire &) = delete;

    /// Posts and waits; gives the body of the reply.
    QByteArray post(const QByteArray &body);
    /// The same for a service request that must succeed.
    QJsonObject call(const QJsonObject &request);
    /// Begins a session; the cookie goes with every later request.
    QJsonObject login(const QString &email, const QString &password);

    /// The halves of post, for whoever waits for several connections.
    void send(const QByteArray &message);
    /// Reads what is there; true once a whole reply has come.
    bool receive(QByteArray *body = nullptr);
    /// A request as it goes over the wire.
    QByteArray message(const QByteArray &body) const;
    int descriptor() const { return m_socket; }

private:
    void takeCookie(const QByteArray &head);

    QByteArray m_host;
    QByteArray m_cookie;
    QByteArray m_buffer;
    int m_socket = -1;
};

} // namespace kvx::bench
