#include "client/PermissionNames.h"

namespace kvx::host {

const QStringList &permissionNames()
{
    static const QStringList names { QStringLiteral("AllProjectReadWrite"),
        QStringLiteral("AllProjectReview"), QStringLiteral("ExportProject"),
        QStringLiteral("ExportUnitRate"), QStringLiteral("UploadReportSetting"),
        QStringLiteral("ReadOnlyRateLibrary"), QStringLiteral("ReadWriteRateLibrary"),
        QStringLiteral("ReadWriteBQLibrary"), QStringLiteral("Administrator") };
    return names;
}

QStringList namesOf(const QMap<KVXRole::RolePermissionType, int> &permissions)
{
    QStringList names;
    for (auto at = permissions.begin(); at != permissions.end(); ++at) {
        if (at.value() != 0)
            names.append(permissionNames().value(at.key()));
    }
    return names;
}

} // namespace kvx::host
