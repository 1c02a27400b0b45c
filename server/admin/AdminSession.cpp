#include "admin/AdminSession.h"
#include "admin/Listing.h"
#include "base/Config.h"
#include "base/Text.h"
#include "store/AuditStore.h"
#include "store/MetaStore.h"
#include "store/Migrations.h"
#include "store/ProcessStore.h"

#include <cstdlib>
#include <iostream>
#include <pwd.h>
#include <unistd.h>

namespace kvx::server {

namespace {

/// As the running server counts, which never goes below what it has stored.
Time highestTime(Db &db)
{
    if (!pendingMigrations(db).empty())
        throw MigrationError("the database has an older schema; run \"kvx-server migrate\" first");
    return std::stoll(metaValue(db, "clock").value_or("0"));
}

/// A server that writes without a pause leaves only moments between two requests, and who waits for
/// one of them has no turn: one waiting time of the database may pass without any.
Transaction beginAmongRequests(Db &db)
{
    constexpr int tries = 6;
    for (int i = 1;; ++i) {
        try {
            return Transaction(db, Transaction::Kind::Write);
        } catch (const DbError &error) {
            if (error.kind() != DbError::Kind::Busy || i == tries)
                throw;
        }
    }
}

std::string noProject(const std::string &guidOrName, const char *kind)
{
    return std::string("there is no ") + kind + " \"" + guidOrName + '"';
}

} // namespace

AdminSession::AdminSession(const Config &config, std::string command, bool json)
    : m_config(config)
    , m_db(config.databaseFile())
    , m_clock(highestTime(m_db))
    , m_command(std::move(command))
    , m_json(json)
{
}

User AdminSession::user(const std::string &email)
{
    const auto found = findUser(db(), canonicalEmail(email));
    if (!found)
        throw CommandRefused("there is no user \"" + email + "\"");
    return *found;
}

std::optional<Project> AdminSession::find(const std::string &guidOrName, bool removed)
{
    ProjectStore projects(db());
    for (const std::string &guid : { guidOrName, '{' + guidOrName + '}' }) {
        const auto found = isGuid(guid) ? projects.find(guid) : std::nullopt;
        if (found && found->isRemoved() == removed)
            return found;
    }
    const std::vector<std::int64_t> named = projects.named(guidOrName, removed);
    if (named.size() > 1)
        throw CommandRefused("several removed projects are named \"" + guidOrName
            + "\"; give the GUID (project list --removed)");
    return named.empty() ? std::nullopt : projects.find(named.front());
}

Project AdminSession::project(const std::string &guidOrName)
{
    const auto found = find(guidOrName, false);
    if (!found)
        throw CommandRefused(noProject(guidOrName, "project"));
    return *found;
}

Project AdminSession::removedProject(const std::string &guidOrName)
{
    const auto found = find(guidOrName, true);
    if (!found)
        throw CommandRefused(noProject(guidOrName, "removed project"));
    return *found;
}

Project AdminSession::anyProject(const std::string &guidOrName)
{
    const auto living = find(guidOrName, false);
    const auto found = living ? living : find(guidOrName, true);
    if (!found)
        throw CommandRefused(noProject(guidOrName, "project"));
    return *found;
}

int AdminSession::done(const std::string &sentence, const std::string &members)
{
    if (m_json)
        std::cout << "{\"ok\":true" << members << "}\n";
    else
        std::cout << sentence << '\n';
    return 0;
}

int AdminSession::done(const std::string &key, const Listing &listing)
{
    if (m_json)
        return done({}, ",\"" + key + "\":" + listing.json());
    return done(listing.table());
}

AdminChange::AdminChange(AdminSession &session)
    : m_transaction(beginAmongRequests(session.db()))
    , m_environment { session.config(), session.clock(),
        metaValue(session.db(), "epoch").value_or(""),
        registerProcess(session.db(), session.now()) }
    , m_request(Request::parse({}, session.command()))
    , m_call(m_environment, session.db(), *m_request)
{
}

void AdminChange::audit(const std::string &object, const std::string &detail,
    const std::optional<std::int64_t> &projectId)
{
    AuditEntry entry;
    entry.address = systemUser();
    entry.service = m_request->service();
    entry.projectId = projectId;
    entry.object = object;
    entry.detail = detail;
    addAudit(db(), m_environment.processId, now(), entry);
}

std::string systemUser()
{
    const uid_t id = getuid();
    passwd entry {};
    passwd *found = nullptr;
    char names[4096];
    getpwuid_r(id, &entry, names, sizeof names, &found);
    std::string user = found ? found->pw_name : std::to_string(id);
    // Who became root keeps the name he came with.
    const char *before = std::getenv("SUDO_USER");
    if (id == 0 && before && *before)
        user += std::string(" for ") + before;
    return "system user " + (isValidUtf8(user) ? user : std::to_string(id));
}

} // namespace kvx::server
