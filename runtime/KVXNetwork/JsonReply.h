#pragma once

#include <QByteArray>
#include <QJsonObject>

namespace kvx {

/// True when the bytes are one complete JSON object in UTF-8 and nothing else, of a size in memory
/// that can be afforded. `reply` is filled then and left alone otherwise.
bool parseReply(const QByteArray &bytes, QJsonObject &reply);

} // namespace kvx
