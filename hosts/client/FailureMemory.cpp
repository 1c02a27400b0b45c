#include "client/FailureMemory.h"

namespace kvx::host {

FailureMemory::FailureMemory()
    : m_network(*KVXNetwork::getInstance())
{
    KVXNetwork::setInstance(this);
}

FailureMemory::~FailureMemory()
{
    KVXNetwork::setInstance(&m_network);
}

void FailureMemory::forget()
{
    keep(QString());
}

QString FailureMemory::lastError() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_reason;
}

void FailureMemory::keep(const QString &reason)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_reason = reason;
}

bool FailureMemory::remember(bool done)
{
    if (!done)
        keep(m_network.lastError());
    return done;
}

int FailureMemory::httpGet(const QString &url, QByteArray &body)
{
    const int status = m_network.httpGet(url, body);
    remember(status == 200);
    return status;
}

int FailureMemory::httpPost(const QString &url, const QJsonObject &request)
{
    const int status = m_network.httpPost(url, request);
    remember(status == 200);
    return status;
}

void FailureMemory::searchServer(
    const QStringList &addresses, int port, void *receiver, SearchFunction progress)
{
    m_network.searchServer(addresses, port, receiver, progress);
}

QString FailureMemory::serverVersion(const QString &host, int port)
{
    return m_network.serverVersion(host, port);
}

bool FailureMemory::post(const QString &url, const QJsonObject &request, QJsonObject &reply,
    void *receiver, ProgressFunction progress)
{
    const QJsonObject sent = m_histories.amended(request); // its own: the reply may take its place
    const bool done = remember(m_network.post(url, sent, reply, receiver, progress));
    if (done)
        m_histories.learn(sent, reply);
    // A success has no message.
    const QString message = reply.value(QLatin1String("message")).toString();
    if (!message.isEmpty())
        keep(message);
    return done;
}

bool FailureMemory::uploadFile(const QString &url, const QString &localFileName,
    const QString &serverFileName, void *receiver, ProgressFunction progress)
{
    return remember(m_network.uploadFile(url, localFileName, serverFileName, receiver, progress));
}

bool FailureMemory::downloadFile(const QString &url, const QString &serverFileName,
    const QString &localFileName, void *receiver, ProgressFunction progress)
{
    return remember(m_network.downloadFile(url, serverFileName, localFileName, receiver, progress));
}

QString failureReason(const QString &otherwise)
{
    const QString reason = KVXNetwork::getInstance()->lastError();
    return reason.isEmpty() ? otherwise : reason;
}

} // namespace kvx::host
