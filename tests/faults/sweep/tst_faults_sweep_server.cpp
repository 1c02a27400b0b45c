#include "UnderFire.h"

#include <gtest/gtest.h>
#include <signal.h>

using namespace kvx::test;

namespace {

/// The server is under fire; it stays and answers.
class ServerUnderFire : public UnderFire {
protected:
    static void SetUpTestSuite()
    {
        site();
        site().stopServer();
        const Sweep::Counted counted(sweep());
        ASSERT_TRUE(site().startServer()) << site().error().toStdString();
        server = site().serverPid();
    }
    void TearDown() override
    {
        EXPECT_EQ(::kill(static_cast<pid_t>(server), 0), 0);
        UnderFire::TearDown();
    }

    static inline qint64 server = 0;
};

} // namespace

TEST_F(ServerUnderFire, ASaveIsPublishedOnceOrKept)
{
    sweepSave(QStringLiteral("server, save"), CallCounter::AllThreads, 5);
}

TEST_F(ServerUnderFire, AnItemIsCheckedOutToOneOrToNobody)
{
    sweep().over(QStringLiteral("server, check-out"), CallCounter::AllThreads, 1,
        [&](const Sweep::Run &run) {
            const int item = 1 + ++rounds % 30;
            const QString command = QStringLiteral("checkout %1 01.%2").arg(guid).arg(item);
            if (done(run, command)) {
                EXPECT_NE(exitOf(ben().run(command)), 0);
            }
            expectDone(anna(), command);
            EXPECT_NE(exitOf(ben().run(command)), 0);
            expectDone(anna(), QStringLiteral("checkin %1 01.%2").arg(guid).arg(item));
        });
    expectEqualCopies();
}

TEST_F(ServerUnderFire, ATemplateIsStoredWholeOrNotAtAll)
{
    sweepTemplateUpload(QStringLiteral("server, template upload"), CallCounter::AllThreads, 2);
}

TEST_F(ServerUnderFire, ALoginFailsInWordsAndTheNextOneSucceeds)
{
    ASSERT_TRUE(anna().stop());
    const QStringList login = as(team.account(0), { QStringLiteral("login") });
    sweep().over(
        QStringLiteral("server, login"), CallCounter::AllThreads, 12, [&](const Sweep::Run &run) {
            run.begin();
            const Ended under = runKvx(login);
            const bool struck = run.end();
            EXPECT_GE(under.exit, 0) << "a hang or a crash";
            EXPECT_TRUE(under.exit == 0 || struck);
            EXPECT_TRUE(under.exit == 0 || !under.err.isEmpty()) << under.out.toStdString();
            const Ended after = runKvx(login);
            EXPECT_EQ(after.exit, 0) << after.err.toStdString();
        });
    expectStoreInOrder();
}
