#include "cli/UseProject.h"
#include "content/Schema.h"

#include <CLI/CLI.hpp>
#include <KVXCollaboration/KVXCWIDManager.h>
#include <KVXCollaboration/KVXProjectInfo.h>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>
#include <memory>

namespace kvx::cli {

namespace {

struct Arguments {
    std::string project;
    std::vector<std::string> items;
    bool all = false;
    bool mine = false;
    bool theirs = false;
    int version = 0;
    int seconds = 30;
    int lockWait = -1;
};

using Side = KVXProjectDatabase::ClashChoice;

void chooseSide(const Arguments &arguments, Context &context)
{
    context.client.setClashChoice(arguments.mine ? Side::Mine
            : arguments.theirs                   ? Side::Theirs
                                                 : Side::Refuse);
}

/// Reports a failed merge of a project that is open.
int mergeFailed(Context &context, host::OpenProject &project, const QString &reason)
{
    return mergeFailed(
        context, reason, project.database().failure() == kvx::sqlite::Failure::Clash);
}

void mentionConflicts(Context &context, host::OpenProject &project, const QString &before)
{
    const QString file = project.database().conflictsFile();
    if (file != before)
        context.output.line(QStringLiteral("What gave way is kept in %1").arg(file));
}

int checkOut(Context &context, const Arguments &arguments)
{
    int refusal = Refused;
    host::OpenProject *project = useProject(context, arguments.project, refusal);
    if (!project)
        return refusal;
    const QList<int> ids = findItems(context, *project, arguments.items);
    if (ids.isEmpty())
        return Refused;
    if (project->ids()->checkOut(content::ItemModule, ids))
        return context.output.done(
            QStringLiteral("%1 items are checked out to you.").arg(ids.size()));
    QStringList held;
    for (const int id : ids) {
        KVXItemCheckState holder;
        const bool other = project->ids()->checkState(content::ItemModule, id, holder)
            == KVXItemCheckState::CheckedOutByOther;
        const auto item = project->bill().item(id);
        if (other && item)
            held.append(QStringLiteral("%1 by %2").arg(item->number, holder.name));
    }
    return context.output.failed(Refused,
        held.isEmpty() ? QStringLiteral("The server did not check the items out.")
                       : QStringLiteral("Nothing was checked out. Held: %1.")
                             .arg(held.join(QLatin1String(", "))));
}

int checkIn(Context &context, const Arguments &arguments)
{
    int refusal = Refused;
    host::OpenProject *project = useProject(context, arguments.project, refusal);
    if (!project)
        return refusal;
    if (project->database().pendingCount() > 0)
        return context.output.failed(
            Refused, QStringLiteral("There are unsaved edits; save before you check in."));
    if (arguments.all) {
        return project->ids()->checkInAll()
            ? context.output.done(QStringLiteral("All your items are checked in."))
            : context.output.failed(
                Refused, QStringLiteral("The server did not check the items in."));
    }
    const QList<int> ids = findItems(context, *project, arguments.items);
    if (ids.isEmpty())
        return Refused;
    if (!project->ids()->checkIn(content::ItemModule, ids))
        return context.output.failed(Refused,
            QStringLiteral("The server did not check the items in: not all of them are yours."));
    return context.output.done(QStringLiteral("%1 items are checked in.").arg(ids.size()));
}

QString heldBy(const QString &holder)
{
    return host::OpenProject::textOf(KVXCWProjectData::LockWaitExhausted)
        + (holder.isEmpty() ? QString()
                            : QStringLiteral(" The save lock is held by %1.").arg(holder));
}

int save(Context &context, const Arguments &arguments)
{
    chooseSide(arguments, context);
    int refusal = Refused;
    host::OpenProject *project = useProject(context, arguments.project, refusal);
    if (!project)
        return refusal;
    if (arguments.lockWait >= 0) {
        const QString holder = context.client.waitForSaveLock(*project, arguments.lockWait);
        if (!holder.isEmpty())
            return context.output.failed(NotPublished, heldBy(holder),
                { { QStringLiteral("code"), KVXCWProjectData::LockWaitExhausted },
                    { QStringLiteral("published"), false },
                    { QStringLiteral("version"), project->database().logVersion() } });
    }
    const QString conflicts = project->database().conflictsFile();
    QElapsedTimer timer;
    timer.start();
    const host::OpenProject::SaveResult result = project->save();
    QJsonObject data { { QStringLiteral("code"), result.code },
        { QStringLiteral("published"), result.published },
        { QStringLiteral("notice"), result.published ? result.text : QString() },
        { QStringLiteral("version"), result.version },
        { QStringLiteral("milliseconds"), static_cast<double>(timer.elapsed()) } };
    // Programs compare what was published with what the server keeps; it costs a reading of all.
    if (result.published && context.output.json())
        data.insert(QStringLiteral("digest"),
            QString::fromLatin1(project->database().contentDigest().toHex()));
    mentionConflicts(context, *project, conflicts);
    if (result.published && !result.text.isEmpty())
        context.output.line(result.text);
    if (result.published)
        return context.output.done(QStringLiteral("Saved as version %1 in %2 ms.")
                                       .arg(result.version)
                                       .arg(timer.elapsed()),
            data);
    if (result.code == KVXCWProjectData::MergeLogsFailed)
        return mergeFailed(context, *project, result.text);
    return context.output.failed(NotPublished,
        result.code == KVXCWProjectData::LockWaitExhausted
            ? heldBy(context.client.saveLockHolder(*project))
            : result.text,
        data);
}

int sync(Context &context, const Arguments &arguments)
{
    chooseSide(arguments, context);
    int refusal = Refused;
    host::OpenProject *project = useProject(context, arguments.project, refusal);
    if (!project)
        return refusal;
    const QString conflicts = project->database().conflictsFile();
    const KVXCWProjectData::ErrorCode code = project->sync();
    mentionConflicts(context, *project, conflicts);
    if (code == KVXCWProjectData::MergeLogsFailed)
        return mergeFailed(
            context, *project, host::OpenProject::textOf(code) + project->reasonOf(code));
    if (code != KVXCWProjectData::Success)
        return context.output.failed(Refused,
            host::OpenProject::textOf(code) + project->reasonOf(code),
            { { QStringLiteral("code"), code } });
    const int version = project->database().logVersion();
    return context.output.done(QStringLiteral("Your copy is at version %1.").arg(version),
        { { QStringLiteral("version"), version } });
}

/// Also the way out where the copy cannot be brought up to date, and so not be opened.
int discard(Context &context, const Arguments &arguments)
{
    host::OpenProject::Failure failure;
    host::OpenProject *project
        = context.client.use(QString::fromStdString(arguments.project), &failure);
    const KVXProjectInfo *info = context.client.find(QString::fromStdString(arguments.project));
    if (!info)
        return context.output.failed(Refused, failure.text);
    if (project && project->database().pendingCount() == 0)
        return context.output.done(QStringLiteral("There are no unsaved edits."));
    QString where;
    if (!context.client.discard(QString(info->guid()), &where, &failure))
        return context.output.failed(Refused, failure.text);
    return context.output.done(
        QStringLiteral("Your copy is the server's again; the edits are kept in %1").arg(where),
        { { QStringLiteral("kept"), where } });
}

/// Runs the host's loop until a pushed notification has brought the version.
int waitForVersion(Context &context, const Arguments &arguments)
{
    int refusal = Refused;
    host::OpenProject *project = useProject(context, arguments.project, refusal);
    if (!project)
        return refusal;
    const QString guid = project->guid();
    QElapsedTimer timer;
    timer.start();
    QEventLoop loop;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (!context.client.isOpen(guid) || project->database().logVersion() >= arguments.version
            || timer.elapsed() > arguments.seconds * 1000)
            loop.quit();
    });
    poll.start(5);
    loop.exec();
    if (!context.client.isOpen(guid))
        return context.output.failed(Refused, QStringLiteral("The project was closed meanwhile."));
    const int version = project->database().logVersion();
    const QJsonObject data { { QStringLiteral("version"), version },
        { QStringLiteral("milliseconds"), static_cast<double>(timer.elapsed()) } };
    if (version < arguments.version)
        return context.output.failed(Refused,
            QStringLiteral("Version %1 did not arrive within %2 s; the copy is at %3.")
                .arg(arguments.version)
                .arg(arguments.seconds)
                .arg(version),
            data);
    return context.output.done(QStringLiteral("Version %1 arrived.").arg(version), data);
}

using DataAction = int (*)(Context &, const Arguments &);

} // namespace

void addDataCommands(CLI::App &app, Action &action)
{
    const auto arguments = std::make_shared<Arguments>();
    const auto add = [&](const char *name, const char *help, DataAction run) {
        CLI::App *command = app.add_subcommand(name, help);
        command->add_option("project", arguments->project, "Name or GUID")->required();
        command->callback([&action, arguments, run] {
            action = [arguments, run](Context &context) { return run(context, *arguments); };
        });
        return command;
    };
    const auto addSides = [&](CLI::App *command) {
        auto *mine = command->add_flag(
            "--mine", arguments->mine, "Where a colleague's change and yours clash, yours wins");
        command->add_flag("--theirs", arguments->theirs, "… the colleague's wins")->excludes(mine);
    };

    add("checkout", "Check items out to you: all of them, or none", checkOut)
        ->add_option("items", arguments->items, "Item numbers, or #row")
        ->required();
    CLI::App *in = add("checkin", "Check items in", checkIn);
    auto *items = in->add_option("items", arguments->items, "Item numbers, or #row");
    in->add_flag("--all", arguments->all, "All your items of the project")->excludes(items);
    CLI::App *saving = add("save", "Publish your edits", save);
    addSides(saving);
    saving
        ->add_option("--wait", arguments->lockWait,
            "Give up after so many seconds while a colleague saves (else after seven minutes)")
        ->check(CLI::NonNegativeNumber);
    addSides(add("sync", "Fetch and apply what colleagues saved", sync));
    add("discard", "Give up your unsaved edits; they are kept in a file", discard);
    CLI::App *waiting = add("wait", "Wait until a pushed save has arrived", waitForVersion);
    waiting->add_option("version", arguments->version, "Version to wait for")->required();
    waiting->add_option("--seconds", arguments->seconds, "How long at most");
}

} // namespace kvx::cli
