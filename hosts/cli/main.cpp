#include "cli/Interrupt.h"
#include "cli/Options.h"
#include "cli/Shell.h"
#include "client/DatabaseMemory.h"
#include "client/TemporaryFolder.h"
#include "client/TimeZone.h"

#include <KVXCommon/KVXLog.h>
#include <QCoreApplication>
#include <csignal>

namespace {

using namespace kvx;

int beginFailed(
    KVXErrorCode code, const QString &reason, const host::Client &client, cli::Output &output)
{
    if (code == KVXLoginRefused)
        return output.failed(cli::LoginRefused,
            QStringLiteral("E-mail or password is wrong. Tries left: %1.").arg(client.triesLeft()),
            { { QStringLiteral("triesLeft"), client.triesLeft() } });
    return output.failed(code == KVXFailed ? cli::Unreachable : cli::LoginRefused, reason,
        { { QStringLiteral("code"), code } });
}

} // namespace

int main(int argc, char **argv)
{
    host::nameTimeZone();
    host::limitDatabaseMemory();
    const host::TemporaryFolder temporary;
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("kvx"));

    CLI::App app("Share tender projects through a collaboration server", "kvx");
    cli::Options options;
    cli::Action action;
    cli::addOptions(app, options);
    cli::addCommands(app, action);
    bool shell = false;
    app.add_subcommand("shell", "Read commands from standard input, one a line")
        ->callback([&shell] { shell = true; });
    app.require_subcommand(1);
    app.set_version_flag("--version", "kvx " KVX_VERSION);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? cli::Done : cli::Usage;
    }

    cli::Output output(options.json);
    host::ClientOptions clientOptions;
    QString error;
    if (!cli::clientOptions(options, clientOptions, error))
        return output.failed(cli::Usage, error);
    if (!options.log.empty()
        && !KVXLog::initFile(QString::fromStdString(options.log), log4cplus::INFO_LOG_LEVEL))
        return output.failed(cli::Usage, QStringLiteral("The log file cannot be written."));
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN); // a file that may not grow is an error to report
    const cli::Interrupt interrupt;

    host::Client client(clientOptions);
    QObject::connect(&client, &host::Client::happened,
        [&output](const QString &event, const QJsonObject &data) { output.event(event, data); });
    const KVXErrorCode begun = client.begin(&error);
    if (begun != KVXOk)
        return beginFailed(begun, error, client, output);

    int exit = cli::Done;
    if (shell) {
        exit = cli::Shell(client, output).run();
    } else {
        cli::Context context { client, output, false };
        client.forgetFailures();
        exit = action(context);
    }
    client.end();
    return exit;
}
