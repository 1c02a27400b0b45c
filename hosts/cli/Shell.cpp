#include "cli/Shell.h"

#include "client/Client.h"

#include <CLI/CLI.hpp>
#include <KVXCollaboration/KVXCWCommon.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <QCoreApplication>
#include <QPointer>
#include <iostream>

namespace kvx::cli {

int runCommand(const std::string &line, Context &context)
{
    CLI::App app("", "");
    app.require_subcommand(1);
    Action action;
    addCommands(app, action);
    try {
        app.parse(line, false);
    } catch (const CLI::CallForHelp &) {
        return context.output.done(QString::fromStdString(app.help()));
    } catch (const CLI::ParseError &error) {
        return context.output.failed(Usage, QString::fromUtf8(error.what()));
    }
    context.client.forgetFailures();
    return action(context);
}

Shell::Shell(host::Client &client, Output &output)
    : m_context { client, output, true }
{
}

void Shell::execute(const std::string &line)
{
    if (line.find_first_not_of(" \t\r") == std::string::npos)
        return;
    if (line == "exit") {
        QCoreApplication::exit(m_exit);
        return;
    }
    KVXCollaborator::getInstance()->common()->tick(); // who types is at work
    m_exit = runCommand(line, m_context);
}

int Shell::run()
{
    m_context.output.event(QStringLiteral("ready"), {});
    // Reading blocks; the host's thread must not.
    std::thread reader([shell = QPointer<Shell>(this)] {
        std::string line;
        while (std::getline(std::cin, line)) {
            QMetaObject::invokeMethod(
                QCoreApplication::instance(),
                [shell, line] {
                    if (shell)
                        shell->execute(line);
                },
                Qt::QueuedConnection);
        }
        QMetaObject::invokeMethod(
            QCoreApplication::instance(), [] { QCoreApplication::quit(); }, Qt::QueuedConnection);
    });
    reader.detach();
    QCoreApplication::exec();
    return m_exit;
}

} // namespace kvx::cli
