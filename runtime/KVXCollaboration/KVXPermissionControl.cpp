#include <KVXCollaboration/KVXPermissionControl.h>

#include <KVXCollaboration/KVXCWLogin.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCollaboration/KVXRole.h>
#include <KVXCollaboration/KVXUser.h>

static const KVXRole *currentRole()
{
    const KVXCWLogin *login = KVXCollaborator::getInstance()->loginManager();
    const KVXUser *user = login ? login->currentUser() : nullptr;
    return user ? user->role() : nullptr;
}

KVXPermissionControl *KVXPermissionControl::getInstance()
{
    static KVXPermissionControl instance;
    return &instance;
}

bool KVXPermissionControl::canReadRateLibrary() const
{
    const KVXRole *role = currentRole();
    return canReadWriteRateLibrary() || (role && role->has(KVXRole::ReadOnlyRateLibrary));
}

bool KVXPermissionControl::canReadWriteRateLibrary() const
{
    const KVXRole *role = currentRole();
    return role && (role->has(KVXRole::ReadWriteRateLibrary) || role->isAdministrator());
}
