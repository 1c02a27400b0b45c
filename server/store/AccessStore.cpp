#include "store/AccessStore.h"
#include "base/Config.h"
#include "base/Text.h"
#include "store/Db.h"
#include "store/SessionStore.h"

#include <algorithm>

namespace kvx::server {

int levelByRole(const RoleRights &rights, const std::string &kind)
{
    constexpr int write = 9;
    if (rights.administrator || rights.allProjectReadWrite)
        return write;
    const bool bills = kind == "BQLibrary";
    const bool library = bills || kind == "ResourceLibrary";
    if (library && rights.readWriteRateLibrary)
        return write;
    if (bills && rights.readWriteBQLibrary)
        return write;
    if (rights.allProjectReview || (library && rights.readOnlyRateLibrary))
        return 0;
    return -1;
}

std::optional<ProjectAccess> findProject(Db &db, const Config &config, Time now,
    const std::string &guid, std::int64_t userId, const RoleRights &rights)
{
    if (!isGuid(guid))
        return std::nullopt;
    const auto row = db.row<std::int64_t, std::string, std::string, std::string, std::int64_t,
        std::int64_t, int, bool, int, int, int, int, std::optional<std::int64_t>>(
        "SELECT p.id, p.guid, p.name, p.kind, p.creator_id, p.revision, p.log_version, "
        "CASE WHEN p.file_blob IS NULL THEN 0 ELSE 1 END, coalesce(m.rw, -1), "
        "coalesce(m.money, -1), coalesce(m.addendum, -1), coalesce(m.report, -1), p.plock_session "
        "FROM project p LEFT JOIN project_permission m ON m.project_id = p.id AND m.user_id = "
        ":user "
        "WHERE p.guid_key = :guid AND p.removed_at IS NULL",
        { { "user", userId }, { "guid", guidKey(guid) } });
    if (!row)
        return std::nullopt;

    ProjectAccess access;
    std::optional<std::int64_t> lockSession;
    std::tie(access.id, access.guid, access.name, access.kind, access.creatorId, access.revision,
        access.logVersion, access.hasFile, access.rw, access.money, access.addendum, access.report,
        lockSession)
        = *row;
    const int role = levelByRole(rights, access.kind);
    access.rw = std::max(access.rw, role);
    if (!access.canRead())
        return std::nullopt;
    if (role >= 0)
        access.money = access.addendum = access.report = 9;
    access.owner = rights.administrator || (access.creatorId == userId && access.canWrite());

    if (lockSession) {
        const auto holder = db.row<std::int64_t, std::string, std::string, Time, Time, bool>(
            "SELECT u.id, u.name, u.email, s.last_seen, s.ends, "
            "EXISTS (SELECT 1 FROM log_lock_at_work l WHERE l.lock_session = s.id) "
            "FROM session s JOIN users u ON u.id = s.user_id WHERE s.id = :session",
            { { "session", *lockSession } });
        if (holder && std::get<0>(*holder) != userId
            && isSessionLive(
                config, now, std::get<3>(*holder), std::get<4>(*holder), std::get<5>(*holder))) {
            access.lockedBy = std::get<1>(*holder);
            access.lockedByEmail = std::get<2>(*holder);
        }
    }
    return access;
}

std::vector<HeldProject> projectsHeldBy(Db &db, std::int64_t userId)
{
    std::vector<HeldProject> held;
    db.each<std::int64_t, std::string, std::string, int>(
        "SELECT p.id, p.guid, p.kind, coalesce(m.rw, -1) FROM project p "
        "LEFT JOIN project_permission m ON m.project_id = p.id AND m.user_id = :user "
        "WHERE p.removed_at IS NULL AND p.id IN ("
        "SELECT o.project_id FROM session s JOIN project_open o ON o.session_id = s.id "
        "WHERE s.user_id = :user "
        "UNION SELECT l.id FROM session s JOIN project l ON l.lock_session = s.id "
        "WHERE s.user_id = :user "
        "UNION SELECT l.id FROM session s JOIN project l ON l.plock_session = s.id "
        "WHERE s.user_id = :user "
        "UNION SELECT h.project_id FROM item_holder h WHERE h.user_id = :user AND EXISTS ("
        "SELECT 1 FROM item i WHERE i.project_id = h.project_id AND i.user_id = :user "
        "AND i.state = 1)) ORDER BY p.id",
        { { "user", userId } },
        [&held](std::int64_t id, std::string guid, std::string kind, int storedRw) {
            held.push_back({ id, std::move(guid), std::move(kind), storedRw });
        });
    return held;
}

} // namespace kvx::server
