#include "CurlNetwork.h"

#include "DownloadTarget.h"
#include "ExchangeError.h"
#include "JsonReply.h"
#include "LocalFile.h"
#include "ProxyOptions.h"
#include "ServerAddress.h"
#include "ServerSearch.h"
#include "ServiceCall.h"

#include <FailPoint.h>
#include <KVXNetwork/KVXNetworkLog.h>
#include <QUrl>
#include <algorithm>

namespace kvx {

namespace {

const int ConnectTime = 10 * 1000; // ms
const int RequestTime = 60 * 1000;
const int MergeTime = 600 * 1000;
const int StallTime = 30 * 1000;
const qint64 LargestReply = 128LL * 1024 * 1024; // a list of 100,000 projects has about 70 MB
const qint64 LargestServerAnswer = 64 * 1024;

const QLatin1String ServiceKey("service");
const QLatin1String LocalFileKey("LocalFileName");
const QLatin1String MergeService("sendservertomerge");

thread_local QString lastErrorOfThread;

int orDefault(int milliseconds, int standard)
{
    return milliseconds > 0 ? milliseconds : standard;
}

QString withoutQuery(const QByteArray &url)
{
    return QUrl(QString::fromUtf8(url)).toString(QUrl::RemoveQuery | QUrl::RemoveUserInfo);
}

bool succeeded(const QJsonObject &reply)
{
    const double status = reply.value(QLatin1String("statuscode")).toDouble();
    return status >= 1 && status < 2;
}

} // namespace

CurlNetwork::CurlNetwork()
{
    curl_global_init(CURL_GLOBAL_DEFAULT);
}

void CurlNetwork::setProxy(const KVXNetworkProxy &proxy)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (sameProxy(m_proxy, proxy))
            return;
        m_proxy = proxy;
    }
    m_pool.clear();
}

KVXNetworkProxy CurlNetwork::proxy() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_proxy;
}

void CurlNetwork::setTimeouts(const Timeouts &timeouts)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_timeouts = timeouts;
}

void CurlNetwork::clearSession()
{
    m_cookies.clear();
    m_pool.clear();
}

bool CurlNetwork::hasSession() const
{
    return m_cookies.holds("kvxsid");
}

void CurlNetwork::abort()
{
    m_pool.abort();
    cancelSearch();
}

QString CurlNetwork::lastError() const
{
    return lastErrorOfThread;
}

Exchange::Limits CurlNetwork::jsonLimits(const QString &service) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const int total = service == MergeService ? orDefault(m_timeouts.mergeMs, MergeTime)
                                              : orDefault(m_timeouts.requestMs, RequestTime);
    return { orDefault(m_timeouts.connectMs, ConnectTime), total, 0, LargestReply };
}

Exchange::Limits CurlNetwork::fileLimits() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return { orDefault(m_timeouts.connectMs, ConnectTime), 0,
        orDefault(m_timeouts.stallMs, StallTime), LargestReply };
}

int CurlNetwork::httpGet(const QString &url, QByteArray &body)
{
    Exchange exchange(url, jsonLimits(QString()));
    exchange.mayRepeat();
    run(exchange);
    body = exchange.body();
    const bool failed = !exchange.error().isEmpty();
    conclude(exchange, QString());
    return failed ? 0 : exchange.status();
}

int CurlNetwork::httpPost(const QString &url, const QJsonObject &request)
{
    const QString service = request.value(ServiceKey).toString();
    Exchange exchange(url, jsonLimits(service));
    exchange.sendJson(request);
    run(exchange);
    const bool failed = !exchange.error().isEmpty();
    conclude(exchange, service);
    return failed ? 0 : exchange.status();
}

bool CurlNetwork::post(const QString &url, const QJsonObject &request, QJsonObject &reply,
    void *receiver, ProgressFunction progress)
{
    ServiceCall call(url, request, receiver, progress);
    reply = QJsonObject(); // only now: it may be the request itself
    if (call.sendsFile())
        return postUpload(call, reply);
    return call.receivesFile() ? postDownload(call, reply) : postJson(call, reply);
}

bool CurlNetwork::postJson(ServiceCall &call, QJsonObject &reply)
{
    Exchange exchange(call.url, jsonLimits(call.service));
    exchange.reportTo(&call.progress);
    if (call.isGet)
        exchange.mayRepeat();
    else
        exchange.sendJson(call.sent);
    if (call.needsProvenConnection())
        exchange.useProvenConnection();
    run(exchange);
    if (KVX_FAIL_POINT("answer of: " + call.service.toStdString()))
        exchange.fail(QStringLiteral("The answer was lost."));
    takeReply(exchange, reply);
    return conclude(exchange, call.service);
}

bool CurlNetwork::postUpload(ServiceCall &call, QJsonObject &reply)
{
    LocalFile file;
    if (!file.open(call.localFile))
        return refuse(file.error());
    Exchange exchange(call.url, fileLimits());
    exchange.sendFile(call.sent, &file);
    exchange.reportTo(&call.progress);
    run(exchange);
    if (takeReply(exchange, reply) && succeeded(reply))
        call.progress.finish(file.size());
    return conclude(exchange, call.service);
}

bool CurlNetwork::postDownload(ServiceCall &call, QJsonObject &reply)
{
    DownloadTarget target(call.localFile);
    if (!target.open())
        return refuse(target.error());
    Exchange exchange(call.url, fileLimits());
    exchange.receiveFile(&target);
    exchange.reportTo(&call.progress);
    exchange.mayRepeat();
    if (!call.isGet)
        exchange.sendJson(call.sent);
    run(exchange);
    if (!exchange.error().isEmpty() || exchange.status() != 200
        || !exchange.head().hasFileReply()) {
        // Success without a file must not look like a file.
        if (takeReply(exchange, reply) && succeeded(reply)) {
            reply = QJsonObject();
            exchange.fail(QStringLiteral("The server %1 sent no file.").arg(exchange.server()));
        }
    } else if (!parseReply(exchange.head().fileReply(), reply)) {
        exchange.fail(QStringLiteral("The answer of %1 is not valid.").arg(exchange.server()));
    } else if (succeeded(reply)) {
        if (target.commit()) {
            call.progress.finish(target.received());
        } else {
            reply = QJsonObject();
            exchange.fail(target.error());
        }
    }
    return conclude(exchange, call.service);
}

bool CurlNetwork::uploadFile(const QString &url, const QString &localFileName,
    const QString &serverFileName, void *receiver, ProgressFunction progress)
{
    QJsonObject reply;
    return post(url,
               { { ServiceKey, QStringLiteral("upload") },
                   { QStringLiteral("FileName"), serverFileName },
                   { LocalFileKey, localFileName } },
               reply, receiver, progress)
        && accepted(reply);
}

bool CurlNetwork::downloadFile(const QString &url, const QString &serverFileName,
    const QString &localFileName, void *receiver, ProgressFunction progress)
{
    QJsonObject reply;
    return post(url,
               { { ServiceKey, QStringLiteral("download") },
                   { QStringLiteral("FileName"), serverFileName },
                   { LocalFileKey, localFileName } },
               reply, receiver, progress)
        && accepted(reply);
}

/// Who asked learns nothing of the reply but this.
bool CurlNetwork::accepted(const QJsonObject &reply) const
{
    if (succeeded(reply))
        return true;
    lastErrorOfThread = reply.value(QLatin1String("message")).toString();
    if (lastErrorOfThread.isEmpty())
        lastErrorOfThread = QStringLiteral("The server refused the file.");
    return false;
}

void CurlNetwork::run(Exchange &exchange)
{
    HandlePool::Lease handle(m_pool);
    // After the lease: a proxy set before this line is used, and its old connections are gone.
    if (!exchange.prepare(handle->easy(), proxy()))
        return;
    const CookieJar::Loan loan = m_cookies.lend(handle->easy(), exchange.url());
    const CURLcode result = handle->run();
    m_cookies.takeBack(handle->easy(), loan);
    exchange.finish(handle->easy(), result);
    if (!exchange.leavesConnectionClean())
        handle.spoil();
}

bool CurlNetwork::takeReply(Exchange &exchange, QJsonObject &reply) const
{
    if (!exchange.error().isEmpty() || exchange.status() != 200)
        return false;
    if (parseReply(exchange.body(), reply))
        return true;
    exchange.fail(
        QStringLiteral("The answer of %1 is not valid or not complete.").arg(exchange.server()));
    return false;
}

bool CurlNetwork::conclude(const Exchange &exchange, const QString &service) const
{
    lastErrorOfThread = exchange.error();
    if (lastErrorOfThread.isEmpty() && exchange.status() != 200)
        lastErrorOfThread
            = statusError(exchange.status(), exchange.body(), exchange.server(), exchange.proxy());
    if (lastErrorOfThread.isEmpty())
        return true;
    KVXNetworkLog::logError(QStringLiteral("Request failed: url=%1, service=%2, error=%3")
                                .arg(withoutQuery(exchange.url()), service, lastErrorOfThread));
    return false;
}

bool CurlNetwork::refuse(const QString &error) const
{
    lastErrorOfThread = error;
    KVXNetworkLog::logError(QStringLiteral("Request not sent: error=%1").arg(error));
    return false;
}

void CurlNetwork::searchServer(
    const QStringList &addresses, int port, void *receiver, SearchFunction progress)
{
    ServerSearch search(addresses, port, proxy());
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_searches.push_back(&search);
    }
    search.run(receiver, progress);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_searches.erase(std::find(m_searches.begin(), m_searches.end(), &search));
}

void CurlNetwork::cancelSearch()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (ServerSearch *search : m_searches)
        search->cancel();
}

ServerAnswer CurlNetwork::askServer(const QString &host, int port)
{
    const ServerAddress address(host, port);
    if (!address.isValid()) {
        refuse(QStringLiteral("\"%1\" is not a valid server address.").arg(host));
        return {};
    }
    Exchange::Limits limits = jsonLimits(QString());
    limits.totalMs = limits.connectMs; // a user waits for this
    limits.replyBytes = LargestServerAnswer;
    Exchange exchange(address.serverUrl(), limits);
    exchange.mayRepeat();
    run(exchange);
    ServerAnswer answer;
    if (exchange.error().isEmpty() && exchange.status() == 200) {
        answer = ServerAnswer::fromReply(exchange.body());
        if (!answer.valid)
            exchange.fail(QStringLiteral("What answers at %1 is no collaboration server.")
                              .arg(exchange.server()));
    }
    conclude(exchange, QString());
    return answer;
}

bool CurlNetwork::ping(const QString &host, int port)
{
    return askServer(host, port).valid;
}

QString CurlNetwork::serverVersion(const QString &host, int port)
{
    return askServer(host, port).apiVersions;
}

} // namespace kvx
