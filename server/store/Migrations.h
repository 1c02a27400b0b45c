#pragma once

#include "base/Clock.h"

#include <stdexcept>
#include <string>
#include <vector>

namespace kvx::server {

class Db;

/// One numbered step of the schema. The texts lie in store/migrations/ and are part of the program.
struct Migration {
    int number;
    std::string name;
    std::string sql;
};

/// The database cannot be used by this program; the text says why, for the operator.
class MigrationError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The steps this program knows, in order.
const std::vector<Migration> &knownMigrations();

/// The steps that the database lacks. Throws MigrationError when a recorded step's text differs
/// from the program's, or when the schema is newer than the program.
std::vector<Migration> pendingMigrations(
    Db &db, const std::vector<Migration> &known = knownMigrations());

/// Applies what is missing, each step in a transaction of its own: a kill leaves the schema before
/// or after a step, never between. Returns the number of steps applied.
int migrate(Db &db, Time now, const std::vector<Migration> &known = knownMigrations());

} // namespace kvx::server
