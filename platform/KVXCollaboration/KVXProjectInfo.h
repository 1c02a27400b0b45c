#pragma once

#include <KVXExport.h>
#include <KVXCollaboration/KVXUser.h>
#include <QDateTime>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QPair>
#include <QString>

/// One shared project as the list shows it.
class KVXCOLLABORATION_API KVXProjectInfo {
public:
    enum Status { Opened = 0, OpenedByOther = 1, Closed = 2 };
    /// Each travels under its own name. Values: -1 none, 0 read, 1 and above read and write,
    /// 9 given by the user's role.
    enum ProjectPermissionType { ProjectRW = 0, Money = 1, Addendum = 2, Report = 3 };
    using Permissions = QMap<ProjectPermissionType, int>;
    using UserPermissions = QList<QPair<KVXUser, Permissions>>;

    /// type is the kind text ("Tender" …).
    KVXProjectInfo(
        const QString &name, const QString &type, Status status, const QDateTime &createDate);

    const QString &name() const { return m_name; }
    void setName(const QString &name) { m_name = name; }
    const QString &type() const { return m_type; }
    Status status() const { return m_status; }
    void status(Status status) { m_status = status; }
    const QDateTime &createDate() const { return m_createDate; }

    const KVXUser &createUser() const { return m_createUser; }
    void setCreateUser(const QString &name, const QString &email);
    const QDateTime &modifiedTime() const { return m_modifiedTime; }
    void setModifiedTime(const QDateTime &time) { m_modifiedTime = time; }
    /// -1 before the first save.
    int logVersion() const { return m_logVersion; }
    void setLogVersion(int version) { m_logVersion = version; }
    const KVXUser &lastEditor() const { return m_lastEditor; }
    void setLastEditor(const QString &name, const QString &email);
    /// With braces, compared letter by letter.
    const QString &guid() const { return m_guid; }
    void setGuid(const QString &guid) { m_guid = guid; }
    /// A decimal text such as "0.00".
    const QString &amount() const { return m_amount; }
    void setAmount(const QString &amount) { m_amount = amount; }
    const QJsonObject &addtionalInfo() const { return m_additionalInfo; }
    void setAddtionalInfo(const QJsonObject &info) { m_additionalInfo = info; }
    /// GUID of the project that this one amends; empty: none.
    const QString &addendumGuid() const { return m_addendumGuid; }
    void setAddendumGuid(const QString &guid) { m_addendumGuid = guid; }
    /// 0 not published, 1 published, above: the host's.
    int projectState() const { return m_projectState; }
    void setProjectState(int state) { m_projectState = state; }
    int bidStatus() const { return m_bidStatus; }
    void setBidStatus(int status) { m_bidStatus = status; }

    /// Enters the user without permissions; nothing happens when he is there already.
    void addCollaborator(const KVXUser &user);
    /// Enters the user where he is missing. Users are told apart by their exact e-mail.
    void setPermission(const KVXUser &user, ProjectPermissionType type, int value);
    /// -1 when the user has no such permission.
    int permission(const KVXUser &user, ProjectPermissionType type) const;
    const UserPermissions &userPermissions() const { return m_userPermissions; }
    void setUserPermissions(const UserPermissions &permissions) { m_userPermissions = permissions; }

    /// The server's record form: "Description" is the name, "ProjectState" text, "AdditionalInfo"
    /// JSON text, dates "yyyy-MM-dd hh:mm".
    QJsonObject toJson() const;

private:
    QString m_name;
    QString m_type;
    Status m_status;
    QDateTime m_createDate;
    KVXUser m_createUser;
    QDateTime m_modifiedTime;
    int m_logVersion = -1;
    KVXUser m_lastEditor;
    QString m_guid;
    QString m_amount;
    QJsonObject m_additionalInfo;
    QString m_addendumGuid;
    int m_projectState = 0;
    int m_bidStatus = 0;
    UserPermissions m_userPermissions;
};
