#pragma once

#include <KVXCollaboration/KVXRole.h>
#include <KVXCollaboration/KVXUser.h>
#include <KVXExport.h>
#include <QList>
#include <QMap>
#include <QObject>
#include <mutex>

/// The client's copy of the role table. Host thread. The order of the virtual operations is
/// binding.
class KVXCOLLABORATION_API KVXCWUser : public QObject {
    Q_OBJECT
public:
    ~KVXCWUser() override;

    /// Sends the whole local role table to the server.
    virtual bool updateRoles() = 0;
    /// Reads the role table anew; a failure leaves it empty.
    virtual bool syncToLocal() = 0;
    virtual QString extraInfo() = 0;
    /// Tells the server that the user is active; its status code as it stands.
    virtual int keepAlive() = 0;
    virtual bool updateUserProductVersion(KVXUser *user, KVXUser::KVXUserVersion version) = 0;

    /// In the server's order; owned by the manager, replaced by every synchronisation.
    const QList<KVXRole *> &roles() const { return m_roles; }
    /// Every user of every role; owned by the roles.
    const QList<KVXUser *> &users() const { return m_users; }

    // Changes of the local table, which updateRoles sends; a synchronisation undoes what was not
    // sent. Pointers are those of roles().
    /// At the end of the order; takes ownership.
    void addRole(KVXRole *role);
    /// With its users.
    void removeRole(KVXRole *role);
    /// To that place in the order, 0 being the first.
    void moveRole(KVXRole *role, int place);
    /// Does nothing where the role names the user already. The server knows the name.
    void addUser(KVXRole *role, const QString &email);
    void removeUser(KVXRole *role, const QString &email);

    /// The server's answer to the last updateRoles, a KVXErrorCode; 0 where it was not reached.
    int statusCode() const { return m_statusCode; }

    /// True while the application itself changes roles: role notifications are then ignored.
    bool isUpdating() const { return m_updating > 0; }
    void beginUpdate() { ++m_updating; }
    void endUpdate() { m_updating = m_updating > 0 ? m_updating - 1 : 0; }

Q_SIGNALS:
    void currentUserPermissionChanged(const QMap<KVXRole::RolePermissionType, int> &oldPermissions,
        const QMap<KVXRole::RolePermissionType, int> &newPermissions);

protected:
    QList<KVXRole *> m_roles;
    QList<KVXUser *> m_users;
    int m_statusCode = 0;
    std::mutex m_mutex; ///< makes synchronisation and update exclude each other

private:
    int m_updating = 0;
};
