#include <KVXCollaboration/KVXUser.h>

#include "WholeNumber.h"

#include <KVXCollaboration/KVXRole.h>

KVXUser::KVXUser() = default;

KVXUser::KVXUser(const QString &name, const QString &email)
    : m_name(name)
    , m_email(email)
{
}

KVXUser::KVXUser(const KVXUser &other)
    : m_name(other.m_name)
    , m_email(other.m_email)
    , m_password(other.m_password)
    , m_version(other.m_version)
{
}

KVXUser &KVXUser::operator=(const KVXUser &other)
{
    if (this == &other)
        return *this;
    m_name = other.m_name;
    m_email = other.m_email;
    m_password = other.m_password;
    m_version = other.m_version;
    setRole(nullptr);
    return *this;
}

KVXUser::~KVXUser() = default;

void KVXUser::setRole(KVXRole *role)
{
    m_role = role;
    if (m_ownedRole.get() != role)
        m_ownedRole.reset(role);
}

QJsonObject KVXUser::toJson() const
{
    return { { QStringLiteral("Name"), m_name }, { QStringLiteral("Email"), m_email },
        { QStringLiteral("UserProductVersion"), static_cast<int>(m_version) } };
}

KVXUser *KVXUser::fromJson(KVXRole *role, const QJsonObject &object)
{
    auto *user = new KVXUser(object.value(QLatin1String("Name")).toString(),
        object.value(QLatin1String("Email")).toString());
    const int version = wholeNumber(object.value(QLatin1String("UserProductVersion")));
    if (version >= UnknownVersion && version <= Professional)
        user->m_version = static_cast<KVXUserVersion>(version);
    user->m_role = role;
    return user;
}
