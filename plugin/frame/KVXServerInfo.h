#pragma once

#include <KVXCollaboration/IKVXSingleton.h>
#include <KVXNetwork/KVXNetworkProxy.h>
#include <QString>
#include <mutex>

/// The server address of the process and the URLs formed from it. Written by the login manager
/// only, on the host thread; never reset. The URLs may be asked for from any thread.
class KVXServerInfo : public IKVXSingleton<KVXServerInfo> {
public:
    const QString &host() const { return m_host; }
    const QString &port() const { return m_port; }
    void setHost(const QString &host) { m_host = host; }
    void setPort(const QString &port) { m_port = port; }
    void setBrokerPort(const QString &port) { m_brokerPort = port; }

    /// Host and port are non-empty; no connection is tried.
    bool isConfigured() const { return !m_host.isEmpty() && !m_port.isEmpty(); }

    // Formed anew from the current fields on every call.
    QString serviceUrl();
    QString ocrUrl();
    QString brokerUrl();
    QString baseUrl() const;

    /// Also hands the settings to the transport, whose next request uses them.
    void setProxy(
        int type, const QString &host, int port, const QString &user, const QString &password);
    const KVXNetworkProxy &proxy() const { return m_proxy; }

private:
    friend class IKVXSingleton<KVXServerInfo>;
    friend struct std::default_delete<KVXServerInfo>;
    KVXServerInfo() = default;
    ~KVXServerInfo() = default;

    QString keep(QString &last, const QString &url);

    QString m_host;
    QString m_port;
    QString m_brokerPort = QStringLiteral("61616");
    QString m_serviceUrl;
    QString m_ocrUrl;
    QString m_brokerUrl;
    KVXNetworkProxy m_proxy;
    std::mutex m_urlMutex; // of the last URLs
};
