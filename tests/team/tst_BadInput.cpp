#include "SharedProject.h"
#include "faults/network/FaultProxy.h"
#include "support/HttpClient.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonArray>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sqlite3.h>

using namespace kvx::test;

namespace {

class BadInput : public SharedProject {
protected:
    /// A session of Ben's beside his kvx, on the same device.
    std::unique_ptr<HttpClient> bensOwnClient()
    {
        auto client = std::make_unique<HttpClient>("http://" + site().server().toStdString());
        QFile password(team.account(1).passwordFile);
        EXPECT_TRUE(password.open(QIODevice::ReadOnly));
        EXPECT_EQ(
            client->login(team.email(1).toStdString(), password.readLine().trimmed().toStdString())
                .statusCode(),
            1);
        return client;
    }
    std::string logLock(bool release)
    {
        return jsonObject(
            { { "service", "\"loglock\"" }, { "Email", jsonQuoted(team.email(1).toStdString()) },
                { "ProjectGUID", jsonQuoted(guid.toStdString()) }, { "LogVersion", "-1" },
                { "ReleaseLock", release ? "true" : "false" } });
    }
    QString localCopy()
    {
        return anna().run(QStringLiteral("open ") + guid).value(QLatin1String("path")).toString();
    }

    const QTemporaryDir folder;
};

} // namespace

TEST_F(BadInput, AServerAddressThatLeadsElsewhereIsNamed)
{
    const auto asked = [&](const QString &server) {
        return runKvx({ QStringLiteral("--server"), server, QStringLiteral("--user"),
            QStringLiteral("a@example.com"), QStringLiteral("--password-file"),
            team.account(0).passwordFile, QStringLiteral("--home"), folder.path(),
            QStringLiteral("projects") });
    };
    const Ended unknown = asked(QStringLiteral("no-such-host.invalid:8090"));
    EXPECT_EQ(unknown.exit, 3);
    EXPECT_TRUE(unknown.err.contains(QLatin1String("no-such-host.invalid")))
        << unknown.err.toStdString();
    // A server, but not ours.
    const Ended broker = asked(QStringLiteral("127.0.0.1:%1").arg(site().brokerPort()));
    EXPECT_EQ(broker.exit, 3);
    EXPECT_TRUE(broker.err.contains(QStringLiteral("127.0.0.1:%1").arg(site().brokerPort())))
        << broker.err.toStdString();
}

TEST_F(BadInput, ATakenNameIsSaidInWords)
{
    const QString name = freshName(QStringLiteral("taken"));
    ASSERT_EQ(exitOf(anna().run(QStringLiteral("new ") + name)), 0);
    const QJsonObject again = anna().run(QStringLiteral("new ") + name);
    EXPECT_EQ(exitOf(again), 1);
    EXPECT_EQ(errorOf(again).toStdString(), "\"" + name.toStdString() + "\" exists already.");
    const QJsonObject renamed = anna().run(QStringLiteral("rename %1 %2").arg(guid, name));
    EXPECT_EQ(exitOf(renamed), 1);
    EXPECT_EQ(errorOf(renamed).toStdString(), errorOf(again).toStdString());
}

TEST_F(BadInput, AnUnknownGuidIsNamedByEveryCommand)
{
    const QString unknown = QStringLiteral("{00000000-0000-4000-8000-000000000000}");
    for (const char *command : { "open", "save", "sync", "status", "show", "close", "who", "lock",
             "remove", "discard", "permissions" }) {
        const QJsonObject result
            = anna().run(QStringLiteral("%1 %2").arg(QLatin1String(command), unknown));
        EXPECT_EQ(exitOf(result), 1) << command;
        EXPECT_TRUE(errorOf(result).contains(unknown))
            << command << ": " << errorOf(result).toStdString();
    }
}

TEST_F(BadInput, AFileThatIsMissingOrCannotBeReadIsNamed)
{
    const QString before = digest(anna());
    const QString missing = folder.filePath(QStringLiteral("missing.csv"));
    // Root reads everything; a folder and a file that fails to deliver are unreadable for all.
    const QString unreadable = folder.filePath(QStringLiteral("unreadable.csv"));
    ASSERT_TRUE(QFile::link(QStringLiteral("/proc/self/mem"), unreadable));
    const QString directory = folder.filePath(QStringLiteral("folder.csv"));
    ASSERT_TRUE(QDir().mkdir(directory));
    for (const QString &file : { missing, unreadable, directory }) {
        for (const QString &command :
            { QStringLiteral("import %1 %2").arg(guid, file), QStringLiteral("upload %1").arg(file),
                QStringLiteral("new never --from %1").arg(file) }) {
            const QJsonObject result = anna().run(command);
            EXPECT_EQ(exitOf(result), 1) << command.toStdString();
            EXPECT_TRUE(errorOf(result).contains(file))
                << command.toStdString() << ": " << errorOf(result).toStdString();
        }
    }
    EXPECT_EQ(digest(anna()).toStdString(), before.toStdString());
    const Ended noPassword = runKvx({ QStringLiteral("--user"), QStringLiteral("a@b"),
        QStringLiteral("--password-file"), directory, QStringLiteral("projects") });
    EXPECT_EQ(noPassword.exit, 2);
    EXPECT_TRUE(noPassword.err.contains(directory)) << noPassword.err.toStdString();
}

TEST_F(BadInput, AMalformedFileIsRefusedWithLineAndReasonAndTheProjectStaysAsItWas)
{
    const QString before = digest(anna());
    const QString csv = written(folder.filePath(QStringLiteral("bad.csv")),
        "number;text;unit;quantity;rate\n01;Works;;;\n01.1;Door;pcs;1;2,50\n01.2;Wall;m2;1;"
        "cheap\n");
    EXPECT_EQ(errorOf(anna().run(QStringLiteral("import %1 %2").arg(guid, csv))).toStdString(),
        "bad.csv, line 4: \"cheap\" is not a rate");
    const QString gaeb = written(folder.filePath(QStringLiteral("bad.x83")),
        "<?xml version=\"1.0\"?>\n<GAEB>\n<Award>\n<BoQ></Award>\n</GAEB>\n");
    const QString reason = errorOf(anna().run(QStringLiteral("import %1 %2").arg(guid, gaeb)));
    EXPECT_TRUE(reason.startsWith(QLatin1String("bad.x83, line 4: "))) << reason.toStdString();
    EXPECT_EQ(digest(anna()).toStdString(), before.toStdString());
    EXPECT_EQ(pending(anna()), 0);
}

TEST_F(BadInput, AProjectFileOfANewerFormatIsLeftAlone)
{
    edit(anna(), 1, 11);
    const QString copy = localCopy();
    ASSERT_TRUE(anna().stop());
    const auto setFormat = [&copy](int format) {
        sqlite3 *database = nullptr;
        EXPECT_EQ(sqlite3_open(copy.toUtf8().constData(), &database), SQLITE_OK);
        const std::string sql
            = "UPDATE kvx_meta SET value=" + std::to_string(format) + " WHERE key='format'";
        EXPECT_EQ(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
        EXPECT_EQ(sqlite3_changes(database), 1);
        sqlite3_close(database);
    };
    setFormat(99);
    ASSERT_TRUE(team.restart(0)) << anna().error().toStdString();
    const QJsonObject refused = anna().run(QStringLiteral("open ") + guid);
    EXPECT_EQ(exitOf(refused), 1);
    EXPECT_TRUE(errorOf(refused).contains(QLatin1String("format 99")))
        << errorOf(refused).toStdString();
    EXPECT_TRUE(errorOf(refused).contains(QLatin1String("newer")))
        << errorOf(refused).toStdString();
    // The release that wrote it finds everything in it.
    ASSERT_TRUE(anna().stop());
    setFormat(1);
    ASSERT_TRUE(team.restart(0)) << anna().error().toStdString();
    EXPECT_EQ(pending(anna()), 1);
    save(anna());
    expectEqualCopies();
}

TEST_F(BadInput, ADamagedLogIsNotAppliedAndCanBeRepaired)
{
    edit(anna(), 1, 11);
    ASSERT_TRUE(anna().stop()); // or the push would bring the save
    edit(ben(), 2, 22);
    save(ben());
    // Of what the save left the log is the archive.
    QString archive;
    QByteArray intact;
    QDirIterator blobs(
        site().dataFolder(), { QStringLiteral("*") }, QDir::Files, QDirIterator::Subdirectories);
    QDateTime newest;
    while (blobs.hasNext()) {
        QFile file(blobs.next());
        if (!file.open(QIODevice::ReadOnly) || blobs.fileInfo().lastModified() < newest)
            continue;
        const QByteArray content = file.readAll();
        if (content.startsWith("PK")) {
            archive = blobs.filePath();
            intact = content;
            newest = blobs.fileInfo().lastModified();
        }
    }
    ASSERT_FALSE(archive.isEmpty());
    QByteArray damaged = intact;
    for (int i = damaged.size() / 3; i < damaged.size() / 2; ++i)
        damaged[i] = static_cast<char>(~damaged.at(i));
    written(archive, damaged);

    ASSERT_TRUE(team.restart(0)) << anna().error().toStdString();
    const QJsonObject opened = anna().run(QStringLiteral("open ") + guid);
    EXPECT_EQ(exitOf(opened), 1);
    EXPECT_TRUE(errorOf(opened).contains(QLatin1String("change log 0: The file arrived damaged")))
        << errorOf(opened).toStdString();
    written(archive, intact);
    EXPECT_EQ(pending(anna()), 1);
    save(anna());
    expectEqualCopies();
}

TEST_F(BadInput, WithoutABrokerLoginSaysSoAndWorkGoesOn)
{
    site().stopBroker();
    ASSERT_TRUE(anna().stop());
    const Ended login = runKvx(as(team.account(0), { QStringLiteral("login") }));
    EXPECT_EQ(login.exit, 0) << login.err.toStdString();
    EXPECT_TRUE(login.out.contains(QLatin1String("No notifications arrive (")))
        << login.out.toStdString();
    EXPECT_TRUE(login.out.contains(QLatin1String("everything else works")))
        << login.out.toStdString();
    const Ended edited = runKvx(as(team.account(0),
        { QStringLiteral("edit"), guid, QStringLiteral("01.1"), QStringLiteral("rate=7") }));
    EXPECT_EQ(edited.exit, 0) << edited.err.toStdString();
    const Ended saved = runKvx(as(team.account(0), { QStringLiteral("save"), guid }));
    EXPECT_EQ(saved.exit, 0) << saved.err.toStdString();
    ASSERT_TRUE(site().startBroker()) << site().error().toStdString();
    EXPECT_EQ(exitOf(ben().run(QStringLiteral("sync ") + guid)), 0);
    EXPECT_EQ(version(ben()), 0);
}

// For the plug-in such a save has succeeded; the host must not take it for one.
TEST_F(BadInput, ASaveThatCannotAskForTheLockSaysThatNothingWasPublished)
{
    FaultProxy proxy(site().server().section(QLatin1Char(':'), 1).toInt());
    ASSERT_TRUE(anna().stop());
    const auto run = [&](const QStringList &command) {
        QStringList arguments = as(team.account(0), command);
        arguments[1] = QString::fromStdString(proxy.address());
        return runKvx(arguments);
    };
    const Ended edited
        = run({ QStringLiteral("edit"), guid, QStringLiteral("01.1"), QStringLiteral("rate=7") });
    ASSERT_EQ(edited.exit, 0) << edited.err.toStdString();
    const int before = version(ben());
    proxy.set({ FaultProxy::Cut, FaultProxy::ToServer, 0, "loglock" });
    const Ended refused = run({ QStringLiteral("save"), guid });
    ASSERT_TRUE(proxy.struck());
    EXPECT_EQ(refused.exit, 5);
    EXPECT_TRUE(refused.err.contains(
        QLatin1String("Nothing was published: the server could not be asked for the save lock. "
                      "Your edits are kept; save again.")))
        << refused.err.toStdString();
    EXPECT_EQ(refused.out.toStdString(), "");
    ASSERT_EQ(exitOf(ben().run(QStringLiteral("sync ") + guid)), 0);
    EXPECT_EQ(version(ben()), before);

    const Ended saved = run({ QStringLiteral("save"), guid });
    EXPECT_EQ(saved.exit, 0) << saved.err.toStdString();
    ASSERT_EQ(exitOf(ben().run(QStringLiteral("sync ") + guid)), 0);
    EXPECT_EQ(version(ben()), before + 1);
    ASSERT_TRUE(team.restart(0)) << anna().error().toStdString();
    expectEqualCopies();
}

TEST_F(BadInput, ASaveSaysWhoHoldsTheLockAndSinceWhen)
{
    edit(anna(), 1, 11);
    ASSERT_TRUE(ben().stop());
    const auto client = bensOwnClient();
    ASSERT_EQ(client->post(logLock(false)).member("Lock"), "1");
    const QDateTime since = QDateTime::currentDateTime();
    anna().send(QStringLiteral("save %1 --wait 0").arg(guid));
    QJsonObject refused;
    while (refused.isEmpty()) {
        ASSERT_EQ(client->post(logLock(false)).member("Lock"), "1") << "Ben goes on saving";
        refused = anna().result(500);
        ASSERT_LT(since.msecsTo(QDateTime::currentDateTime()), 30000);
    }
    EXPECT_EQ(exitOf(refused), 5);
    EXPECT_EQ(refused.value(QLatin1String("published")).toBool(true), false);
    const QString said = errorOf(refused);
    EXPECT_TRUE(said.startsWith(QLatin1String("A colleague is still saving. Your edits are kept; "
                                              "save again later. The save lock is held by User ")))
        << said.toStdString();
    EXPECT_TRUE(
        said.contains(QLatin1String(", since ") + since.toString(QStringLiteral("yyyy-MM-dd"))))
        << said.toStdString();
    EXPECT_EQ(pending(anna()), 1);
    // Once it is free a waiting save goes on by itself.
    anna().send(QStringLiteral("save %1 --wait 60").arg(guid));
    ASSERT_EQ(client->post(logLock(true)).statusCode(), 1);
    const QJsonObject saved = anna().result(60000);
    EXPECT_EQ(exitOf(saved), 0) << errorOf(saved).toStdString();
    EXPECT_EQ(pending(anna()), 0);
}
