#include "Team.h"
#include "support/Watchdog.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QMap>
#include <QTemporaryDir>
#include <cstdio>
#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <thread>

using namespace kvx::test;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int randomSeeds = 2; // each is several times slower there
#else
constexpr int randomSeeds = 20;
#endif

/// Five clients do random things at the same time, then everybody must see what the server sees.
class RandomTeam {
public:
    explicit RandomTeam(unsigned seed)
        : m_team(5)
        , m_random(seed)
    {
    }

    Team &team() { return m_team; }
    void run(int operations, const std::function<void(int done)> &meanwhile = {});
    void expectConvergence();
    /// How often each kind of operation did what it was to do; a save, when it published.
    const QMap<QString, int> &successes() const { return m_successes; }

private:
    struct Project {
        QString guid;
        int creator;
        bool removed = false;
    };
    /// What a process sees that starts afresh.
    struct View {
        QMap<QString, QJsonObject> list;
        QMap<QString, QJsonObject> status;
        QMap<QString, QJsonArray> items;
    };

    int pick(int count) { return static_cast<int>(m_random() % static_cast<unsigned>(count)); }
    QString randomCommand(int member);
    QString projectCommand(int member, const Project &project);
    void createProject(int creator);
    void removeAProject();
    void judge(const QString &command, const QJsonObject &result);
    QMap<QString, QJsonObject> listOf(const QJsonObject &result) const;
    View freshView(int member);
    void expectSameList(int member, const View &expected);
    void expectSameProjects(int member, const View &expected);

    Team m_team;
    std::mt19937 m_random;
    std::vector<Project> m_projects;
    QMap<QString, int> m_successes;
};

void RandomTeam::createProject(int creator)
{
    const QString name = freshName(QStringLiteral("project"));
    const QJsonObject made
        = m_team.member(creator).run(QStringLiteral("new %1 --from %2").arg(name, billFile(20)));
    ASSERT_EQ(exitOf(made), 0) << errorOf(made).toStdString();
    QString grants;
    for (int i = 0; i < m_team.size(); ++i) {
        if (i != creator)
            grants += QStringLiteral(" --set %1=1,1,1,1").arg(m_team.email(i));
    }
    const QJsonObject granted
        = m_team.member(creator).run(QStringLiteral("permissions %1%2").arg(name, grants));
    ASSERT_EQ(exitOf(granted), 0) << errorOf(granted).toStdString();
    m_projects.push_back({ made.value(QLatin1String("guid")).toString(), creator });
}

/// Closed everywhere, so that it can be; the game goes on with it, and must get nowhere.
void RandomTeam::removeAProject()
{
    std::vector<Project *> there;
    for (Project &project : m_projects) {
        if (!project.removed)
            there.push_back(&project);
    }
    if (there.size() < 3)
        return;
    Project &project = *there.at(static_cast<std::size_t>(pick(static_cast<int>(there.size()))));
    for (int i = 0; i < m_team.size(); ++i)
        m_team.member(i).run(QStringLiteral("close ") + project.guid);
    const QString command = QStringLiteral("remove ") + project.guid;
    const QJsonObject removed = m_team.member(project.creator).run(command);
    EXPECT_EQ(exitOf(removed), 0) << errorOf(removed).toStdString();
    judge(command, removed);
    project.removed = true;
}

/// Refusals are part of the game; a usage error, a lost server or silence is not.
void RandomTeam::judge(const QString &command, const QJsonObject &result)
{
    const int exit = exitOf(result);
    EXPECT_NE(exit, -1) << "no answer to " << command.toStdString();
    for (const int never : { 2, 3, 4 })
        EXPECT_NE(exit, never) << command.toStdString() << ": " << errorOf(result).toStdString();
    if (exit != 0)
        return;
    const QStringList words = command.split(QLatin1Char(' '));
    if (words.first() != QLatin1String("save") || result.value(QLatin1String("published")).toBool())
        ++m_successes[words.first()];
    for (const Project &project : m_projects)
        EXPECT_FALSE(project.removed && project.guid == words.at(1)
            && words.first() != QLatin1String("close"))
            << command.toStdString() << ", after its removal";
}

QString RandomTeam::projectCommand(int member, const Project &project)
{
    const QString item = QStringLiteral("01.%1").arg(1 + pick(20));
    switch (pick(12)) {
    case 0:
    case 1:
    case 2:
        return QStringLiteral("edit %1 %2 rate=%3.75").arg(project.guid, item).arg(pick(900));
    case 3:
    case 4:
    case 5:
        return QStringLiteral("save %1").arg(project.guid);
    case 6:
        return QStringLiteral("checkout %1 %2 01.%3").arg(project.guid, item).arg(1 + pick(20));
    case 7:
        return QStringLiteral("checkin %1 --all").arg(project.guid);
    case 8:
        return QStringLiteral("add %1 01.x%2 quantity=3 unit=m --chapter 01")
            .arg(project.guid)
            .arg(m_random() % 1000000);
    case 9:
        return QStringLiteral("sync %1").arg(project.guid);
    case 10:
        return QStringLiteral("rename %1 %2")
            .arg(project.guid, freshName(QStringLiteral("renamed")));
    default:
        if (member != project.creator)
            return QStringLiteral("show %1 01").arg(project.guid);
        // Take somebody's access away, or give it back.
        return QStringLiteral("permissions %1 %2 %3")
            .arg(project.guid, pick(2) ? QStringLiteral("--set") : QStringLiteral("--remove"),
                m_team.email((member + 1 + pick(m_team.size() - 1)) % m_team.size()));
    }
}

QString RandomTeam::randomCommand(int member)
{
    const Project &project
        = m_projects.at(static_cast<std::size_t>(pick(static_cast<int>(m_projects.size()))));
    if (pick(30) == 0)
        return QStringLiteral("close %1").arg(project.guid);
    QString command = projectCommand(member, project);
    if (command.contains(QLatin1String("--set ")))
        command += QStringLiteral("=%1,1,1,1").arg(pick(3) ? 1 : 0);
    return command;
}

void RandomTeam::run(int operations, const std::function<void(int done)> &meanwhile)
{
    for (int creator = 0; creator < 3; ++creator)
        createProject(creator);
    int done = 0;
    while (done < operations) {
        if (pick(10) == 0)
            createProject(pick(m_team.size()));
        if (pick(8) == 0)
            removeAProject();
        // All at the same time.
        QStringList commands;
        for (int i = 0; i < m_team.size(); ++i) {
            commands.append(randomCommand(i));
            m_team.member(i).send(commands.last());
        }
        for (int i = 0; i < m_team.size(); ++i) {
            judge(commands.at(i), m_team.member(i).result(120000));
            ++done;
        }
        if (testing::Test::HasFailure())
            return;
        if (meanwhile)
            meanwhile(done);
    }
}

/// The list by GUID, without what a client learns only in part from notifications: the version is
/// the synchroniser's, a rename brings no editor, and entries by role are the receiver's own.
QMap<QString, QJsonObject> RandomTeam::listOf(const QJsonObject &result) const
{
    QMap<QString, QJsonObject> list;
    for (const QJsonValue &value : result.value(QLatin1String("projects")).toArray()) {
        QJsonObject record = value.toObject();
        for (const char *key :
            { "LogVersion", "LastEditorName", "LastEditorEmail", "LastModifyDate" })
            record.remove(QLatin1String(key));
        QJsonArray users;
        for (const QJsonValue &user : record.value(QLatin1String("users")).toArray()) {
            const QJsonArray levels = user.toObject().value(QLatin1String("Permission")).toArray();
            if (levels.at(1).toObject().value(QLatin1String("Money")).toInt() != 9)
                users.append(user);
        }
        record.insert(QStringLiteral("users"), users);
        list.insert(record.value(QLatin1String("ProjectGUID")).toString(), record);
    }
    return list;
}

RandomTeam::View RandomTeam::freshView(int member)
{
    const QTemporaryDir home;
    kvx::host::ShellProcess::Account account = m_team.account(member);
    account.home = home.path();
    kvx::host::ShellProcess shell;
    View view;
    EXPECT_TRUE(shell.start(site().kvx(), site().server(), account)) << shell.error().toStdString();
    view.list = listOf(shell.run(QStringLiteral("projects")));
    for (const QString &guid : view.list.keys()) {
        view.status[guid] = shell.run(QStringLiteral("status %1").arg(guid));
        view.items[guid]
            = shell.run(QStringLiteral("show %1").arg(guid)).value(QLatin1String("list")).toArray();
    }
    EXPECT_TRUE(shell.stop());
    return view;
}

void RandomTeam::expectSameList(int member, const View &expected)
{
    QMap<QString, QJsonObject> seen;
    QElapsedTimer timer;
    timer.start();
    do {
        seen = listOf(m_team.member(member).run(QStringLiteral("projects")));
        if (seen == expected.list)
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    } while (timer.elapsed() < 15000);
    EXPECT_EQ(QStringList(seen.keys()).join(QLatin1Char(' ')).toStdString(),
        QStringList(expected.list.keys()).join(QLatin1Char(' ')).toStdString());
    for (const QString &guid : expected.list.keys())
        EXPECT_EQ(QJsonDocument(seen.value(guid)).toJson().toStdString(),
            QJsonDocument(expected.list.value(guid)).toJson().toStdString());
}

void RandomTeam::expectSameProjects(int member, const View &expected)
{
    for (const QString &guid : expected.list.keys()) {
        const QJsonObject synced = m_team.member(member).run(QStringLiteral("sync %1").arg(guid));
        EXPECT_EQ(exitOf(synced), 0) << errorOf(synced).toStdString();
        const QJsonObject status = m_team.member(member).run(QStringLiteral("status %1").arg(guid));
        for (const char *key : { "version", "pending", "digest", "total", "items" })
            EXPECT_EQ(
                status.value(QLatin1String(key)), expected.status[guid].value(QLatin1String(key)))
                << key << " of " << guid.toStdString() << " at "
                << m_team.email(member).toStdString() << ": "
                << QJsonDocument(status).toJson().toStdString()
                << QJsonDocument(expected.status[guid]).toJson().toStdString();
        const QJsonArray seen = m_team.member(member)
                                    .run(QStringLiteral("show %1").arg(guid))
                                    .value(QLatin1String("list"))
                                    .toArray();
        const QJsonArray &truth = expected.items[guid];
        ASSERT_EQ(seen.size(), truth.size());
        for (int i = 0; i < seen.size(); ++i) {
            const QJsonObject mine = seen.at(i).toObject();
            EXPECT_EQ(mine.value(QLatin1String("state")).toInt(),
                truth.at(i).toObject().value(QLatin1String("state")).toInt())
                << guid.toStdString() << " item "
                << mine.value(QLatin1String("number")).toString().toStdString();
        }
    }
}

void RandomTeam::expectConvergence()
{
    // First everybody publishes what is left, where he still may.
    for (int i = 0; i < m_team.size(); ++i) {
        const auto list = listOf(m_team.member(i).run(QStringLiteral("projects")));
        for (const QString &guid : list.keys()) {
            const QJsonObject status = m_team.member(i).run(QStringLiteral("status %1").arg(guid));
            if (status.value(QLatin1String("pending")).toInt() == 0)
                continue;
            // Read access only: nothing to publish with.
            if (exitOf(m_team.member(i).run(QStringLiteral("save %1 --theirs").arg(guid))) != 0)
                m_team.member(i).run(QStringLiteral("discard %1").arg(guid));
        }
    }
    for (int i = 0; i < m_team.size() && !testing::Test::HasFailure(); ++i) {
        const View view = freshView(i);
        for (const Project &project : m_projects)
            EXPECT_FALSE(project.removed && view.list.contains(project.guid))
                << project.guid.toStdString() << " was removed";
        expectSameList(i, view);
        if (!testing::Test::HasFailure())
            expectSameProjects(i, view);
    }
    expectStoreInOrder();
}

QMap<QString, int> playRandomGame(unsigned seed)
{
    Watchdog::allow(400);
    RandomTeam team(seed);
    team.run(200);
    if (!testing::Test::HasFailure())
        team.expectConvergence();
    return team.successes();
}

class TeamOfFive : public testing::TestWithParam<unsigned> { };

} // namespace

TEST(Team, EverybodySeesWhatTheServerSeesAfterAFixedGame)
{
    const QMap<QString, int> successes = playRandomGame(20261121);
    for (const char *operation : { "edit", "save", "checkout", "checkin", "add", "sync", "rename",
             "show", "permissions", "close", "remove" }) {
        const int count = successes.value(QLatin1String(operation));
        EXPECT_GT(count, 0) << operation;
        std::printf("%s %d  ", operation, count);
    }
    std::printf("\n");
}

TEST_P(TeamOfFive, EverybodySeesWhatTheServerSees)
{
    playRandomGame(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Seeds, TeamOfFive, testing::Range(1u, 1u + randomSeeds));

TEST(Team, ABrokerThatIsAwayForAMinuteCostsNothing)
{
    Watchdog::allow(600);
    RandomTeam team(4711);
    bool away = false;
    QElapsedTimer timer;
    bool back = false;
    team.run(200, [&](int done) {
        if (!away && done >= 80) {
            site().stopBroker();
            away = true;
            timer.start();
        }
        if (away && !back && done >= 150) {
            std::this_thread::sleep_for(
                std::chrono::milliseconds(std::max<qint64>(0, 60000 - timer.elapsed())));
            ASSERT_TRUE(site().startBroker()) << site().error().toStdString();
            back = true;
        }
    });
    ASSERT_TRUE(back);
    // The clients come back by themselves and read again what they missed.
    for (int i = 0; i < team.team().size(); ++i)
        EXPECT_TRUE(team.team().member(i).waitForEvent(QStringLiteral("connected"), 60000));
    team.expectConvergence();
}
