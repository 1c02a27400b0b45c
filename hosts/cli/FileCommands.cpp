#include "cli/Commands.h"
#include "client/Client.h"

#include <CLI/CLI.hpp>
#include <KVXCollaboration/KVXCWFileService.h>
#include <KVXCollaboration/KVXCWFileServiceProgress.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <QFileInfo>
#include <cstdio>
#include <memory>
#include <unistd.h>

namespace kvx::cli {

namespace {

struct Arguments {
    std::string local;
    std::string remote;
};

/// A line that is rewritten as bytes move; only on a terminal.
class ProgressBar : public KVXCWFileServiceProgress {
public:
    explicit ProgressBar(bool wanted)
        : m_shown(wanted && isatty(STDERR_FILENO))
    {
    }
    ~ProgressBar() override
    {
        if (m_shown && m_percent >= 0)
            std::fputc('\n', stderr);
    }

    void setProgress(qint64 done, qint64 total) override
    {
        const int percent = total > 0 ? static_cast<int>(done * 100 / total) : 0;
        if (!m_shown || percent == m_percent)
            return;
        m_percent = percent;
        std::fprintf(stderr, "\r[%-40.*s] %3d %%", 40,
            std::string(static_cast<std::size_t>(percent * 40 / 100), '#').c_str(), percent);
        std::fflush(stderr);
    }

private:
    bool m_shown;
    int m_percent = -1;
};

int upload(Context &context, const Arguments &arguments)
{
    const QString local = QString::fromStdString(arguments.local);
    QString remote = QString::fromStdString(arguments.remote);
    if (remote.isEmpty())
        remote = QFileInfo(local).fileName();
    if (!QFileInfo(local).isFile() || !QFileInfo(local).isReadable())
        return context.output.failed(
            Refused, QStringLiteral("%1: there is no such file, or it cannot be read").arg(local));
    ProgressBar bar(!context.output.json());
    if (!KVXCollaborator::getInstance()->fileService()->upload(local, remote, &bar))
        return context.output.failed(Refused,
            host::failureReason(QStringLiteral("The server did not accept \"%1\".").arg(remote)));
    return context.output.done(QStringLiteral("Uploaded as \"%1\".").arg(remote));
}

int download(Context &context, const Arguments &arguments)
{
    const QString local = QString::fromStdString(arguments.local);
    const QString remote = QString::fromStdString(arguments.remote);
    ProgressBar bar(!context.output.json());
    if (!KVXCollaborator::getInstance()->fileService()->download(remote, local, &bar))
        return context.output.failed(Refused,
            host::failureReason(QStringLiteral("The server has no file \"%1\".").arg(remote)));
    return context.output.done(QStringLiteral("Stored as %1.").arg(local));
}

} // namespace

void addFileCommands(CLI::App &app, Action &action)
{
    const auto arguments = std::make_shared<Arguments>();
    CLI::App *up = app.add_subcommand("upload", "Send a file to the server");
    up->add_option("file", arguments->local, "Local file")->required();
    up->add_option("--name", arguments->remote, "Its name on the server");
    up->callback([&action, arguments] {
        action = [arguments](Context &context) { return upload(context, *arguments); };
    });
    CLI::App *down = app.add_subcommand("download", "Fetch a file from the server");
    down->add_option("name", arguments->remote, "Its name on the server")->required();
    down->add_option("file", arguments->local, "Local file to write")->required();
    down->callback([&action, arguments] {
        action = [arguments](Context &context) { return download(context, *arguments); };
    });
}

} // namespace kvx::cli
