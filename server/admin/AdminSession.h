#pragma once

#include "admin/AdminCommand.h"
#include "services/Call.h"
#include "store/Db.h"
#include "store/ProjectStore.h"
#include "store/UserStore.h"

#include <cstdint>
#include <memory>
#include <string>

namespace kvx::server {

class Listing;
struct Config;

/// What an administration command works with: the database, beside a server that may be running on
/// it. Commands answer in words or as one JSON object.
class AdminSession {
public:
    /// `command` is the name for the audit log: "user add". Throws DbError or MigrationError when
    /// there is no database of this program's schema.
    AdminSession(const Config &config, std::string command, bool json);

    Db &db() { return m_db; }
    const Config &config() const { return m_config; }
    const Clock &clock() const { return m_clock; }
    Time now() const { return m_clock.now(); }
    const std::string &command() const { return m_command; }
    bool json() const { return m_json; }

    /// The user of that e-mail; throws CommandRefused when there is none.
    User user(const std::string &email);
    /// The project of that GUID, with or without braces, or of that name. Throws CommandRefused
    /// when there is none, or when several removed ones have the name.
    Project project(const std::string &guidOrName); ///< living
    Project removedProject(const std::string &guidOrName);
    Project anyProject(const std::string &guidOrName); ///< a living one before a removed one

    /// Standard output: the sentence, or {"ok":true,…members}. `members` begins with "," or is
    /// empty.
    int done(const std::string &sentence, const std::string &members = {});
    /// Standard output: the table, or {"ok":true,"<key>":[…]}.
    int done(const std::string &key, const Listing &listing);

private:
    std::optional<Project> find(const std::string &guidOrName, bool removed);

    const Config &m_config;
    Db m_db;
    const Clock m_clock;
    const std::string m_command;
    const bool m_json;
};

/// One change: a writing transaction, taken back unless it is committed, and the call on which the
/// functions of the services work as they do for a request. The server that runs on the same
/// database finds the announcements by itself.
class AdminChange {
public:
    explicit AdminChange(AdminSession &session);

    Call &call() { return m_call; }
    Db &db() { return m_call.db(); }
    Time now() const { return m_call.now(); }

    /// A row of the audit log: the command, who ran it, and on what.
    void audit(const std::string &object, const std::string &detail = {},
        const std::optional<std::int64_t> &projectId = std::nullopt);
    void commit() { m_transaction.commit(); }

private:
    Transaction m_transaction;
    const Environment m_environment;
    const std::shared_ptr<const Request> m_request;
    Call m_call;
};

/// The operating-system user who runs the command, as the audit log names him.
std::string systemUser();

} // namespace kvx::server
