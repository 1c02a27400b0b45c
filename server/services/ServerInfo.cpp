#include "services/ServerInfo.h"
#include "base/Config.h"

namespace kvx::server {

namespace {

/// What a search for servers in the network reads: enough to name the server, nothing about the
/// version or the company.
Reply serverInfo(Call &call)
{
    return Reply::ok()
        .set("product", "kvx-server")
        .set("name", call.config().serverName)
        .setJson("api", "[\"1\"]");
}

} // namespace

const ServiceTable serverInfoServices = {
    { "server", serverInfo, Anonymous },
};

} // namespace kvx::server
