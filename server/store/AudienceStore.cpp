#include "store/AudienceStore.h"
#include "store/AccessStore.h"
#include "store/Db.h"
#include "store/PermissionStore.h"

namespace kvx::server {

void AudienceStore::load()
{
    m_db.each<std::int64_t, std::string, std::int64_t>(
        "SELECT u.id, u.email, coalesce((SELECT r.id FROM role_user ru JOIN role r "
        "ON r.id = ru.role_id WHERE ru.user_id = u.id ORDER BY r.position, r.id LIMIT 1), 0) "
        "FROM users u WHERE u.disabled = 0 AND u.id IN (SELECT user_id FROM session)",
        {}, [this](std::int64_t userId, std::string email, std::int64_t roleId) {
            m_listeners.push_back({ userId, std::move(email), roleId });
        });
    for (const Role &role : loadRoles(m_db))
        m_roles[role.id] = role.rights;
    m_loaded = true;
}

std::string AudienceStore::of(std::int64_t projectId, const std::string &alsoTo)
{
    std::string emails = alsoTo;
    const auto kind = m_db.value<std::string>(
        "SELECT kind FROM project WHERE id = :id", { { "id", projectId } });
    if (!kind)
        return emails;
    if (!m_loaded)
        load();
    std::unordered_map<std::int64_t, int> stored;
    for (const StoredLevels &row : PermissionStore(m_db).of(projectId))
        stored[row.userId] = row.levels.projectRw;
    for (const Listener &listener : m_listeners) {
        const auto own = stored.find(listener.userId);
        const auto role = m_roles.find(listener.roleId);
        if ((own != stored.end() && own->second >= 0)
            || (role != m_roles.end() && levelByRole(role->second, *kind) >= 0))
            emails += (emails.empty() ? "" : ";") + listener.email;
    }
    return emails;
}

} // namespace kvx::server
