#include "JsonReply.h"

#include <QJsonDocument>
#include <algorithm>

namespace kvx {

namespace {

// An element costs about 80 bytes in memory however short it is in the text, so 128 MiB of "[],"
// would become 10 GiB. The largest honest reply (100,000 projects) has about six million.
const std::ptrdiff_t MostElements = 16'000'000;

} // namespace

bool parseReply(const QByteArray &bytes, QJsonObject &reply)
{
    if (std::count(bytes.begin(), bytes.end(), ',') > MostElements)
        return false;
    QJsonParseError error {};
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return false;
    reply = document.object();
    return true;
}

} // namespace kvx
