#include "admin/UserCommands.h"
#include "admin/AdminSession.h"
#include "admin/Listing.h"
#include "admin/PasswordInput.h"
#include "admin/RoleEdit.h"
#include "admin/SessionCommands.h"
#include "admin/UserRemoval.h"
#include "base/JsonText.h"
#include "base/Text.h"
#include "services/Password.h"
#include "services/RoleChange.h"
#include "store/RoleStore.h"

#include <algorithm>

namespace kvx::server {

namespace {

constexpr std::size_t longestEmail = 254;
constexpr std::size_t longestName = 100;
constexpr std::size_t randomPasswordLength = 20;

std::string checkedEmail(const std::string &text)
{
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

/// A password that is given, or made and then told once.
struct ChosenPassword {
    explicit ChosenPassword(const CommandArguments &arguments)
        : isRandom(arguments.has("--random-password"))
        , text(isRandom ? randomPassword(randomPasswordLength) : readNewPassword())
        , hash(hashPassword(text))
    {
    }
    std::string sentence() const { return isRandom ? "\npassword: " + text : ""; }
    std::string member() const { return isRandom ? ",\"password\":" + jsonText(text) : ""; }

    const bool isRandom;
    const std::string text;
    const std::string hash;
};

int addAccount(AdminSession &session, const CommandArguments &arguments)
{
    const std::string email = checkedEmail(arguments.text("email"));
    const std::vector<std::string> roles = arguments.texts("--role");
    const auto name = displayName(arguments.text("--name"), longestName);
    if (!name)
        throw CommandRefused("the name must have 1 to 100 characters");
    const std::string taken = "there is a user \"" + email + "\" already";
    for (const std::string &role : roles)
        roleNamed(session.db(), role);
    if (findUser(session.db(), email))
        throw CommandRefused(taken);
    const ChosenPassword password(arguments);

    AdminChange change(session);
    RoleChange roleChange(change.db());
    try {
        const std::int64_t id = addUser(change.db(), wallTime(), email, *name, password.hash);
        for (const std::string &role : roles)
            assignRole(change.db(), roleNamed(change.db(), role).id, id);
    } catch (const DbError &error) {
        if (!error.isUnique())
            throw;
        throw CommandRefused(taken);
    }
    finishRoleChange(change, roleChange);
    change.audit(email, *name);
    change.commit();
    return session.done(email + " was added." + password.sentence(),
        ",\"email\":" + jsonText(email) + password.member());
}

int listAccounts(AdminSession &session, const CommandArguments &)
{
    const Transaction snapshot(session.db(), Transaction::Kind::Read);
    Listing listing({ { "email", "E-mail" }, { "name", "Name" }, { "role", "Role" },
        { "disabled", "State" }, { "productVersion", "Product" }, { "lastLogin", "Last login" } });
    for (const User &user : loadUsers(session.db())) {
        const auto role = firstRoleOf(session.db(), user.id);
        listing.add({ user.email, user.name, role ? role->name : "",
            Cell::flag(user.disabled, "disabled", "enabled"), user.productVersion,
            Cell::time(user.lastLogin) });
    }
    return session.done("users", listing);
}

int setAccountPassword(AdminSession &session, const CommandArguments &arguments)
{
    session.user(arguments.text("email")); // before anything is asked for
    const ChosenPassword password(arguments);
    AdminChange change(session);
    const User user = session.user(arguments.text("email"));
    setPassword(change.db(), user.id, password.hash);
    endSessionsOf(change.db(), user.id);
    change.audit(user.email);
    change.commit();
    return session.done("The password of " + user.email + " was changed; his sessions have ended."
            + password.sentence(),
        ",\"email\":" + jsonText(user.email) + password.member());
}

int setAccountDisabled(AdminSession &session, const CommandArguments &arguments, bool disabled)
{
    const std::string word = disabled ? "disabled" : "enabled";
    AdminChange change(session);
    const User user = session.user(arguments.text("email"));
    const std::string member = ",\"email\":" + jsonText(user.email);
    if (user.disabled == disabled)
        return session.done(user.email + " is " + word + " already.", member);
    RoleChange roleChange(change.db());
    setDisabled(change.db(), user.id, disabled);
    if (disabled)
        endSessionsOf(change.db(), user.id);
    finishRoleChange(change, roleChange);
    change.audit(user.email);
    change.commit();
    return session.done(user.email + " is " + word + " now.", member);
}

int disableAccount(AdminSession &session, const CommandArguments &arguments)
{
    return setAccountDisabled(session, arguments, true);
}

int enableAccount(AdminSession &session, const CommandArguments &arguments)
{
    return setAccountDisabled(session, arguments, false);
}

int deleteAccount(AdminSession &session, const CommandArguments &arguments)
{
    AdminChange change(session);
    const User user = session.user(arguments.text("email"));
    const std::int64_t projects = removeAccount(change, user);
    change.audit(user.email, user.name);
    change.commit();
    return session.done(user.email + " was deleted, with his access to " + std::to_string(projects)
            + " projects; his name stays in their history.",
        ",\"email\":" + jsonText(user.email) + ",\"projects\":" + std::to_string(projects));
}

int listAccountSessions(AdminSession &session, const CommandArguments &arguments)
{
    return listSessionsOf(session, session.user(arguments.text("email")).id);
}

const CommandOption emailOfAccount { "email", "the account's e-mail" };
const CommandOption randomPasswordOption { "--random-password", "make a password and print it once",
    CommandOption::Flag };

} // namespace

const AdminCommandTable userCommands = {
    { "user", "add", "add an account; the password comes from the terminal or standard input",
        { emailOfAccount,
            { "--name", "name as others see it", CommandOption::Text, CommandOption::Required },
            { "--role", "role (may stand several times)", CommandOption::Texts },
            randomPasswordOption },
        addAccount },
    { "user", "list", "list the accounts", {}, listAccounts },
    { "user", "password", "set a new password; ends the sessions",
        { emailOfAccount, randomPasswordOption }, setAccountPassword },
    { "user", "disable", "refuse log-ins; ends the sessions", { emailOfAccount }, disableAccount },
    { "user", "enable", "allow log-ins again", { emailOfAccount }, enableAccount },
    { "user", "delete", "delete an account; name and e-mail stay in what he is the author of",
        { emailOfAccount }, deleteAccount },
    { "user", "sessions", "list the sessions of one user", { emailOfAccount },
        listAccountSessions },
};

} // namespace kvx::server
