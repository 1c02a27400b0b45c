#include <KVXCollaboration/KVXProjectInfo.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <algorithm>

static QString dateText(const QDateTime &date)
{
    return date.toString(QStringLiteral("yyyy-MM-dd hh:mm"));
}

static QJsonArray permissionArray(const KVXProjectInfo::Permissions &permissions)
{
    // In the order of ProjectPermissionType.
    static constexpr const char *keys[] = { "ProjectRW", "Money", "Addendum", "Report" };
    QJsonArray array;
    for (int type = KVXProjectInfo::ProjectRW; type <= KVXProjectInfo::Report; ++type) {
        const auto value
            = permissions.find(static_cast<KVXProjectInfo::ProjectPermissionType>(type));
        if (value != permissions.end())
            array.append(QJsonObject { { QLatin1String(keys[type]), *value } });
    }
    return array;
}

template <class List> static auto findUser(List &list, const KVXUser &user)
{
    return std::find_if(list.begin(), list.end(),
        [&user](const auto &entry) { return entry.first.email() == user.email(); });
}

KVXProjectInfo::KVXProjectInfo(
    const QString &name, const QString &type, Status status, const QDateTime &createDate)
    : m_name(name)
    , m_type(type)
    , m_status(status)
    , m_createDate(createDate)
{
}

void KVXProjectInfo::setCreateUser(const QString &name, const QString &email)
{
    m_createUser = KVXUser(name, email);
}

void KVXProjectInfo::setLastEditor(const QString &name, const QString &email)
{
    m_lastEditor = KVXUser(name, email);
}

void KVXProjectInfo::addCollaborator(const KVXUser &user)
{
    if (findUser(m_userPermissions, user) == m_userPermissions.end())
        m_userPermissions.append({ user, {} });
}

void KVXProjectInfo::setPermission(const KVXUser &user, ProjectPermissionType type, int value)
{
    addCollaborator(user);
    findUser(m_userPermissions, user)->second.insert(type, value);
}

int KVXProjectInfo::permission(const KVXUser &user, ProjectPermissionType type) const
{
    const auto entry = findUser(m_userPermissions, user);
    return entry == m_userPermissions.end() ? -1 : entry->second.value(type, -1);
}

QJsonObject KVXProjectInfo::toJson() const
{
    QJsonArray users;
    for (const auto &entry : m_userPermissions) {
        users.append(QJsonObject { { QStringLiteral("Name"), entry.first.name() },
            { QStringLiteral("Email"), entry.first.email() },
            { QStringLiteral("Permission"), permissionArray(entry.second) } });
    }
    const QByteArray additionalInfo
        = QJsonDocument(m_additionalInfo).toJson(QJsonDocument::Compact);
    return {
        { QStringLiteral("ProjectGUID"), m_guid },
        { QStringLiteral("Description"), m_name },
        { QStringLiteral("Type"), m_type },
        { QStringLiteral("CreatorName"), m_createUser.name() },
        { QStringLiteral("CreatorEmail"), m_createUser.email() },
        { QStringLiteral("CreateDate"), dateText(m_createDate) },
        { QStringLiteral("LastEditorName"), m_lastEditor.name() },
        { QStringLiteral("LastEditorEmail"), m_lastEditor.email() },
        { QStringLiteral("LastModifyDate"), dateText(m_modifiedTime) },
        { QStringLiteral("LogVersion"), m_logVersion },
        { QStringLiteral("Amount"), m_amount },
        { QStringLiteral("ProjectState"), QString::number(m_projectState) },
        { QStringLiteral("BidStatus"), m_bidStatus },
        { QStringLiteral("AddendumProjectGUID"), m_addendumGuid },
        { QStringLiteral("AdditionalInfo"), QString::fromUtf8(additionalInfo) },
        { QStringLiteral("users"), users },
    };
}
