#include "projectlist/KVXCWProjectPermissionImpl.h"

#include "frame/ServiceRequest.h"
#include "login/CurrentUser.h"

#include <KVXCollaboration/KVXProjectInfo.h>
#include <QJsonArray>

bool KVXCWProjectPermissionImpl::updatePermissions(KVXProjectInfo *project)
{
    if (!project)
        return false;
    QJsonArray userPermissions;
    const KVXProjectInfo::UserPermissions &entries = project->userPermissions();
    for (const auto &[user, permissions] : entries) {
        userPermissions.append(QJsonObject {
            { QStringLiteral("Email"), user.email() },
            { QStringLiteral("ProjectRW"), permissions.value(KVXProjectInfo::ProjectRW, -1) },
            { QStringLiteral("Money"), permissions.value(KVXProjectInfo::Money, -1) },
            { QStringLiteral("Addendum"), permissions.value(KVXProjectInfo::Addendum, -1) },
            { QStringLiteral("Report"), permissions.value(KVXProjectInfo::Report, -1) },
        });
    }
    return ServiceRequest("projectpermission")
        .set("Email", kvx::currentUserEmail())
        .set("ProjectGUID", project->guid())
        .set("userperms", userPermissions)
        .post()
        .ok();
}
