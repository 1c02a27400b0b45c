#include <KVXCollaboration/KVXCWUser.h>

#include <algorithm>
#include <memory>

KVXCWUser::~KVXCWUser()
{
    qDeleteAll(m_roles);
}

void KVXCWUser::addRole(KVXRole *role)
{
    const std::lock_guard<std::mutex> wholeTable(m_mutex);
    if (!role || m_roles.contains(role))
        return;
    m_roles.append(role);
    m_users.append(role->users());
}

void KVXCWUser::removeRole(KVXRole *role)
{
    const std::lock_guard<std::mutex> wholeTable(m_mutex);
    if (!m_roles.removeOne(role))
        return;
    for (KVXUser *user : role->users())
        m_users.removeOne(user);
    delete role;
}

void KVXCWUser::moveRole(KVXRole *role, int place)
{
    const std::lock_guard<std::mutex> wholeTable(m_mutex);
    const int from = m_roles.indexOf(role);
    if (from >= 0)
        m_roles.move(from, std::clamp(place, 0, m_roles.size() - 1));
}

void KVXCWUser::addUser(KVXRole *role, const QString &email)
{
    const std::lock_guard<std::mutex> wholeTable(m_mutex);
    auto user = std::make_unique<KVXUser>(QString(), email);
    if (!m_roles.contains(role) || role->has(user.get()))
        return;
    m_users.append(user.get());
    role->add(user.release());
}

void KVXCWUser::removeUser(KVXRole *role, const QString &email)
{
    const std::lock_guard<std::mutex> wholeTable(m_mutex);
    if (!m_roles.contains(role))
        return;
    for (KVXUser *user : role->users()) {
        if (user->email() == email)
            m_users.removeOne(user);
    }
    role->remove(email);
}
