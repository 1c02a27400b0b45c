#include <KVXCollaboration/KVXRole.h>

#include "WholeNumber.h"

#include <KVXCollaboration/KVXUser.h>
#include <QJsonArray>
#include <QLatin1String>
#include <algorithm>
#include <iterator>

// In the order of RolePermissionType.
static constexpr const char *permissionKeys[] = { "AllProjectReadWrite", "AllProjectReview",
    "ExportProject", "ExportUnitRate", "UploadReportSetting", "ReadOnlyRateLibrary",
    "ReadWriteRateLibrary", "ReadWriteBQLibrary", "Administrator" };
static_assert(std::size(permissionKeys) == KVXRole::Administrator + 1);

static KVXRole::RolePermissionType permissionType(std::size_t index)
{
    return static_cast<KVXRole::RolePermissionType>(index);
}

KVXRole::KVXRole()
{
    for (std::size_t index = 0; index < std::size(permissionKeys); ++index)
        m_permissions.insert(permissionType(index), 0);
}

KVXRole::KVXRole(const QString &name)
    : KVXRole()
{
    m_name = name;
}

KVXRole::~KVXRole()
{
    qDeleteAll(m_users);
}

bool KVXRole::has(RolePermissionType type) const
{
    return m_permissions.value(type) != 0;
}

void KVXRole::setPermission(RolePermissionType type, int value)
{
    if (m_permissions.contains(type))
        m_permissions.insert(type, value != 0 ? 1 : 0);
}

void KVXRole::add(KVXUser *user)
{
    if (user && !m_users.contains(user))
        m_users.append(user);
}

void KVXRole::remove(const QString &email)
{
    const QString removed = email; // the caller's text may live in the user
    for (int i = m_users.size() - 1; i >= 0; --i) {
        if (m_users.at(i)->email() == removed)
            delete m_users.takeAt(i);
    }
}

bool KVXRole::has(const KVXUser *user) const
{
    return user && std::any_of(m_users.begin(), m_users.end(), [user](const KVXUser *holder) {
        return holder->email() == user->email();
    });
}

KVXRole *KVXRole::clone() const
{
    auto *role = new KVXRole(m_name);
    role->m_id = m_id;
    role->m_revision = m_revision;
    role->m_permissions = m_permissions;
    return role;
}

QJsonObject KVXRole::toJson() const
{
    QJsonObject object { { QStringLiteral("RoleID"), m_id }, { QStringLiteral("Name"), m_name } };
    for (std::size_t index = 0; index < std::size(permissionKeys); ++index) {
        object.insert(
            QLatin1String(permissionKeys[index]), m_permissions.value(permissionType(index)));
    }
    // A role made here has no revision; sending one would make the server see a stale table.
    if (m_revision >= 0)
        object.insert(QStringLiteral("Revision"), m_revision);
    QJsonArray users;
    for (const KVXUser *user : m_users)
        users.append(user->toJson());
    object.insert(QStringLiteral("users"), users);
    return object;
}

KVXRole *KVXRole::fromJson(const QJsonObject &object)
{
    auto *role = new KVXRole(object.value(QLatin1String("Name")).toString());
    role->m_id = wholeNumber(object.value(QLatin1String("RoleID")));
    const QJsonValue revision = object.value(QLatin1String("Revision"));
    if (revision.isDouble())
        role->m_revision = wholeNumber(revision);
    for (std::size_t index = 0; index < std::size(permissionKeys); ++index) {
        role->setPermission(
            permissionType(index), wholeNumber(object.value(QLatin1String(permissionKeys[index]))));
    }
    return role;
}
