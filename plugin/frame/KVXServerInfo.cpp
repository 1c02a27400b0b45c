#include "frame/KVXServerInfo.h"

#include <KVXNetwork/KVXNetwork.h>

QString KVXServerInfo::serviceUrl()
{
    m_serviceUrl = baseUrl() + QLatin1String("/kvx/service");
    return m_serviceUrl;
}

QString KVXServerInfo::ocrUrl()
{
    m_ocrUrl = baseUrl() + QLatin1String("/kvx/ocr");
    return m_ocrUrl;
}

QString KVXServerInfo::brokerUrl()
{
    m_brokerUrl = QLatin1String("tcp://") + m_host + QLatin1Char(':') + m_brokerPort;
    return m_brokerUrl;
}

QString KVXServerInfo::baseUrl() const
{
    return QLatin1String("http://") + m_host + QLatin1Char(':') + m_port;
}

void KVXServerInfo::setProxy(int type, const QString &host, int port, const QString &user,
    const QString &password)
{
    m_proxy.type = type;
    m_proxy.host = host;
    m_proxy.port = port;
    m_proxy.user = user;
    m_proxy.password = password;
    KVXNetwork::getInstance()->setProxy(m_proxy);
}
