#include "store/AudienceStore.h"
#include "store/AccessStore.h"
#include "store/Db.h"

#include <unordered_set>

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
    const auto [place, fresh] = m_audiences.try_emplace(projectId);
    if (fresh)
        place->second = seeing(projectId);
    const char *between = place->second.empty() || alsoTo.empty() ? "" : ";";
    return place->second + between + alsoTo;
}

std::string AudienceStore::seeing(std::int64_t projectId)
{
    const auto kind = m_db.value<std::string>(
        "SELECT kind FROM project WHERE id = :id", { { "id", projectId } });
    if (!kind)
        return {};
    if (!m_loaded)
        load();
    std::unordered_set<std::int64_t> readers;
    m_db.each<std::int64_t>(
        "SELECT user_id FROM project_permission WHERE project_id = :project AND rw >= 0",
        { { "project", projectId } }, [&readers](std::int64_t user) { readers.insert(user); });
    std::string emails;
    for (const Listener &listener : m_listeners) {
        const auto role = m_roles.find(listener.roleId);
        if (readers.count(listener.userId) != 0
            || (role != m_roles.end() && levelByRole(role->second, *kind) >= 0))
            emails += (emails.empty() ? "" : ";") + listener.email;
    }
    return emails;
}

} // namespace kvx::server
