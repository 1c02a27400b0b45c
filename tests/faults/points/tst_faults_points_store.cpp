#include "Ring.h"
#include "invariants/ProjectContent.h"
#include "support/ServerProcess.h"

#include <QDir>
#include <QProcess>
#include <csignal>
#include <cstdlib>

using namespace kvx::test;

namespace {

/// A first start of the server that is stopped while it lays out its database.
class FirstStart : public testing::Test {
protected:
    static ServerProcess::Options notStarted()
    {
        ServerProcess::Options options;
        options.start = false;
        return options;
    }
    /// Starts with that fail point; whether the server came up.
    bool start(const std::string &points)
    {
        ::setenv("KVX_FAIL_POINTS", points.c_str(), 1);
        ::setenv("KVX_FAIL_POINTS_PASSED", passed().c_str(), 1);
        bool up = true;
        try {
            server.start();
        } catch (const std::runtime_error &) {
            up = false;
        }
        ::unsetenv("KVX_FAIL_POINTS");
        ::unsetenv("KVX_FAIL_POINTS_PASSED");
        return up;
    }
    std::string passed() const { return server.folder() + "/passed"; }
    int statements() const
    {
        QFile file(QString::fromStdString(passed()));
        int count = 0;
        if (file.open(QIODevice::ReadOnly)) {
            while (!file.atEnd())
                count += file.readLine().startsWith("migration/statement run") ? 1 : 0;
        }
        return count;
    }
    void expectWhole()
    {
        server.start();
        const CommandResult verified = server.command({ "verify", "--deep" });
        EXPECT_EQ(verified.exitCode, 0) << verified.out << verified.err;
        server.stop();
    }

    ServerProcess server { notStarted() };
};

constexpr int statementsOfTheSchema = 63;

/// At which statements of the schema a start is stopped: all, or some where time is short.
std::vector<int> places()
{
    std::vector<int> chosen;
    const bool isLong = std::getenv("KVX_TEST_LONG") != nullptr;
    for (int place = 1; place < statementsOfTheSchema; place += isLong ? 1 : 29)
        chosen.push_back(place);
    chosen.push_back(statementsOfTheSchema);
    return chosen;
}

class MigrationStep : public FirstStart, public testing::WithParamInterface<int> {
protected:
    std::string at(const char *action) const
    {
        return std::string("migration/statement run=") + action + "@" + std::to_string(GetParam());
    }
};

enum class Return { AfterACrash, InOrder, WhileEverybodyIsAway };

std::string nameOf(Return how)
{
    static const char *const names[] = { "AfterACrash", "InOrder", "WhileEverybodyIsAway" };
    return names[static_cast<int>(how)];
}

class OlderFolder : public Ring, public testing::WithParamInterface<Return> {
protected:
    static bool copy(const QString &from, const QString &to)
    {
        return QDir(to).removeRecursively()
            && QProcess::execute(QStringLiteral("cp"), { QStringLiteral("-a"), from, to }) == 0;
    }

    /// Keeps a copy of the folder, lets anna save once more and edit again, and puts it back.
    void goAheadAndPutBack()
    {
        restartServer(true, [this] { ASSERT_TRUE(copy(dataFolder(), kept)); });
        ASSERT_FALSE(HasFatalFailure());
        ASSERT_TRUE(edit(0, 2, 22));
        ASSERT_EQ(exitOf(save(0)), 0);
        ASSERT_TRUE(edit(0, 3, 33));
        if (away) {
            ASSERT_TRUE(anna().stop());
        }
        restartServer(
            GetParam() != Return::AfterACrash, [this] { ASSERT_TRUE(copy(kept, dataFolder())); });
    }

    void TearDown() override
    {
        QDir(kept).removeRecursively();
        Ring::TearDown();
    }

    const QString kept = dataFolder() + QStringLiteral(".kept");
    const bool away = GetParam() == Return::WhileEverybodyIsAway;
};

} // namespace

TEST_P(MigrationStep, KilledLeavesADatabaseThatTheNextStartCompletes)
{
    EXPECT_FALSE(start(at("kill")));
    ASSERT_EQ(statements(), GetParam()) << "the step was never reached";
    expectWhole();
}

TEST_P(MigrationStep, FailedLeavesADatabaseThatTheNextStartCompletes)
{
    EXPECT_FALSE(start(at("error")));
    ASSERT_EQ(statements(), GetParam()) << "the step was never reached";
    expectWhole();
}

INSTANTIATE_TEST_SUITE_P(Statement, MigrationStep, testing::ValuesIn(places()));

TEST_F(FirstStart, WhoseMigrationIsHeldUpComesUp)
{
    EXPECT_TRUE(start("migration/statement run=delay:60"));
    EXPECT_EQ(statements(), statementsOfTheSchema) << "every statement is to have its case";
    server.stop();
    expectWhole();
}

TEST_P(OlderFolder, PutBackRefusesThoseWhoAreAheadAndLosesNoEdit)
{
    const Published old = published();
    goAheadAndPutBack();
    ASSERT_FALSE(HasFatalFailure());
    if (away) {
        ASSERT_TRUE(startAnna());
    }

    QElapsedTimer timer;
    timer.start();
    const QJsonObject refused = ask(0, QStringLiteral("save ") + guid);
    EXPECT_GT(exitOf(refused), 0);
    EXPECT_FALSE(refused.value(QLatin1String("published")).toBool());
    EXPECT_FALSE(errorOf(refused).isEmpty());
    EXPECT_LT(timer.elapsed(), 10000);
    EXPECT_EQ(published().version, old.version);
    EXPECT_EQ(published().file.toStdString(), old.file.toStdString());
    if (!away) {
        EXPECT_EQ(pending(0), 1);
        EXPECT_EQ(rate(0, 3).toStdString(), "33.00");
    }
    // The way out keeps what the server does not have.
    const QJsonObject discarded = ask(0, QStringLiteral("discard ") + guid);
    EXPECT_EQ(exitOf(discarded), 0) << errorOf(discarded).toStdString();
    const QString aside = discarded.value(QLatin1String("kept")).toString();
    EXPECT_EQ(ProjectContent::ofCopy(aside).version, old.version + 1);
    EXPECT_EQ(ProjectContent::ofCopy(aside).pending, 1);
    EXPECT_EQ(pending(0), 0);
    EXPECT_EQ(rate(0, 2).toStdString(), "2.50");
    expectStoreInOrder();
}

// Anna's copy and the server stand at the same number, with other saves under it.
TEST_P(OlderFolder, PutBackAndSavedUponIsNoticedThoughTheNumbersMatch)
{
    const Published old = published();
    ASSERT_TRUE(ben().stop());
    goAheadAndPutBack();
    ASSERT_FALSE(HasFatalFailure());
    ASSERT_TRUE(restartBen()) << ben().error().toStdString();
    ASSERT_TRUE(edit(1, 5, 55));
    ASSERT_EQ(exitOf(save(1)), 0);
    const Published bens = published();
    ASSERT_EQ(bens.version, old.version + 1);
    if (away) {
        ASSERT_TRUE(startAnna());
    }

    for (const char *command : { "save ", "sync ", "save " }) {
        const QJsonObject refused = ask(0, QLatin1String(command) + guid);
        EXPECT_GT(exitOf(refused), 0) << command;
        EXPECT_TRUE(errorOf(refused).contains(QLatin1String("others have saved since")))
            << command << errorOf(refused).toStdString();
    }
    EXPECT_EQ(published().version, bens.version);
    EXPECT_EQ(published().file.toStdString(), bens.file.toStdString());
    const QJsonObject discarded = ask(0, QStringLiteral("discard ") + guid);
    EXPECT_EQ(exitOf(discarded), 0) << errorOf(discarded).toStdString();
    const QString aside = discarded.value(QLatin1String("kept")).toString();
    EXPECT_EQ(ProjectContent::ofCopy(aside).version, bens.version);
    EXPECT_EQ(ProjectContent::ofCopy(aside).pending, 1);
    EXPECT_EQ(rate(0, 2).toStdString(), "2.50");
    EXPECT_EQ(rate(0, 5).toStdString(), "55.00");
    ASSERT_TRUE(edit(0, 3, 34));
    EXPECT_EQ(exitOf(save(0)), 0) << "and goes on from there";
    expectStoreInOrder();
}

INSTANTIATE_TEST_SUITE_P(Put, OlderFolder,
    testing::Values(Return::AfterACrash, Return::InOrder, Return::WhileEverybodyIsAway),
    [](const auto &info) { return nameOf(info.param); });
