#pragma once

#include <KVXExport.h>
#include <QJsonObject>
#include <QMetaType>
#include <QString>
#include <memory>

class KVXRole;

/// A user as the server names him. A copy carries no role.
class KVXCOLLABORATION_API KVXUser {
public:
    enum KVXUserVersion { UnknownVersion = 0, Basic = 1, Standard = 2, Professional = 3 };

    KVXUser();
    KVXUser(const QString &name, const QString &email);
    KVXUser(const KVXUser &other);
    KVXUser &operator=(const KVXUser &other);
    ~KVXUser();

    const QString &name() const { return m_name; }
    const QString &email() const { return m_email; }

    /// Only of the user who logged in here; never part of the JSON form.
    const QString &password() const { return m_password; }
    void setPassword(const QString &password) { m_password = password; }

    KVXUserVersion version() const { return m_version; }
    void setVersion(const KVXUserVersion &version) { m_version = version; }

    /// Null without a role.
    KVXRole *role() const { return m_role; }
    /// Takes ownership of the role and deletes the one it owned before.
    void setRole(KVXRole *role);

    /// {"Name", "Email", "UserProductVersion"}.
    QJsonObject toJson() const;
    /// The role is borrowed. Owned by the caller.
    static KVXUser *fromJson(KVXRole *role, const QJsonObject &object);

private:
    QString m_name;
    QString m_email;
    QString m_password;
    KVXUserVersion m_version = UnknownVersion;
    KVXRole *m_role = nullptr;
    std::unique_ptr<KVXRole> m_ownedRole;
};
