#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace kvx::server {

class Db;
struct Config;
struct User;

/// The command is understood and not carried out; the text says why. Exit code 1.
class CommandRefused : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What an administration command works with: the database, beside a server that may be running on
/// it. Commands answer in words or as one JSON object.
class AdminSession {
public:
    /// Throws DbError or MigrationError when there is no database of this program's schema.
    AdminSession(const Config &config, bool json);
    ~AdminSession();

    Db &db() { return *m_db; }
    Time now() const { return m_now; }
    bool json() const { return m_json; }

    /// The user of that e-mail; throws CommandRefused when there is none.
    User user(const std::string &email);

    /// A row of the audit log, in the running transaction.
    void audit(
        const std::string &command, const std::string &object, const std::string &detail = {});

    /// Tells all clients that roles or their members changed, in the running transaction.
    void announceRoles(const std::vector<std::string> &emails);

    /// Standard output: the sentence, or {"ok":true,…members}. `members` begins with "," or is
    /// empty.
    int done(const std::string &sentence, const std::string &members = {});

private:
    std::unique_ptr<Db> m_db;
    const Time m_now;
    const bool m_json;
    std::int64_t m_processId = 0;
};

/// A password from the terminal (asked twice, not shown) or the first line of standard input.
/// Throws CommandRefused when it is empty, too long, or the two differ.
std::string readNewPassword();

} // namespace kvx::server
