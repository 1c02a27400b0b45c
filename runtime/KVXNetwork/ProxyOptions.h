#pragma once

#include <KVXNetwork/KVXNetworkProxy.h>
#include <curl/curl.h>

namespace kvx {

bool sameProxy(const KVXNetworkProxy &a, const KVXNetworkProxy &b);

/// Makes the handle use this proxy and no other: what the environment names is ignored, and no
/// host is exempt. False when host or port are not usable.
bool applyProxy(CURL *easy, const KVXNetworkProxy &proxy);

/// "host:port" for a message.
QString proxyText(const KVXNetworkProxy &proxy);

} // namespace kvx
