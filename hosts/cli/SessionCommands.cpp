#include "cli/Commands.h"
#include "client/Client.h"

#include <CLI/CLI.hpp>
#include <KVXCollaboration/KVXCWLogin.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCollaboration/KVXRole.h>
#include <KVXCollaboration/KVXUser.h>
#include <QEventLoop>
#include <QTimer>
#include <memory>

namespace kvx::cli {

namespace {

int showLogin(Context &context)
{
    const KVXCWLogin *login = KVXCollaborator::getInstance()->loginManager();
    const KVXUser *user = login->currentUser();
    const QString role = user->role() ? user->role()->name() : QString();
    const QString broker = context.client.brokerError();
    const QString notifications = broker.isEmpty()
        ? QStringLiteral("Notifications arrive.")
        : QStringLiteral("No notifications arrive (%1); everything else works.").arg(broker);
    return context.output.done(
        QStringLiteral("Logged in as %1 <%2>, role: %3. %4")
            .arg(user->name(), user->email(), role.isEmpty() ? QStringLiteral("none") : role,
                notifications),
        { { QStringLiteral("name"), user->name() }, { QStringLiteral("email"), user->email() },
            { QStringLiteral("role"), role }, { QStringLiteral("brokerError"), broker } });
}

/// The host's loop runs, so that notifications are applied and shown as they come.
int watch(Context &context, int seconds)
{
    context.output.line(QStringLiteral("Watching; Ctrl-C ends."));
    QEventLoop loop;
    if (seconds > 0)
        QTimer::singleShot(seconds * 1000, &loop, &QEventLoop::quit);
    loop.exec(); // ended by Ctrl-C too
    return context.output.done(QString());
}

} // namespace

void addSessionCommands(CLI::App &app, Action &action)
{
    app.add_subcommand("login", "Log in, show who you are and whether notifications arrive")
        ->callback([&action] { action = showLogin; });

    CLI::App *watching = app.add_subcommand("watch", "Show what happens as it happens");
    const auto seconds = std::make_shared<int>(0);
    watching->add_option("--seconds", *seconds, "End after so many seconds");
    watching->callback([&action, seconds] {
        action = [seconds](Context &context) { return watch(context, *seconds); };
    });
}

void addCommands(CLI::App &app, Action &action)
{
    addSessionCommands(app, action);
    addProjectCommands(app, action);
    addContentCommands(app, action);
    addDataCommands(app, action);
    addFileCommands(app, action);
    addOcrCommands(app, action);
    addResourceCommands(app, action);
    addTableCommands(app, action);
    addTemplateCommands(app, action);
    addUserCommands(app, action);
    addRoleCommands(app, action);
}

} // namespace kvx::cli
