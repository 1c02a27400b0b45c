#include "Ring.h"

#include "invariants/FolderSnapshot.h"
#include "invariants/RunCheck.h"
#include "load/ProcessFigures.h"
#include "store/Db.h"
#include "support/WaitFor.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <algorithm>
#include <iostream>

namespace kvx::test {

namespace {

constexpr int callLimit = 60000; // ms
constexpr int items = 30;
constexpr double mebibyte = 1024 * 1024;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr double memoryLimit = 2048; // MiB
#else
constexpr double memoryLimit = 256; // MiB, of a process that works on a small project
#endif

/// Around all that a program's rows may change, which is below its "tmp"; goes at the end.
const QDir &world()
{
    static const QTemporaryDir folder;
    static const QDir dir(folder.path());
    return dir;
}

/// Home, working folder and temporary files of all processes from here on.
void enterWorld()
{
    for (const char *name : { "home", "tmp" })
        ASSERT_TRUE(world().mkpath(QLatin1String(name)));
    written(world().filePath(QStringLiteral("home/letter")), "not ours");
    written(world().filePath(QStringLiteral("letter")), "not ours either");
    qputenv("HOME", QFile::encodeName(world().filePath(QStringLiteral("home"))));
    qputenv("TMPDIR", QFile::encodeName(world().filePath(QStringLiteral("tmp"))));
    ASSERT_TRUE(QDir::setCurrent(world().path()));
}

QString member(int number)
{
    return number == 0 ? QStringLiteral("anna") : QStringLiteral("ben");
}

bool isDone(const QJsonObject &result)
{
    return exitOf(result) == 0;
}

} // namespace

std::unique_ptr<Ring::Shared> Ring::s_ring;

void Ring::SetUpTestSuite()
{
    if (s_ring)
        return;
    enterWorld();
    s_ring = std::make_unique<Shared>();
    // A killed saver's lock is soon free.
    siteOptions() = QStringList { QStringLiteral("--lock.lease"), QStringLiteral("1s") };
    static bool running = false;
    server().beginStarts();
    if (running)
        site().stopServer(); // it is armed by what has gone
    const bool started = !site().server().isEmpty() && (!running || site().startServer());
    running = true;
    Armed::endStarts();
    ASSERT_TRUE(started) << site().error().toStdString();
    s_ring->team = std::make_unique<Team>(2);
    ASSERT_TRUE(start(0));
}

void Ring::TearDownTestSuite()
{
    s_ring.reset();
    expectStoreInOrder();
}

bool Ring::start(int number)
{
    // Only anna's process; what the test arms must not reach ben's.
    if (number == 0)
        client().beginStarts();
    const bool started = s_ring->team->restart(number);
    Armed::endStarts();
    return started;
}

void Ring::SetUp()
{
    m_timer.start();
    m_folder = std::make_unique<QTemporaryDir>();
    m_history = std::make_unique<History>(m_folder->filePath(QStringLiteral("history")));
    const QString outside = m_folder->filePath(QStringLiteral("outside"));
    ASSERT_TRUE(
        FolderSnapshot::take(world().path(), { world().filePath(QStringLiteral("tmp")) }, outside));
    m_history->note("outside",
        { { QStringLiteral("folder"), world().path() }, { QStringLiteral("snapshot"), outside } });
    const QString name = freshName(QStringLiteral("ring"));
    const QJsonObject made = ask(0, QStringLiteral("new %1 --from %2").arg(name, billFile(items)));
    ASSERT_TRUE(isDone(made)) << errorOf(made).toStdString();
    guid = made.value(QLatin1String("guid")).toString();
    const QJsonObject opened = ask(0, QStringLiteral("open ") + guid);
    const QString base = m_folder->filePath(QStringLiteral("base"));
    ASSERT_TRUE(QFile::copy(opened.value(QLatin1String("path")).toString(), base))
        << errorOf(opened).toStdString();
    m_history->note(
        "base", { { QStringLiteral("project"), guid }, { QStringLiteral("file"), base } });
    shareWithBen();
    ASSERT_FALSE(HasFatalFailure());
    ASSERT_TRUE(isDone(ask(1, QStringLiteral("open ") + guid)));
    anna().takeEvents();
    ben().takeEvents();
    ASSERT_TRUE(edit(0, 1, 10));
    ASSERT_TRUE(isDone(save(0)));
    // What follows from this save must not pass the points of the next.
    ASSERT_TRUE(anna().waitForEvent(QStringLiteral("projectSaved")));
    ASSERT_TRUE(ben().waitForEvent(QStringLiteral("projectSaved")));
    noteArchives(dataFolder(), *m_history);
}

void Ring::shareWithBen()
{
    ben().takeEvents(); // those of other projects
    const QJsonObject shared
        = ask(0, QStringLiteral("permissions %1 --set %2=1").arg(guid, email(1)));
    ASSERT_TRUE(isDone(shared)) << errorOf(shared).toStdString();
    ASSERT_TRUE(ben().waitForEvent(QStringLiteral("projectNew")));
}

void Ring::TearDown()
{
    client().disarm();
    server().disarm();
    if (HasFailure())
        tellWhatHappened();
    if (!guid.isEmpty()) {
        for (const int number : { 0, 1 }) {
            if (s_ring->team->member(number).isRunning())
                ask(number, QStringLiteral("close ") + guid);
        }
    }
}

/// The server's last lines and ben's events: who asked what, and who heard of it.
void Ring::tellWhatHappened()
{
    QFile log(site().outputFile());
    if (log.open(QIODevice::ReadOnly)) {
        log.seek(std::max<qint64>(0, log.size() - 20'000));
        std::cerr << log.readAll().toStdString();
    }
    for (const QJsonObject &event : ben().takeEvents())
        std::cerr << QJsonDocument(event).toJson(QJsonDocument::Compact).toStdString() << '\n';
}

QJsonObject Ring::ask(int number, const QString &command)
{
    send(number, command);
    return answer(number);
}

void Ring::send(int number, const QString &command)
{
    m_call = m_history->begin(member(number), command, callLimit);
    s_ring->team->member(number).send(command);
}

QJsonObject Ring::answer(int number)
{
    const QJsonObject result = s_ring->team->member(number).result(callLimit);
    if (!result.isEmpty())
        m_history->end(m_call);
    return result;
}

bool Ring::edit(int number, int item, int newRate)
{
    const QJsonObject result
        = ask(number, QStringLiteral("edit %1 01.%2 rate=%3").arg(guid).arg(item).arg(newRate));
    EXPECT_TRUE(isDone(result)) << errorOf(result).toStdString();
    return isDone(result);
}

QJsonObject Ring::save(int number)
{
    const QJsonObject result = ask(number, QStringLiteral("save ") + guid);
    noteSaved(number, result);
    return result;
}

void Ring::noteSaved(int number, const QJsonObject &result)
{
    if (isDone(result)) {
        EXPECT_FALSE(result.value(QLatin1String("digest")).toString().isEmpty())
            << "the judge could not compare what was saved";
        m_history->noteSaved(email(number), guid, result);
    }
}

int Ring::pending(int number)
{
    return ask(number, QStringLiteral("status ") + guid).value(QLatin1String("pending")).toInt(-1);
}

QString Ring::rate(int number, int item)
{
    const QJsonObject shown = ask(number, QStringLiteral("show ") + guid);
    for (const QJsonValue &row : shown.value(QLatin1String("list")).toArray()) {
        if (row.toObject().value(QLatin1String("number")).toString()
            == QStringLiteral("01.%1").arg(item))
            return row.toObject().value(QLatin1String("rate")).toString();
    }
    return {};
}

Ring::Published Ring::published()
{
    kvx::server::Db db(dataFolder().toStdString() + "/db/kvx.sqlite");
    const auto row = db.row<int, std::optional<std::string>>(
        "SELECT log_version, file_blob FROM project WHERE guid = :guid",
        { { "guid", guid.toStdString() } });
    if (!row)
        return {};
    return { std::get<0>(*row), QString::fromStdString(std::get<1>(*row).value_or("")) };
}

void Ring::awaitAnnounced()
{
    kvx::server::Db db(dataFolder().toStdString() + "/db/kvx.sqlite");
    const char *unsent = "SELECT count(*) FROM outbox WHERE sent_at IS NULL";
    ASSERT_TRUE(waitFor([&] { return db.value<int>(unsent) == 0; }));
    // The publisher goes on from its last commit while this is asked and answered.
    ASSERT_TRUE(isDone(ask(0, QStringLiteral("sync ") + guid)));
}

QString Ring::dataFolder()
{
    return site().dataFolder();
}

void Ring::killed(int number)
{
    s_ring->team->member(number).kill(); // it has ended; this takes note of it
    m_history->note("killed", { { QStringLiteral("process"), member(number) } });
}

bool Ring::startAnna()
{
    client().disarm();
    return start(0);
}

void Ring::restartAnna()
{
    ASSERT_TRUE(startAnna()) << anna().error().toStdString();
    const QJsonObject opened = ask(0, QStringLiteral("open ") + guid);
    ASSERT_TRUE(isDone(opened)) << errorOf(opened).toStdString();
    // Nothing of a copy may have been given up over a crash.
    EXPECT_EQ(opened.value(QLatin1String("notice")).toString().toStdString(), "");
}

bool Ring::restartBen()
{
    return start(1);
}

void Ring::restartServer()
{
    restartServer(false, [] {});
}

void Ring::restartServer(bool inOrder, const std::function<void()> &meanwhile)
{
    if (inOrder)
        site().stopServer();
    else
        site().killServer();
    meanwhile();
    server().disarm();
    server().beginStarts();
    const bool started = site().startServer();
    Armed::endStarts();
    ASSERT_TRUE(started) << site().error().toStdString();
}

void Ring::converge()
{
    for (const int number : { 0, 1 }) {
        if (pending(number) == 0)
            continue;
        const QJsonObject result = save(number);
        ASSERT_TRUE(isDone(result))
            << member(number).toStdString() << ": " << errorOf(result).toStdString();
    }
    for (const int number : { 0, 1 }) {
        const QJsonObject result = ask(number, QStringLiteral("sync ") + guid);
        ASSERT_TRUE(isDone(result))
            << member(number).toStdString() << ": " << errorOf(result).toStdString();
        m_history->noteSynced(email(number), guid, ask(number, QStringLiteral("status ") + guid));
    }
    m_history->note("converged", { { QStringLiteral("project"), guid } });
    judge();
}

void Ring::noteProcesses()
{
    const auto memory = [this](const QString &process, qint64 pid) {
        const double taken = figuresOf(pid).memoryMiB;
        EXPECT_GT(taken, 0) << process.toStdString();
        m_history->note("memory",
            { { QStringLiteral("process"), process }, { QStringLiteral("bytes"), taken * mebibyte },
                { QStringLiteral("limit"), memoryLimit * mebibyte } });
    };
    memory(QStringLiteral("server"), site().serverPid());
    for (const int number : { 0, 1 })
        memory(member(number), s_ring->team->member(number).pid());
    m_history->note("stderr", { { QStringLiteral("file"), site().outputFile() } });
}

void Ring::judge()
{
    noteProcesses();
    RunTraces traces;
    traces.data = dataFolder();
    for (const int number : { 0, 1 })
        traces.homes.append(s_ring->team->account(number).home);
    traces.history = m_history->file();
    traces.temporaries << world().filePath(QStringLiteral("tmp"));
    traces.projects = QStringList { guid };
    traces.deep = false; // at the end of all rows
    for (const Fault &fault : checkRun(traces))
        ADD_FAILURE() << fault.line().toStdString();
}

bool Ring::isSwept(qint64 pid)
{
    const QStringList left = QDir::temp().entryList(
        { QStringLiteral("kvx-*-%1-*").arg(pid) }, QDir::Dirs | QDir::Hidden);
    return left.isEmpty();
}

} // namespace kvx::test
