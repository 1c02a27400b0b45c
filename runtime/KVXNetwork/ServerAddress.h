#pragma once

#include <QByteArray>
#include <QString>

namespace kvx {

/// Where a server may listen. Takes "host", "host:port", "[IPv6]", "[IPv6]:port" or a bare IPv6
/// address; without a port of its own the given one counts.
class ServerAddress {
public:
    ServerAddress(const QString &text, int port);
    bool isValid() const { return m_port >= 1 && m_port <= 65535 && !m_host.isEmpty(); }
    /// "host:port", IPv6 addresses in brackets.
    QString text() const;
    /// What a server tells about itself to anybody who asks.
    QString serverUrl() const;

private:
    QString m_host; ///< empty: not usable
    int m_port;
};

/// The answer to serverUrl(). Invalid unless a server of this product gave it.
struct ServerAnswer {
    static ServerAnswer fromReply(const QByteArray &bytes);
    bool valid = false;
    QString name;
    QString apiVersions; ///< joined by ","
};

} // namespace kvx
