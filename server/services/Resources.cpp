#include "services/Resources.h"
#include "base/Config.h"
#include "store/BlobStore.h"
#include "store/Db.h"
#include "store/ResourceStore.h"

namespace kvx::server {

namespace {

Reply resourceVersion(Call &call)
{
    const auto package = ResourceStore(call.db()).current();
    if (!package)
        return Reply::refused(StatusCode::NoResourcePackage);
    return Reply::ok().setJson("data", "{\"version\":" + jsonText(package->version) + '}');
}

// Not behind the table's user rule: an administrator may open the package to everybody.
Reply downloadResource(Call &call)
{
    if (!call.hasCaller() && !call.config().resourceAnonymous)
        return Reply::refused(StatusCode::NotLoggedIn);
    const auto package = ResourceStore(call.db()).current();
    if (!package)
        return Reply::refused(StatusCode::NoResourcePackage);
    const BlobStore blobs(call.config().data);
    return Reply::file(
        { blobs.path(package->blob), BlobStore::size(call.db(), package->blob), package->blob })
        .set("version", package->version);
}

} // namespace

const ServiceTable resourceVersionServices = {
    { "comresource/version", resourceVersion, Anonymous | JudgedByHttp },
};

const ServiceTable resourceDownloadServices = {
    { "comresource/download", downloadResource, Anonymous },
};

} // namespace kvx::server
