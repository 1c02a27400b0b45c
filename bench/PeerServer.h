#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>
#include <memory>

namespace kvx::bench {

/// Another product's server on a free port of this machine; it ends with this object.
class PeerServer {
public:
    /// "PORT" in the arguments stands for the port, as it may in the configuration given, which is
    /// written to a file that "CONFIG" stands for. Throws std::runtime_error when nobody listens
    /// after ten seconds.
    PeerServer(const QString &program, QStringList arguments, const QString &configFile = {},
        QString config = {});
    ~PeerServer();

    QString address() const { return QStringLiteral("127.0.0.1:%1").arg(m_port); }

private:
    std::unique_ptr<QProcess> m_process;
    int m_port;
};

} // namespace kvx::bench
