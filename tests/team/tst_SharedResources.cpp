#include "Team.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace kvx::test;
using kvx::host::ShellProcess;

namespace {

class SharedResources : public testing::Test {
protected:
    QString write(const char *name, const QByteArray &content) const
    {
        const QString path = folder.filePath(QLatin1String(name));
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
        return path;
    }
    QByteArray read(const char *name) const
    {
        QFile file(folder.filePath(QLatin1String(name)));
        EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << name;
        return file.readAll();
    }
    QString path(const char *name) const
    {
        return ShellProcess::quoted(folder.filePath(QLatin1String(name)));
    }

    static QJsonObject expectDone(ShellProcess &shell, const QString &command)
    {
        const QJsonObject result = shell.run(command);
        EXPECT_EQ(exitOf(result), 0)
            << command.toStdString() << ": " << errorOf(result).toStdString();
        return result;
    }
    static void expectRefused(
        ShellProcess &shell, const QString &command, int code, const char *error)
    {
        const QJsonObject result = shell.run(command);
        EXPECT_EQ(exitOf(result), 1) << command.toStdString();
        EXPECT_EQ(result.value(QLatin1String("code")).toInt(), code) << command.toStdString();
        EXPECT_EQ(errorOf(result).toStdString(), error) << command.toStdString();
    }
    static int templateCount(ShellProcess &shell)
    {
        return expectDone(shell, QStringLiteral("templates list"))
            .value(QLatin1String("templates"))
            .toArray()
            .size();
    }

    const QTemporaryDir folder;
};

} // namespace

TEST_F(SharedResources, ATemplateIsSharedRenamedAndRemoved)
{
    Team team(2);
    ShellProcess &anna = team.member(0);
    ShellProcess &ben = team.member(1);
    const QByteArray document
        = QJsonDocument::fromJson("{\"Größe\":[1,2.5,null],\"\":{}}").toJson();
    write("Leistungsverzeichnis.json", document);
    const int before = templateCount(ben);

    const QJsonObject shared = expectDone(anna,
        QLatin1String("templates upload --type 3 --made-with 2026.1 ")
            + path("Leistungsverzeichnis.json"))
                                   .value(QLatin1String("template"))
                                   .toObject();
    EXPECT_EQ(shared.value(QLatin1String("name")).toString().toStdString(), "Leistungsverzeichnis");
    EXPECT_EQ(shared.value(QLatin1String("authorEmail")).toString(), team.email(0));
    EXPECT_TRUE(ben.waitForEvent(QStringLiteral("templatesChanged")));
    EXPECT_EQ(templateCount(ben), before + 1);

    expectDone(ben, QLatin1String("templates download Leistungsverzeichnis ") + path("got.json"));
    EXPECT_EQ(QJsonDocument::fromJson(read("got.json")), QJsonDocument::fromJson(document));
    expectRefused(ben, QStringLiteral("templates rename Leistungsverzeichnis LV"), 300,
        "You do not have the right to do this.");

    // What is not given stays as the version before had it.
    const QJsonObject second
        = expectDone(anna, QLatin1String("templates upload ") + path("Leistungsverzeichnis.json"))
              .value(QLatin1String("template"))
              .toObject();
    EXPECT_EQ(second.value(QLatin1String("templateID")), shared.value(QLatin1String("templateID")));
    EXPECT_EQ(second.value(QLatin1String("type")).toInt(), 3);
    EXPECT_EQ(second.value(QLatin1String("projectVersion")).toString().toStdString(), "2026.1");

    const QString id = shared.value(QLatin1String("templateID")).toString();
    expectDone(anna, QLatin1String("templates rename ") + id + QLatin1String(" LV"));
    expectDone(ben, QStringLiteral("templates show LV"));
    expectRefused(ben, QStringLiteral("templates show Leistungsverzeichnis"), 640,
        "There is no report template \"Leistungsverzeichnis\".");
    expectDone(anna, QStringLiteral("templates remove LV"));
    EXPECT_EQ(templateCount(ben), before);
}

TEST_F(SharedResources, ATemplateOfFiveMebibytesComesBackEqual)
{
    Team team(1);
    QJsonArray rows;
    const QString row = QString(1000, QChar(0x00e9)) + QStringLiteral("😀\"\\");
    for (int i = 0; i < 2600; ++i)
        rows.append(row);
    const QByteArray document = QJsonDocument(QJsonObject { { row, rows } }).toJson();
    ASSERT_GT(document.size(), 5 << 20);
    write("large.json", document);
    expectDone(team.member(0), QLatin1String("templates upload ") + path("large.json"));
    expectDone(team.member(0), QLatin1String("templates download large ") + path("got.json"));
    EXPECT_TRUE(read("got.json") == document);
    expectDone(team.member(0), QStringLiteral("templates remove large"));
}

TEST_F(SharedResources, PeopleSeeTemplatesAndTablesAsTables)
{
    Team team(1);
    team.member(0).stop();
    const auto run = [&team](const QStringList &command) {
        const Ended ended = runKvx(as(team.account(0), command));
        EXPECT_EQ(ended.exit, 0) << ended.err.toStdString();
        return ended.out;
    };
    const QString group = QStringLiteral("templates");
    run({ group, QStringLiteral("upload"), write("Cover sheet.json", "{}") });
    const QString list = run({ group, QStringLiteral("list") });
    EXPECT_TRUE(list.startsWith(QLatin1String("NAME"))) << list.toStdString();
    EXPECT_TRUE(list.contains(QLatin1String("\nCover sheet  0"))) << list.toStdString();
    const QString shown = run({ group, QStringLiteral("show"), QStringLiteral("Cover sheet") });
    EXPECT_TRUE(shown.contains(QLatin1Char('<') + team.email(0) + QLatin1Char('>')))
        << shown.toStdString();
    EXPECT_EQ(run({ group, QStringLiteral("remove"), QStringLiteral("Cover sheet") }),
        QStringLiteral("The template was removed.\n"));
    EXPECT_EQ(run({ QStringLiteral("tables"), QStringLiteral("show"), QStringLiteral("empty") }),
        QStringLiteral("The table \"empty\" is empty.\n"));
}

TEST_F(SharedResources, AFileThatIsNoTemplateIsRefusedBeforeItIsSent)
{
    Team team(1);
    const QString broken = write("broken.json", "{\"a\": [1, 2");
    const QString list = write("list.json", "[1]");
    const auto errorOfUpload = [&team](const QString &file) {
        const QJsonObject result
            = team.member(0).run(QLatin1String("templates upload ") + ShellProcess::quoted(file));
        EXPECT_EQ(exitOf(result), 1);
        return errorOf(result).toStdString();
    };
    EXPECT_EQ(errorOfUpload(broken),
        broken.toStdString() + ": invalid termination by number (at byte 11)");
    EXPECT_EQ(errorOfUpload(list), list.toStdString() + ": the file holds no JSON object");
    EXPECT_EQ(
        errorOfUpload(QStringLiteral("nowhere.json")), "nowhere.json: No such file or directory");
}

TEST_F(SharedResources, AGlobalLockNamesItsHolderAndEndsWithTheSession)
{
    Team team(2);
    ShellProcess &anna = team.member(0);
    ShellProcess &ben = team.member(1);
    expectDone(anna, QStringLiteral("global-lock take 71 --until-logout"));
    expectDone(anna, QStringLiteral("global-lock take 71 --minutes 5 --until-logout"));

    const QJsonObject held = ben.run(QStringLiteral("global-lock take 71"));
    EXPECT_EQ(exitOf(held), 1);
    EXPECT_EQ(held.value(QLatin1String("code")).toInt(), 650);
    EXPECT_EQ(held.value(QLatin1String("holderEmail")).toString(), team.email(0));
    EXPECT_TRUE(errorOf(held).startsWith(
        QLatin1String("This is locked by ") + held.value(QLatin1String("holder")).toString()))
        << errorOf(held).toStdString();
    EXPECT_EQ(exitOf(ben.run(QStringLiteral("global-lock release 71"))), 1);
    expectDone(ben, QStringLiteral("global-lock take 72"));

    EXPECT_TRUE(anna.stop());
    expectDone(ben, QStringLiteral("global-lock take 71 --minutes 0"));
    expectDone(ben, QStringLiteral("global-lock release 71"));
    expectRefused(ben, QStringLiteral("global-lock release 71"), 651, "This is not locked.");
}

TEST_F(SharedResources, ALockUntilLogoutMakesNoSenseForASingleCommand)
{
    Team team(1);
    team.member(0).stop();
    const Ended ended = runKvx(as(team.account(0),
        { QStringLiteral("global-lock"), QStringLiteral("take"), QStringLiteral("73"),
            QStringLiteral("--until-logout") }));
    EXPECT_EQ(ended.exit, 2);
    EXPECT_TRUE(ended.err.contains(QLatin1String("kvx shell"))) << ended.err.toStdString();
    const Ended minutes = runKvx(as(team.account(0),
        { QStringLiteral("global-lock"), QStringLiteral("take"), QStringLiteral("73"),
            QStringLiteral("--minutes"), QStringLiteral("-1") }));
    EXPECT_EQ(minutes.exit, 2);
}

TEST_F(SharedResources, ATableIsReplacedAndAnOldRevisionIsRefused)
{
    Team team(1);
    ShellProcess &reader = team.member(0);
    ShellProcess admin;
    ASSERT_TRUE(admin.start(site().kvx(), site().server(), site().administrator()));
    write("rates.json", R"({"columns":["key","rate"],"rows":[["concrete","84.50"]]})");

    const auto errorOfUpload = [this](ShellProcess &shell, const char *table, const char *file) {
        const QJsonObject result
            = shell.run(QStringLiteral("tables upload %1 ").arg(QLatin1String(table)) + path(file));
        EXPECT_EQ(exitOf(result), 1);
        return errorOf(result).toStdString();
    };
    EXPECT_EQ(errorOfUpload(reader, "rates", "rates.json"),
        "The server has no table \"rates\". (HTTP 404)");
    expectDone(admin, QLatin1String("tables upload rates ") + path("rates.json"));
    EXPECT_EQ(errorOfUpload(reader, "rates", "rates.json"),
        "You do not have the right to do this. (HTTP 403)");

    expectDone(reader, QLatin1String("tables download rates ") + path("got.json"));
    const QJsonObject got = QJsonDocument::fromJson(read("got.json")).object();
    EXPECT_EQ(got.value(QLatin1String("rows")),
        QJsonDocument::fromJson("[[\"concrete\",\"84.50\"]]").array());
    EXPECT_EQ(got.value(QLatin1String("revision")).toInt(), 1);

    write("rates.json", R"({"columns":["key","rate"],"rows":[["concrete","86.00"]],"revision":1})");
    expectDone(admin, QLatin1String("tables upload rates ") + path("rates.json"));
    write("late.json", R"({"columns":["key","rate"],"rows":[["concrete","90.00"]],"revision":1})");
    EXPECT_EQ(errorOfUpload(admin, "rates", "late.json"),
        "The table was changed meanwhile. Load it again. (HTTP 409)");

    const QJsonObject shown = expectDone(reader, QStringLiteral("tables show rates"))
                                  .value(QLatin1String("table"))
                                  .toObject();
    EXPECT_EQ(shown.value(QLatin1String("rows")),
        QJsonDocument::fromJson("[[\"concrete\",\"86.00\"]]").array());
    EXPECT_EQ(shown.value(QLatin1String("revision")).toInt(), 2);
}

TEST_F(SharedResources, AnUnknownTableIsEmptyAndAFileThatIsNoTableIsRefused)
{
    Team team(1);
    const QJsonObject shown = expectDone(team.member(0), QStringLiteral("tables show nothing"));
    EXPECT_TRUE(shown.value(QLatin1String("table"))
                    .toObject()
                    .value(QLatin1String("columns"))
                    .toArray()
                    .isEmpty());
    const QJsonObject name = team.member(0).run(QStringLiteral("tables show data"));
    EXPECT_EQ(exitOf(name), 1);
    EXPECT_TRUE(errorOf(name).endsWith(QLatin1String("(HTTP 400)")));

    const QString file = write("flat.json", R"({"columns":["a"],"rows":["x"]})");
    const QJsonObject flat
        = team.member(0).run(QLatin1String("tables upload nothing ") + ShellProcess::quoted(file));
    EXPECT_EQ(errorOf(flat),
        file + QStringLiteral(": a table is {\"columns\": [text, …], \"rows\": [[text, …], …]}"));
}

TEST_F(SharedResources, APackageCanBeFetchedOnceItIsPublished)
{
    Team team(1);
    const QJsonObject none = team.member(0).run(QStringLiteral("resource version"));
    EXPECT_EQ(exitOf(none), 1);
    EXPECT_EQ(errorOf(none).toStdString(), "The server has no resource package.");
    expectRefused(team.member(0), QLatin1String("resource download ") + path("package"), 670,
        "No resource package has been published.");
    EXPECT_FALSE(QFile::exists(folder.filePath(QStringLiteral("package"))));

    QByteArray content;
    for (int i = 0; i < 300000; ++i)
        content.append(static_cast<char>(i * 11));
    ASSERT_TRUE(site().administer({ QStringLiteral("resource"), QStringLiteral("publish"),
        QStringLiteral("2026.11"), write("made", content) }))
        << site().error().toStdString();
    EXPECT_EQ(expectDone(team.member(0), QStringLiteral("resource version"))
                  .value(QLatin1String("version"))
                  .toString()
                  .toStdString(),
        "2026.11");
    expectDone(team.member(0), QLatin1String("resource download ") + path("package"));
    EXPECT_TRUE(read("package") == content);
}
