#include "ServiceCall.h"

namespace kvx {

namespace {

const QLatin1String LocalFileMember("LocalFileName");

} // namespace

ServiceCall::ServiceCall(const QString &to, const QJsonObject &request, void *receiver,
    KVXNetwork::ProgressFunction function)
    : url(to)
    , service(request.value(QLatin1String("service")).toString())
    , namesFile(request.contains(LocalFileMember))
    , localFile(request.value(LocalFileMember).toString())
    , isGet(request.value(QLatin1String("HttpMethod")).toVariant().toString() == QLatin1String("0"))
    , sent(request)
    , progress(receiver, function)
{
    sent.remove(LocalFileMember);
}

// The recognition service moves files under names of its own.
bool ServiceCall::sendsFile() const
{
    return service == QLatin1String("upload") || (service == QLatin1String("submit") && namesFile);
}

bool ServiceCall::receivesFile() const
{
    return service == QLatin1String("download")
        || (service == QLatin1String("result") && namesFile);
}

bool ServiceCall::needsProvenConnection() const
{
    return service == QLatin1String("sendservertomerge") || service == QLatin1String("loglock");
}

} // namespace kvx
