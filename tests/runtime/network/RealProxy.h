#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

namespace kvx::test {

/// A proxy of the distribution on a free port of 127.0.0.1, its own process.
class RealProxy {
public:
    ~RealProxy();
    int port() const { return m_port; }
    /// What it has written about its work so far.
    QByteArray log() const;

protected:
    RealProxy() = default;
    static int freePort();
    /// True once it accepts connections.
    bool start(const QString &program, const QStringList &arguments, int port);
    QString path(const QString &name) const { return m_folder.filePath(name); }

private:
    QTemporaryDir m_folder;
    QProcess m_process;
    int m_port = 0;
};

/// HTTP; without a user it serves anybody.
class HttpProxy : public RealProxy {
public:
    HttpProxy(const QString &user, const QString &password);
};

class SocksProxy : public RealProxy {
public:
    SocksProxy(const QString &user, const QString &password);
};

} // namespace kvx::test
