#include "cli/Commands.h"
#include "cli/RoleTable.h"
#include "client/PermissionNames.h"

#include <CLI/CLI.hpp>
#include <QJsonArray>
#include <memory>

namespace kvx::cli {

namespace {

struct Arguments {
    std::string role;
    std::string name;
    std::string email;
    std::vector<std::string> permissions;
    int place = 0;
};

QString text(const std::string &value)
{
    return QString::fromStdString(value);
}

QString email(const Arguments &arguments)
{
    return text(arguments.email).trimmed().toLower();
}

QStringList emailsOf(const KVXRole &role)
{
    QStringList emails;
    for (const KVXUser *user : role.users())
        emails.append(user->email());
    return emails;
}

QJsonObject jsonOf(KVXRole &role)
{
    return { { QStringLiteral("role"), role.name() },
        { QStringLiteral("place"), users()->roles().indexOf(&role) + 1 },
        { QStringLiteral("permissions"),
            QJsonArray::fromStringList(host::namesOf(role.permissions())) },
        { QStringLiteral("users"), QJsonArray::fromStringList(emailsOf(role)) } };
}

int showRoles(Context &context, const Arguments &)
{
    const int ready = ensureRoles(context);
    if (ready != Done)
        return ready;
    QVector<QStringList> rows;
    QJsonArray array;
    for (KVXRole *role : users()->roles()) {
        rows.append(
            { QString::number(rows.size() + 1), role->name(), QString::number(role->users().size()),
                host::namesOf(role->permissions()).join(QLatin1String(", ")) });
        array.append(jsonOf(*role));
    }
    context.output.table({ QStringLiteral("#"), QStringLiteral("ROLE"), QStringLiteral("USERS"),
                             QStringLiteral("PERMISSIONS") },
        rows);
    return context.output.done(QStringLiteral("Of several roles of a user the first one decides."),
        { { QStringLiteral("roles"), array } });
}

int showRole(Context &context, KVXRole &role, const Arguments &)
{
    QVector<QStringList> permissions;
    for (int type = 0; type < host::permissionNames().size(); ++type)
        permissions.append({ host::permissionNames().at(type),
            role.has(static_cast<KVXRole::RolePermissionType>(type)) ? QStringLiteral("1")
                                                                     : QStringLiteral("0") });
    context.output.table({ QStringLiteral("PERMISSION"), QString() }, permissions);
    QVector<QStringList> holders;
    for (const KVXUser *user : role.users())
        holders.append({ user->name(), user->email() });
    if (!holders.isEmpty())
        context.output.table({ QStringLiteral("NAME"), QStringLiteral("E-MAIL") }, holders);
    return context.output.done(
        holders.isEmpty() ? QStringLiteral("Nobody has this role.") : QString(), jsonOf(role));
}

struct Permission {
    KVXRole::RolePermissionType type;
    int value;
};

/// "name=0" or "name=1". False after the error was reported.
bool readPermissions(
    Context &context, const Arguments &arguments, std::vector<Permission> &permissions)
{
    for (const std::string &given : arguments.permissions) {
        const QStringList parts = text(given).split(QLatin1Char('='));
        int type = 0;
        while (type < host::permissionNames().size()
            && host::permissionNames().at(type).compare(parts.first(), Qt::CaseInsensitive) != 0)
            ++type;
        const bool isValue
            = parts.value(1) == QLatin1String("0") || parts.value(1) == QLatin1String("1");
        if (type == host::permissionNames().size() || parts.size() != 2 || !isValue) {
            context.output.failed(Usage,
                QStringLiteral("\"%1\" is not a permission with =0 or =1 (%2).")
                    .arg(text(given), host::permissionNames().join(QLatin1String(", "))));
            return false;
        }
        permissions.push_back(
            { static_cast<KVXRole::RolePermissionType>(type), parts.at(1).toInt() });
    }
    return true;
}

bool isFree(Context &context, const QString &name, const KVXRole *except)
{
    const KVXRole *taken = roleNamed(name);
    if (!taken || taken == except)
        return true;
    context.output.failed(
        Refused, QStringLiteral("There is a role \"%1\" already.").arg(taken->name()));
    return false;
}

using RoleAction = int (*)(Context &, KVXRole &, const Arguments &);

int onRole(Context &context, const Arguments &arguments, RoleAction run)
{
    const int ready = ensureRoles(context);
    if (ready != Done)
        return ready;
    KVXRole *role = roleNamed(text(arguments.role));
    if (!role)
        return context.output.failed(
            Refused, QStringLiteral("There is no role \"%1\".").arg(text(arguments.role)));
    return run(context, *role, arguments);
}

int setPermissions(Context &context, KVXRole &role, const Arguments &arguments)
{
    std::vector<Permission> permissions;
    if (!readPermissions(context, arguments, permissions))
        return Usage;
    for (const Permission &permission : permissions)
        role.setPermission(permission.type, permission.value);
    return sendRoles(
        context, QStringLiteral("The permissions of \"%1\" were changed.").arg(role.name()));
}

int addRole(Context &context, const Arguments &arguments)
{
    std::vector<Permission> permissions;
    if (!readPermissions(context, arguments, permissions))
        return Usage;
    const QString name = text(arguments.role).trimmed();
    const int ready = ensureRoles(context);
    if (ready != Done)
        return ready;
    if (!isFree(context, name, nullptr))
        return Refused;
    auto *role = new KVXRole(name);
    for (const Permission &permission : permissions)
        role->setPermission(permission.type, permission.value);
    users()->addRole(role);
    if (arguments.place > 0)
        users()->moveRole(role, arguments.place - 1);
    return sendRoles(context, QStringLiteral("The role \"%1\" was added.").arg(name));
}

int renameRole(Context &context, KVXRole &role, const Arguments &arguments)
{
    const QString name = text(arguments.name).trimmed();
    if (!isFree(context, name, &role))
        return Refused;
    role.setName(name);
    return sendRoles(context, QStringLiteral("The role is now named \"%1\".").arg(name));
}

int removeRole(Context &context, KVXRole &role, const Arguments &)
{
    const QString name = role.name();
    const int holders = role.users().size();
    users()->removeRole(&role);
    return sendRoles(context,
        QStringLiteral("The role \"%1\" was removed; %2 had it.")
            .arg(name, holders == 0 ? QStringLiteral("nobody") : QString::number(holders)));
}

int moveRole(Context &context, KVXRole &role, const Arguments &arguments)
{
    if (arguments.place < 1 || arguments.place > users()->roles().size())
        return context.output.failed(
            Usage, QStringLiteral("Places are 1 to %1.").arg(users()->roles().size()));
    users()->moveRole(&role, arguments.place - 1);
    return sendRoles(context,
        QStringLiteral("\"%1\" is now number %2.")
            .arg(role.name(), QString::number(arguments.place)));
}

int assign(Context &context, KVXRole &role, const Arguments &arguments)
{
    users()->addUser(&role, email(arguments));
    return sendRoles(context,
        QStringLiteral("%1 has the role \"%2\".").arg(email(arguments), role.name()),
        email(arguments));
}

int unassign(Context &context, KVXRole &role, const Arguments &arguments)
{
    if (!emailsOf(role).contains(email(arguments)))
        return context.output.failed(Refused,
            QStringLiteral("%1 does not have the role \"%2\".").arg(email(arguments), role.name()));
    users()->removeUser(&role, email(arguments));
    return sendRoles(context,
        QStringLiteral("%1 no longer has the role \"%2\".").arg(email(arguments), role.name()));
}

} // namespace

void addRoleCommands(CLI::App &app, Action &action)
{
    const auto arguments = std::make_shared<Arguments>();
    CLI::App *roles = app.add_subcommand("roles", "List the roles, or change them");
    roles->callback([&action, roles, arguments] {
        if (roles->get_subcommands().empty())
            action = [arguments](Context &context) { return showRoles(context, *arguments); };
    });
    const auto add = [&](const char *name, const char *help) {
        CLI::App *command = roles->add_subcommand(name, help);
        command->add_option("role", arguments->role, "Its name")->required();
        return command;
    };
    const auto change = [&](const char *name, const char *help, RoleAction run) {
        CLI::App *command = add(name, help);
        command->callback([&action, arguments, run] {
            action
                = [arguments, run](Context &context) { return onRole(context, *arguments, run); };
        });
        return command;
    };
    const auto permissions = [&](CLI::App *command) {
        return command->add_option(
            "permissions", arguments->permissions, "name=1 grants, name=0 withdraws");
    };
    const auto user = [&](CLI::App *command) {
        command->add_option("email", arguments->email, "The user's e-mail")->required();
    };

    change("show", "Show what a role permits, and who has it", showRole);
    permissions(change("set", "Change what a role permits", setPermissions))->required();
    CLI::App *adding = add("add", "Add a role");
    adding->callback([&action, arguments] {
        action = [arguments](Context &context) { return addRole(context, *arguments); };
    });
    permissions(adding);
    adding->add_option("--at", arguments->place, "Its place in the order; the last without it")
        ->check(CLI::PositiveNumber);
    change("rename", "Rename a role", renameRole)
        ->add_option("name", arguments->name, "New name")
        ->required();
    change("remove", "Remove a role", removeRole);
    change("move", "Give a role another place in the order", moveRole)
        ->add_option("place", arguments->place, "1 is the first")
        ->required();
    user(change("assign", "Give a role to a user", assign));
    user(change("unassign", "Take a role from a user", unassign));
}

} // namespace kvx::cli
