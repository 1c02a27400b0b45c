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
        "last_login FROM users WHERE email = :email",
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
                                 "created, last_login FROM users ORDER BY email"))
        users.push_back(userFrom(std::move(row)));
    return users;
}

std::int64_t addUser(Db &db, Time now, const std::string &email, const std::string &name,
    const std::string &password)
{
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
