#include "frame/ServiceRequest.h"

#include "frame/KVXServerInfo.h"

ServiceRequest::ServiceRequest(const char *service, const QJsonObject &keys)
    : m_object(keys)
{
    set("service", QLatin1String(service));
}

ServiceRequest &ServiceRequest::set(const char *key, const QJsonValue &value)
{
    return set(QString::fromLatin1(key), value);
}

ServiceRequest &ServiceRequest::set(const QString &key, const QJsonValue &value)
{
    m_object.insert(key, value);
    return *this;
}

ServiceRequest &ServiceRequest::progress(void *receiver, KVXNetwork::ProgressFunction function)
{
    m_receiver = receiver;
    m_progress = function;
    return *this;
}

ServiceReply ServiceRequest::post() const
{
    KVXServerInfo *server = KVXServerInfo::getInstance();
    if (!server->isConfigured())
        return {};
    return postTo(server->serviceUrl());
}

ServiceReply ServiceRequest::postTo(const QString &url) const
{
    QJsonObject reply;
    const bool carried
        = KVXNetwork::getInstance()->post(url, m_object, reply, m_receiver, m_progress);
    return ServiceReply(carried, reply);
}
