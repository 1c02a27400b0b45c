#include "services/ServiceTable.h"

#include "services/Login.h"
#include "services/Roles.h"
#include "services/ServerInfo.h"
#include "services/Users.h"

namespace kvx::server {

const std::vector<Endpoint> &allEndpoints()
{
    static const std::vector<Endpoint> endpoints = {
        { "/kvx/service", { &loginServices, &userServices, &roleServices } },
        { "/kvx/v2/api/server", { &serverInfoServices }, "server" },
    };
    return endpoints;
}

} // namespace kvx::server
