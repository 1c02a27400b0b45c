#include "ProxyOptions.h"

#include <QByteArray>

namespace kvx {

namespace {

bool isProxyUsed(const KVXNetworkProxy &proxy)
{
    return proxy.type == KVXNetworkProxy::HttpProxy || proxy.type == KVXNetworkProxy::Socks5Proxy;
}

// A scheme, a path or credentials inside the host would override the other fields.
bool isPlainHost(const QString &host)
{
    for (const QChar character : host) {
        if (character.unicode() <= 0x20 || QStringLiteral("/@?#\\").contains(character))
            return false;
    }
    return !host.isEmpty();
}

QString bracketed(const QString &host)
{
    return host.contains(QLatin1Char(':')) && !host.startsWith(QLatin1Char('['))
        ? QLatin1Char('[') + host + QLatin1Char(']')
        : host;
}

} // namespace

bool sameProxy(const KVXNetworkProxy &a, const KVXNetworkProxy &b)
{
    return a.type == b.type && a.host == b.host && a.port == b.port && a.user == b.user
        && a.password == b.password;
}

QString proxyText(const KVXNetworkProxy &proxy)
{
    return bracketed(proxy.host) + QLatin1Char(':') + QString::number(proxy.port);
}

bool applyProxy(CURL *easy, const KVXNetworkProxy &proxy)
{
    curl_easy_setopt(easy, CURLOPT_NOPROXY, "");
    if (!isProxyUsed(proxy)) {
        curl_easy_setopt(easy, CURLOPT_PROXY, "");
        return true;
    }
    if (!isPlainHost(proxy.host) || proxy.port < 1 || proxy.port > 65535)
        return false;
    // Names are resolved by the proxy: the client's own network may not know them.
    const bool socks = proxy.type == KVXNetworkProxy::Socks5Proxy;
    const QString scheme = socks ? QStringLiteral("socks5h://") : QStringLiteral("http://");
    curl_easy_setopt(easy, CURLOPT_PROXY, (scheme + proxyText(proxy)).toUtf8().constData());
    if (!proxy.user.isEmpty()) {
        curl_easy_setopt(easy, CURLOPT_PROXYUSERNAME, proxy.user.toUtf8().constData());
        curl_easy_setopt(easy, CURLOPT_PROXYPASSWORD, proxy.password.toUtf8().constData());
    }
    // Basic at once: asking first would send every request twice.
    curl_easy_setopt(easy, CURLOPT_PROXYAUTH, CURLAUTH_BASIC);
    return true;
}

} // namespace kvx
