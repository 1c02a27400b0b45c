#include "store/SessionList.h"
#include "store/Db.h"

namespace kvx::server {

std::vector<ListedSession> listSessions(Db &db, const std::optional<std::int64_t> &userId)
{
    std::vector<ListedSession> sessions;
    using I = std::int64_t;
    using T = std::string;
    db.each<I, I, T, T, T, T, T, Time, Time, Time, I, I>(
        "SELECT s.id, u.id, u.email, s.device, s.address, s.app_version, s.product, s.created, "
        "s.last_seen, s.ends, (SELECT count(*) FROM project p WHERE p.lock_session = s.id), "
        "(SELECT count(*) FROM project_open o WHERE o.session_id = s.id) FROM session s "
        "JOIN users u ON u.id = s.user_id WHERE s.user_id = coalesce(:user, s.user_id) "
        "ORDER BY s.created, s.id",
        { { "user", userId } },
        [&sessions](I id, I user, T email, T device, T address, T version, T product, Time created,
            Time lastSeen, Time ends, I locks, I open) {
            sessions.push_back({ id, user, std::move(email), std::move(device), std::move(address),
                std::move(version), std::move(product), created, lastSeen, ends, locks, open });
        });
    return sessions;
}

} // namespace kvx::server
