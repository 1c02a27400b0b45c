#pragma once

#include <KVXCollaboration/KVXCWUser.h>
#include <QJsonObject>

/// The role table, kept in memory and filled from the server when the manager is made. Host
/// thread; a synchronisation and an update exclude each other whatever threads they run on.
/// Nothing is sent while the server is not configured.
class KVXCWUserImpl : public KVXCWUser {
    Q_OBJECT
public:
    using Permissions = QMap<KVXRole::RolePermissionType, int>;

    /// Listens to the messager; notifications wait for the event loop.
    KVXCWUserImpl();

    bool updateRoles() override;
    /// On success the current user gets a copy of the first role that names him; named by none, he
    /// keeps the one he has.
    bool syncToLocal() override;
    /// Always empty.
    QString extraInfo() override;
    /// 0 without a server.
    int keepAlive() override;
    /// Changes the user object only when the server agreed.
    bool updateUserProductVersion(KVXUser *user, KVXUser::KVXUserVersion version) override;

public Q_SLOTS:
    /// One notification of the server: on a role change by somebody else the table is read anew
    /// and currentUserPermissionChanged emitted. A receiver may log out.
    void onNotify(const QJsonObject &message);

private:
    bool fetchRoles();
    void giveCurrentUserHisRole() const;
    Permissions permissionsOf(const QString &email) const;
};
