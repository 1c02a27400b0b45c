#include "store/PermissionStore.h"
#include "store/Db.h"

namespace kvx::server {

using I = std::int64_t;

std::optional<Levels> PermissionStore::of(std::int64_t projectId, std::int64_t userId)
{
    std::optional<Levels> found;
    m_db.each<int, int, int, int>("SELECT rw, money, addendum, report FROM project_permission"
                                  " WHERE project_id = :project AND user_id = :user",
        { { "project", projectId }, { "user", userId } },
        [&found](int rw, int money, int addendum, int report) {
            found = Levels { rw, money, addendum, report };
        });
    return found;
}

std::vector<StoredLevels> PermissionStore::of(std::int64_t projectId)
{
    std::vector<StoredLevels> found;
    m_db.each<I, std::string, std::string, int, int, int, int>(
        "SELECT u.id, u.name, u.email, p.rw, p.money, p.addendum, p.report"
        " FROM project_permission p JOIN users u ON u.id = p.user_id"
        " WHERE p.project_id = :project ORDER BY u.name, u.email",
        { { "project", projectId } },
        [&found](I id, std::string name, std::string email, int rw, int money, int addendum,
            int report) {
            found.push_back(
                { id, std::move(name), std::move(email), { rw, money, addendum, report } });
        });
    return found;
}

std::vector<PermissionStore::InProject> PermissionStore::all()
{
    std::vector<InProject> found;
    m_db.each<I, I, std::string, std::string, int, int, int, int>(
        "SELECT p.project_id, u.id, u.name, u.email, p.rw, p.money, p.addendum, p.report"
        " FROM project_permission p JOIN users u ON u.id = p.user_id ORDER BY p.project_id, "
        "u.name, u.email",
        {},
        [&found](I project, I id, std::string name, std::string email, int rw, int money,
            int addendum, int report) {
            found.push_back({ project,
                { id, std::move(name), std::move(email), { rw, money, addendum, report } } });
        });
    return found;
}

std::vector<PermissionStore::OfUser> PermissionStore::ofUser(std::int64_t userId)
{
    std::vector<OfUser> found;
    m_db.each<I, int, int, int, int>(
        "SELECT project_id, rw, money, addendum, report FROM project_permission"
        " WHERE user_id = :user ORDER BY project_id",
        { { "user", userId } }, [&found](I project, int rw, int money, int addendum, int report) {
            found.push_back({ project, { rw, money, addendum, report } });
        });
    return found;
}

std::vector<PermissionStore::WithRole> PermissionStore::usersWithRole()
{
    std::vector<WithRole> found;
    m_db.each<I, std::string, std::string, I, std::optional<I>>(
        "SELECT u.id, u.name, u.email, r.id, u.last_login FROM role_user ru"
        " JOIN users u ON u.id = ru.user_id JOIN role r ON r.id = ru.role_id"
        " WHERE u.disabled = 0 ORDER BY u.name, u.email, u.id, r.position",
        {}, [&found](I user, std::string name, std::string email, I role, std::optional<I> login) {
            if (found.empty() || found.back().userId != user)
                found.push_back({ user, std::move(name), std::move(email), role, login });
        });
    return found;
}

void PermissionStore::set(std::int64_t projectId, std::int64_t userId, const Levels &levels)
{
    m_db.run(
        "INSERT INTO project_permission (project_id, user_id, rw, money, addendum, report)"
        " VALUES (:project, :user, :rw, :money, :addendum, :report)"
        " ON CONFLICT (project_id, user_id) DO UPDATE SET rw = excluded.rw, money = excluded.money,"
        " addendum = excluded.addendum, report = excluded.report",
        { { "project", projectId }, { "user", userId }, { "rw", levels.projectRw },
            { "money", levels.money }, { "addendum", levels.addendum },
            { "report", levels.report } });
}

void PermissionStore::clear(std::int64_t projectId, std::int64_t userId)
{
    m_db.run("DELETE FROM project_permission WHERE project_id = :project AND user_id = :user",
        { { "project", projectId }, { "user", userId } });
}

void PermissionStore::copyForAddendum(std::int64_t fromProject, std::int64_t toProject)
{
    m_db.run("INSERT INTO project_permission (project_id, user_id, rw, money, addendum, report)"
             " SELECT :target, user_id, rw, money, addendum, report FROM project_permission"
             " WHERE project_id = :source AND addendum <> -1 ON CONFLICT (project_id, user_id) DO "
             "NOTHING",
        { { "target", toProject }, { "source", fromProject } });
}

} // namespace kvx::server
