#include "store/RoleStore.h"
#include "base/JsonText.h"
#include "base/Text.h"
#include "store/Db.h"
#include "store/MetaStore.h"

#include <algorithm>
#include <map>
#include <sstream>

namespace kvx::server {

namespace {

template <class Columns> Role roleFrom(const Columns &row)
{
    Role role;
    role.id = std::get<0>(row);
    role.name = std::get<1>(row);
    role.rights = { std::get<2>(row), std::get<3>(row), std::get<4>(row), std::get<5>(row),
        std::get<6>(row), std::get<7>(row), std::get<8>(row), std::get<9>(row), std::get<10>(row) };
    return role;
}

constexpr const char *latestChangeKey = "roles.latest";

} // namespace

const std::array<RightName, 9> rightNames { {
    { "AllProjectReadWrite", &RoleRights::allProjectReadWrite },
    { "AllProjectReview", &RoleRights::allProjectReview },
    { "ExportProject", &RoleRights::exportProject },
    { "ExportUnitRate", &RoleRights::exportUnitRate },
    { "UploadReportSetting", &RoleRights::uploadReportSetting },
    { "ReadOnlyRateLibrary", &RoleRights::readOnlyRateLibrary },
    { "ReadWriteRateLibrary", &RoleRights::readWriteRateLibrary },
    { "ReadWriteBQLibrary", &RoleRights::readWriteBQLibrary },
    { "Administrator", &RoleRights::administrator },
} };

bool RoleRights::operator==(const RoleRights &other) const
{
    return std::all_of(rightNames.begin(), rightNames.end(),
        [&](const RightName &name) { return this->*name.right == other.*name.right; });
}

std::vector<Role> loadRoles(Db &db)
{
    std::vector<Role> roles;
    std::map<std::int64_t, std::size_t> places;
    for (const auto &row :
        db.rows<std::int64_t, std::string, bool, bool, bool, bool, bool, bool, bool, bool, bool>(
            "SELECT id, name, all_project_read_write, all_project_review, export_project, "
            "export_unit_rate, upload_report_setting, read_only_rate_library, "
            "read_write_rate_library, read_write_bq_library, administrator "
            "FROM role ORDER BY position, id")) {
        places[std::get<0>(row)] = roles.size();
        roles.push_back(roleFrom(row));
    }
    db.each<std::int64_t, std::int64_t, std::string, std::string, int>(
        "SELECT ru.role_id, u.id, u.name, u.email, u.product_version FROM role_user ru "
        "JOIN users u ON u.id = ru.user_id ORDER BY u.email",
        {},
        [&](std::int64_t roleId, std::int64_t userId, std::string name, std::string email,
            int version) {
            roles[places.at(roleId)].members.push_back(
                { userId, std::move(name), std::move(email), version });
        });
    return roles;
}

std::optional<Role> firstRoleOf(Db &db, std::int64_t userId)
{
    // Sorted here: this is asked with every request, and the database would set up a sorter.
    const auto rows = db.rows<std::int64_t, std::string, bool, bool, bool, bool, bool, bool, bool,
        bool, bool, std::int64_t>(
        "SELECT r.id, r.name, r.all_project_read_write, r.all_project_review, r.export_project, "
        "r.export_unit_rate, r.upload_report_setting, r.read_only_rate_library, "
        "r.read_write_rate_library, r.read_write_bq_library, r.administrator, r.position "
        "FROM role_user ru JOIN role r ON r.id = ru.role_id WHERE ru.user_id = :user",
        { { "user", userId } });
    const auto first = std::min_element(rows.begin(), rows.end(), [](const auto &a, const auto &b) {
        return std::tie(std::get<11>(a), std::get<0>(a))
            < std::tie(std::get<11>(b), std::get<0>(b));
    });
    return first != rows.end() ? std::optional(roleFrom(*first)) : std::nullopt;
}

std::optional<std::int64_t> findRole(Db &db, const std::string &name)
{
    return db.value<std::int64_t>(
        "SELECT id FROM role WHERE name_key = :key", { { "key", foldedKey(name) } });
}

std::vector<Account> loadAccounts(Db &db)
{
    std::vector<Account> accounts;
    db.each<std::int64_t, std::string, bool>(
        "SELECT id, email, disabled FROM users WHERE deleted_at IS NULL", {},
        [&accounts](std::int64_t id, std::string email, bool disabled) {
            accounts.push_back({ id, std::move(email), disabled });
        });
    return accounts;
}

std::int64_t addRole(Db &db, const std::string &name, const RoleRights &rights)
{
    const std::int64_t id = nextKey(db, "role");
    const auto position = db.value<std::int64_t>("SELECT coalesce(max(position), 0) + 1 FROM role");
    db.run("INSERT INTO role (id, name, name_key, position, all_project_read_write, "
           "all_project_review, export_project, export_unit_rate, upload_report_setting, "
           "read_only_rate_library, read_write_rate_library, read_write_bq_library, administrator) "
           "VALUES (:id, :name, :key, :position, :readwrite, :review, :export, :rate, :report, "
           ":libread, :libwrite, :bqwrite, :admin)",
        { { "id", id }, { "name", name }, { "key", foldedKey(name) }, { "position", *position },
            { "readwrite", rights.allProjectReadWrite }, { "review", rights.allProjectReview },
            { "export", rights.exportProject }, { "rate", rights.exportUnitRate },
            { "report", rights.uploadReportSetting }, { "libread", rights.readOnlyRateLibrary },
            { "libwrite", rights.readWriteRateLibrary }, { "bqwrite", rights.readWriteBQLibrary },
            { "admin", rights.administrator } });
    return id;
}

void setRole(
    Db &db, std::int64_t id, const std::string &name, const RoleRights &rights, int position)
{
    db.run("UPDATE role SET name = :name, name_key = :key, position = :position, "
           "all_project_read_write = :readwrite, all_project_review = :review, "
           "export_project = :export, export_unit_rate = :rate, upload_report_setting = :report, "
           "read_only_rate_library = :libread, read_write_rate_library = :libwrite, "
           "read_write_bq_library = :bqwrite, administrator = :admin WHERE id = :id",
        { { "id", id }, { "name", name }, { "key", foldedKey(name) }, { "position", position },
            { "readwrite", rights.allProjectReadWrite }, { "review", rights.allProjectReview },
            { "export", rights.exportProject }, { "rate", rights.exportUnitRate },
            { "report", rights.uploadReportSetting }, { "libread", rights.readOnlyRateLibrary },
            { "libwrite", rights.readWriteRateLibrary }, { "bqwrite", rights.readWriteBQLibrary },
            { "admin", rights.administrator } });
}

void setRoleMembers(Db &db, std::int64_t id, const std::vector<std::int64_t> &users)
{
    db.run("DELETE FROM role_user WHERE role_id = :role", { { "role", id } });
    for (const std::int64_t user : users)
        assignRole(db, id, user);
}

void removeRole(Db &db, std::int64_t id)
{
    db.run("DELETE FROM role_user WHERE role_id = :role", { { "role", id } });
    db.run("DELETE FROM role WHERE id = :role", { { "role", id } });
}

void releaseRoleNames(Db &db)
{
    // No folded name has a line feed in it.
    db.run("UPDATE role SET name_key = '\n' || id");
}

bool assignRole(Db &db, std::int64_t roleId, std::int64_t userId)
{
    return db.run("INSERT INTO role_user (role_id, user_id) VALUES (:role, :user) "
                  "ON CONFLICT (role_id, user_id) DO NOTHING",
               { { "role", roleId }, { "user", userId } })
        == 1;
}

bool unassignRole(Db &db, std::int64_t roleId, std::int64_t userId)
{
    return db.run("DELETE FROM role_user WHERE role_id = :role AND user_id = :user",
               { { "role", roleId }, { "user", userId } })
        == 1;
}

std::int64_t countEnabledAdministrators(Db &db)
{
    std::int64_t count = 0;
    for (const auto &[userId] : db.rows<std::int64_t>(
             "SELECT DISTINCT u.id FROM users u JOIN role_user ru ON ru.user_id = u.id "
             "JOIN role r ON r.id = ru.role_id WHERE u.disabled = 0 AND r.administrator = 1")) {
        const auto role = firstRoleOf(db, userId);
        count += role && role->rights.administrator;
    }
    return count;
}

std::int64_t rolesRevision(Db &db)
{
    return std::stoll(metaValue(db, "roles").value_or("0"));
}

std::int64_t raiseRolesRevision(Db &db, std::int64_t session)
{
    const std::int64_t before = rolesRevision(db);
    const LatestRolesChange latest = latestRolesChange(db);
    const std::int64_t since = session != 0 && latest.session == session ? latest.since : before;
    setMetaValue(db, "roles", std::to_string(before + 1));
    setMetaValue(db, latestChangeKey, std::to_string(session) + ' ' + std::to_string(since));
    return before + 1;
}

LatestRolesChange latestRolesChange(Db &db)
{
    LatestRolesChange latest;
    std::istringstream text(metaValue(db, latestChangeKey).value_or("0 0"));
    text >> latest.session >> latest.since;
    return latest;
}

std::string roleJson(const Role &role, std::int64_t revision, bool withUsers)
{
    std::string json
        = "{\"RoleID\":" + std::to_string(role.id) + ",\"Name\":" + jsonText(role.name);
    for (const RightName &name : rightNames)
        json += std::string(",\"") + name.key + (role.rights.*name.right ? "\":1" : "\":0");
    json += ",\"Revision\":" + std::to_string(revision);
    if (withUsers) {
        json += ",\"users\":[";
        for (const RoleMember &member : role.members) {
            if (json.back() != '[')
                json += ',';
            json += "{\"Name\":" + jsonText(member.name) + ",\"Email\":" + jsonText(member.email)
                + ",\"UserProductVersion\":" + std::to_string(member.productVersion) + '}';
        }
        json += ']';
    }
    return json + '}';
}

} // namespace kvx::server
