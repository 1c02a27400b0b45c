#include "projectdata/ProjectFixture.h"

#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCommon/KVXZipFile.h>
#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace kvx::test {

namespace {

class Sync : public ProjectFixture {
protected:
    KVXCWProjectData::ErrorCode sync() { return project->syncLogs(); }
    void refuseDownload(int logVersion) { server.files.remove(server.logName(logVersion)); }
    QStringList archives() const
    {
        QStringList paths;
        for (const QString &name : temporaryEntries())
            paths.append(QDir::tempPath() + QLatin1Char('/') + name);
        return paths;
    }
    void TearDown() override
    {
        KVXCollaborator::getInstance()->reset(false, QString());
        for (const QString &path : archives())
            QFileInfo(path).isDir() ? QDir(path).removeRecursively() : QFile::remove(path);
    }
};

} // namespace

TEST_F(Sync, fetchesNothingWhenThereIsNothingNew)
{
    for (const int version : { -1, 3 }) {
        open(version);
        EXPECT_EQ(sync(), KVXCWProjectData::Success);
        EXPECT_FALSE(project->isSynced());
        EXPECT_EQ(takeSteps(), QStringList { QStringLiteral("getlogversion") });
    }
}

TEST_F(Sync, aServerThatIsBehindIsLeftAlone)
{
    open(5);
    for (const int version : { 4, 0, -1, -9 }) {
        server.version = version;
        EXPECT_EQ(sync(), KVXCWProjectData::Success);
        EXPECT_FALSE(project->isSynced());
        EXPECT_EQ(project->logVersion(), 5);
    }
    EXPECT_EQ(host.network.postCount(QStringLiteral("download")), 0);
}

TEST_F(Sync, fetchesAndAppliesTheMissingLogsInOrder)
{
    open(3);
    publishLogs(6);
    EXPECT_EQ(sync(), KVXCWProjectData::Success);
    EXPECT_EQ(takeSteps(),
        (QStringList { QStringLiteral("getlogversion"), QStringLiteral("download _log4"),
            QStringLiteral("download _log5"), QStringLiteral("download _log6") }));
    EXPECT_EQ(project->logVersion(), 6);
    EXPECT_TRUE(project->isSynced());
    EXPECT_EQ(database.modes, (QList<int> { 0, 0, 0 }));
    EXPECT_EQ(temporaryEntries(), QStringList());
}

TEST_F(Sync, aDownloadNamesOnlyTheFiles)
{
    open(3);
    publishLogs(5);
    ASSERT_EQ(sync(), KVXCWProjectData::Success);
    const QList<QJsonObject> requests = takeRequests("download");
    ASSERT_EQ(requests.size(), 2);
    QStringList locals;
    for (const QJsonObject &request : requests) {
        EXPECT_EQ(request.keys(),
            (QStringList { QStringLiteral("FileName"), QStringLiteral("LocalFileName"),
                QStringLiteral("service") }));
        const QString local = request.value(QLatin1String("LocalFileName")).toString();
        EXPECT_TRUE(local.startsWith(QDir::tempPath() + QStringLiteral("/{")));
        EXPECT_TRUE(local.endsWith(QLatin1Char('}')));
        locals.append(local);
    }
    EXPECT_NE(locals.at(0), locals.at(1));
}

TEST_F(Sync, refreshesTheCheckOutStatesAfterNewLogs)
{
    open(3);
    KVXItemCheckState holder;
    items->checkState(7, 1, holder); // the module is known from now on
    publishLogs(4);
    host.network.takeRequests();
    EXPECT_EQ(sync(), KVXCWProjectData::Success);
    EXPECT_EQ(takeSteps(),
        (QStringList { QStringLiteral("getlogversion"), QStringLiteral("download _log4"),
            QStringLiteral("checkout") }));
}

TEST_F(Sync, writesItsLogLines)
{
    open(3);
    publishLogs(4);
    ASSERT_EQ(sync(), KVXCWProjectData::Success);
    const QString local
        = takeRequests("download").first().value(QLatin1String("LocalFileName")).toString();
    const QStringList lines = takeLog("KVXCWProjectDataImpl.cpp");
    ASSERT_EQ(lines.size(), 7);
    EXPECT_EQ(lines.at(0), QStringLiteral("INFO KVXCWProjectDataImpl::syncLogs"));
    EXPECT_EQ(lines.at(1), QStringLiteral("INFO KVXCWProjectDataImpl::downloadLogs"));
    EXPECT_EQ(
        lines.at(2), QStringLiteral("INFO Download log success, LocalFileName=%1").arg(local));
    EXPECT_EQ(lines.at(3), QStringLiteral("INFO KVXCWProjectDataImpl::mergeLogs: logCount=1"));
    EXPECT_TRUE(
        lines.at(4).startsWith(QStringLiteral("INFO mergeOneLog: %1/{").arg(QDir::tempPath())));
    EXPECT_TRUE(lines.at(4).endsWith(QStringLiteral("}/%1-1").arg(server.logName(4))))
        << lines.at(4).toStdString();
    // The successful merge is logged as a warning.
    EXPECT_EQ(
        lines.at(5), QStringLiteral("WARN Merge log file successed: no=1, filename=%1").arg(local));
    EXPECT_EQ(lines.at(6), QStringLiteral("INFO syncCheckOutStates successed."));
}

TEST_F(Sync, numbersTheLogsOfAPassFromOne)
{
    open(3);
    publishLogs(5);
    ASSERT_EQ(sync(), KVXCWProjectData::Success);
    const QStringList lines = takeLog("KVXCWProjectDataImpl.cpp");
    EXPECT_TRUE(lines.contains(QStringLiteral("INFO KVXCWProjectDataImpl::mergeLogs: logCount=2")));
    EXPECT_EQ(lines.filter(QStringLiteral("WARN Merge log file successed: no=1, ")).size(), 1);
    EXPECT_EQ(lines.filter(QStringLiteral("WARN Merge log file successed: no=2, ")).size(), 1);
}

TEST_F(Sync, anyNonZeroResultIsSuccessAndIsLogged)
{
    open(3);
    publishLogs(5);
    database.results = { 42, -1 };
    EXPECT_EQ(sync(), KVXCWProjectData::Success);
    const QStringList lines
        = takeLog("KVXCWProjectDataImpl.cpp").filter(QStringLiteral("mergeOneLog: "));
    ASSERT_EQ(lines.size(), 2);
    EXPECT_TRUE(lines.at(0).endsWith(QStringLiteral("-42")));
    EXPECT_TRUE(lines.at(1).endsWith(QStringLiteral("--1")));
}

TEST_F(Sync, reportsAnUnreadableVersion)
{
    open(3);
    for (const double code : { 0.0, 0.5, 2.0, -1.0, 310.0 }) {
        host.network.answerOnce(QStringLiteral("getlogversion"), status(code));
        EXPECT_EQ(sync(), KVXCWProjectData::GetLogVersionFailed);
    }
    host.network.answerOnce(QStringLiteral("getlogversion"), {});
    EXPECT_EQ(sync(), KVXCWProjectData::GetLogVersionFailed);
    host.network.answerOnce(
        QStringLiteral("getlogversion"), json(R"({"statuscode": "1", "LogVersion": 9})"));
    EXPECT_EQ(sync(), KVXCWProjectData::GetLogVersionFailed);
    host.network.failPost(QStringLiteral("getlogversion"));
    EXPECT_EQ(sync(), KVXCWProjectData::GetLogVersionFailed);
    host.unconfigure();
    EXPECT_EQ(sync(), KVXCWProjectData::GetLogVersionFailed);
    EXPECT_FALSE(project->isSynced());
    EXPECT_EQ(host.network.postCount(QStringLiteral("download")), 0);
}

TEST_F(Sync, aVersionThatNoLogCanHaveIsUnreadable)
{
    open(3);
    for (const char *reply : { R"({"statuscode": 1, "LogVersion": 1e300})",
             R"({"statuscode": 1, "LogVersion": 2147483647})",
             R"({"statuscode": 1, "LogVersion": 1000000000})",
             R"({"statuscode": 1, "LogVersion": -2})" }) {
        host.network.answerOnce(QStringLiteral("getlogversion"), json(reply));
        EXPECT_EQ(sync(), KVXCWProjectData::GetLogVersionFailed) << reply;
    }
    EXPECT_EQ(host.network.postCount(QStringLiteral("download")), 0);
}

TEST_F(Sync, anIllTypedVersionReadsAsZero)
{
    open(3);
    for (const char *reply : { R"({"statuscode": 1})", R"({"statuscode": 1, "LogVersion": "9"})",
             R"({"statuscode": 1, "LogVersion": null})",
             R"({"statuscode": 1, "LogVersion": [9]})" }) {
        host.network.answerOnce(QStringLiteral("getlogversion"), json(reply));
        EXPECT_EQ(sync(), KVXCWProjectData::Success) << reply;
    }
    EXPECT_EQ(host.network.postCount(QStringLiteral("download")), 0);
}

TEST_F(Sync, aFailedDownloadDropsTheWholePass)
{
    open(3);
    publishLogs(6);
    refuseDownload(5);
    EXPECT_EQ(sync(), KVXCWProjectData::DownloadLogsFailed);
    EXPECT_EQ(takeSteps(),
        (QStringList { QStringLiteral("getlogversion"), QStringLiteral("download _log4"),
            QStringLiteral("download _log5") }));
    EXPECT_EQ(project->logVersion(), 3);
    EXPECT_FALSE(project->isSynced());
    EXPECT_EQ(temporaryEntries(), QStringList());
    EXPECT_EQ(database.executions, 0);
    EXPECT_TRUE(host.logged(30000, QStringLiteral("Download log failed, Will clear log list")));
    EXPECT_FALSE(host.logged(20000, QStringLiteral("KVXCWProjectDataImpl::mergeLogs: logCount=1")));
}

TEST_F(Sync, aDownloadThatFailsHalfwayLeavesNoFile)
{
    open(3);
    publishLogs(4);
    host.network.handle(QStringLiteral("download"), [](const QJsonObject &request, QJsonObject &) {
        writeFile(request.value(QLatin1String("LocalFileName")).toString(), "half an archi");
        return false;
    });
    EXPECT_EQ(sync(), KVXCWProjectData::DownloadLogsFailed);
    EXPECT_EQ(temporaryEntries(), QStringList());
}

TEST_F(Sync, losingTheServerBeforeTheDownloadKeepsTheList)
{
    open(3);
    publishLogs(5);
    database.results = { 0 };
    ASSERT_EQ(sync(), KVXCWProjectData::MergeLogsFailed);
    ASSERT_EQ(temporaryEntries().size(), 2);
    host.network.handle(
        QStringLiteral("getlogversion"), [this](const QJsonObject &, QJsonObject &reply) {
            host.unconfigure();
            reply = json(R"({"statuscode": 1, "LogVersion": 5})");
            return true;
        });
    EXPECT_EQ(sync(), KVXCWProjectData::DownloadLogsFailed);
    EXPECT_EQ(temporaryEntries().size(), 2);
    EXPECT_FALSE(host.logged(30000, QStringLiteral("Download log failed, Will clear log list")));
}

TEST_F(Sync, stopsAtTheLogThatDoesNotApply)
{
    open(3);
    publishLogs(6);
    database.results = { 1, 0 };
    EXPECT_EQ(sync(), KVXCWProjectData::MergeLogsFailed);
    EXPECT_EQ(project->logVersion(), 4);
    EXPECT_FALSE(project->isSynced());
    EXPECT_EQ(database.executions, 2);
    const QList<QJsonObject> downloads = takeRequests("download");
    EXPECT_TRUE(host.logged(30000,
        QStringLiteral("Merge log file failed: no=2, filename=%1")
            .arg(downloads.at(1).value(QLatin1String("LocalFileName")).toString())));
}

TEST_F(Sync, archivesOfAFailedPassStayUntilTheNext)
{
    open(3);
    publishLogs(6);
    database.results = { 1, 0 };
    ASSERT_EQ(sync(), KVXCWProjectData::MergeLogsFailed);
    EXPECT_EQ(temporaryEntries().size(), 3); // the unpacked folders are gone
    host.network.takeRequests();
    EXPECT_EQ(sync(), KVXCWProjectData::Success);
    EXPECT_EQ(takeSteps(),
        (QStringList { QStringLiteral("getlogversion"), QStringLiteral("download _log5"),
            QStringLiteral("download _log6") }));
    EXPECT_EQ(temporaryEntries(), QStringList());
    EXPECT_EQ(project->logVersion(), 6);
}

TEST_F(Sync, closingTheProjectDeletesArchivesOfAFailedPass)
{
    open(3);
    publishLogs(5);
    database.results = { 0 };
    ASSERT_EQ(sync(), KVXCWProjectData::MergeLogsFailed);
    ASSERT_EQ(temporaryEntries().size(), 2);
    close();
    EXPECT_EQ(temporaryEntries(), QStringList());
}

TEST_F(Sync, aDetachedDatabaseFailsTheMerge)
{
    open(3);
    project->setProjectDatabase(nullptr);
    publishLogs(4);
    EXPECT_EQ(sync(), KVXCWProjectData::MergeLogsFailed);
    EXPECT_EQ(project->logVersion(), 3);
    const QStringList lines
        = takeLog("KVXCWProjectDataImpl.cpp").filter(QStringLiteral("mergeOneLog: "));
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines.first().endsWith(QStringLiteral("-0")));
    EXPECT_EQ(temporaryEntries().size(), 1); // the archive
}

TEST_F(Sync, somethingElseThanAnArchiveFailsTheMerge)
{
    open(3);
    server.publishArchive(4, "this is no archive");
    EXPECT_EQ(sync(), KVXCWProjectData::MergeLogsFailed);
    EXPECT_TRUE(host.logged(20000, QStringLiteral("extractFiles failed")));
    EXPECT_EQ(database.executions, 0);
    const QStringList left = archives(); // what was downloaded, and nothing unpacked
    ASSERT_EQ(left.size(), 1);
    EXPECT_EQ(readFile(left.first()), QByteArray("this is no archive"));
}

TEST_F(Sync, anAnsweredDownloadWithoutAFileFailsTheMerge)
{
    open(3);
    server.version = 4;
    host.network.answer(QStringLiteral("download"), status(1));
    EXPECT_EQ(sync(), KVXCWProjectData::MergeLogsFailed);
    EXPECT_TRUE(host.logged(20000, QStringLiteral("extractFiles failed")));
}

TEST_F(Sync, anArchiveWithoutEntriesFailsTheMergeWithoutALine)
{
    open(3);
    server.publishArchive(4, QByteArray("PK\x05\x06", 4) + QByteArray(18, '\0'));
    EXPECT_EQ(sync(), KVXCWProjectData::MergeLogsFailed);
    const QStringList lines = takeLog("KVXCWProjectDataImpl.cpp");
    const int started
        = lines.indexOf(QStringLiteral("INFO KVXCWProjectDataImpl::mergeLogs: logCount=1"));
    ASSERT_GE(started, 0);
    ASSERT_EQ(lines.size(), started + 2);
    EXPECT_TRUE(lines.last().startsWith(QStringLiteral("WARN Merge log file failed: no=1, ")));
    int folders = 0;
    for (const QString &path : archives())
        folders += QFileInfo(path).isDir() ? 1 : 0;
    EXPECT_EQ(folders, 1); // the unpacked one
    EXPECT_EQ(archives().size(), 1 + 1);
}

TEST_F(Sync, aLogThatCannotBeLoadedFailsTheMerge)
{
    open(3);
    const QString garbage = folder.filePath(QStringLiteral("garbage"));
    ASSERT_TRUE(writeFile(garbage, "not a change log"));
    server.publishLog(4, garbage);
    for (int pass = 0; pass < 3; ++pass) {
        EXPECT_EQ(sync(), KVXCWProjectData::MergeLogsFailed);
        EXPECT_TRUE(host.logged(20000, QStringLiteral("loadFromFile failed")));
        host.takeLog();
    }
    EXPECT_EQ(database.executions, 0);
    EXPECT_EQ(project->logVersion(), 3);
    // Only a log that was executed has its folder removed.
    EXPECT_EQ(temporaryEntries().size(), 3 + 1);
    project->setProjectGuid(guid); // lets go of what was kept
}

TEST_F(Sync, theFirstEntryInNameOrderIsTheLog)
{
    open(3);
    const QString garbage = folder.filePath(QStringLiteral("garbage"));
    ASSERT_TRUE(writeFile(garbage, "not a change log"));
    const QString archive = folder.filePath(QStringLiteral("two"));
    ASSERT_TRUE(KVXZipFile::compressFiles(
        archive, { { QStringLiteral("b"), garbage }, { QStringLiteral("a"), commandFile } }, {}));
    server.publishArchive(4, readFile(archive));
    EXPECT_EQ(sync(), KVXCWProjectData::Success);
}

TEST_F(Sync, reportsStatesThatCannotBeRead)
{
    open(3);
    KVXItemCheckState holder;
    items->checkState(7, 1, holder);
    publishLogs(4);
    host.network.answer(QStringLiteral("checkout"), status(0));
    EXPECT_EQ(sync(), KVXCWProjectData::CheckOutFailed);
    EXPECT_TRUE(host.logged(20000, QStringLiteral("syncCheckOutStates failed.")));
    EXPECT_FALSE(project->isSynced());
    EXPECT_EQ(project->logVersion(), 4);
}

TEST_F(Sync, anIdManagerOfAnotherMakeIsAskedAsWell)
{
    open(3);
    auto *foreign = new ForeignIDManager;
    KVXCollaborator::getInstance()->setIdManager(guid, foreign);
    publishLogs(4);
    EXPECT_EQ(sync(), KVXCWProjectData::Success);
    foreign->statesResult = false;
    publishLogs(5);
    EXPECT_EQ(sync(), KVXCWProjectData::CheckOutFailed);
}

TEST_F(Sync, aMissingIdManagerFailsThePass)
{
    open(3);
    KVXCollaborator::getInstance()->setIdManager(guid, nullptr);
    publishLogs(4);
    EXPECT_EQ(sync(), KVXCWProjectData::CheckOutFailed);
    EXPECT_TRUE(host.logged(20000, QStringLiteral("syncCheckOutStates failed.")));
    EXPECT_EQ(project->logVersion(), 4);
}

TEST_F(Sync, thePassThatFindsNothingClearsTheMark)
{
    open(3);
    publishLogs(4);
    ASSERT_EQ(sync(), KVXCWProjectData::Success);
    EXPECT_TRUE(project->isSynced());
    EXPECT_EQ(sync(), KVXCWProjectData::Success);
    EXPECT_FALSE(project->isSynced());
    publishLogs(5);
    ASSERT_EQ(sync(), KVXCWProjectData::Success);
    project->setProjectGuid(guid);
    EXPECT_FALSE(project->isSynced());
}

TEST_F(Sync, theProjectMayBeClosedWhileALogIsApplied)
{
    open(3);
    publishLogs(6);
    database.onExecute = [this] { close(); };
    EXPECT_EQ(sync(), KVXCWProjectData::MergeLogsFailed);
    EXPECT_TRUE(project.isNull());
    EXPECT_EQ(database.executions, 1);
    EXPECT_EQ(temporaryEntries(), QStringList());
}

TEST_F(Sync, theProjectMayBeClosedByAReceiverOfTheStates)
{
    open(3);
    KVXItemCheckState holder;
    items->checkState(7, 1, holder);
    items->checkState(8, 1, holder);
    publishLogs(4);
    host.network.takeRequests();
    QObject::connect(items, &KVXCWIDManager::changed, [this] { close(); });
    EXPECT_EQ(sync(), KVXCWProjectData::CheckOutFailed);
    EXPECT_TRUE(project.isNull());
    EXPECT_EQ(takeSteps().filter(QStringLiteral("checkout")).size(), 1);
}

TEST_F(Sync, theProjectMayBeClosedDuringARequest)
{
    open(3);
    publishLogs(4);
    host.network.handle(
        QStringLiteral("getlogversion"), [this](const QJsonObject &, QJsonObject &reply) {
            close();
            reply = json(R"({"statuscode": 1, "LogVersion": 4})");
            return true;
        });
    EXPECT_EQ(sync(), KVXCWProjectData::Success);
    EXPECT_EQ(host.network.postCount(QStringLiteral("download")), 0);
}

TEST_F(Sync, synchronisingFromInsideAnExecutionSkipsNoVersion)
{
    open(3);
    publishLogs(5);
    int depth = 0;
    database.onExecute = [&] {
        if (depth++ == 0)
            sync(); // fetches and applies both
    };
    sync();
    EXPECT_EQ(project->logVersion(), 5);
    database.onExecute = nullptr;
    publishLogs(6);
    EXPECT_EQ(sync(), KVXCWProjectData::Success);
    EXPECT_EQ(project->logVersion(), 6);
    EXPECT_EQ(temporaryEntries(), QStringList());
}

TEST_F(Sync, aGuidWithPlaceholdersIsLoggedAsItIs)
{
    open(3);
    publishLogs(4);
    const QString odd = QStringLiteral("{%1%2}");
    server.files.insert(odd + QStringLiteral("_log4"), server.files.value(server.logName(4)));
    auto *other = new KVXCWProjectDataImpl;
    server.version = 3;
    KVXCollaborator::getInstance()->setProjectDataSynchronizer(odd, other);
    other->setProjectGuid(odd);
    other->setProjectDatabase(&database);
    KVXCollaborator::getInstance()->setIdManager(odd, new KVXCWIDManagerImpl);
    server.version = 4;
    EXPECT_EQ(other->syncLogs(), KVXCWProjectData::Success);
    EXPECT_EQ(takeRequests("download").last().value(QLatin1String("FileName")).toString(),
        QStringLiteral("{%1%2}_log4"));
}

} // namespace kvx::test
