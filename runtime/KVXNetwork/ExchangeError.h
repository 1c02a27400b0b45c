#pragma once

#include <QByteArray>
#include <QString>
#include <curl/curl.h>

namespace kvx {

/// A sentence for the user about an exchange that did not come through. `server` and `proxy` are
/// "host:port"; `detail` is libcurl's own wording, used where it knows more.
QString exchangeError(
    CURLcode result, const QString &server, const QString &proxy, const QString &detail);

/// A sentence for an exchange that came through with another HTTP status than 200. Takes the
/// server's own sentence ("message" of a JSON body) where there is one.
QString statusError(
    int status, const QByteArray &body, const QString &server, const QString &proxy);

} // namespace kvx
