#include "cli/Commands.h"
#include "cli/UseProject.h"
#include "client/Client.h"
#include "client/ListedProjects.h"

#include <CLI/CLI.hpp>
#include <KVXCollaboration/KVXCWProjectList.h>
#include <KVXCollaboration/KVXCWProjectPermission.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCollaboration/KVXProjectInfo.h>
#include <QJsonArray>
#include <memory>

namespace kvx::cli {

namespace {

struct Arguments {
    std::string project;
    std::string name;
    std::string type = "Tender";
    std::string file;
    std::vector<std::string> grants;
    std::vector<std::string> revoked;
    bool release = false;
};

QString text(const std::string &value)
{
    return QString::fromStdString(value);
}

KVXCWProjectList *list()
{
    return KVXCollaborator::getInstance()->projectListManager();
}

QString sentence(int status)
{
    return host::failureReason(ErrorCodeToString(static_cast<KVXErrorCode>(status)));
}

/// The record, or null after the error was reported.
KVXProjectInfo *findProject(Context &context, const std::string &project)
{
    KVXProjectInfo *info = context.client.find(text(project));
    if (!info)
        context.output.failed(
            Refused, QStringLiteral("There is no project \"%1\" in your list.").arg(text(project)));
    return info;
}

int showProjects(Context &context)
{
    QVector<QStringList> rows;
    QJsonArray array;
    for (const KVXProjectInfo *info : host::listedProjects(*list())) {
        rows.append({ info->name(), info->type(), QString::number(info->logVersion()),
            info->amount(), info->lastEditor().name(),
            info->modifiedTime().toString(QStringLiteral("yyyy-MM-dd hh:mm")) });
        array.append(info->toJson());
    }
    if (!rows.isEmpty())
        context.output.table({ QStringLiteral("PROJECT"), QStringLiteral("KIND"),
                                 QStringLiteral("VERSION"), QStringLiteral("AMOUNT"),
                                 QStringLiteral("LAST EDITOR"), QStringLiteral("MODIFIED") },
            rows);
    return context.output.done(
        rows.isEmpty() ? QStringLiteral("There are no projects in your list.") : QString(),
        { { QStringLiteral("projects"), array } });
}

int newProject(Context &context, const Arguments &arguments)
{
    int type = -1;
    for (int candidate = Estimate; candidate <= ResourceLibrary; ++candidate) {
        if (KVXCWProjectList::getProjectType(static_cast<TProjectsType>(candidate))
            == text(arguments.type))
            type = candidate;
    }
    if (type < 0)
        return context.output.failed(Usage,
            QStringLiteral("\"%1\" is not a kind of project (Estimate, Tender, Addendum, "
                           "BQLibrary, ResourceLibrary).")
                .arg(text(arguments.type)));
    content::Bill bill;
    if (!arguments.file.empty()) {
        content::ImportResult imported = content::importBill(text(arguments.file));
        if (!imported.bill)
            return context.output.failed(Refused, imported.error);
        bill = *imported.bill;
    }
    host::OpenProject::Failure failure;
    host::OpenProject *project = context.client.create(
        text(arguments.name), static_cast<TProjectsType>(type), bill, &failure);
    if (!project)
        return context.output.failed(
            Refused, failure.text, { { QStringLiteral("code"), failure.code } });
    return context.output.done(
        QStringLiteral("\"%1\" was created with %2 items.")
            .arg(text(arguments.name), QString::number(project->bill().itemCount())),
        { { QStringLiteral("guid"), project->guid() },
            { QStringLiteral("items"), project->bill().itemCount() } });
}

int renameProject(Context &context, const Arguments &arguments)
{
    const KVXProjectInfo *info = findProject(context, arguments.project);
    if (!info)
        return Refused;
    double status = 0;
    if (!list()->renameProject(info->name(), text(arguments.name), info->guid(), &status))
        return context.output.failed(
            Refused, sentence(static_cast<int>(status)), { { QStringLiteral("code"), status } });
    return context.output.done(
        QStringLiteral("The project is now named \"%1\".").arg(text(arguments.name)));
}

int removeProject(Context &context, const Arguments &arguments)
{
    const KVXProjectInfo *info = findProject(context, arguments.project);
    if (!info)
        return Refused;
    const QString name = info->name();
    const QString guid = info->guid();
    if (context.client.isOpen(guid))
        context.client.close(guid);
    if (!list()->removeProject(guid))
        return context.output.failed(Refused,
            QStringLiteral("The server did not remove \"%1\": it is open somewhere, locked, or "
                           "not yours.")
                .arg(name));
    return context.output.done(QStringLiteral("\"%1\" was removed.").arg(name));
}

int openProject(Context &context, const Arguments &arguments)
{
    int refusal = Refused;
    host::OpenProject *project = useProject(context, arguments.project, refusal);
    if (!project)
        return refusal;
    const int version = project->database().logVersion();
    return context.output.done(
        QStringLiteral("Open at version %1, %2 items; the local copy is %3")
            .arg(QString::number(version), QString::number(project->bill().itemCount()),
                project->database().path()),
        { { QStringLiteral("guid"), project->guid() }, { QStringLiteral("version"), version },
            { QStringLiteral("path"), project->database().path() },
            { QStringLiteral("notice"), project->notice() } });
}

int closeProject(Context &context, const Arguments &arguments)
{
    const KVXProjectInfo *info = findProject(context, arguments.project);
    if (!info)
        return Refused;
    if (!context.client.close(info->guid()))
        return context.output.failed(
            Refused, QStringLiteral("The server did not close the project."));
    return context.output.done(QStringLiteral("Closed."));
}

int lockProject(Context &context, const Arguments &arguments)
{
    const KVXProjectInfo *info = findProject(context, arguments.project);
    if (!info)
        return Refused;
    const int status = list()->lockProject(info->guid(), arguments.release);
    if (status != 1)
        return context.output.failed(
            Refused, sentence(status), { { QStringLiteral("code"), status } });
    return context.output.done(arguments.release
            ? QStringLiteral("The lock is released.")
            : QStringLiteral("The project is locked for you."));
}

QStringList levels(const KVXProjectInfo::Permissions &permissions)
{
    QStringList row;
    for (const auto type : { KVXProjectInfo::ProjectRW, KVXProjectInfo::Money,
             KVXProjectInfo::Addendum, KVXProjectInfo::Report })
        row.append(QString::number(permissions.value(type, -1)));
    return row;
}

/// "email=rw[,money,addendum,report]"; what is not given is -1.
bool applyGrant(KVXProjectInfo &project, const QString &grant)
{
    const int equals = grant.lastIndexOf(QLatin1Char('='));
    const QStringList values = grant.mid(equals + 1).split(QLatin1Char(','));
    if (equals < 1 || values.size() > 4)
        return false;
    const KVXUser user(QString(), grant.left(equals).toLower());
    for (int type = 0; type < 4; ++type) {
        bool number = true;
        const int level = type < values.size() ? values.at(type).toInt(&number) : -1;
        if (!number)
            return false;
        project.setPermission(
            user, static_cast<KVXProjectInfo::ProjectPermissionType>(type), level);
    }
    return true;
}

int permissions(Context &context, const Arguments &arguments)
{
    const KVXProjectInfo *info = findProject(context, arguments.project);
    if (!info)
        return Refused;
    if (arguments.grants.empty() && arguments.revoked.empty()) {
        QVector<QStringList> rows;
        QJsonArray array = info->toJson().value(QLatin1String("users")).toArray();
        for (const auto &entry : info->userPermissions())
            rows.append(
                QStringList { entry.first.name(), entry.first.email() } + levels(entry.second));
        context.output.table(
            { QStringLiteral("NAME"), QStringLiteral("E-MAIL"), QStringLiteral("PROJECT"),
                QStringLiteral("MONEY"), QStringLiteral("ADDENDUM"), QStringLiteral("REPORT") },
            rows);
        return context.output.done(QString(), { { QStringLiteral("users"), array } });
    }
    // On a copy: the list itself changes when the server's notification comes back.
    KVXProjectInfo changed(*info);
    for (const std::string &grant : arguments.grants) {
        if (!applyGrant(changed, text(grant)))
            return context.output.failed(Usage,
                QStringLiteral("\"%1\" is not of the form email=project[,money,addendum,report].")
                    .arg(text(grant)));
    }
    KVXProjectInfo::UserPermissions kept;
    for (const auto &entry : changed.userPermissions()) {
        bool stays = true;
        for (const std::string &email : arguments.revoked)
            stays = stays && entry.first.email() != text(email).toLower();
        if (stays)
            kept.append(entry);
    }
    changed.setUserPermissions(kept);
    if (!KVXCollaborator::getInstance()->projectPermissionManager()->updatePermissions(&changed))
        return context.output.failed(Refused,
            QStringLiteral("The server did not change the permissions: a user is unknown, or you "
                           "are not the project's creator."));
    return context.output.done(QStringLiteral("The permissions were changed."));
}

using ProjectAction = int (*)(Context &, const Arguments &);

} // namespace

void addProjectCommands(CLI::App &app, Action &action)
{
    const auto arguments = std::make_shared<Arguments>();
    const auto add
        = [&](const char *name, const char *help, ProjectAction run, bool project = true) {
              CLI::App *command = app.add_subcommand(name, help);
              if (project)
                  command->add_option("project", arguments->project, "Name or GUID")->required();
              command->callback([&action, arguments, run] {
                  action = [arguments, run](Context &context) { return run(context, *arguments); };
              });
              return command;
          };

    app.add_subcommand("projects", "List the projects that you may see")->callback([&action] {
        action = showProjects;
    });
    CLI::App *create = add("new", "Create a project", newProject, false);
    create->add_option("name", arguments->name, "Its name")->required();
    create->add_option(
        "--type", arguments->type, "Estimate, Tender, Addendum, BQLibrary or ResourceLibrary");
    create->add_option(
        "--from", arguments->file, "Bill of quantities to begin with (CSV, X83, X84)");
    add("rename", "Rename a project", renameProject)
        ->add_option("name", arguments->name, "New name")
        ->required();
    add("remove", "Remove a project", removeProject);
    add("open", "Open a project and bring the local copy up to date", openProject);
    add("close", "Close a project", closeProject);
    add("lock", "Keep others from opening or changing a project", lockProject)
        ->add_flag("--release", arguments->release, "Give the lock back");
    CLI::App *rights
        = add("permissions", "Show or change who may do what in a project", permissions);
    rights->add_option("--set", arguments->grants,
        "email=project[,money,addendum,report]; -1 none, 0 read, 1 write");
    rights->add_option("--remove", arguments->revoked, "Take a user's access away");
}

} // namespace kvx::cli
