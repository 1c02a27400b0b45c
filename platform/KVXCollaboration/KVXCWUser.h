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
    std::mutex m_mutex; ///< makes synchronisation and update exclude each other

private:
    int m_updating = 0;
};
