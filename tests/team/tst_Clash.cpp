#include "SharedProject.h"

#include <QFile>
#include <QJsonArray>
#include <QRegularExpression>

using namespace kvx::test;

namespace {

/// Anna and Ben change the same item; Ben's save comes first. An administrator has taken the item
/// from Anna in between.
class Clash : public SharedProject {
protected:
    void clash()
    {
        edit(anna(), 1, 11);
        anna().stop(); // before she could hear of it
        bensSaveComesFirst();
    }
    void bensSaveComesFirst()
    {
        ASSERT_TRUE(
            site().administer({ QStringLiteral("project"), QStringLiteral("checkin"), guid }))
            << site().error().toStdString();
        ASSERT_EQ(exitOf(ben().run(QStringLiteral("checkout %1 01.1").arg(guid))), 0);
        edit(ben(), 1, 22);
        save(ben());
    }
    Ended annas(const QStringList &command) { return runKvx(as(team.account(0), command)); }
    QString ratesOf(kvx::host::ShellProcess &shell)
    {
        const QJsonObject shown = shell.run(QStringLiteral("show %1 01").arg(guid));
        return shown.value(QLatin1String("list"))
            .toArray()
            .first()
            .toObject()
            .value(QLatin1String("rate"))
            .toString();
    }
    /// Both have that rate, and Anna has nothing unsaved.
    void expectRate(const char *rate)
    {
        ASSERT_TRUE(team.restart(0)) << anna().error().toStdString();
        EXPECT_EQ(pending(anna()), 0);
        EXPECT_EQ(ratesOf(anna()).toStdString(), rate);
        expectEqualCopies();
    }
    /// The file that the output names is there.
    static void expectKept(const QString &output)
    {
        const auto match
            = QRegularExpression(QStringLiteral("What gave way is kept in (\\S+)")).match(output);
        ASSERT_TRUE(match.hasMatch()) << output.toStdString();
        EXPECT_TRUE(QFile::exists(match.captured(1))) << output.toStdString();
    }
};

} // namespace

TEST_F(Clash, StopsEveryCommandOfItsOwnAndLosesNothing)
{
    clash();
    for (const QStringList &command : { QStringList { QStringLiteral("status"), guid },
             QStringList { QStringLiteral("save"), guid },
             QStringList { QStringLiteral("sync"), guid },
             QStringList { QStringLiteral("edit"), guid, QStringLiteral("01.2"),
                 QStringLiteral("rate=5") } }) {
        const Ended ended = annas(command);
        EXPECT_EQ(ended.exit, 6) << ended.err.toStdString();
        EXPECT_TRUE(ended.err.contains(QLatin1String("Its edits are kept."))
            && ended.err.contains(QLatin1String("Save with --mine or --theirs")))
            << ended.err.toStdString();
    }
    const Ended saved = annas({ QStringLiteral("save"), guid, QStringLiteral("--theirs") });
    EXPECT_EQ(saved.exit, 0) << saved.err.toStdString();
    expectKept(saved.out);
    expectRate("22.00");
}

TEST_F(Clash, IsDecidedForOneselfToo)
{
    clash();
    const Ended saved = annas({ QStringLiteral("save"), guid, QStringLiteral("--mine") });
    EXPECT_EQ(saved.exit, 0) << saved.err.toStdString();
    expectKept(saved.out);
    expectRate("11.00");
}

TEST_F(Clash, OfAnOpenProjectIsDecidedByTheNextSave)
{
    edit(anna(), 1, 11);
    bensSaveComesFirst();
    const QJsonObject refused = anna().run(QStringLiteral("save ") + guid);
    EXPECT_EQ(exitOf(refused), 6) << errorOf(refused).toStdString();
    EXPECT_TRUE(errorOf(refused).contains(QLatin1String("Save with --mine or --theirs")))
        << errorOf(refused).toStdString();
    EXPECT_EQ(pending(anna()), 1);
    const QJsonObject saved = anna().run(QStringLiteral("save %1 --mine").arg(guid));
    EXPECT_EQ(exitOf(saved), 0) << errorOf(saved).toStdString();
    EXPECT_EQ(ratesOf(anna()).toStdString(), "11.00");
    expectEqualCopies();
}
