#include "login/CurrentUser.h"

#include <KVXCollaboration/KVXCWLogin.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCollaboration/KVXUser.h>

namespace kvx {

KVXUser *currentUser()
{
    const KVXCWLogin *login = KVXCollaborator::getInstance()->loginManager();
    return login ? login->currentUser() : nullptr;
}

QString currentUserEmail()
{
    const KVXUser *user = currentUser();
    return user ? user->email() : QString();
}

QString currentUserName()
{
    const KVXUser *user = currentUser();
    return user ? user->name() : QString();
}

} // namespace kvx
