#include "store/UserStore.h"
#include "store/Db.h"

namespace kvx::server {

namespace {

User userFrom(std::tuple<std::int64_t, std::string, std::string, std::string, bool, int, Time,
    std::optional<Time>>
        row)
{
    User user;
    std::tie(user.id, user.email, user.name, user.password, user.disabled, user.productVersion,
        user.created, user.lastLogin)
        = std::move(row);
    return user;
}

} // namespace

std::optional<User> findUser(Db &db, const std::string &email)
{
    const auto row = db.row<std::int64_t, std::string, std::string, std::string, bool, int, Time,
        std::optional<Time>>(
        "SELECT id, email, name, password, disabled, product_version, created, "
        "last_login FROM users WHERE email = :email AND deleted_at IS NULL",
        { { "email", email } });
    return row ? std::optional(userFrom(*row)) : std::nullopt;
}

std::optional<User> findUser(Db &db, std::int64_t id)
{
    const auto row = db.row<std::int64_t, std::string, std::string, std::string, bool, int, Time,
        std::optional<Time>>(
        "SELECT id, email, name, password, disabled, product_version, created, "
        "last_login FROM users WHERE id = :id",
        { { "id", id } });
    return row ? std::optional(userFrom(*row)) : std::nullopt;
}

std::vector<User> loadUsers(Db &db)
{
    std::vector<User> users;
    for (auto &row :
        db.rows<std::int64_t, std::string, std::string, std::string, bool, int, Time,
            std::optional<Time>>("SELECT id, email, name, password, disabled, product_version, "
                                 "created, last_login FROM users "
                                 "WHERE deleted_at IS NULL ORDER BY email"))
        users.push_back(userFrom(std::move(row)));
    return users;
}

std::int64_t addUser(Db &db, Time now, const std::string &email, const std::string &name,
    const std::string &password)
{
    const auto former = db.value<std::int64_t>(
        "UPDATE users SET name = :name, password = :password, disabled = 0, product_version = 0, "
        "created = :created, last_login = NULL, deleted_at = NULL "
        "WHERE email = :email AND deleted_at IS NOT NULL RETURNING id",
        { { "name", name }, { "password", password }, { "created", now }, { "email", email } });
    if (former)
        return *former;
    const std::int64_t id = nextKey(db, "user");
    db.run("INSERT INTO users (id, email, name, password, created) "
           "VALUES (:id, :email, :name, :password, :created)",
        { { "id", id }, { "email", email }, { "name", name }, { "password", password },
            { "created", now } });
    return id;
}

void setPassword(Db &db, std::int64_t id, const std::string &password)
{
    db.run("UPDATE users SET password = :password WHERE id = :id",
        { { "password", password }, { "id", id } });
}

void deleteUser(Db &db, std::int64_t id, Time now)
{
    db.run("DELETE FROM role_user WHERE user_id = :id", { { "id", id } });
    db.run("DELETE FROM file WHERE owner_kind = 'user' AND owner_id = :id", { { "id", id } });
    db.run("UPDATE users SET password = '', disabled = 1, deleted_at = :now WHERE id = :id",
        { { "now", now }, { "id", id } });
}

void setDisabled(Db &db, std::int64_t id, bool disabled)
{
    db.run("UPDATE users SET disabled = :disabled WHERE id = :id",
        { { "disabled", disabled }, { "id", id } });
}

void setProductVersion(Db &db, std::int64_t id, int version)
{
    db.run("UPDATE users SET product_version = :version WHERE id = :id",
        { { "version", version }, { "id", id } });
}

void noteLogin(Db &db, std::int64_t id, Time now)
{
    db.run("UPDATE users SET last_login = :now WHERE id = :id", { { "now", now }, { "id", id } });
}

} // namespace kvx::server
