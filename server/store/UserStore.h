#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kvx::server {

class Db;

struct User {
    std::int64_t id = 0;
    std::string email; ///< canonical
    std::string name;
    std::string password; ///< Argon2id string, never sent anywhere
    bool disabled = false;
    int productVersion = 0; ///< 0 unknown, 1 basic, 2 standard, 3 professional
    Time created = 0;
    std::optional<Time> lastLogin;
};

/// `email` in canonical form. A deleted account is found by its key alone.
std::optional<User> findUser(Db &db, const std::string &email);
std::optional<User> findUser(Db &db, std::int64_t id);
std::vector<User> loadUsers(Db &db);

/// Throws DbError (unique) when the e-mail is in use. That of a deleted account makes the account
/// anew: an e-mail stands for one user in everything that was ever recorded.
std::int64_t addUser(Db &db, Time now, const std::string &email, const std::string &name,
    const std::string &password);

void setPassword(Db &db, std::int64_t id, const std::string &password);
/// Takes the password, the roles and the files of the user's own area; name and e-mail stay, for
/// what he is the author of.
void deleteUser(Db &db, std::int64_t id, Time now);
void setDisabled(Db &db, std::int64_t id, bool disabled);
void setProductVersion(Db &db, std::int64_t id, int version);
void noteLogin(Db &db, std::int64_t id, Time now);

} // namespace kvx::server
