#include "support/FakeNetwork.h"

namespace kvx::test {

void FakeNetwork::answer(const QString &service, const QJsonObject &reply)
{
    handle(service, [reply](const QJsonObject &, QJsonObject &out) {
        out = reply;
        return true;
    });
}

void FakeNetwork::answerOnce(const QString &service, const QJsonObject &reply)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_once[service].append(reply);
}

void FakeNetwork::handle(const QString &service, Handler handler)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_handlers[service] = std::move(handler);
}

void FakeNetwork::failPost(const QString &service)
{
    handle(service, [](const QJsonObject &, QJsonObject &) { return false; });
}

void FakeNetwork::failRequest(int number)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_failAt = m_posts + number;
}

QJsonObject FakeNetwork::takeRequest()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_requests.isEmpty() ? QJsonObject() : m_requests.takeFirst();
}

QList<QJsonObject> FakeNetwork::takeRequests()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    QList<QJsonObject> taken;
    taken.swap(m_requests);
    return taken;
}

QStringList FakeNetwork::takeServices()
{
    QStringList services;
    for (const QJsonObject &request : takeRequests())
        services.append(request.value(QLatin1String("service")).toString());
    return services;
}

int FakeNetwork::postCount(const QString &service) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return service.isEmpty() ? m_posts : m_counts.value(service);
}

void FakeNetwork::setProxy(const KVXNetworkProxy &proxy)
{
    proxies.append(proxy);
}

KVXNetworkProxy FakeNetwork::proxy() const
{
    return proxies.isEmpty() ? KVXNetworkProxy() : proxies.last();
}

int FakeNetwork::httpGet(const QString &url, QByteArray &body)
{
    httpRequests.append({ url, QJsonObject() });
    body = httpBody;
    return httpStatus;
}

int FakeNetwork::httpPost(const QString &url, const QJsonObject &request)
{
    httpRequests.append({ url, request });
    return httpStatus;
}

void FakeNetwork::setTimeouts(const Timeouts &) { }

void FakeNetwork::clearSession() { }

bool FakeNetwork::hasSession() const
{
    return true;
}

void FakeNetwork::abort() { }

QString FakeNetwork::lastError() const
{
    return {};
}

void FakeNetwork::searchServer(
    const QStringList &addresses, int port, void *receiver, SearchFunction progress)
{
    calls.append(QStringLiteral("searchServer"));
    int done = 0;
    for (const QString &address : addresses) {
        ++done;
        progress(
            receiver, address + QLatin1Char(':') + QString::number(port), done, addresses.size());
    }
}

bool FakeNetwork::ping(const QString &host, int port)
{
    calls.append(QStringLiteral("ping %1 %2").arg(host, QString::number(port)));
    return pingResult;
}

QString FakeNetwork::serverVersion(const QString &host, int port)
{
    calls.append(QStringLiteral("serverVersion %1 %2").arg(host, QString::number(port)));
    return serverVersionResult;
}

void FakeNetwork::cancelSearch()
{
    calls.append(QStringLiteral("cancelSearch"));
}

bool FakeNetwork::post(const QString &url, const QJsonObject &request, QJsonObject &reply,
    void *receiver, ProgressFunction progress)
{
    const QString service = request.value(QLatin1String("service")).toString();
    Handler handler;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_requests.append(request);
        ++m_counts[service];
        m_lastUrl = url;
        m_lastReceiver = receiver;
        m_lastProgress = progress;
        if (m_posts++ == m_failAt)
            return false;
        QList<QJsonObject> &once = m_once[service];
        if (!once.isEmpty()) {
            reply = once.takeFirst();
            return true;
        }
        handler = m_handlers.value(service);
    }
    if (handler)
        return handler(request, reply);
    reply = QJsonObject { { QStringLiteral("statuscode"), 1 } };
    return true;
}

bool FakeNetwork::uploadFile(const QString &url, const QString &localFileName,
    const QString &serverFileName, void *receiver, ProgressFunction progress)
{
    transfers.append({ true, url, localFileName, serverFileName, receiver, progress });
    return transferResult;
}

bool FakeNetwork::downloadFile(const QString &url, const QString &serverFileName,
    const QString &localFileName, void *receiver, ProgressFunction progress)
{
    transfers.append({ false, url, localFileName, serverFileName, receiver, progress });
    return transferResult;
}

} // namespace kvx::test
