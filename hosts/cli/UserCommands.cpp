#include "cli/Commands.h"
#include "client/Client.h"
#include "client/ListedProjects.h"

#include <CLI/CLI.hpp>
#include <KVXCollaboration/KVXCWProjectList.h>
#include <KVXCollaboration/KVXCWUser.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCollaboration/KVXProjectInfo.h>
#include <QJsonArray>
#include <algorithm>
#include <memory>

namespace kvx::cli {

namespace {

struct Arguments {
    std::string project;
    std::string email;
    std::string version;
};

QString text(const std::string &value)
{
    return QString::fromStdString(value);
}

const QStringList &versionNames()
{
    static const QStringList names { QStringLiteral("unknown"), QStringLiteral("basic"),
        QStringLiteral("standard"), QStringLiteral("professional") };
    return names;
}

/// One user, with all his roles; the first decides.
struct Listed {
    KVXUser *user;
    QStringList roles;
};

QVector<Listed> listedUsers()
{
    QVector<Listed> all;
    for (const KVXRole *role : KVXCollaborator::getInstance()->userManager()->roles()) {
        for (KVXUser *user : role->users()) {
            const auto known = std::find_if(all.begin(), all.end(),
                [user](const Listed &listed) { return listed.user->email() == user->email(); });
            if (known == all.end())
                all.append({ user, { role->name() } });
            else
                known->roles.append(role->name());
        }
    }
    return all;
}

int showUsers(Context &context, const Arguments &)
{
    QVector<QStringList> rows;
    QJsonArray array;
    for (const Listed &listed : listedUsers()) {
        const QString version = versionNames().value(listed.user->version());
        rows.append({ listed.user->name(), listed.user->email(), listed.roles.first(),
            listed.roles.mid(1).join(QLatin1String(", ")), version });
        array.append(QJsonObject { { QStringLiteral("name"), listed.user->name() },
            { QStringLiteral("email"), listed.user->email() },
            { QStringLiteral("roles"), QJsonArray::fromStringList(listed.roles) },
            { QStringLiteral("version"), version } });
    }
    context.output.table({ QStringLiteral("NAME"), QStringLiteral("E-MAIL"), QStringLiteral("ROLE"),
                             QStringLiteral("ALSO IN"), QStringLiteral("VERSION") },
        rows);
    return context.output.done(QStringLiteral("Accounts without a role are not listed here."),
        { { QStringLiteral("users"), array } });
}

int setVersion(Context &context, const Arguments &arguments)
{
    const int version = versionNames().indexOf(text(arguments.version).toLower());
    if (version < 0)
        return context.output.failed(Usage,
            QStringLiteral("\"%1\" is not a product version (%2).")
                .arg(text(arguments.version), versionNames().join(QLatin1String(", "))));
    KVXUser user(QString(), text(arguments.email).trimmed().toLower());
    KVXCWUser *users = KVXCollaborator::getInstance()->userManager();
    if (!users->updateUserProductVersion(&user, static_cast<KVXUser::KVXUserVersion>(version)))
        return context.output.failed(Refused,
            QStringLiteral("The server did not record it: there is no account \"%1\", or it is "
                           "another user's and you are not an administrator.")
                .arg(user.email()));
    return context.output.done(QStringLiteral("%1 uses the version \"%2\".")
                                   .arg(user.email(), versionNames().at(version)));
}

/// A question for each project; more would keep the server from its work.
constexpr int mostProjects = 500;

int showOnline(Context &context, const Arguments &arguments)
{
    KVXCWProjectList *list = KVXCollaborator::getInstance()->projectListManager();
    QList<const KVXProjectInfo *> projects;
    if (!arguments.project.empty()) {
        const KVXProjectInfo *info = context.client.find(text(arguments.project));
        if (!info)
            return context.output.failed(Refused,
                QStringLiteral("There is no project \"%1\" in your list.")
                    .arg(text(arguments.project)));
        projects.append(info);
    } else {
        projects = host::listedProjects(*list);
    }
    if (projects.size() > mostProjects)
        return context.output.failed(Usage,
            QStringLiteral("Your list has %1 projects; name the one you mean.")
                .arg(projects.size()));
    QVector<QStringList> rows;
    QJsonArray array;
    for (const KVXProjectInfo *info : projects) {
        const QStringList names = list->onlineEditors(info->guid());
        if (names.isEmpty())
            continue;
        rows.append({ info->name(), names.join(QLatin1String(", ")) });
        array.append(QJsonObject { { QStringLiteral("project"), info->name() },
            { QStringLiteral("guid"), info->guid() },
            { QStringLiteral("editors"), QJsonArray::fromStringList(names) } });
    }
    if (!rows.isEmpty())
        context.output.table({ QStringLiteral("PROJECT"), QStringLiteral("OPEN AT") }, rows);
    const bool one = !arguments.project.empty();
    return context.output.done(!rows.isEmpty() ? QString()
            : one                              ? QStringLiteral("Nobody has the project open.")
                                               : QStringLiteral("Nobody has a project open."),
        { { QStringLiteral("projects"), array } });
}

} // namespace

void addUserCommands(CLI::App &app, Action &action)
{
    const auto arguments = std::make_shared<Arguments>();
    const auto run = [&action, arguments](int (*command)(Context &, const Arguments &)) {
        return [&action, arguments, command] {
            action
                = [arguments, command](Context &context) { return command(context, *arguments); };
        };
    };

    CLI::App *online = app.add_subcommand("who", "Show who has a project open");
    online->add_option("project", arguments->project, "Name or GUID; all of your list without it");
    online->callback(run(showOnline));

    CLI::App *users = app.add_subcommand("users", "List the users and their roles");
    users->callback([users, show = run(showUsers)] {
        if (users->get_subcommands().empty())
            show();
    });
    CLI::App *version
        = users->add_subcommand("version", "Record which product version a user works with");
    version->add_option("email", arguments->email, "Whose")->required();
    version->add_option("version", arguments->version, "unknown, basic, standard or professional")
        ->required();
    version->callback(run(setVersion));
}

} // namespace kvx::cli
