#pragma once

#include "client/Histories.h"

#include <KVXNetwork/KVXNetwork.h>
#include <mutex>

namespace kvx::host {

/// The transport of this process with a memory of why things failed: managers answer with a bool or
/// a number, and a later exchange (giving a lock back) succeeds. Tells the histories of projects
/// what passes. Any thread.
class FailureMemory : public KVXNetwork {
public:
    /// Takes the place of the transport until its end.
    FailureMemory();
    ~FailureMemory() override;

    Histories &histories() { return m_histories; }
    void forget();
    /// Why the last exchange that failed since forget() did: the transport's words, or the server's
    /// where it refused. Empty when none failed.
    QString lastError() const override;

    void setProxy(const KVXNetworkProxy &proxy) override { m_network.setProxy(proxy); }
    KVXNetworkProxy proxy() const override { return m_network.proxy(); }
    int httpGet(const QString &url, QByteArray &body) override;
    int httpPost(const QString &url, const QJsonObject &request) override;
    void setTimeouts(const Timeouts &timeouts) override { m_network.setTimeouts(timeouts); }
    void clearSession() override { m_network.clearSession(); }
    bool hasSession() const override { return m_network.hasSession(); }
    void abort() override { m_network.abort(); }
    void searchServer(
        const QStringList &addresses, int port, void *receiver, SearchFunction progress) override;
    bool ping(const QString &host, int port) override { return m_network.ping(host, port); }
    QString serverVersion(const QString &host, int port) override;
    void cancelSearch() override { m_network.cancelSearch(); }
    bool post(const QString &url, const QJsonObject &request, QJsonObject &reply, void *receiver,
        ProgressFunction progress) override;
    bool uploadFile(const QString &url, const QString &localFileName, const QString &serverFileName,
        void *receiver, ProgressFunction progress) override;
    bool downloadFile(const QString &url, const QString &serverFileName,
        const QString &localFileName, void *receiver, ProgressFunction progress) override;

private:
    bool remember(bool done);
    void keep(const QString &reason);

    KVXNetwork &m_network;
    Histories m_histories;
    mutable std::mutex m_mutex; // guards m_reason
    QString m_reason;
};

/// The reason that the transport knows, else the general sentence.
QString failureReason(const QString &otherwise);

} // namespace kvx::host
