#include "SharedProject.h"
#include "support/Watchdog.h"

#include <QFile>
#include <QJsonArray>
#include <gtest/gtest.h>
#include <cstdio>
#include <random>
#include <thread>

using namespace kvx::test;

namespace {

const int killRounds = qEnvironmentVariableIsSet("KVX_TEST_LONG") ? 50 : 8;

} // namespace

TEST_F(SharedProject, UnsavedEditsSurviveAKilledHost)
{
    edit(anna(), 1, 11);
    edit(anna(), 2, 12);
    anna().kill();
    ASSERT_TRUE(team.restart(0)) << anna().error().toStdString();
    EXPECT_EQ(pending(anna()), 2);
    save(anna());
    expectEqualCopies();
}

TEST_F(SharedProject, UnsavedEditsSurviveWhileColleaguesSaveMeanwhile)
{
    edit(anna(), 1, 11);
    anna().kill();
    edit(ben(), 5, 55);
    save(ben());
    edit(ben(), 6, 66);
    save(ben());
    ASSERT_TRUE(team.restart(0)) << anna().error().toStdString();
    EXPECT_EQ(pending(anna()), 1);
    EXPECT_EQ(version(anna()), 1);
    save(anna());
    expectEqualCopies();
}

TEST_F(SharedProject, AHostKilledAtAnyMomentOfASaveLosesAndRepeatsNothing)
{
    kvx::test::Watchdog::allow(100 + 20 * killRounds);
    std::mt19937 random(7);
    int published = 0;
    for (int round = 0; round < killRounds; ++round) {
        const int item = round % 30;
        edit(anna(), 1 + item, 100 + round);
        const int before = version(anna());
        anna().send(QStringLiteral("save ") + guid);
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 60));
        anna().kill();
        ASSERT_TRUE(team.restart(0)) << anna().error().toStdString();
        // Published or not: after the next save it is there exactly once.
        ASSERT_GE(version(anna()), before);
        ASSERT_LE(version(anna()), before + 1);
        published += pending(anna()) > 0 ? 0 : 1;
        if (pending(anna()) > 0)
            save(anna());
        ASSERT_EQ(version(anna()), before + 1) << "round " << round;
        expectEqualCopies();
        const QJsonObject shown = ben().run(QStringLiteral("show %1 01").arg(guid));
        const QJsonObject row = shown.value(QLatin1String("list")).toArray().at(item).toObject();
        ASSERT_EQ(
            row.value(QLatin1String("rate")).toString(), QStringLiteral("%1.00").arg(100 + round));
    }
    std::printf("%d kills, %d after the merge\n", killRounds, published);
}

TEST_F(SharedProject, AServerKilledAtAnyMomentOfASaveLosesAndRepeatsNothing)
{
    kvx::test::Watchdog::allow(100 + 20 * killRounds);
    std::mt19937 random(8);
    for (int round = 0; round < killRounds; ++round) {
        edit(anna(), 1 + round % 30, 200 + round);
        anna().send(QStringLiteral("save ") + guid);
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 60));
        site().killServer();
        ASSERT_TRUE(site().startServer()) << site().error().toStdString();
        anna().result(180000); // whatever it says
        if (pending(anna()) > 0)
            save(anna());
        expectEqualCopies();
    }
}

TEST_F(SharedProject, BothSavingAtOnceGetVersionsOneAfterTheOther)
{
    kvx::test::Watchdog::allow(300);
    for (int round = 0; round < 10; ++round) {
        edit(anna(), 1 + round, 300 + round);
        edit(ben(), 15 + round, 400 + round);
        anna().send(QStringLiteral("save ") + guid);
        ben().send(QStringLiteral("save ") + guid);
        const QJsonObject first = anna().result(180000);
        const QJsonObject second = ben().result(180000);
        EXPECT_TRUE(first.value(QLatin1String("published")).toBool())
            << errorOf(first).toStdString();
        EXPECT_TRUE(second.value(QLatin1String("published")).toBool())
            << errorOf(second).toStdString();
        EXPECT_NE(first.value(QLatin1String("version")), second.value(QLatin1String("version")));
    }
    expectEqualCopies();
    EXPECT_EQ(version(anna()), 19);
}

// Such a log shrinks to less than a 200th, which nobody would unpack.
TEST_F(SharedProject, ATextOfOneRepeatedLetterReachesTheColleague)
{
    const QString edited = QStringLiteral("edit %1 01.1 longtext=").arg(guid);
    const QJsonObject result = anna().run(edited + QString(1024 * 1024, QLatin1Char('a')));
    ASSERT_EQ(exitOf(result), 0) << errorOf(result).toStdString();
    save(anna());
    expectEqualCopies();
    EXPECT_EQ(version(ben()), 0);
}

TEST_F(SharedProject, WithoutABrokerWorkOverHttpGoesOn)
{
    kvx::test::Watchdog::allow(300);
    site().stopBroker();
    EXPECT_TRUE(anna().waitForEvent(QStringLiteral("connectionLost")));
    edit(anna(), 1, 11);
    save(anna());
    expectEqualCopies();
    ASSERT_TRUE(site().startBroker()) << site().error().toStdString();
    EXPECT_TRUE(anna().waitForEvent(QStringLiteral("connected"), 60000));
    EXPECT_TRUE(ben().waitForEvent(QStringLiteral("connected"), 60000));
    // And pushes arrive again.
    edit(anna(), 2, 12);
    save(anna());
    // Not before the server is connected again, whose login gives the broker 15 s.
    const QJsonObject heard = ben().run(QStringLiteral("wait %1 1 --seconds 90").arg(guid), 120000);
    EXPECT_EQ(exitOf(heard), 0) << errorOf(heard).toStdString();
}

TEST_F(SharedProject, ADamagedLocalCopyIsPutAsideAndFetchedAnew)
{
    const QString path
        = anna().run(QStringLiteral("open ") + guid).value(QLatin1String("path")).toString();
    ASSERT_TRUE(anna().stop());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    file.write(QByteArray(4096, 'x'));
    file.close();
    ASSERT_TRUE(team.restart(0)) << anna().error().toStdString();
    const QJsonObject opened = anna().run(QStringLiteral("open ") + guid);
    EXPECT_EQ(exitOf(opened), 0) << errorOf(opened).toStdString();
    EXPECT_FALSE(opened.value(QLatin1String("notice")).toString().isEmpty());
    expectEqualCopies();
}

TEST_F(SharedProject, DiscardedEditsAreKeptInAFile)
{
    edit(anna(), 1, 11);
    const QJsonObject discarded = anna().run(QStringLiteral("discard ") + guid);
    ASSERT_EQ(exitOf(discarded), 0) << errorOf(discarded).toStdString();
    EXPECT_TRUE(QFile::exists(discarded.value(QLatin1String("kept")).toString()));
    EXPECT_EQ(pending(anna()), 0);
    expectEqualCopies();
}

TEST_F(SharedProject, TheCreatorHoldsNoItemOfThePublishedBase)
{
    const QJsonArray items
        = anna().run(QStringLiteral("show ") + guid).value(QLatin1String("list")).toArray();
    ASSERT_EQ(items.size(), 30);
    for (const QJsonValue &item : items)
        EXPECT_EQ(item.toObject().value(QLatin1String("state")).toInt(), 0);
    // So two who want the same item meet at the server.
    edit(ben(), 3, 33);
    const QJsonObject refused = anna().run(QStringLiteral("edit %1 01.3 rate=44").arg(guid));
    EXPECT_EQ(exitOf(refused), 1);
    EXPECT_EQ(refused.value(QLatin1String("holder")).toString(), team.email(1));
}
