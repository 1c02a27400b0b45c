#include "cli/Commands.h"
#include "cli/JsonFile.h"
#include "cli/Refusal.h"

#include <CLI/CLI.hpp>
#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCollaboration/KVXErrorCode.h>
#include <KVXCollaboration/KVXReportTemplateMgr.h>
#include <QFileInfo>
#include <QJsonArray>
#include <memory>
#include <optional>

namespace kvx::cli {

namespace {

struct Arguments {
    std::string templateName;
    std::vector<std::string> templateNames;
    std::string file;
    std::string name;
    std::optional<int> type;
    std::optional<std::string> projectVersion;
};

QString text(const std::string &value)
{
    return QString::fromStdString(value);
}

KVXReportTemplateMgr *manager()
{
    return KVXCollaborator::getInstance()->reportTemplateManager();
}

int refusedByServer(Context &context)
{
    return refused(context.output, manager()->errorCode(), manager()->errorText());
}

QJsonObject toJson(const KVXTemplateInfo &info)
{
    return { { QStringLiteral("templateID"), info.templateID },
        { QStringLiteral("name"), info.name }, { QStringLiteral("type"), info.type },
        { QStringLiteral("author"), info.author },
        { QStringLiteral("authorEmail"), info.authorEmail },
        { QStringLiteral("projectVersion"), info.projectVersion },
        { QStringLiteral("md5"), info.md5 }, { QStringLiteral("createDate"), info.createDate },
        { QStringLiteral("lastModifyDate"), info.lastModifyDate } };
}

/// By name, else by ID. False after the error was reported in exit.
bool findTemplate(Context &context, const std::string &nameOrId, KVXTemplateInfo &info, int &exit)
{
    bool exists = false;
    manager()->templateExist(text(nameOrId), exists, info);
    if (!exists && manager()->errorCode() == KVXNoSuchTemplate)
        manager()->templateExistByID(text(nameOrId), exists, info);
    if (exists)
        return true;
    exit = manager()->errorCode() == KVXNoSuchTemplate ? refused(context.output, KVXNoSuchTemplate,
               QStringLiteral("There is no report template \"%1\".").arg(text(nameOrId)))
                                                       : refusedByServer(context);
    return false;
}

int listTemplates(Context &context, const Arguments &)
{
    QList<KVXTemplateInfo> list;
    if (!manager()->queryTemplates(list))
        return refusedByServer(context);
    QVector<QStringList> rows;
    QJsonArray array;
    for (const KVXTemplateInfo &info : list) {
        rows.append({ info.name, QString::number(info.type), info.author, info.lastModifyDate,
            info.templateID });
        array.append(toJson(info));
    }
    context.output.table({ QStringLiteral("NAME"), QStringLiteral("TYPE"), QStringLiteral("AUTHOR"),
                             QStringLiteral("CHANGED"), QStringLiteral("ID") },
        rows);
    return context.output.done(QString(), { { QStringLiteral("templates"), array } });
}

int showTemplate(Context &context, const Arguments &arguments)
{
    KVXTemplateInfo info;
    int exit = Refused;
    if (!findTemplate(context, arguments.templateName, info, exit))
        return exit;
    context.output.table({ QStringLiteral("NAME"), info.name },
        { { QStringLiteral("Type"), QString::number(info.type) },
            { QStringLiteral("Author"),
                QStringLiteral("%1 <%2>").arg(info.author, info.authorEmail) },
            { QStringLiteral("Made with"), info.projectVersion },
            { QStringLiteral("Created"), info.createDate },
            { QStringLiteral("Changed"), info.lastModifyDate }, { QStringLiteral("MD5"), info.md5 },
            { QStringLiteral("ID"), info.templateID } });
    return context.output.done(QString(), { { QStringLiteral("template"), toJson(info) } });
}

int uploadTemplate(Context &context, const Arguments &arguments)
{
    QJsonObject content;
    QString error;
    if (!readJsonFile(text(arguments.file), content, error))
        return context.output.failed(Refused, error);
    QString name = text(arguments.name);
    if (name.isEmpty())
        name = QFileInfo(text(arguments.file)).completeBaseName();
    // What is not given stays as the version before has it.
    KVXTemplateInfo before;
    bool exists = false;
    manager()->templateExist(name, exists, before);
    if (!exists && manager()->errorCode() != KVXNoSuchTemplate)
        return refusedByServer(context);
    KVXTemplateInfo info;
    info.name = name;
    info.type = arguments.type.value_or(before.type);
    info.projectVersion
        = arguments.projectVersion ? text(*arguments.projectVersion) : before.projectVersion;
    if (!manager()->uploadTemplate(info, content))
        return refusedByServer(context);
    return context.output.done(exists
            ? QStringLiteral("The template \"%1\" has a new version.").arg(name)
            : QStringLiteral("The template \"%1\" is shared.").arg(name),
        { { QStringLiteral("template"), toJson(info) } });
}

int downloadTemplate(Context &context, const Arguments &arguments)
{
    KVXTemplateInfo info;
    int exit = Refused;
    if (!findTemplate(context, arguments.templateName, info, exit))
        return exit;
    QJsonObject content;
    if (!manager()->downloadTemplate(info.templateID, content))
        return refusedByServer(context);
    QString error;
    if (!writeJsonFile(text(arguments.file), content, error))
        return context.output.failed(Refused, error);
    return context.output.done(QStringLiteral("Stored as %1.").arg(text(arguments.file)));
}

int renameTemplate(Context &context, const Arguments &arguments)
{
    KVXTemplateInfo info;
    int exit = Refused;
    if (!findTemplate(context, arguments.templateName, info, exit))
        return exit;
    if (!manager()->renameTemplate(info.templateID, text(arguments.name)))
        return refusedByServer(context);
    return context.output.done(
        QStringLiteral("\"%1\" is now \"%2\".").arg(info.name, text(arguments.name)));
}

/// All of them or none.
int removeTemplates(Context &context, const Arguments &arguments)
{
    QStringList ids;
    for (const std::string &name : arguments.templateNames) {
        KVXTemplateInfo info;
        int exit = Refused;
        if (!findTemplate(context, name, info, exit))
            return exit;
        ids.append(info.templateID);
    }
    if (!manager()->deleteTemplates(ids))
        return refusedByServer(context);
    return context.output.done(ids.size() == 1
            ? QStringLiteral("The template was removed.")
            : QStringLiteral("%1 templates were removed.").arg(ids.size()));
}

using TemplateAction = int (*)(Context &, const Arguments &);

} // namespace

void addTemplateCommands(CLI::App &app, Action &action)
{
    const auto arguments = std::make_shared<Arguments>();
    CLI::App *templates = app.add_subcommand("templates", "Report templates that all users share");
    templates->require_subcommand(1);
    const auto add = [&](const char *name, const char *help, TemplateAction run, bool one = true) {
        CLI::App *command = templates->add_subcommand(name, help);
        if (one)
            command->add_option("template", arguments->templateName, "Name or ID")->required();
        command->callback([&action, arguments, run] {
            action = [arguments, run](Context &context) { return run(context, *arguments); };
        });
        return command;
    };
    add("list", "List the templates", listTemplates, false);
    add("show", "Show what is known of a template", showTemplate);
    CLI::App *up = add("upload", "Share a template, or a new version of it", uploadTemplate, false);
    up->add_option("file", arguments->file, "JSON file of the report designer")->required();
    up->add_option("--name", arguments->name, "Its name; else that of the file");
    up->add_option("--type", arguments->type, "The application's number for its kind");
    up->add_option("--made-with", arguments->projectVersion, "Version of the application");
    add("download", "Fetch a template", downloadTemplate)
        ->add_option("file", arguments->file, "Local file to write")
        ->required();
    add("rename", "Rename a template", renameTemplate)
        ->add_option("name", arguments->name, "New name")
        ->required();
    add("remove", "Remove templates; all of them or none", removeTemplates, false)
        ->add_option("templates", arguments->templateNames, "Names or IDs")
        ->required();
}

} // namespace kvx::cli
