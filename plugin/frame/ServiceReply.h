#pragma once

#include "frame/JsonNumber.h"

#include <QJsonObject>
#include <QJsonValue>

/// Answer to one service request. A default-made reply means "not sent": every test on it fails.
class ServiceReply {
public:
    ServiceReply() = default;
    ServiceReply(bool carried, const QJsonObject &object)
        : m_sent(true)
        , m_carried(carried)
        , m_object(object)
    {
    }

    /// The endpoint was configured and the post was made.
    bool sent() const { return m_sent; }
    /// The transport's own result.
    bool carried() const { return m_carried; }
    /// "statuscode" as sent; 0 when it is absent or no number.
    double rawStatus() const { return m_object.value(QLatin1String("statuscode")).toDouble(); }
    /// Truncated and clamped; 1 is success.
    int status() const { return kvx::toInt(m_object.value(QLatin1String("statuscode"))); }
    bool ok() const { return status() == 1; }

    /// Top-level members; undefined, empty or 0 when absent or of another type.
    QJsonValue operator[](const char *key) const { return m_object.value(QLatin1String(key)); }
    QJsonValue operator[](const QString &key) const { return m_object.value(key); }
    QString text(const char *key) const { return (*this)[key].toString(); }
    int integer(const char *key) const { return kvx::toInt((*this)[key]); }

    /// Writes only where out is given and the post was made.
    void storeRawStatus(double *out) const
    {
        if (out && m_sent)
            *out = rawStatus();
    }

private:
    bool m_sent = false;
    bool m_carried = false;
    QJsonObject m_object;
};
