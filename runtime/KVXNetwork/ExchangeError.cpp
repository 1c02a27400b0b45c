#include "ExchangeError.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace kvx {

namespace {

const int LongestSentence = 300;
const int LargestErrorBody = 64 * 1024;
const int LoginRequired = 401;
const int ProxyLoginRequired = 407;

// Server text is shown to a user: one line of bounded length.
QString serverSentence(const QByteArray &body)
{
    if (body.size() > LargestErrorBody)
        return {};
    const QJsonObject object = QJsonDocument::fromJson(body).object();
    return object.value(QLatin1String("message")).toString().simplified().left(LongestSentence);
}

} // namespace

QString exchangeError(
    CURLcode result, const QString &server, const QString &proxy, const QString &detail)
{
    switch (result) {
    case CURLE_URL_MALFORMAT:
    case CURLE_LOGIN_DENIED: // a user name inside the address
    case CURLE_UNSUPPORTED_PROTOCOL:
        return QStringLiteral("\"%1\" is not a valid server address.").arg(server);
    case CURLE_COULDNT_RESOLVE_HOST:
        return QStringLiteral("There is no computer named \"%1\".").arg(server);
    case CURLE_COULDNT_RESOLVE_PROXY:
        return QStringLiteral("There is no proxy named \"%1\".").arg(proxy);
    case CURLE_COULDNT_CONNECT:
        return QStringLiteral("No server answers at %1.").arg(proxy.isEmpty() ? server : proxy);
    case CURLE_PROXY:
        return QStringLiteral("The proxy %1 did not connect to %2: %3").arg(proxy, server, detail);
    case CURLE_OPERATION_TIMEDOUT:
        return QStringLiteral("The server %1 did not answer in time.").arg(server);
    case CURLE_PARTIAL_FILE:
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
        if (!proxy.isEmpty()) // a proxy that refuses a password may end the connection at once
            return QStringLiteral(
                "The connection to %1 through the proxy %2 broke before the answer"
                " was complete.")
                .arg(server, proxy);
        return QStringLiteral("The connection to %1 broke before the answer was complete.")
            .arg(server);
    case CURLE_ABORTED_BY_CALLBACK:
        return QStringLiteral("The request was cancelled.");
    default:
        return QStringLiteral("The request to %1 failed: %2").arg(server, detail);
    }
}

QString statusError(int status, const QByteArray &body, const QString &server, const QString &proxy)
{
    const QString sentence = serverSentence(body);
    if (!sentence.isEmpty())
        return QStringLiteral("%1 (HTTP %2)").arg(sentence, QString::number(status));
    // Our server explains a 401; a proxy that sends one where 407 belongs does not.
    if (status == ProxyLoginRequired || (status == LoginRequired && !proxy.isEmpty()))
        return QStringLiteral("The proxy %1 did not accept the user name and password.").arg(proxy);
    return QStringLiteral("The server %1 refused the request (HTTP %2).")
        .arg(server, QString::number(status));
}

} // namespace kvx
