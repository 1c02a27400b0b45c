#include "Team.h"
#include "support/WaitFor.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <thread>

using namespace kvx::test;

TEST(CommandLine, LoginTellsWhoYouAreAndThatNotificationsArrive)
{
    Team team(1);
    team.member(0).stop();
    const Ended ended = runKvx(as(team.account(0), { QStringLiteral("login") }));
    EXPECT_EQ(ended.exit, 0) << ended.err.toStdString();
    EXPECT_TRUE(ended.out.contains(QLatin1String("role: Estimator. Notifications arrive.")))
        << ended.out.toStdString();
}

TEST(CommandLine, AWrongPasswordShowsTheTriesLeft)
{
    Team team(1);
    const QTemporaryDir folder;
    auto account = team.account(0);
    account.passwordFile = written(folder.filePath(QStringLiteral("p")), "wrong\n");
    const Ended first = runKvx(as(account, { QStringLiteral("projects") }));
    EXPECT_EQ(first.exit, 4);
    EXPECT_EQ(first.err.toStdString(), "kvx: E-mail or password is wrong. Tries left: 4.\n");
    const Ended second = runKvx(as(account, { QStringLiteral("projects") }));
    EXPECT_EQ(second.err.toStdString(), "kvx: E-mail or password is wrong. Tries left: 3.\n");
}

TEST(CommandLine, AServerThatIsNotThereIsNamed)
{
    const QTemporaryDir folder;
    kvx::host::ShellProcess::Account account { QStringLiteral("a@example.com"),
        written(folder.filePath(QStringLiteral("p")), "x\n"), folder.path() };
    QStringList arguments = as(account, { QStringLiteral("projects") });
    arguments[1] = QStringLiteral("127.0.0.1:1");
    const Ended ended = runKvx(arguments);
    EXPECT_EQ(ended.exit, 3);
    EXPECT_TRUE(ended.err.contains(QLatin1String("127.0.0.1"))) << ended.err.toStdString();
}

TEST(CommandLine, OptionsThatMakeNoSenseAreUsageErrors)
{
    EXPECT_EQ(runKvx({}).exit, 2);
    EXPECT_EQ(runKvx({ QStringLiteral("fly") }).exit, 2);
    const Ended server = runKvx({ QStringLiteral("--server"), QStringLiteral("nowhere"),
        QStringLiteral("--user"), QStringLiteral("a@b"), QStringLiteral("projects") });
    EXPECT_EQ(server.exit, 2);
    EXPECT_EQ(
        server.err.toStdString(), "kvx: \"nowhere\" is not a server of the form host:port.\n");
    const Ended password = runKvx({ QStringLiteral("--user"), QStringLiteral("a@b"),
        QStringLiteral("--password-file"), QStringLiteral("nowhere"), QStringLiteral("projects") });
    EXPECT_EQ(password.exit, 2);
    EXPECT_TRUE(password.err.contains(QLatin1String("nowhere: ")));
    const Ended proxy = runKvx({ QStringLiteral("--user"), QStringLiteral("a@b"),
        QStringLiteral("--proxy"), QStringLiteral("ftp://x:1"), QStringLiteral("projects") });
    EXPECT_EQ(proxy.exit, 2);
}

TEST(CommandLine, ATakenNameAndAnUnknownProjectAreNamed)
{
    Team team(2);
    const QString name = freshName(QStringLiteral("taken"));
    ASSERT_EQ(exitOf(team.member(0).run(QStringLiteral("new ") + name)), 0);
    const QJsonObject again = team.member(1).run(QStringLiteral("new ") + name.toUpper());
    EXPECT_EQ(exitOf(again), 1);
    EXPECT_EQ(again.value(QLatin1String("code")).toInt(), 311);
    EXPECT_EQ(errorOf(team.member(1).run(QStringLiteral("open ") + name)).toStdString(),
        "There is no project \"" + name.toStdString() + "\" in your list.");
    EXPECT_EQ(exitOf(team.member(0).run(QStringLiteral("new x --type Castle"))), 2);
}

TEST(CommandLine, AMalformedBillIsRefusedBeforeAProjectIsMade)
{
    Team team(1);
    const QTemporaryDir folder;
    const QString csv = written(folder.filePath(QStringLiteral("bad.csv")),
        "number;text;unit;quantity;rate\n1;Door;pcs;two;1\n");
    const QString name = freshName(QStringLiteral("bad"));
    const QJsonObject result
        = team.member(0).run(QStringLiteral("new %1 --from %2").arg(name, csv));
    EXPECT_EQ(exitOf(result), 1);
    EXPECT_EQ(errorOf(result).toStdString(), "bad.csv, line 2: \"two\" is not a quantity");
    const QJsonObject missing
        = team.member(0).run(QStringLiteral("new %1 --from nowhere.x83").arg(name));
    EXPECT_EQ(errorOf(missing).toStdString(), "nowhere.x83: there is no such file");
    EXPECT_TRUE(team.member(0)
                    .run(QStringLiteral("projects"))
                    .value(QLatin1String("projects"))
                    .toArray()
                    .isEmpty());
}

TEST(CommandLine, ARecognisedPageBecomesItemsOfAChapter)
{
    Team team(1);
    const QTemporaryDir folder;
    const QString name = freshName(QStringLiteral("page"));
    const QString scan
        = QFileInfo(QStringLiteral(KVX_TENDER)).dir().filePath(QStringLiteral("scanned-page.png"));
    const QString table = folder.filePath(QStringLiteral("page.tsv"));
    auto &anna = team.member(0);
    ASSERT_EQ(
        exitOf(anna.run(QStringLiteral("new %1 --from %2").arg(name, QStringLiteral(KVX_TENDER)))),
        0);
    const QJsonObject read
        = anna.run(QStringLiteral("ocr %1 --language eng --export table -o %2").arg(scan, table));
    ASSERT_EQ(exitOf(read), 0) << errorOf(read).toStdString();
    const QString import = QStringLiteral("import %1 %2 --chapter ").arg(name, table);
    EXPECT_EQ(
        errorOf(anna.run(import + QLatin1String("99"))).toStdString(), "There is no chapter 99.");
    const QJsonObject imported = anna.run(import + QLatin1String("13.02"));
    ASSERT_EQ(exitOf(imported), 0) << errorOf(imported).toStdString();
    EXPECT_EQ(imported.value(QLatin1String("items")).toInt(), 6);
    const QJsonArray items = anna.run(QStringLiteral("show %1 13.02").arg(name))
                                 .value(QLatin1String("list"))
                                 .toArray();
    ASSERT_EQ(items.size(), 18);
    const QJsonObject surface = items.at(16).toObject();
    EXPECT_EQ(surface.value(QLatin1String("number")).toString().toStdString(), "13.02.0170");
    EXPECT_EQ(surface.value(QLatin1String("text")).toString().toStdString(),
        "Safety surface below climbing frame");
    EXPECT_EQ(surface.value(QLatin1String("quantity")).toString().toStdString(), "86.5");
    // The same page once more doubles nothing.
    EXPECT_EQ(errorOf(anna.run(import + QLatin1String("13.02"))).toStdString(),
        "The project has an item 13.02.0130 already.");
}

TEST(CommandLine, AnImportIntoASharedProjectArrivesAtTheColleague)
{
    Team team(2);
    const QString name = freshName(QStringLiteral("import"));
    ASSERT_EQ(exitOf(team.member(0).run(QStringLiteral("new ") + name)), 0);
    ASSERT_EQ(exitOf(team.member(0).run(
                  QStringLiteral("permissions %1 --set %2=1").arg(name, team.email(1)))),
        0);
    ASSERT_TRUE(team.member(1).waitForEvent(QStringLiteral("projectNew")));
    ASSERT_EQ(exitOf(team.member(1).run(QStringLiteral("open ") + name)), 0);
    const QJsonObject imported
        = team.member(0).run(QStringLiteral("import %1 %2").arg(name, QStringLiteral(KVX_TENDER)));
    ASSERT_EQ(exitOf(imported), 0) << errorOf(imported).toStdString();
    ASSERT_GE(imported.value(QLatin1String("items")).toInt(), 300);
    ASSERT_EQ(exitOf(team.member(0).run(QStringLiteral("save ") + name)), 0);
    const QJsonObject arrived = team.member(1).run(QStringLiteral("wait %1 0").arg(name));
    EXPECT_EQ(exitOf(arrived), 0) << errorOf(arrived).toStdString();
    EXPECT_EQ(team.member(0).run(QStringLiteral("status ") + name).value(QLatin1String("digest")),
        team.member(1).run(QStringLiteral("status ") + name).value(QLatin1String("digest")));
}

TEST(CommandLine, FilesGoUpAndComeDownEqual)
{
    Team team(1);
    const QTemporaryDir folder;
    QByteArray content;
    for (int i = 0; i < 300000; ++i)
        content.append(static_cast<char>(i * 7));
    const QString up = written(folder.filePath(QStringLiteral("plan.pdf")), content);
    ASSERT_EQ(exitOf(team.member(0).run(QStringLiteral("upload ") + up)), 0);
    const QString down = folder.filePath(QStringLiteral("back.pdf"));
    ASSERT_EQ(exitOf(team.member(0).run(QStringLiteral("download plan.pdf ") + down)), 0);
    QFile file(down);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), content);
    const QJsonObject missing = team.member(0).run(QStringLiteral("download nothing.pdf ") + down);
    EXPECT_EQ(exitOf(missing), 1);
    EXPECT_EQ(exitOf(team.member(0).run(QStringLiteral("upload /nowhere/plan.pdf"))), 1);
    // A failed download leaves what was there.
    EXPECT_EQ(file.size(), content.size());
}

TEST(CommandLine, ALockedProjectCannotBeOpenedByOthers)
{
    Team team(2);
    const QString name = freshName(QStringLiteral("locked"));
    ASSERT_EQ(exitOf(team.member(0).run(QStringLiteral("new ") + name)), 0);
    ASSERT_EQ(exitOf(team.member(0).run(
                  QStringLiteral("permissions %1 --set %2=1").arg(name, team.email(1)))),
        0);
    ASSERT_TRUE(team.member(1).waitForEvent(QStringLiteral("projectNew")));
    ASSERT_EQ(exitOf(team.member(0).run(QStringLiteral("lock ") + name)), 0);
    const QJsonObject refused = team.member(1).run(QStringLiteral("open ") + name);
    EXPECT_EQ(refused.value(QLatin1String("code")).toInt(), 314);
    ASSERT_EQ(exitOf(team.member(0).run(QStringLiteral("lock %1 --release").arg(name))), 0);
    EXPECT_EQ(exitOf(team.member(1).run(QStringLiteral("open ") + name)), 0);
}

TEST(CommandLine, LosingAccessClosesTheProjectAndItsEditsStayOnDisk)
{
    Team team(2);
    const QString name = freshName(QStringLiteral("lost"));
    const QJsonObject made
        = team.member(0).run(QStringLiteral("new %1 --from %2").arg(name, billFile(5)));
    ASSERT_EQ(exitOf(made), 0);
    ASSERT_EQ(exitOf(team.member(0).run(
                  QStringLiteral("permissions %1 --set %2=1").arg(name, team.email(1)))),
        0);
    ASSERT_TRUE(team.member(1).waitForEvent(QStringLiteral("projectNew")));
    ASSERT_EQ(exitOf(team.member(1).run(QStringLiteral("edit %1 01.1 rate=9").arg(name))), 0);
    ASSERT_EQ(exitOf(team.member(0).run(
                  QStringLiteral("permissions %1 --remove %2").arg(name, team.email(1)))),
        0);
    ASSERT_TRUE(team.member(1).waitForEvent(QStringLiteral("projectClosed")));
    EXPECT_EQ(exitOf(team.member(1).run(QStringLiteral("save ") + name)), 1);
    // Given back, the edits are still there and can be saved.
    ASSERT_EQ(exitOf(team.member(0).run(
                  QStringLiteral("permissions %1 --set %2=1").arg(name, team.email(1)))),
        0);
    const QString guid = made.value(QLatin1String("guid")).toString();
    QJsonObject status;
    for (int i = 0; i < 100 && exitOf(status) != 0; ++i) {
        status = team.member(1).run(QStringLiteral("status ") + guid);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_EQ(status.value(QLatin1String("pending")).toInt(), 1) << errorOf(status).toStdString();
    EXPECT_EQ(exitOf(team.member(1).run(QStringLiteral("save ") + guid)), 0);
}

TEST(CommandLine, AProjectIsOpenInOneProcessOnly)
{
    Team team(1);
    const QString name = freshName(QStringLiteral("once"));
    ASSERT_EQ(exitOf(team.member(0).run(QStringLiteral("new ") + name)), 0);
    const Ended second = runKvx(as(team.account(0), { QStringLiteral("status"), name }));
    EXPECT_EQ(second.exit, 1);
    EXPECT_TRUE(second.err.contains(QLatin1String("open in another window on this machine")))
        << second.err.toStdString();
}

TEST(CommandLine, WatchShowsAColleaguesSaveAsItHappens)
{
    Team team(2);
    const QString name = freshName(QStringLiteral("watched"));
    auto &anna = team.member(0);
    ASSERT_EQ(exitOf(anna.run(QStringLiteral("new %1 --from %2").arg(name, billFile(5)))), 0);
    ASSERT_EQ(
        exitOf(anna.run(QStringLiteral("permissions %1 --set %2=1").arg(name, team.email(1)))), 0);
    ASSERT_TRUE(team.member(1).waitForEvent(QStringLiteral("projectNew")));
    // A user has one connection to the broker.
    ASSERT_TRUE(team.member(1).stop());
    QProcess watch;
    watch.start(site().kvx(), as(team.account(1), { QStringLiteral("watch") }));
    QByteArray shown;
    const auto shows = [&](const QByteArray &text) {
        return waitFor(
            [&] {
                watch.waitForReadyRead(50);
                shown += watch.readAllStandardOutput();
                return shown.contains(text);
            },
            std::chrono::seconds(20));
    };
    ASSERT_TRUE(shows("Watching; Ctrl-C ends.\n"));
    ASSERT_EQ(exitOf(anna.run(QStringLiteral("edit %1 01.1 rate=9").arg(name))), 0);
    ASSERT_EQ(exitOf(anna.run(QStringLiteral("save ") + name)), 0);
    EXPECT_TRUE(shows(" saved \"" + name.toUtf8() + "\".\n")) << shown.constData();
    watch.terminate();
    EXPECT_TRUE(watch.waitForFinished(10000));
    EXPECT_EQ(watch.exitCode(), 0) << watch.readAllStandardError().constData();
}
