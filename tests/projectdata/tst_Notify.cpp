#include "projectdata/ProjectFixture.h"

#include "messaging/BlockingReceivers.h"
#include "support/PlainManagers.h"

#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCollaboration/KVXProjectInfo.h>
#include <QDateTime>
#include <QMetaMethod>
#include <QThread>
#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <thread>

namespace kvx::test {

namespace {

/// A list with one record; nothing of it is asked but the look-up.
class ListOfOne : public PlainProjectList<> {
public:
    explicit ListOfOne(const QString &guid)
    {
        auto *record = new KVXProjectInfo(QStringLiteral("Harbour"), QStringLiteral("Tender"),
            KVXProjectInfo::Closed, QDateTime());
        record->setGuid(guid);
        m_projects[QStringLiteral("Tender")].append(record);
    }
};

class Notify : public ProjectFixture {
protected:
    Notify()
    {
        open(3);
        KVXCollaborator::getInstance()->setProjectListManager(new ListOfOne(guid));
        KVXItemCheckState holder;
        items->checkState(4, 1, holder); // one module is known
        host.network.takeRequests();
        host.takeLog();
    }

    QJsonObject message() const
    {
        return { { QStringLiteral("notifymsg_type"), QStringLiteral("notifymsg_checkout") },
            { QStringLiteral("notifymsg_from"), QStringLiteral("ben@example.com") },
            { QStringLiteral("notifymsg_to"), QString() },
            { QStringLiteral("notifymsg_content"),
                QJsonObject { { QStringLiteral("ProjectGUID"), guid } } } };
    }
    QJsonObject message(const char *key, const QJsonValue &value) const
    {
        QJsonObject object = message();
        object.insert(QLatin1String(key), value);
        return object;
    }
    void expectIgnored(const QJsonObject &message)
    {
        items->onNotify(message);
        expectNoRequest(host);
        EXPECT_EQ(takeLog("KVXCWIDManagerImpl.cpp"), QStringList());
    }
    QString line(const char *text) const { return QLatin1String(text) + guid; }
};

} // namespace

TEST_F(Notify, fetchesLogsAndStatesOfItsProject)
{
    publishLogs(5);
    EXPECT_TRUE(host.notifyFromBroker(message()));
    EXPECT_EQ(project->logVersion(), 5);
    EXPECT_EQ(takeSteps(),
        (QStringList { QStringLiteral("getlogversion"), QStringLiteral("download _log4"),
            QStringLiteral("download _log5"), QStringLiteral("checkout"),
            // the second pass finds nothing and leaves the states to the manager
            QStringLiteral("getlogversion"), QStringLiteral("checkout") }));
}

TEST_F(Notify, writesItsLogLines)
{
    items->onNotify(message());
    EXPECT_EQ(takeLog("KVXCWIDManagerImpl.cpp"),
        (QStringList { line("INFO Synchronize project data: projectGuid="),
            line("INFO Synchronize project logs successed: projectGuid="),
            QStringLiteral("INFO Synchronize project checkout states successed.") }));
}

TEST_F(Notify, aLogLineNamesTheSlot)
{
    items->onNotify(message());
    for (const LogRecord &record : host.takeLog()) {
        if (record.source == QLatin1String("KVXCWIDManagerImpl.cpp")) {
            EXPECT_TRUE(record.function.contains(
                QLatin1String("KVXCWIDManagerImpl::onNotify(const QJsonObject&)")))
                << record.function.toStdString();
        }
    }
}

TEST_F(Notify, withoutNewLogsOnlyTheStatesAreRead)
{
    items->onNotify(message());
    EXPECT_EQ(takeSteps(),
        (QStringList { QStringLiteral("getlogversion"), QStringLiteral("getlogversion"),
            QStringLiteral("checkout") }));
}

TEST_F(Notify, aSecondPassThatFetchesLogsReadsTheStatesItself)
{
    host.network.answerOnce(
        QStringLiteral("getlogversion"), json(R"({"statuscode": 1, "LogVersion": 3})"));
    publishLogs(4); // published between the two passes
    items->onNotify(message());
    EXPECT_EQ(takeSteps(),
        (QStringList { QStringLiteral("getlogversion"), QStringLiteral("getlogversion"),
            QStringLiteral("download _log4"), QStringLiteral("checkout") }));
    EXPECT_EQ(takeLog("KVXCWIDManagerImpl.cpp").size(), 2);
}

TEST_F(Notify, aFailedFirstPassIsFollowedByTheSecondAndTheStates)
{
    host.network.answerOnce(QStringLiteral("getlogversion"), status(0));
    items->onNotify(message());
    EXPECT_EQ(takeSteps(),
        (QStringList { QStringLiteral("getlogversion"), QStringLiteral("getlogversion"),
            QStringLiteral("checkout") }));
    EXPECT_EQ(takeLog("KVXCWIDManagerImpl.cpp"),
        (QStringList { line("INFO Synchronize project data: projectGuid="),
            line("WARN Synchronize project logs failed: errorCode=2, projectGuid="),
            QStringLiteral("INFO Synchronize project checkout states successed.") }));
}

TEST_F(Notify, bothPassesFailingStillReadsTheStates)
{
    publishLogs(4);
    database.results = { 0, 0 };
    items->onNotify(message());
    EXPECT_EQ(takeSteps().last(), QStringLiteral("checkout"));
    EXPECT_TRUE(
        host.logged(30000, line("Synchronize project logs failed: errorCode=4, projectGuid=")));
    EXPECT_EQ(project->logVersion(), 3);
}

TEST_F(Notify, statesThatCannotBeReadAreLogged)
{
    host.network.answer(QStringLiteral("checkout"), status(0));
    items->onNotify(message());
    EXPECT_TRUE(host.logged(30000, QStringLiteral("Synchronize project checkout states failed.")));
}

TEST_F(Notify, otherTypesDoNothing)
{
    for (const char *type : { "notifymsg_projectlist", "notifymsg_role", "notifymsg_reportTemplate",
             "notifymsg_connection", "NOTIFYMSG_CHECKOUT", "notifymsg_checkout ", "" })
        expectIgnored(message("notifymsg_type", QLatin1String(type)));
    expectIgnored(message("notifymsg_type", 1));
    expectIgnored(message("notifymsg_type", QJsonValue()));
}

TEST_F(Notify, theOwnMessageDoesNothing)
{
    expectIgnored(message("notifymsg_from", QStringLiteral("anna@example.com")));
}

TEST_F(Notify, theSenderIsComparedWithLetterCase)
{
    items->onNotify(message("notifymsg_from", QStringLiteral("Anna@example.com")));
    EXPECT_EQ(takeLog("KVXCWIDManagerImpl.cpp").size(), 3);
}

TEST_F(Notify, anotherProjectDoesNothing)
{
    expectIgnored(message("notifymsg_content",
        QJsonObject { { QStringLiteral("ProjectGUID"), QStringLiteral("{other}") } }));
    expectIgnored(message(
        "notifymsg_content", QJsonObject { { QStringLiteral("ProjectGUID"), guid.toUpper() } }));
    expectIgnored(
        message("notifymsg_content", QJsonObject { { QStringLiteral("projectguid"), guid } }));
    expectIgnored(
        message("notifymsg_content", QJsonObject { { QStringLiteral("ProjectGUID"), 1 } }));
    expectIgnored(message("notifymsg_content", guid));
    expectIgnored(message("notifymsg_content", QJsonValue()));
    expectIgnored({});
}

TEST_F(Notify, aProjectThatIsNotListedDoesNothing)
{
    KVXCollaborator::getInstance()->setProjectListManager(new ListOfOne(QStringLiteral("{x}")));
    expectIgnored(message());
    KVXCollaborator::getInstance()->setProjectListManager(nullptr);
    expectIgnored(message());
}

TEST_F(Notify, extraKeysAreNoHindrance)
{
    items->onNotify(message("notifymsg_content",
        QJsonObject { { QStringLiteral("ProjectGUID"), guid },
            { QStringLiteral("Command"), QStringLiteral("x") },
            { QStringLiteral("ModuleType"), 4 } }));
    EXPECT_EQ(takeLog("KVXCWIDManagerImpl.cpp").size(), 3);
}

TEST_F(Notify, theBrokerThreadWaitsUntilTheMessageIsApplied)
{
    publishLogs(4);
    bool applied = false;
    int version = -1;
    std::thread broker([&] {
        emit host.messager->notify(message());
        version = project->logVersion();
        applied = true;
    });
    EXPECT_TRUE(waitUntil([&] { return project->logVersion() == 4; }));
    broker.join();
    EXPECT_TRUE(applied);
    EXPECT_EQ(version, 4);
}

TEST_F(Notify, severalMessagesAreAppliedOneAfterTheOther)
{
    publishLogs(6);
    EXPECT_TRUE(host.notifyFromBroker(
        QList<QJsonObject> { message(), message("notifymsg_type", 0), message() }));
    EXPECT_EQ(project->logVersion(), 6);
    EXPECT_EQ(database.executions, 3);
}

TEST_F(Notify, theProjectMayBeClosedByItsOwnNotification)
{
    QObject::connect(items, &KVXCWIDManager::changed, [this] { close(); });
    EXPECT_TRUE(host.notifyFromBroker(message())); // in the manager's own refresh
    EXPECT_TRUE(items.isNull());
}

TEST_F(Notify, theProjectMayBeClosedWhileItsLogsAreApplied)
{
    publishLogs(5);
    int created = 0;
    database.onExecute = [this] { close(); };
    static int *createdCount;
    createdCount = &created;
    KVXCollaborator::getInstance()->setProjectEntryPoints(
        [](KVXCWProjectData **slot) {
            ++*createdCount;
            *slot = new KVXCWProjectDataImpl;
        },
        [](KVXCWIDManager **slot) {
            ++*createdCount;
            *slot = new KVXCWIDManagerImpl;
        });
    EXPECT_TRUE(host.notifyFromBroker(message()));
    EXPECT_TRUE(items.isNull());
    EXPECT_TRUE(project.isNull());
    EXPECT_EQ(created, 0); // a closed project's managers do not come back by a slot
    EXPECT_EQ(host.network.postCount(QStringLiteral("getlogversion")), 2); // opening and one pass
}

TEST_F(Notify, theProjectMayBeClosedByTheSecondPass)
{
    host.network.answerOnce(
        QStringLiteral("getlogversion"), json(R"({"statuscode": 1, "LogVersion": 3})"));
    publishLogs(4);
    database.onExecute = [this] { close(); };
    EXPECT_TRUE(host.notifyFromBroker(message()));
    EXPECT_TRUE(items.isNull());
    EXPECT_EQ(takeRequests("checkout").size(), 0);
}

TEST_F(Notify, aSynchroniserThatGoesAwayEndsTheReaction)
{
    publishLogs(4);
    database.onExecute
        = [] { KVXCollaborator::getInstance()->setProjectDataSynchronizer(guid, nullptr); };
    items->onNotify(message());
    EXPECT_FALSE(items.isNull());
    EXPECT_EQ(takeRequests("checkout").size(), 0);
}

TEST_F(Notify, anExceptionOfAReceiverStaysInside)
{
    KVXItemCheckState holder;
    items->checkState(5, 1, holder); // a second module
    host.takeLog();
    publishLogs(4);
    const auto throwing = QObject::connect(
        items, &KVXCWIDManager::changed, [] { throw std::runtime_error("x%1"); });
    host.network.takeRequests();
    EXPECT_NO_THROW(items->onNotify(message()));
    EXPECT_EQ(project->logVersion(), 4);
    // By the pass that fetched the log, and again because that pass did not come to its end.
    EXPECT_EQ(takeRequests("checkout").size(), 4) << "no module is left out";
    int errors = 0;
    for (const LogRecord &record : host.takeLog()) {
        if (record.level != 40000)
            continue;
        ++errors;
        EXPECT_EQ(record.text, QStringLiteral("Deal checkout message failed: exception=x%1"));
        EXPECT_TRUE(record.function.contains(QLatin1String("KVXCWIDManagerImpl::onNotify(")));
    }
    EXPECT_EQ(errors, 2);

    QObject::disconnect(throwing);
    items->onNotify(message());
    EXPECT_EQ(takeLog("KVXCWIDManagerImpl.cpp").size(), 3) << "the next one is as ever";
}

TEST_F(Notify, anExceptionOfTheDatabaseStaysInsideAndTheSecondPassMakesItGood)
{
    publishLogs(4);
    database.onExecute = [this] {
        if (database.executions == 1)
            throw 5;
    };
    EXPECT_NO_THROW(items->onNotify(message()));
    EXPECT_EQ(database.executions, 2);
    EXPECT_EQ(project->logVersion(), 4);
    EXPECT_TRUE(
        host.logged(40000, QStringLiteral("Deal checkout message failed: exception=unknown")));
}

TEST_F(Notify, aDatabaseThatThrowsInBothPassesLeavesTheVersionAndTheStatesAreRead)
{
    publishLogs(4);
    database.onExecute = [] { throw std::runtime_error("disk"); };
    EXPECT_NO_THROW(items->onNotify(message()));
    EXPECT_EQ(project->logVersion(), 3);
    EXPECT_EQ(takeSteps().last(), QStringLiteral("checkout"));
    EXPECT_TRUE(host.logged(40000, QStringLiteral("Deal checkout message failed: exception=disk")));
    EXPECT_TRUE(
        host.logged(20000, QStringLiteral("Synchronize project checkout states successed.")));
}

TEST_F(Notify, aReceiverMayCloseTheProjectAndThrow)
{
    QObject::connect(items, &KVXCWIDManager::changed, [this] {
        close();
        throw std::runtime_error("closed");
    });
    EXPECT_NO_THROW(items->onNotify(message()));
    EXPECT_TRUE(items.isNull());
    EXPECT_TRUE(
        host.logged(40000, QStringLiteral("Deal checkout message failed: exception=closed")));
}

// Three broker threads, each waiting for its message, and three slots on one stack.
TEST_F(Notify, aReceiverMayRunALoopInWhichMoreMessagesArrive)
{
    publishLogs(4);
    int toCome = 2;
    int depth = 0;
    int deepest = 0;
    QObject::connect(items, &KVXCWIDManager::changed, items, [&] {
        if (toCome == 0)
            return;
        --toCome;
        deepest = std::max(deepest, ++depth);
        publishLogs(server.version + 1);
        EXPECT_TRUE(host.notifyFromBroker(message()));
        --depth;
    });
    EXPECT_TRUE(host.notifyFromBroker(message()));
    EXPECT_EQ(deepest, 2);
    EXPECT_EQ(project->logVersion(), 6);
    EXPECT_EQ(database.executions, 3) << "each log once";
    const QStringList lines = takeLog("KVXCWIDManagerImpl.cpp");
    for (const QString &each : { line("INFO Synchronize project data: projectGuid="),
             line("INFO Synchronize project logs successed: projectGuid="),
             QStringLiteral("INFO Synchronize project checkout states successed.") })
        EXPECT_EQ(lines.count(each), 3) << each.toStdString();
    EXPECT_EQ(lines.size(), 9);
    EXPECT_TRUE(host.notifyFromBroker(message())) << "nothing is left behind";
}

TEST_F(Notify, withoutASynchroniserTheFailureIsLogged)
{
    KVXCollaborator::getInstance()->setProjectDataSynchronizer(guid, nullptr);
    items->onNotify(message());
    EXPECT_EQ(takeLog("KVXCWIDManagerImpl.cpp"),
        (QStringList { line("INFO Synchronize project data: projectGuid="),
            line("WARN Synchronize project logs failed: errorCode=0, projectGuid=") }));
    expectNoRequest(host);
}

TEST_F(Notify, placeholdersInTheGuidStayWhatTheyAre)
{
    const QString odd = QStringLiteral("{%1-%2}");
    KVXCollaborator *registry = KVXCollaborator::getInstance();
    registry->setProjectListManager(new ListOfOne(odd));
    items->setProjectGuid(odd);
    auto *other = new KVXCWProjectDataImpl;
    registry->setProjectDataSynchronizer(odd, other);
    host.network.answer(QStringLiteral("getlogversion"), status(0));
    items->onNotify(
        message("notifymsg_content", QJsonObject { { QStringLiteral("ProjectGUID"), odd } }));
    EXPECT_TRUE(
        host.logged(20000, QStringLiteral("Synchronize project data: projectGuid={%1-%2}")));
    EXPECT_TRUE(host.logged(30000,
        QStringLiteral("Synchronize project logs failed: errorCode=2, projectGuid={%1-%2}")));
}

TEST_F(Notify, hasExactlyOneSlotOfItsOwn)
{
    const QMetaObject &meta = KVXCWIDManagerImpl::staticMetaObject;
    EXPECT_STREQ(meta.className(), "KVXCWIDManagerImpl");
    ASSERT_EQ(meta.methodCount() - meta.methodOffset(), 1);
    EXPECT_EQ(meta.method(meta.methodOffset()).methodSignature(), "onNotify(QJsonObject)");
    EXPECT_EQ(meta.method(meta.methodOffset()).methodType(), QMetaMethod::Slot);
    EXPECT_EQ(meta.propertyCount(), meta.propertyOffset());
}

TEST_F(Notify, aManagerWithoutAMessagerStillWorks)
{
    KVXCollaborator::getInstance()->setMessager(nullptr);
    KVXCWIDManagerImpl alone;
    alone.setProjectGuid(guid);
    EXPECT_TRUE(alone.attachDatabase(&database));
}

TEST_F(Notify, aWaitingBrokerThreadIsLetGoWhenTheConnectionCloses)
{
    std::atomic<bool> returned { false };
    std::thread broker([&] {
        emit host.messager->notify(message());
        returned = true;
    });
    // The host thread does not run its loop, as inside a logout.
    while (!returned) {
        kvx::dropCallsToBlockingReceivers();
        QThread::msleep(1);
    }
    broker.join();
    EXPECT_EQ(takeLog("KVXCWIDManagerImpl.cpp"), QStringList());
}

TEST_F(Notify, deletingTheManagerLetsAWaitingBrokerThreadGo)
{
    std::atomic<bool> started { false };
    std::thread broker([&] {
        started = true;
        emit host.messager->notify(message());
    });
    while (!started)
        QThread::msleep(1);
    close(); // before or after the message is posted: the thread must not be left waiting
    broker.join();
    kvx::dropCallsToBlockingReceivers(); // the deleted manager has left the list
}

} // namespace kvx::test
