#include "ServerAddress.h"

#include "JsonReply.h"

#include <QJsonArray>
#include <QStringList>
#include <algorithm>

namespace kvx {

namespace {

const int LongestServerName = 200;

bool isHostCharacter(QChar character)
{
    return character.unicode() > 0x20 && character.unicode() != 0x7f
        && !QStringLiteral("/\\@?#[]\"<>%").contains(character);
}

} // namespace

ServerAddress::ServerAddress(const QString &text, int port)
    : m_host(text.trimmed())
    , m_port(port)
{
    const int bracket = m_host.indexOf(QLatin1Char(']'));
    const bool bareIpv6 = bracket < 0 && m_host.count(QLatin1Char(':')) > 1;
    const int colon = bareIpv6 ? -1 : m_host.indexOf(QLatin1Char(':'), std::max(bracket, 0));
    if (colon >= 0) {
        bool isNumber = false;
        m_port = m_host.mid(colon + 1).toInt(&isNumber);
        if (!isNumber)
            m_port = 0;
        m_host.truncate(colon);
    }
    if (m_host.startsWith(QLatin1Char('[')) && m_host.endsWith(QLatin1Char(']')))
        m_host = m_host.mid(1, m_host.size() - 2);
    for (const QChar character : qAsConst(m_host)) {
        if (!isHostCharacter(character)) {
            m_host.clear();
            return;
        }
    }
}

QString ServerAddress::text() const
{
    const QString host
        = m_host.contains(QLatin1Char(':')) ? QLatin1Char('[') + m_host + QLatin1Char(']') : m_host;
    return host + QLatin1Char(':') + QString::number(m_port);
}

QString ServerAddress::serverUrl() const
{
    return QStringLiteral("http://%1/kvx/v2/api/server").arg(text());
}

ServerAnswer ServerAnswer::fromReply(const QByteArray &bytes)
{
    ServerAnswer answer;
    QJsonObject reply;
    if (!parseReply(bytes, reply)
        || reply.value(QLatin1String("product")).toString() != QLatin1String("kvx-server"))
        return answer;
    answer.valid = true;
    answer.name
        = reply.value(QLatin1String("name")).toString().simplified().left(LongestServerName);
    QStringList versions;
    for (const QJsonValue &version : reply.value(QLatin1String("api")).toArray())
        versions.append(version.toString());
    answer.apiVersions = versions.join(QLatin1Char(','));
    return answer;
}

} // namespace kvx
