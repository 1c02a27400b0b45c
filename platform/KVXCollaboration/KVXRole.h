#pragma once

#include <KVXExport.h>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QString>

class KVXUser;

/// A role: a name, nine permissions and the users that hold it (owned).
class KVXCOLLABORATION_API KVXRole {
public:
    enum RolePermissionType {
        AllProjectReadWrite = 0,
        AllProjectReview = 1,
        ExportProject = 2,
        ExportUnitRate = 3,
        UploadReportSetting = 4,
        ReadOnlyRateLibrary = 5,
        ReadWriteRateLibrary = 6,
        ReadWriteBQLibrary = 7,
        Administrator = 8
    };

    KVXRole();
    explicit KVXRole(const QString &name);
    ~KVXRole();
    KVXRole(const KVXRole &) = delete;
    KVXRole &operator=(const KVXRole &) = delete;

    const QString &name() const { return m_name; }
    void setName(const QString &name) { m_name = name; }
    /// 0: not yet known to the server.
    int id() const { return m_id; }

    bool has(RolePermissionType type) const;
    bool isAdministrator() const { return has(Administrator); }
    /// All nine, 0 or 1.
    const QMap<RolePermissionType, int> &permissions() const { return m_permissions; }
    void setPermission(RolePermissionType type, int value);

    /// Takes ownership.
    void add(KVXUser *user);
    /// Deletes the user of exactly this e-mail.
    void remove(const QString &email);
    /// True when a user of exactly this e-mail holds the role.
    bool has(const KVXUser *user) const;
    const QList<KVXUser *> &users() const { return m_users; }

    /// Identity, name and permissions, without the users. Owned by the caller.
    KVXRole *clone() const;

    /// {"RoleID", "Name", the nine permissions as 0 or 1, "Revision" where it is known, "users"}.
    QJsonObject toJson() const;
    /// Reads all but "users", which hold a reference to the role. Owned by the caller.
    static KVXRole *fromJson(const QJsonObject &object);

private:
    int m_id = 0;
    int m_revision = -1; ///< of the table it was read from; -1: none
    QString m_name;
    QMap<RolePermissionType, int> m_permissions;
    QList<KVXUser *> m_users;
};
