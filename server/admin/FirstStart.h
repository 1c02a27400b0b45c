#pragma once

#include "base/Clock.h"

#include <optional>
#include <string>

namespace kvx::server {

class Db;
struct Config;

/// What was made for an empty database.
struct FirstAdministrator {
    std::string email;
    std::string password;
};

/// Raises the schema and, where there is no user yet, makes the four first roles and the first
/// administrator with a random password. With `passwordFile` the password is written there (for its
/// owner only) before anything is committed. Throws DbError, MigrationError, DataFolderError.
std::optional<FirstAdministrator> prepareDatabase(
    Db &db, const Config &config, Time now, const std::string &passwordFile);

/// What a start of the server sets right in the database: stages that no lock holds are dropped,
/// and leases that had not run out when the last server was seen get a full term, since nobody
/// could renew them.
void settleAfterRestart(Db &db, const Config &config, Time now, Time lastSeen);

} // namespace kvx::server
