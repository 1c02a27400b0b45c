#pragma once

#include "CookieJar.h"
#include "Exchange.h"
#include "HandlePool.h"

#include <KVXNetwork/KVXNetwork.h>
#include <mutex>
#include <vector>

namespace kvx {

class ServerSearch;
struct ServiceCall;
struct ServerAnswer;

/// The transport on libcurl. A request borrows a handle from the pool, takes the session's proxy,
/// limits and cookies as they are at that moment, and runs to its end on the calling thread.
/// No lock is held during an exchange or while the caller's function is told of progress, so a
/// progress function may itself use the transport.
class CurlNetwork : public KVXNetwork {
public:
    CurlNetwork();

    void setProxy(const KVXNetworkProxy &proxy) override;
    KVXNetworkProxy proxy() const override;
    int httpGet(const QString &url, QByteArray &body) override;
    int httpPost(const QString &url, const QJsonObject &request) override;
    void setTimeouts(const Timeouts &timeouts) override;
    void clearSession() override;
    bool hasSession() const override;
    void abort() override;
    QString lastError() const override;
    void searchServer(
        const QStringList &addresses, int port, void *receiver, SearchFunction progress) override;
    bool ping(const QString &host, int port) override;
    QString serverVersion(const QString &host, int port) override;
    void cancelSearch() override;
    bool post(const QString &url, const QJsonObject &request, QJsonObject &reply, void *receiver,
        ProgressFunction progress) override;
    bool uploadFile(const QString &url, const QString &localFileName, const QString &serverFileName,
        void *receiver, ProgressFunction progress) override;
    bool downloadFile(const QString &url, const QString &serverFileName,
        const QString &localFileName, void *receiver, ProgressFunction progress) override;

private:
    Exchange::Limits jsonLimits(const QString &service) const;
    Exchange::Limits fileLimits() const;
    bool postJson(ServiceCall &call, QJsonObject &reply);
    bool postUpload(ServiceCall &call, QJsonObject &reply);
    bool postDownload(ServiceCall &call, QJsonObject &reply);
    void run(Exchange &exchange);
    /// Judges a JSON answer; true for HTTP 200 with a complete object.
    bool takeReply(Exchange &exchange, QJsonObject &reply) const;
    /// Notes the outcome for lastError() and the log.
    bool conclude(const Exchange &exchange, const QString &service) const;
    bool accepted(const QJsonObject &reply) const;
    bool refuse(const QString &error) const;
    ServerAnswer askServer(const QString &host, int port);

    mutable std::mutex m_mutex; ///< guards the three below
    KVXNetworkProxy m_proxy;
    Timeouts m_timeouts;
    std::vector<ServerSearch *> m_searches;
    HandlePool m_pool;
    CookieJar m_cookies;
};

} // namespace kvx
