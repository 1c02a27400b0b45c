#pragma once

#include <QString>

/// Proxy settings of the transport. Default: direct connection.
struct KVXNetworkProxy {
    enum Type { NoProxy = 0, HttpProxy = 1, Socks5Proxy = 2 };

    int type = NoProxy; ///< one of Type; any other value counts as NoProxy
    QString host;
    int port = 0;
    QString user; ///< empty: no authentication
    QString password;
};
