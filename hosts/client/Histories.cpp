#include "client/Histories.h"

namespace kvx::host {

namespace {

const QLatin1String ServiceKey("service");
const QLatin1String GuidKey("ProjectGUID");
const QLatin1String VersionKey("LogVersion");
const QLatin1String ChainKey("Chain");
const QLatin1String KnownVersionKey("KnownVersion");
const QLatin1String KnownChainKey("KnownChain");

std::optional<Histories::Point> found(
    const QHash<QString, Histories::Point> &points, const QString &guid)
{
    const auto point = points.constFind(guid.toLower());
    return point != points.constEnd() ? std::optional(*point) : std::nullopt;
}

} // namespace

void Histories::know(const QString &guid, const std::optional<Point> &point)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (point)
        m_known.insert(guid.toLower(), *point);
    else
        m_known.remove(guid.toLower());
}

std::optional<Histories::Point> Histories::known(const QString &guid) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return found(m_known, guid);
}

std::optional<Histories::Point> Histories::latest(const QString &guid) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return found(m_latest, guid);
}

QJsonObject Histories::amended(const QJsonObject &request) const
{
    if (request.value(ServiceKey) != QLatin1String("getlogversion"))
        return request;
    const auto point = known(request.value(GuidKey).toString());
    if (!point)
        return request;
    QJsonObject amended = request;
    amended.insert(KnownVersionKey, point->version);
    amended.insert(KnownChainKey, point->chain);
    return amended;
}

void Histories::learn(const QJsonObject &request, const QJsonObject &reply)
{
    const QString chain = reply.value(ChainKey).toString();
    const int version = reply.value(VersionKey).toInt(-1);
    if (chain.isEmpty() || version < 0)
        return;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_latest.insert(request.value(GuidKey).toString().toLower(), { version, chain });
}

} // namespace kvx::host
