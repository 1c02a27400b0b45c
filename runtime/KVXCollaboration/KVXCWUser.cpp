#include <KVXCollaboration/KVXCWUser.h>

KVXCWUser::~KVXCWUser()
{
    qDeleteAll(m_roles);
}
