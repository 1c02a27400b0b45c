#include "projectdata/SaveFixture.h"

#include <QElapsedTimer>

// What a save makes of the answers to its lock request.

namespace kvx::test {

TEST_F(Save, givesUpAfter181LockRequestsAnd180Pauses)
{
    open(6);
    answerLock(2);
    EXPECT_EQ(save(), KVXCWProjectData::LockWaitExhausted);
    EXPECT_EQ(host.network.postCount(QStringLiteral("loglock")), 181);
    ASSERT_EQ(pauses.size(), 180);
    for (int i = 0; i < pauses.size(); i += 3)
        EXPECT_EQ(pauses.mid(i, 3), (QList<int> { 2, 4, 1 })) << i;
    EXPECT_EQ(host.network.postCount(QStringLiteral("getlogversion")), 1 + 181); // one at opening
    for (const QJsonObject &request : takeRequests("loglock"))
        EXPECT_FALSE(request.value(QLatin1String("ReleaseLock")).toBool());
    EXPECT_EQ(info.readyCalls, 0);
    EXPECT_TRUE(
        host.logged(20000, QStringLiteral("KVXCWProjectDataImpl.doSaveProject.logLock, Result=2")));
    EXPECT_TRUE(host.logged(20000, QStringLiteral("KVXCWProjectDataImpl.saveProject, Result=9")));
    EXPECT_FALSE(
        host.logged(20000, QStringLiteral("KVXCWProjectDataImpl.doSaveProject.releaseLogLock")));
}

TEST_F(Save, theWaitsAreCountedAnewForEachSave)
{
    open(6);
    answerLock(2);
    EXPECT_EQ(save(), KVXCWProjectData::LockWaitExhausted);
    pauses.clear();
    EXPECT_EQ(save(), KVXCWProjectData::LockWaitExhausted);
    EXPECT_EQ(pauses.size(), 180);
    EXPECT_EQ(pauses.first(), 2);
}

TEST_F(Save, getsTheLockWhenTheHolderLeaves)
{
    open(6);
    answerLockOnce(2);
    answerLockOnce(2);
    EXPECT_EQ(save(), KVXCWProjectData::Success);
    EXPECT_EQ(pauses, (QList<int> { 2, 4 }));
    EXPECT_EQ(server.merges, 1);
}

TEST_F(Save, aWaitingSaveTakesOverWhatTheHolderPublished)
{
    open(6);
    answerLockOnce(2);
    project->setPause([this](int) { publishLogs(7); });
    EXPECT_EQ(save(), KVXCWProjectData::Success);
    EXPECT_EQ(database.executions, 1);
    EXPECT_EQ(project->logVersion(), 8);
    EXPECT_EQ(server.version, 8);
}

TEST_F(Save, aStaleVersionSynchronisesAndAsksAgainAtOnce)
{
    open(6);
    answerLockOnce(0);
    EXPECT_EQ(save(), KVXCWProjectData::Success);
    EXPECT_TRUE(pauses.isEmpty());
    EXPECT_EQ(takeSteps().mid(0, 4),
        (QStringList { QStringLiteral("getlogversion"), QStringLiteral("loglock+"),
            QStringLiteral("getlogversion"), QStringLiteral("loglock+") }));
}

TEST_F(Save, everyRetryWritesItsFirstLineAgain)
{
    const QString first = QStringLiteral("INFO KVXCWProjectDataImpl.doSaveProject");
    const QString synced = QStringLiteral("INFO KVXCWProjectDataImpl::syncLogs");
    const QString answered
        = QStringLiteral("INFO KVXCWProjectDataImpl.doSaveProject.logLock, Result=%1");
    open(6);
    answerLockOnce(0);
    answerLockOnce(2);
    ASSERT_EQ(save(), KVXCWProjectData::Success);
    EXPECT_EQ(takeLog("KVXCWProjectDataImpl.cpp").mid(0, 9),
        (QStringList { first, synced, answered.arg(0), first, synced, answered.arg(2), first,
            synced, answered.arg(1) }));
}

TEST_F(Save, aStaleVersionIsNotCountedAsAWait)
{
    open(6);
    answerLockOnce(2);
    for (int i = 0; i < 1000; ++i)
        answerLockOnce(0);
    answerLockOnce(2);
    EXPECT_EQ(save(), KVXCWProjectData::Success);
    EXPECT_EQ(pauses, (QList<int> { 2, 4 }));
}

TEST_F(Save, aLockReplyWithoutTheKeyCountsAsStale)
{
    open(6);
    host.network.answerOnce(QStringLiteral("loglock"), status(1));
    answerLockOnce(QStringLiteral("1"));
    EXPECT_EQ(save(), KVXCWProjectData::Success);
    EXPECT_EQ(host.network.postCount(QStringLiteral("loglock")), 4);
}

TEST_F(Save, numbersInRepliesAreTruncated)
{
    open(6);
    QJsonObject lock = status(1.9);
    lock.insert(QStringLiteral("Lock"), 2.9);
    host.network.answerOnce(QStringLiteral("loglock"), lock);
    EXPECT_EQ(save(), KVXCWProjectData::Success);
    EXPECT_EQ(pauses, QList<int> { 2 });
}

TEST_F(Save, reportsSuccessWhenTheLockServiceAnswersAnythingElse)
{
    open(6);
    for (const int lock : { 3, -1, 2000000000 }) {
        answerLockOnce(lock);
        EXPECT_EQ(save(), KVXCWProjectData::Success);
        EXPECT_EQ(takeSteps(),
            (QStringList { QStringLiteral("getlogversion"), QStringLiteral("loglock+") }));
        EXPECT_EQ(project->logVersion(), 6);
    }
    EXPECT_EQ(info.readyCalls, 0);
    EXPECT_EQ(info.infoCalls, 0);
    EXPECT_TRUE(
        host.logged(20000, QStringLiteral("KVXCWProjectDataImpl.doSaveProject.logLock, Result=3")));
}

TEST_F(Save, reportsSuccessWhenTheLockRequestFails)
{
    open(6);
    for (const double code : { 0.0, 2.0, 310.0 }) {
        host.network.answerOnce(QStringLiteral("loglock"), status(code));
        EXPECT_EQ(save(), KVXCWProjectData::Success);
    }
    host.network.failPost(QStringLiteral("loglock"));
    EXPECT_EQ(save(), KVXCWProjectData::Success);
    EXPECT_TRUE(host.logged(
        20000, QStringLiteral("KVXCWProjectDataImpl.doSaveProject.logLock, Result=-1")));
    EXPECT_EQ(server.merges, 0);
    EXPECT_EQ(project->logVersion(), 6);
}

TEST_F(Save, locksNothingWhenTheSynchronisationFails)
{
    open(6);
    host.network.answerOnce(QStringLiteral("getlogversion"), status(0));
    EXPECT_EQ(save(), KVXCWProjectData::GetLogVersionFailed);
    EXPECT_EQ(takeSteps(), QStringList { QStringLiteral("getlogversion") });

    server.version = 7; // without a log file
    EXPECT_EQ(save(), KVXCWProjectData::DownloadLogsFailed);
    publishLogs(8);
    server.publishLog(7, commandFile);
    database.results = { 0 };
    EXPECT_EQ(save(), KVXCWProjectData::MergeLogsFailed);
    EXPECT_EQ(host.network.postCount(QStringLiteral("loglock")), 0);
    EXPECT_TRUE(host.logged(20000, QStringLiteral("KVXCWProjectDataImpl.saveProject, Result=4")));
}

TEST_F(Save, locksNothingWithoutAServer)
{
    open(6);
    host.unconfigure();
    EXPECT_EQ(save(), KVXCWProjectData::GetLogVersionFailed);
    expectNoRequest(host);
}

TEST_F(Save, theRealPauseSleeps)
{
    open(6);
    KVXCWProjectDataImpl other;
    other.setProjectGuid(guid);
    answerLockOnce(2);
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(other.saveProject(&info), KVXCWProjectData::Success);
    EXPECT_GE(timer.elapsed(), 1990);
}

} // namespace kvx::test
