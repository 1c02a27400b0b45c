#include "frame/KVXServerInfo.h"

#include <KVXNetwork/KVXNetwork.h>

QString KVXServerInfo::serviceUrl()
{
    return keep(m_serviceUrl, baseUrl() + QLatin1String("/kvx/service"));
}

QString KVXServerInfo::ocrUrl()
{
    return keep(m_ocrUrl, baseUrl() + QLatin1String("/kvx/ocr"));
}

QString KVXServerInfo::brokerUrl()
{
    return keep(m_brokerUrl, QLatin1String("tcp://") + m_host + QLatin1Char(':') + m_brokerPort);
}

/// Several threads may post at the same time; each returns the URL that it formed itself.
QString KVXServerInfo::keep(QString &last, const QString &url)
{
    const std::lock_guard<std::mutex> lock(m_urlMutex);
    last = url;
    return url;
}

QString KVXServerInfo::baseUrl() const
{
    return QLatin1String("http://") + m_host + QLatin1Char(':') + m_port;
}

void KVXServerInfo::setProxy(
    int type, const QString &host, int port, const QString &user, const QString &password)
{
    m_proxy.type = type;
    m_proxy.host = host;
    m_proxy.port = port;
    m_proxy.user = user;
    m_proxy.password = password;
    KVXNetwork::getInstance()->setProxy(m_proxy);
}
