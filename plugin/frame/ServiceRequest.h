#pragma once

#include "frame/ServiceReply.h"

#include <KVXNetwork/KVXNetwork.h>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>

/// One service request: keys, post, judge. Posting blocks the calling thread; a request may be
/// posted again.
class ServiceRequest {
public:
    /// Lays keys first, then "service" over them.
    explicit ServiceRequest(const char *service, const QJsonObject &keys = {});

    ServiceRequest &set(const char *key, const QJsonValue &value);
    ServiceRequest &set(const QString &key, const QJsonValue &value);
    ServiceRequest &progress(void *receiver, KVXNetwork::ProgressFunction function);
    const QJsonObject &object() const { return m_object; }

    /// To the service URL; nothing is sent while the server is not configured.
    ServiceReply post() const;
    /// To the URL given, without that test.
    ServiceReply postTo(const QString &url) const;

private:
    QJsonObject m_object;
    void *m_receiver = nullptr;
    KVXNetwork::ProgressFunction m_progress = nullptr;
};
