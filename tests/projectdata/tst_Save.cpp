#include "projectdata/SaveFixture.h"

#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCommon/KVXZipFile.h>
#include <stdexcept>

namespace kvx::test {

namespace {

const QStringList wholeSave { QStringLiteral("getlogversion"), QStringLiteral("loglock+"),
    QStringLiteral("upload _log7"), QStringLiteral("upload .KVX"),
    QStringLiteral("sendservertomerge"), QStringLiteral("loglock-") };

} // namespace

TEST_F(Save, sendsItsRequestsInOrder)
{
    open(6);
    EXPECT_EQ(save(), KVXCWProjectData::Success);
    EXPECT_EQ(takeSteps(), wholeSave);
    EXPECT_EQ(server.merges, 1);
    EXPECT_EQ(server.version, 7);
    EXPECT_EQ(project->logVersion(), 7);
    EXPECT_EQ(server.files.value(server.projectFileName()), readFile(projectFile));
    EXPECT_EQ(host.network.lastUrl(), QStringLiteral("http://127.0.0.1:8090/kvx/service"));
    EXPECT_EQ(host.network.lastReceiver(), nullptr);
    EXPECT_EQ(host.network.lastProgress(), nullptr);
}

TEST_F(Save, sendsExactlyTheKeysOfEachRequest)
{
    open(6);
    ASSERT_EQ(save(), KVXCWProjectData::Success);
    QList<QJsonObject> requests = host.network.takeRequests();
    ASSERT_EQ(requests.size(), 6);

    QJsonObject version = json(R"({"service": "getlogversion", "Email": "anna@example.com"})");
    version.insert(QStringLiteral("ProjectGUID"), guid);
    EXPECT_EQ(requests.at(0), version);

    QJsonObject lock = json(R"({"service": "loglock", "Email": "anna@example.com",
        "LogVersion": 6, "ReleaseLock": false})");
    lock.insert(QStringLiteral("ProjectGUID"), guid);
    EXPECT_EQ(requests.at(1), lock);

    QJsonObject upload = json(R"({"service": "upload"})");
    upload.insert(QStringLiteral("LocalFileName"), archivePath(7));
    upload.insert(QStringLiteral("FileName"), QString(guid + QStringLiteral("_log7")));
    EXPECT_EQ(requests.at(2), upload);

    const QJsonObject file = requests.at(3);
    EXPECT_EQ(file.value(QLatin1String("FileName")).toString(), guid + QStringLiteral(".KVX"));
    EXPECT_EQ(file.value(QLatin1String("LocalFileName")).toString(), projectFile);
    EXPECT_EQ(file.value(QLatin1String("ProjectGUID")).toString(), guid);
    EXPECT_EQ(file.value(QLatin1String("Name")), QJsonValue(QString()));

    QJsonObject merge = json(R"({"service": "sendservertomerge", "Email": "anna@example.com",
        "LogVersion": 6, "Amount": "1234.50"})");
    merge.insert(QStringLiteral("ProjectGUID"), guid);
    merge.insert(QStringLiteral("LogFilename"), QString(guid + QStringLiteral("_log7")));
    EXPECT_EQ(requests.at(4), merge);

    lock.insert(QStringLiteral("LogVersion"), 7);
    lock.insert(QStringLiteral("ReleaseLock"), true);
    EXPECT_EQ(requests.at(5), lock);
}

TEST_F(Save, theFirstLogOfAProjectIsNumberZero)
{
    open(-1);
    EXPECT_EQ(project->logVersion(), -1);
    EXPECT_EQ(save(), KVXCWProjectData::Success);
    EXPECT_EQ(project->logVersion(), 0);
    EXPECT_TRUE(server.files.contains(guid + QStringLiteral("_log0")));
}

TEST_F(Save, theArchiveHoldsOneEntryOfItsOwnName)
{
    open(6);
    ASSERT_EQ(save(), KVXCWProjectData::Success);
    QMap<QString, QString> files;
    ASSERT_TRUE(KVXZipFile::extractFiles(
        archivePath(7), folder.filePath(QStringLiteral("out")), files, QString()));
    ASSERT_EQ(files.keys(), QStringList { guid + QStringLiteral("_log7") });
    EXPECT_EQ(readFile(files.first()), readFile(commandFile));
}

TEST_F(Save, theArchiveStaysInTheTemporaryDirectory)
{
    open(6);
    ASSERT_EQ(save(), KVXCWProjectData::Success);
    EXPECT_EQ(temporaryEntries(), QStringList { guid + QStringLiteral("_log7") });
}

TEST_F(Save, anArchiveOfAnEarlierSaveIsReplaced)
{
    open(6);
    ASSERT_TRUE(writeFile(archivePath(7), "left over"));
    ASSERT_EQ(save(), KVXCWProjectData::Success);
    EXPECT_EQ(server.files.value(server.logName(7)), readFile(archivePath(7)));
    EXPECT_NE(readFile(archivePath(7)), QByteArray("left over"));
}

TEST_F(Save, writesItsLogLines)
{
    open(6);
    ASSERT_EQ(save(), KVXCWProjectData::Success);
    EXPECT_EQ(takeLog("KVXCWProjectDataImpl.cpp"),
        (QStringList {
            QStringLiteral("INFO KVXCWProjectDataImpl.doSaveProject"),
            QStringLiteral("INFO KVXCWProjectDataImpl::syncLogs"),
            QStringLiteral("INFO KVXCWProjectDataImpl.doSaveProject.logLock, Result=1"),
            QStringLiteral(
                "INFO KVXCWProjectDataImpl.doSaveProject.uploadLogFile and uploadProjectFile"),
            QStringLiteral("INFO uploadLogFile: %1-1").arg(commandFile),
            QStringLiteral("INFO KVXCWProjectDataImpl.doSaveProject.sendServerToMerge"),
            QStringLiteral("INFO KVXCWProjectDataImpl.doSaveProject.checkOutNewItems"),
            QStringLiteral("INFO KVXCWProjectDataImpl.doSaveProject.releaseLogLock"),
            QStringLiteral("INFO KVXCWProjectDataImpl.saveProject, Result=1"),
        }));
}

TEST_F(Save, logLinesNameTheirFunction)
{
    open(6);
    ASSERT_EQ(save(), KVXCWProjectData::Success);
    for (const LogRecord &record : host.takeLog()) {
        if (record.text.startsWith(QLatin1String("uploadLogFile: "))) {
            EXPECT_TRUE(record.function.contains(
                QLatin1String("KVXCWProjectDataImpl::uploadLogFile(const QString&)")))
                << record.function.toStdString();
            return;
        }
    }
    ADD_FAILURE() << "no line of the upload";
}

TEST_F(Save, theUploadLineShowsTheStatusAsItCame)
{
    open(6);
    host.network.answerOnce(QStringLiteral("upload"), status(1.5));
    ASSERT_EQ(save(), KVXCWProjectData::SendToMergeFailed); // it was not staged
    EXPECT_TRUE(host.logged(20000, QStringLiteral("uploadLogFile: %1-1.5").arg(commandFile)));
    host.network.answerOnce(QStringLiteral("upload"), status(604));
    EXPECT_EQ(save(), KVXCWProjectData::UploadFailed);
    EXPECT_TRUE(host.logged(20000, QStringLiteral("uploadLogFile: %1-604").arg(commandFile)));
}

TEST_F(Save, theUploadLineShowsZeroWithoutAnAnswer)
{
    open(6);
    host.network.failPost(QStringLiteral("upload"));
    EXPECT_EQ(save(), KVXCWProjectData::UploadFailed);
    EXPECT_TRUE(host.logged(20000, QStringLiteral("uploadLogFile: %1-0").arg(commandFile)));
    EXPECT_EQ(server.locksReleased, 1);
}

TEST_F(Save, placeholdersInNamesStayWhatTheyAre)
{
    open(6);
    const QString odd = folder.filePath(QStringLiteral("100%1 %2 %L1"));
    ASSERT_TRUE(writeFile(odd, readFile(commandFile)));
    info.map.insert(QStringLiteral("ProjectLogFile"), odd);
    EXPECT_EQ(save(), KVXCWProjectData::Success);
    EXPECT_TRUE(host.logged(20000, QStringLiteral("uploadLogFile: ") + odd + QStringLiteral("-1")));
}

TEST_F(Save, aGuidWithPlaceholdersNamesTheLog)
{
    open(6);
    project->setProjectGuid(QStringLiteral("G%1"));
    EXPECT_EQ(save(), KVXCWProjectData::SendToMergeFailed); // this server keeps another project
    const QList<QJsonObject> merges = takeRequests("sendservertomerge");
    ASSERT_EQ(merges.size(), 1);
    EXPECT_EQ(
        merges.first().value(QLatin1String("LogFilename")).toString(), QStringLiteral("G%1_log7"));
    QFile::remove(QDir::tempPath() + QStringLiteral("/G%1_log7"));
}

TEST_F(Save, aGuidCannotLeadOutOfTheTemporaryDirectory)
{
    open(6);
    project->setProjectGuid(QStringLiteral("../escaped"));
    host.network.takeRequests();
    EXPECT_EQ(save(), KVXCWProjectData::UploadFailed);
    EXPECT_EQ(takeSteps().filter(QStringLiteral("upload")), QStringList());
    EXPECT_FALSE(QFile::exists(QDir::tempPath() + QStringLiteral("/../escaped_log7")));
    EXPECT_EQ(server.locksReleased, server.locksWon);
}

TEST_F(Save, aVetoStillReleasesTheLock)
{
    open(6);
    QObject::connect(
        project, &KVXCWProjectData::aboutToSaveProject, [](bool &proceed) { proceed = false; });
    EXPECT_EQ(save(), KVXCWProjectData::SaveCancelled);
    EXPECT_EQ(info.readyCalls, 0);
    EXPECT_EQ(takeSteps(),
        (QStringList { QStringLiteral("getlogversion"), QStringLiteral("loglock+"),
            QStringLiteral("loglock-") }));
    EXPECT_EQ(server.locksReleased, 1);
}

TEST_F(Save, asksItsReceiversOnceUnderTheLock)
{
    open(6);
    int asked = 0;
    QObject::connect(project, &KVXCWProjectData::aboutToSaveProject, [&](bool &proceed) {
        ++asked;
        EXPECT_TRUE(proceed);
        EXPECT_TRUE(server.locked);
        EXPECT_TRUE(server.staged.isEmpty());
    });
    answerLockOnce(0);
    EXPECT_EQ(save(), KVXCWProjectData::Success);
    EXPECT_EQ(asked, 1);
}

TEST_F(Save, anUnreadyHostReleasesTheLock)
{
    open(6);
    info.ready = false;
    EXPECT_EQ(save(), KVXCWProjectData::AdditionalInfoNotReady);
    EXPECT_EQ(info.infoCalls, 0);
    EXPECT_EQ(takeSteps().last(), QStringLiteral("loglock-"));
    EXPECT_TRUE(host.logged(20000, QStringLiteral("KVXCWProjectDataImpl.saveProject, Result=10")));
    EXPECT_EQ(project->saveProject(nullptr), KVXCWProjectData::AdditionalInfoNotReady);
    EXPECT_EQ(server.locksReleased, 2);
}

TEST_F(Save, aHostThatThrowsUnderTheLockGetsItsExceptionOnceTheLockIsFree)
{
    open(6);
    info.onInfo = [] { throw std::runtime_error("the disk is full"); };
    EXPECT_THROW(save(), std::runtime_error);
    EXPECT_EQ(takeSteps().last(), QStringLiteral("loglock-"));
    EXPECT_EQ(server.locksReleased, 1);
    info.onInfo = nullptr;
    EXPECT_EQ(save(), KVXCWProjectData::Success);
}

TEST_F(Save, asksTheHostForItsFilesUnderTheLock)
{
    open(6);
    info.onReady = [&] { EXPECT_TRUE(server.locked); };
    info.onInfo = [&] {
        EXPECT_TRUE(server.locked);
        EXPECT_EQ(info.readyCalls, 1);
    };
    EXPECT_EQ(save(), KVXCWProjectData::Success);
    EXPECT_EQ(info.infoCalls, 1);
}

TEST_F(Save, aProjectFileIsNeverUploadedWithoutItsLog)
{
    open(6);
    host.network.answerOnce(QStringLiteral("upload"), status(0));
    EXPECT_EQ(save(), KVXCWProjectData::UploadFailed);
    EXPECT_EQ(takeSteps(),
        (QStringList { QStringLiteral("getlogversion"), QStringLiteral("loglock+"),
            QStringLiteral("upload _log7"), QStringLiteral("loglock-") }));
    EXPECT_EQ(project->logVersion(), 6);
}

TEST_F(Save, aRefusedProjectFileEndsTheSave)
{
    open(6);
    host.network.answerOnce(QStringLiteral("upload"), status(1));
    host.network.answerOnce(QStringLiteral("upload"), status(105));
    EXPECT_EQ(save(), KVXCWProjectData::UploadFailed);
    EXPECT_EQ(takeSteps(),
        (QStringList { QStringLiteral("getlogversion"), QStringLiteral("loglock+"),
            QStringLiteral("upload _log7"), QStringLiteral("upload .KVX"),
            QStringLiteral("loglock-") }));
    EXPECT_EQ(project->logVersion(), 6);
}

TEST_F(Save, failsWithoutAFileService)
{
    open(6);
    KVXCollaborator::getInstance()->setFileService(nullptr);
    EXPECT_EQ(save(), KVXCWProjectData::UploadFailed);
    EXPECT_EQ(server.locksReleased, 1);
}

TEST_F(Save, aFailedUploadIsRepeatedUnderTheSameName)
{
    open(6);
    host.network.answerOnce(QStringLiteral("upload"), status(0));
    EXPECT_EQ(save(), KVXCWProjectData::UploadFailed);
    host.network.takeRequests();
    EXPECT_EQ(save(), KVXCWProjectData::Success);
    EXPECT_EQ(takeSteps(), wholeSave);
}

TEST_F(Save, anArchiveThatCannotBePackedFailsAtTheUpload)
{
    open(6);
    info.map.remove(QStringLiteral("ProjectLogFile"));
    EXPECT_EQ(save(), KVXCWProjectData::UploadFailed);
    EXPECT_TRUE(takeSteps().contains(QStringLiteral("upload _log7")));
    EXPECT_FALSE(QFile::exists(archivePath(7)));
    EXPECT_TRUE(host.logged(20000, QStringLiteral("uploadLogFile: -603")));
}

TEST_F(Save, anAbsentProjectFileFailsAtItsUpload)
{
    open(6);
    info.map.remove(QStringLiteral("ProjectFile"));
    EXPECT_EQ(save(), KVXCWProjectData::UploadFailed);
    EXPECT_TRUE(host.logged(20000, QStringLiteral("KVXCWProjectDataImpl.saveProject, Result=6")));
    const QList<QJsonObject> requests = host.network.takeRequests();
    ASSERT_EQ(requests.size(), 5); // version, lock, log, file, release
    EXPECT_EQ(requests.at(3).value(QLatin1String("FileName")).toString(), server.projectFileName());
    EXPECT_EQ(requests.at(3).value(QLatin1String("LocalFileName")), QJsonValue(QString()));
    EXPECT_TRUE(requests.at(4).value(QLatin1String("ReleaseLock")).toBool());
    EXPECT_EQ(server.locksReleased, 1);
    EXPECT_EQ(project->logVersion(), 6);
}

TEST_F(Save, aRefusedMergeLeavesTheVersion)
{
    open(6);
    for (const double code : { 0.0, 0.9, 2.0, 601.0 }) {
        host.network.answerOnce(QStringLiteral("sendservertomerge"), status(code));
        host.network.takeRequests();
        EXPECT_EQ(save(), KVXCWProjectData::SendToMergeFailed);
        EXPECT_EQ(project->logVersion(), 6);
        const QList<QJsonObject> requests = host.network.takeRequests();
        EXPECT_EQ(requests.last().value(QLatin1String("LogVersion")).toInt(), 6);
        EXPECT_TRUE(requests.last().value(QLatin1String("ReleaseLock")).toBool());
    }
    EXPECT_FALSE(
        host.logged(20000, QStringLiteral("KVXCWProjectDataImpl.doSaveProject.checkOutNewItems")));
}

TEST_F(Save, theAmountIsSentAsText)
{
    open(6);
    info.map.remove(QStringLiteral("Amount"));
    EXPECT_EQ(save(), KVXCWProjectData::Success);
    EXPECT_EQ(takeRequests("sendservertomerge").first().value(QLatin1String("Amount")),
        QJsonValue(QString()));
    info.map.insert(QStringLiteral("Amount"), 12.5);
    EXPECT_EQ(save(), KVXCWProjectData::Success);
    EXPECT_EQ(takeRequests("sendservertomerge").first().value(QLatin1String("Amount")),
        QJsonValue(QStringLiteral("12.5")));
}

TEST_F(Save, keysThatTheHostAddsAreNotSent)
{
    open(6);
    info.map.insert(QStringLiteral("Secret"), QStringLiteral("x"));
    EXPECT_EQ(save(), KVXCWProjectData::Success);
    for (const QJsonObject &request : host.network.takeRequests())
        EXPECT_FALSE(request.contains(QLatin1String("Secret")));
}

TEST_F(Save, checksOutNewItemsAfterTheMerge)
{
    open(6);
    items->registerCreatedItems(4, { 1003, 1001 });
    host.network.takeRequests();
    EXPECT_EQ(save(), KVXCWProjectData::Success);
    const QStringList steps = takeSteps();
    EXPECT_EQ(steps.mid(4),
        (QStringList { QStringLiteral("sendservertomerge"), QStringLiteral("checkout"),
            QStringLiteral("loglock-") }));
}

TEST_F(Save, aRefusedCheckOutOfNewItemsDoesNotSpoilTheSave)
{
    open(6);
    items->registerCreatedItems(4, { 1001 });
    host.network.answer(QStringLiteral("checkout"), status(620));
    EXPECT_EQ(save(), KVXCWProjectData::Success);
    EXPECT_EQ(project->logVersion(), 7);
}

TEST_F(Save, failsAfterTheMergeWithoutAnIdManager)
{
    open(6);
    KVXCollaborator::getInstance()->setIdManager(guid, nullptr);
    EXPECT_EQ(save(), KVXCWProjectData::CheckOutFailed);
    EXPECT_TRUE(host.logged(20000, QStringLiteral("KVXCWProjectDataImpl.saveProject, Result=5")));
    EXPECT_EQ(server.merges, 1);
    EXPECT_EQ(project->logVersion(), 7);
    const QJsonObject release = host.network.takeRequests().last();
    EXPECT_TRUE(release.value(QLatin1String("ReleaseLock")).toBool());
    EXPECT_EQ(release.value(QLatin1String("LogVersion")).toInt(), 7);
}

TEST_F(Save, failsAfterTheMergeWithAForeignIdManager)
{
    open(6);
    KVXCollaborator::getInstance()->setIdManager(guid, new ForeignIDManager);
    EXPECT_EQ(save(), KVXCWProjectData::CheckOutFailed);
    EXPECT_EQ(project->logVersion(), 7);
    EXPECT_EQ(server.locksReleased, 1);
}

TEST_F(Save, aReplacedSynchronisationIsHonoured)
{
    class Replaced : public KVXCWProjectDataImpl {
    public:
        int passes = 0;
        ErrorCode syncLogs() override
        {
            ++passes;
            return CheckOutFailed;
        }
    };
    Replaced replaced;
    EXPECT_EQ(replaced.saveProject(&info), KVXCWProjectData::CheckOutFailed);
    EXPECT_EQ(replaced.passes, 1);
    expectNoRequest(host);
}

TEST_F(Save, savesFollowOneAnother)
{
    open(-1);
    for (int version = 0; version < 5; ++version) {
        EXPECT_EQ(save(), KVXCWProjectData::Success);
        EXPECT_EQ(project->logVersion(), version);
    }
    EXPECT_EQ(server.merges, 5);
    EXPECT_EQ(database.executions, 0); // never its own logs
}

TEST_F(Save, usesTheMetaObjectOfTheInterface)
{
    open(6);
    EXPECT_EQ(project->metaObject(), &KVXCWProjectData::staticMetaObject);
}

TEST_F(Save, openingTakesTheServersVersion)
{
    open(6);
    EXPECT_EQ(project->projectGuid(), guid);
    EXPECT_EQ(project->logVersion(), 6);
    EXPECT_FALSE(project->isSynced());
}

TEST_F(Save, openingWithoutAVersionStandsBeforeTheFirstLog)
{
    open(6);
    host.network.failPost(QStringLiteral("getlogversion"));
    project->setProjectGuid(guid);
    EXPECT_EQ(project->logVersion(), -1);
    host.network.answer(QStringLiteral("getlogversion"), status(310));
    project->setProjectGuid(guid);
    EXPECT_EQ(project->logVersion(), -1);
    host.network.answer(
        QStringLiteral("getlogversion"), json(R"({"statuscode":1,"LogVersion":-7})"));
    project->setProjectGuid(guid);
    EXPECT_EQ(project->logVersion(), -1);
    host.network.answer(
        QStringLiteral("getlogversion"), json(R"({"statuscode":1,"LogVersion":1e300})"));
    project->setProjectGuid(guid);
    EXPECT_EQ(project->logVersion(), -1);
    host.network.answer(QStringLiteral("getlogversion"), status(1));
    project->setProjectGuid(guid);
    EXPECT_EQ(project->logVersion(), 0); // a missing number reads as 0
    host.network.answer(
        QStringLiteral("getlogversion"), json(R"({"statuscode":1,"LogVersion":3.7})"));
    project->setProjectGuid(guid);
    EXPECT_EQ(project->logVersion(), 3);
}

} // namespace kvx::test
