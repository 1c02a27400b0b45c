#include "services/ServiceTable.h"

#include "ocr/OcrServices.h"
#include "services/Files.h"
#include "services/GlobalLocks.h"
#include "services/Groups.h"
#include "services/IdBlocks.h"
#include "services/Items.h"
#include "services/LogLock.h"
#include "services/Login.h"
#include "services/OpenClose.h"
#include "services/Permissions.h"
#include "services/ProjectCommands.h"
#include "services/ProjectCreation.h"
#include "services/ProjectList.h"
#include "services/Resources.h"
#include "services/Roles.h"
#include "services/Save.h"
#include "services/ServerInfo.h"
#include "services/Tables.h"
#include "services/Templates.h"
#include "services/Users.h"
#include "services/WorkingTime.h"

namespace kvx::server {

ServiceRule Service::rulesFor(const Request &request) const
{
    return furtherRules ? rules | furtherRules(request) : rules;
}

const std::vector<Endpoint> &allEndpoints()
{
    static const std::vector<Endpoint> endpoints = {
        { "/kvx/service",
            { &loginServices, &userServices, &roleServices, &projectListServices,
                &projectCreationServices, &projectCommandServices, &permissionServices,
                &groupServices, &openCloseServices, &logLockServices, &saveServices, &fileServices,
                &itemServices, &idBlockServices, &templateServices, &globalLockServices,
                &tableServices } },
        { "/kvx/ocr", { &ocrServices } },
        { "/kvx/v2/api/workingtime", { &workingTimeServices } },
        { "/kvx/v2/api/comresource/version", { &resourceVersionServices }, "comresource/version" },
        { "/kvx/v2/api/comresource/download", { &resourceDownloadServices },
            "comresource/download" },
        { "/kvx/v2/api/server", { &serverInfoServices }, "server" },
    };
    return endpoints;
}

} // namespace kvx::server
