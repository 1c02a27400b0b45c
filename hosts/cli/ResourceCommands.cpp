#include "cli/Commands.h"
#include "cli/Refusal.h"
#include "client/Client.h"

#include <CLI/CLI.hpp>
#include <KVXCollaboration/KVXCWCommon.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCollaboration/KVXErrorCode.h>
#include <KVXCollaboration/KVXGlobalLockMgr.h>
#include <KVXNetwork/KVXNetwork.h>
#include <memory>

namespace kvx::cli {

namespace {

struct Arguments {
    int lockType = 0;
    int minutes = 30;
    bool untilLogout = false;
    std::string name;
    std::string email;
    std::string file;
};

QString text(const std::string &value)
{
    return QString::fromStdString(value);
}

KVXGlobalLockMgr *locks()
{
    return KVXCollaborator::getInstance()->globalLockManager();
}

int takeLock(Context &context, const Arguments &arguments)
{
    if (arguments.untilLogout && !context.interactive)
        return context.output.failed(Usage,
            QStringLiteral("This command logs out when it ends, and the lock would end with it; "
                           "use --until-logout in \"kvx shell\"."));
    QString holder;
    QString email;
    const bool taken = locks()->GlobalLock(arguments.lockType, holder, email, arguments.minutes,
        arguments.untilLogout, text(arguments.name), text(arguments.email));
    const QJsonObject data { { QStringLiteral("holder"), holder },
        { QStringLiteral("holderEmail"), email } };
    if (!taken)
        return refused(context.output, locks()->errorCode(), locks()->errorText(), data);
    return context.output.done(QStringLiteral("Lock %1 is held by %2 <%3>.")
                                   .arg(QString::number(arguments.lockType), holder, email),
        data);
}

int releaseLock(Context &context, const Arguments &arguments)
{
    if (!locks()->GlobalUnlock(arguments.lockType))
        return refused(context.output, locks()->errorCode(), locks()->errorText());
    return context.output.done(QStringLiteral("Lock %1 is free.").arg(arguments.lockType));
}

int showPackage(Context &context, const Arguments &)
{
    const host::ClientOptions &options = context.client.options();
    QString version;
    if (!KVXCollaborator::getInstance()->common()->resourceVersion(
            options.host, options.port.toInt(), version))
        return context.output.failed(
            Refused, QStringLiteral("The server has no resource package."));
    return context.output.done(QStringLiteral("The resource package is version %1.").arg(version),
        { { QStringLiteral("version"), version } });
}

int downloadPackage(Context &context, const Arguments &arguments)
{
    const host::ClientOptions &options = context.client.options();
    const int code = KVXCollaborator::getInstance()->common()->downloadResource(
        text(arguments.file), options.host, options.port.toInt());
    if (code != KVXOk)
        return refused(context.output, code);
    return context.output.done(QStringLiteral("Stored as %1.").arg(text(arguments.file)));
}

using ResourceAction = int (*)(Context &, const Arguments &);

} // namespace

void addResourceCommands(CLI::App &app, Action &action)
{
    const auto arguments = std::make_shared<Arguments>();
    const auto add = [&](CLI::App *group, const char *name, const char *help, ResourceAction run) {
        CLI::App *command = group->add_subcommand(name, help);
        command->callback([&action, arguments, run] {
            action = [arguments, run](Context &context) { return run(context, *arguments); };
        });
        return command;
    };
    CLI::App *lock = app.add_subcommand("global-lock", "Locks of the whole server, by number");
    lock->require_subcommand(1);
    CLI::App *take = add(lock, "take", "Take a lock, or keep it for longer", takeLock);
    take->add_option("number", arguments->lockType, "Which lock")->required();
    take->add_option("--minutes", arguments->minutes, "It ends by itself after so many; 0: a day")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    take->add_flag("--until-logout", arguments->untilLogout, "It ends with the session too");
    CLI::Option *name
        = take->add_option("--for-name", arguments->name, "Holder's name; else yours");
    take->add_option("--for", arguments->email, "Holder's e-mail (administrators); else yours")
        ->needs(name);
    add(lock, "release", "Release a lock", releaseLock)
        ->add_option("number", arguments->lockType, "Which lock")
        ->required();

    CLI::App *resource
        = app.add_subcommand("resource", "The package of common resources on the server");
    resource->require_subcommand(1);
    add(resource, "version", "Show its version", showPackage);
    add(resource, "download", "Fetch it", downloadPackage)
        ->add_option("file", arguments->file, "Local file to write")
        ->required();
}

} // namespace kvx::cli
