#include "admin/UserCommands.h"
#include "admin/AdminCommand.h"
#include "base/JsonText.h"
#include "base/Text.h"
#include "services/Password.h"
#include "store/Db.h"
#include "store/RoleStore.h"
#include "store/SessionStore.h"
#include "store/UserStore.h"

#include <algorithm>
#include <iostream>

namespace kvx::server {

namespace {

constexpr std::size_t longestEmail = 254;
constexpr std::size_t longestName = 100;

std::string checkedEmail(const std::string &text)
{
    if (!isValidUtf8(text))
        throw CommandRefused("the e-mail must be UTF-8 text");
    const std::string email = canonicalEmail(text);
    const std::size_t at = email.find('@');
    const bool plain = std::all_of(email.begin(), email.end(), [](char c) {
        return static_cast<unsigned char>(c) > ' ' && c != ';' && c != '%' && c != 0x7F;
    });
    if (!plain || at == 0 || at == std::string::npos || at + 1 == email.size()
        || email.size() > longestEmail)
        throw CommandRefused("\"" + text + "\" is not an e-mail");
    return email;
}

std::string dateOrDash(const std::optional<Time> &time)
{
    return time ? minuteText(*time) : "-";
}

} // namespace

int addUserCommand(AdminSession &session, const std::string &email, const std::string &name,
    const std::vector<std::string> &roles)
{
    const std::string canonical = checkedEmail(email);
    const auto shown = isValidUtf8(name) ? displayName(name, longestName) : std::nullopt;
    if (!shown)
        throw CommandRefused("the name must have 1 to 100 characters");
    Db &db = session.db();
    for (const std::string &role : roles) {
        if (!findRole(db, role))
            throw CommandRefused("there is no role \"" + role + "\"");
    }
    if (findUser(db, canonical))
        throw CommandRefused("there is a user \"" + canonical + "\" already");
    const std::string hash = hashPassword(readNewPassword());

    Transaction transaction(db, Transaction::Kind::Write);
    try {
        const std::int64_t id = addUser(db, session.now(), canonical, *shown, hash);
        for (const std::string &role : roles)
            assignRole(db, findRole(db, role).value(), id);
    } catch (const DbError &error) {
        if (error.isUnique())
            throw CommandRefused("there is a user \"" + canonical + "\" already");
        throw;
    }
    if (!roles.empty())
        session.announceRoles({ canonical });
    session.audit("user add", canonical);
    transaction.commit();
    return session.done(canonical + " was added.", ",\"email\":" + jsonText(canonical));
}

int listUsersCommand(AdminSession &session)
{
    std::string json = ",\"users\":[";
    std::string text;
    for (const User &user : loadUsers(session.db())) {
        const auto role = firstRoleOf(session.db(), user.id);
        if (json.back() == '}')
            json += ',';
        json += "{\"email\":" + jsonText(user.email) + ",\"name\":" + jsonText(user.name)
            + ",\"role\":" + jsonText(role ? role->name : "")
            + ",\"disabled\":" + (user.disabled ? "true" : "false")
            + ",\"productVersion\":" + std::to_string(user.productVersion)
            + ",\"lastLogin\":" + jsonText(user.lastLogin ? utcText(*user.lastLogin) : "") + '}';
        text += (text.empty() ? "" : "\n") + user.email + '\t' + user.name + '\t'
            + (role ? role->name : "-") + '\t' + (user.disabled ? "disabled" : "enabled") + '\t'
            + dateOrDash(user.lastLogin);
    }
    return session.done(text, json + ']');
}

int setPasswordCommand(AdminSession &session, const std::string &email)
{
    const User user = session.user(email);
    const std::string hash = hashPassword(readNewPassword());
    Transaction transaction(session.db(), Transaction::Kind::Write);
    setPassword(session.db(), user.id, hash);
    endSessionsOf(session.db(), user.id);
    session.audit("user password", user.email);
    transaction.commit();
    return session.done("The password of " + user.email + " was changed; his sessions have ended.");
}

int disableUserCommand(AdminSession &session, const std::string &email, bool disabled)
{
    const User user = session.user(email);
    const char *word = disabled ? "disabled" : "enabled";
    if (user.disabled == disabled)
        return session.done(user.email + " is " + word + " already.");
    Transaction transaction(session.db(), Transaction::Kind::Write);
    setDisabled(session.db(), user.id, disabled);
    if (disabled) {
        if (countEnabledAdministrators(session.db()) == 0)
            throw CommandRefused("at least one enabled administrator must remain");
        endSessionsOf(session.db(), user.id);
    }
    session.announceRoles({ user.email });
    session.audit(disabled ? "user disable" : "user enable", user.email);
    transaction.commit();
    return session.done(user.email + " is " + word + " now.");
}

} // namespace kvx::server
