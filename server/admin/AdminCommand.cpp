#include "admin/AdminCommand.h"
#include "base/Config.h"
#include "base/JsonText.h"
#include "base/Text.h"
#include "store/AuditStore.h"
#include "store/Db.h"
#include "store/Migrations.h"
#include "store/OutboxStore.h"
#include "store/ProcessStore.h"
#include "store/RoleStore.h"
#include "store/UserStore.h"

#include <iostream>
#include <termios.h>
#include <unistd.h>

namespace kvx::server {

namespace {

constexpr std::size_t longestPassword = 1024;

std::string askHidden(const char *question)
{
    termios shown {};
    tcgetattr(STDIN_FILENO, &shown);
    termios hidden = shown;
    hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(STDIN_FILENO, TCSANOW, &hidden);
    std::cerr << question << std::flush;
    std::string line;
    std::getline(std::cin, line);
    tcsetattr(STDIN_FILENO, TCSANOW, &shown);
    std::cerr << '\n';
    return line;
}

} // namespace

AdminSession::AdminSession(const Config &config, bool json)
    : m_db(std::make_unique<Db>(config.databaseFile()))
    , m_now(wallTime())
    , m_json(json)
{
    if (!pendingMigrations(*m_db).empty())
        throw MigrationError("the database has an older schema; run \"kvx-server migrate\" first");
}

AdminSession::~AdminSession() = default;

User AdminSession::user(const std::string &email)
{
    const auto found = findUser(db(), canonicalEmail(email));
    if (!found)
        throw CommandRefused("there is no user \"" + email + "\"");
    return *found;
}

void AdminSession::audit(
    const std::string &command, const std::string &object, const std::string &detail)
{
    if (m_processId == 0)
        m_processId = registerProcess(db(), m_now);
    AuditEntry entry;
    entry.service = command;
    entry.object = object;
    entry.detail = detail;
    addAudit(db(), m_processId, m_now, entry);
}

void AdminSession::announceRoles(const std::vector<std::string> &emails)
{
    raiseRolesRevision(db());
    std::string users;
    for (const std::string &email : emails)
        users += (users.empty() ? "" : ",") + jsonText(email);
    Announcement announcement;
    announcement.type = "notifymsg_role";
    announcement.command = "Update";
    announcement.content = "{\"Command\":\"Update\",\"Users\":[" + users + "]}";
    announcement.topic = "roles";
    addAnnouncement(db(), m_now, announcement);
}

int AdminSession::done(const std::string &sentence, const std::string &members)
{
    if (m_json)
        std::cout << "{\"ok\":true" << members << "}\n";
    else
        std::cout << sentence << '\n';
    return 0;
}

std::string readNewPassword()
{
    std::string password;
    if (isatty(STDIN_FILENO)) {
        password = askHidden("Password: ");
        if (password != askHidden("Password again: "))
            throw CommandRefused("the two passwords differ");
    } else {
        std::getline(std::cin, password);
    }
    if (password.empty())
        throw CommandRefused("the password must not be empty");
    if (password.size() > longestPassword)
        throw CommandRefused("the password must not be longer than 1024 bytes");
    if (!isValidUtf8(password))
        throw CommandRefused("the password must be UTF-8 text");
    return password;
}

} // namespace kvx::server
