#include "projectdata/SaveFixture.h"

#include <KVXCollaboration/KVXCollaborator.h>
#include <vector>

// The project ends, or changes under the save, while host code or a request is running.

namespace kvx::test {

TEST_F(Save, closingTheProjectBeforeSendingReleasesTheLock)
{
    open(6);
    QObject::connect(project, &KVXCWProjectData::aboutToSaveProject, [this] { close(); });
    EXPECT_EQ(save(), KVXCWProjectData::SaveCancelled);
    EXPECT_TRUE(project.isNull());
    EXPECT_EQ(takeSteps(),
        (QStringList { QStringLiteral("getlogversion"), QStringLiteral("loglock+"),
            QStringLiteral("loglock-") }));
    EXPECT_FALSE(server.locked);
    EXPECT_EQ(info.readyCalls, 0);
    EXPECT_TRUE(
        host.logged(20000, QStringLiteral("KVXCWProjectDataImpl.doSaveProject.releaseLogLock")));
    EXPECT_TRUE(host.logged(20000, QStringLiteral("KVXCWProjectDataImpl.saveProject, Result=11")));
}

TEST_F(Save, theLockOfAClosedProjectIsReleasedUnderItsGuidAndVersion)
{
    open(6);
    QObject::connect(project, &KVXCWProjectData::aboutToSaveProject, [this] { close(); });
    EXPECT_EQ(save(), KVXCWProjectData::SaveCancelled);
    const QJsonObject release = host.network.takeRequests().last();
    EXPECT_EQ(release.value(QLatin1String("ProjectGUID")).toString(), guid);
    EXPECT_EQ(release.value(QLatin1String("LogVersion")).toInt(), 6);
    EXPECT_TRUE(release.value(QLatin1String("ReleaseLock")).toBool());
}

TEST_F(Save, theHostMayCloseTheProjectWhileItIsAsked)
{
    open(6);
    info.onReady = [this] { close(); };
    EXPECT_EQ(save(), KVXCWProjectData::SaveCancelled);
    EXPECT_EQ(server.locksReleased, 1);
    EXPECT_EQ(info.infoCalls, 0);

    info.onReady = nullptr;
    open(6);
    info.onInfo = [this] { close(); };
    EXPECT_EQ(save(), KVXCWProjectData::SaveCancelled);
    EXPECT_EQ(server.locksReleased, 2);
    EXPECT_EQ(host.network.postCount(QStringLiteral("upload")), 0);
    EXPECT_EQ(server.version, 6);
}

TEST_F(Save, closingTheProjectWhileItWaitsEndsTheSave)
{
    open(6);
    answerLock(2);
    project->setPause([this, copy = std::vector<char>(100, 'x')](int) {
        close();
        EXPECT_EQ(copy.at(99), 'x'); // the function outlives the project
    });
    EXPECT_EQ(save(), KVXCWProjectData::SaveCancelled);
    EXPECT_EQ(host.network.postCount(QStringLiteral("loglock")), 1);
}

TEST_F(Save, closingTheProjectWhileItSynchronisesEndsTheSave)
{
    open(6);
    host.network.handle(
        QStringLiteral("getlogversion"), [this](const QJsonObject &, QJsonObject &reply) {
            close();
            reply = json(R"({"statuscode": 1, "LogVersion": 6})");
            return true;
        });
    EXPECT_EQ(save(), KVXCWProjectData::SaveCancelled);
    EXPECT_EQ(takeSteps(), QStringList { QStringLiteral("getlogversion") });
}

TEST_F(Save, closingTheProjectDuringAnUploadReleasesTheLock)
{
    for (int closing = 1; closing <= 2; ++closing) {
        server.reset();
        open(6);
        int uploads = 0;
        host.network.handle(QStringLiteral("upload"), [&](const QJsonObject &, QJsonObject &reply) {
            if (++uploads == closing)
                close();
            reply = status(1);
            return true;
        });
        EXPECT_EQ(save(), KVXCWProjectData::SaveCancelled);
        EXPECT_EQ(uploads, closing);
        EXPECT_EQ(takeSteps().last(), QStringLiteral("loglock-"));
        EXPECT_EQ(server.merges, 0);
    }
}

TEST_F(Save, closingTheProjectDuringTheMergeReportsThatItIsPublished)
{
    open(6);
    host.network.handle(
        QStringLiteral("sendservertomerge"), [this](const QJsonObject &, QJsonObject &reply) {
            close();
            reply = status(1);
            return true;
        });
    EXPECT_EQ(save(), KVXCWProjectData::CheckOutFailed);
    const QJsonObject release = host.network.takeRequests().last();
    EXPECT_TRUE(release.value(QLatin1String("ReleaseLock")).toBool());
    EXPECT_EQ(release.value(QLatin1String("LogVersion")).toInt(), 7);
}

TEST_F(Save, closingTheProjectDuringTheCheckOutKeepsTheSave)
{
    open(6);
    items->registerCreatedItems(4, { 1001 });
    host.network.takeRequests();
    QObject::connect(items, &KVXCWIDManager::changed, [this] { close(); });
    EXPECT_EQ(save(), KVXCWProjectData::Success);
    EXPECT_EQ(server.merges, 1);
    const QJsonObject release = host.network.takeRequests().last();
    EXPECT_TRUE(release.value(QLatin1String("ReleaseLock")).toBool());
    EXPECT_EQ(release.value(QLatin1String("LogVersion")).toInt(), 7);
}

TEST_F(Save, deletingTheIdManagerBeforeSendingGivesCheckOutFailed)
{
    open(6);
    QObject::connect(project, &KVXCWProjectData::aboutToSaveProject,
        [] { KVXCollaborator::getInstance()->setIdManager(guid, nullptr); });
    EXPECT_EQ(save(), KVXCWProjectData::CheckOutFailed);
    EXPECT_EQ(server.merges, 1);
}

TEST_F(Save, anotherGuidUnderTheLockEndsTheSave)
{
    open(6);
    QObject::connect(project, &KVXCWProjectData::aboutToSaveProject,
        [this] { project->setProjectGuid(QStringLiteral("other")); });
    EXPECT_EQ(save(), KVXCWProjectData::SaveCancelled);
    const QJsonObject release = host.network.takeRequests().last();
    EXPECT_EQ(release.value(QLatin1String("ProjectGUID")).toString(), guid);
    EXPECT_EQ(server.staged.size(), 0);
}

TEST_F(Save, aReceiverMaySynchroniseUnderTheLock)
{
    open(6);
    QObject::connect(project, &KVXCWProjectData::aboutToSaveProject,
        [this] { EXPECT_EQ(project->syncLogs(), KVXCWProjectData::Success); });
    EXPECT_EQ(save(), KVXCWProjectData::Success);
    EXPECT_EQ(project->logVersion(), 7);
}

} // namespace kvx::test
