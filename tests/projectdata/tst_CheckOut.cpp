#include "projectdata/ProjectFixture.h"

#include <KVXCollaboration/KVXCollaborator.h>
#include <QJsonArray>
#include <functional>

namespace kvx::test {

namespace {

constexpr int module = 4;

class CheckOut : public ProjectFixture {
protected:
    CheckOut() { open(0); }

    QJsonObject info(const QJsonValue &id, const QString &email, const QJsonValue &state) const
    {
        return { { QStringLiteral("ID"), id }, { QStringLiteral("Email"), email },
            { QStringLiteral("Name"), QStringLiteral("Name of ") + email },
            { QStringLiteral("State"), state } };
    }
    QJsonObject reply(double code, const QJsonArray &infos) const
    {
        QJsonObject object = status(code);
        object.insert(QStringLiteral("CheckoutInfo"), infos);
        return object;
    }
    void answer(double code, const QJsonArray &infos)
    {
        host.network.answer(QStringLiteral("checkout"), reply(code, infos));
    }
    QJsonObject request(const char *service, const QJsonObject &keys) const
    {
        QJsonObject object = keys;
        object.insert(QStringLiteral("service"), QLatin1String(service));
        object.insert(QStringLiteral("ProjectGUID"), guid);
        object.insert(QStringLiteral("Email"), QStringLiteral("anna@example.com"));
        return object;
    }

    const QString me = QStringLiteral("anna@example.com");
    const QString other = QStringLiteral("ben@example.com");
    KVXItemCheckState holder;
};

} // namespace

TEST_F(CheckOut, sendsItsKeys)
{
    EXPECT_TRUE(items->checkOut(module, { 4, 17, 20 }));
    const QList<QJsonObject> requests = host.network.takeRequests();
    ASSERT_EQ(requests.size(), 2); // the synchronisation first
    EXPECT_EQ(requests.first().value(QLatin1String("service")).toString(),
        QStringLiteral("getlogversion"));
    EXPECT_EQ(requests.last(),
        request("checkout", json(R"({"ModuleType": 4, "NotifyOther": true, "IDs": "4;17;20;"})")));
}

TEST_F(CheckOut, anEmptyListIsAnEmptyText)
{
    EXPECT_TRUE(items->checkOut(module, QList<int>()));
    EXPECT_EQ(takeRequests("checkout").first().value(QLatin1String("IDs")), QJsonValue(QString()));
}

TEST_F(CheckOut, takesOverTheStatesOfTheReply)
{
    answer(1,
        { info(1, me, 1), info(2, other, 1), info(3, other, 0), info(4.9, me, 1.9),
            info(5, other, 0.5), info(6, QString(), 1) });
    EXPECT_TRUE(items->checkOut(module, { 1 }));
    EXPECT_EQ(items->itemState(module, 1), 1);
    EXPECT_EQ(items->itemState(module, 2), 2);
    EXPECT_EQ(items->itemState(module, 3), 0);
    EXPECT_EQ(items->itemState(module, 4), 1);
    EXPECT_EQ(items->itemState(module, 5), 0);
    EXPECT_EQ(items->itemState(module, 6), 2);
    EXPECT_EQ(items->itemState(module, 99), 0);
    EXPECT_EQ(items->itemState(99, 1), 0);
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(items->checkState(module, 2, holder), 2);
    EXPECT_EQ(holder.state, 2);
    EXPECT_EQ(holder.email, other);
    EXPECT_EQ(holder.name, QStringLiteral("Name of ben@example.com"));
}

TEST_F(CheckOut, theOwnEmailInOtherLetterCaseIsTheUserHimself)
{
    answer(1, { info(1, QStringLiteral("Anna@EXAMPLE.com"), 1) });
    EXPECT_TRUE(items->checkOut(module, { 1 }));
    EXPECT_EQ(items->itemState(module, 1), 1);
}

TEST_F(CheckOut, aRefusalUpdatesTheStoreAndEmitsChanged)
{
    answer(620, { info(1, other, 1) });
    EXPECT_FALSE(items->checkOut(module, { 1 }));
    EXPECT_EQ(items->itemState(module, 1), 2);
    EXPECT_EQ(changes, 1);
}

TEST_F(CheckOut, aFailedPostLeavesTheStoreAlone)
{
    answer(1, { info(1, me, 1) });
    EXPECT_TRUE(items->checkOut(module, { 1 }));
    host.network.failPost(QStringLiteral("checkout"));
    EXPECT_FALSE(items->checkOut(module, { 1 }));
    EXPECT_EQ(items->itemState(module, 1), 1);
    EXPECT_EQ(changes, 1);
}

TEST_F(CheckOut, hostileRepliesAreIgnored)
{
    answer(1,
        { 5, QStringLiteral("x"), QJsonArray(), QJsonObject(), info(QStringLiteral("7"), me, 1),
            info(-1, me, 1), info(1e12, me, 1), info(2147483648.0, me, 1), info(2147483647, me, 1),
            info(8, me, QStringLiteral("1")) });
    EXPECT_TRUE(items->checkOut(module, { 1 }));
    EXPECT_EQ(items->itemState(module, 0), 0);
    EXPECT_EQ(items->itemState(module, 7), 0);
    EXPECT_EQ(items->itemState(module, -1), 0);
    EXPECT_EQ(items->itemState(module, 2147483647), 1);
    EXPECT_EQ(items->itemState(module, 8), 0);
    for (const char *text : { R"({"statuscode": 1})", R"({"statuscode": 1, "CheckoutInfo": "x"})",
             R"({"statuscode": 1, "CheckoutInfo": {"ID": 9}})", R"({"statuscode": 1, "x": 1})" }) {
        host.network.answerOnce(QStringLiteral("checkout"), json(text));
        EXPECT_TRUE(items->checkOut(module, { 1 }));
    }
    EXPECT_EQ(changes, 5);
}

TEST_F(CheckOut, nothingIsSentWithoutAServer)
{
    host.unconfigure();
    EXPECT_FALSE(items->checkOut(module, { 1 }));
    EXPECT_FALSE(items->checkOut(module, 1, holder));
    EXPECT_FALSE(items->checkIn(module, { 1 }));
    EXPECT_FALSE(items->checkInAll());
    EXPECT_FALSE(items->attachDatabase(&database));
    EXPECT_EQ(items->newItemId(&database), -1);
    EXPECT_FALSE(items->copyCheckState(guid, guid));
    EXPECT_EQ(items->checkState(module, 1, holder), 0);
    EXPECT_FALSE(items->syncCheckOutStates());
    EXPECT_TRUE(items->checkOutNewItems());
    EXPECT_TRUE(items->registerCreatedItems(module, { 1 }));
    EXPECT_EQ(changes, 0);
    expectNoRequest(host);
}

TEST_F(CheckOut, ofOneItemHandsBackItsHolderOnRefusal)
{
    answer(620, { info(1, other, 1), info(2, me, 1) });
    EXPECT_FALSE(items->checkOut(module, 1, holder));
    EXPECT_EQ(holder.state, 2);
    EXPECT_EQ(holder.email, other);
    EXPECT_EQ(takeRequests("checkout").first(),
        request("checkout", json(R"({"ModuleType": 4, "NotifyOther": true, "IDs": "1;"})")));

    answer(1, { info(1, me, 1) });
    holder.email = QStringLiteral("untouched");
    EXPECT_TRUE(items->checkOut(module, 1, holder));
    EXPECT_EQ(holder.email, QStringLiteral("untouched"));
}

TEST_F(CheckOut, goesOnWhateverTheSynchronisationReturned)
{
    host.network.answer(QStringLiteral("getlogversion"), status(0)); // result 2
    EXPECT_TRUE(items->checkOut(module, { 1 }));
    EXPECT_TRUE(items->checkOut(module, 1, holder));
    EXPECT_TRUE(items->checkIn(module, { 1 }));
}

TEST_F(CheckOut, needsASynchroniser)
{
    KVXCollaborator::getInstance()->setProjectDataSynchronizer(guid, nullptr);
    EXPECT_FALSE(items->checkOut(module, { 1 }));
    EXPECT_FALSE(items->checkOut(module, 1, holder));
    EXPECT_FALSE(items->checkIn(module, { 1 }));
    expectNoRequest(host);
}

TEST_F(CheckOut, theCopyIsCurrentBeforeItemsChangeHands)
{
    publishLogs(1);
    EXPECT_TRUE(items->checkOut(module, { 1 }));
    EXPECT_EQ(project->logVersion(), 1);
    EXPECT_EQ(takeSteps(),
        (QStringList { QStringLiteral("getlogversion"), QStringLiteral("download _log1"),
            QStringLiteral("checkout") }));
}

TEST_F(CheckOut, checkInKeepsTheUserAsLastHolder)
{
    answer(1, { info(1, me, 1), info(2, other, 1) });
    ASSERT_TRUE(items->checkOut(module, { 1 }));
    host.network.takeRequests();
    EXPECT_TRUE(items->checkIn(module, { 1, 3 }));
    EXPECT_EQ(takeRequests("checkin").first(),
        request("checkin", json(R"({"ModuleType": 4, "IDs": "1;3;"})")));
    for (const int id : { 1, 3 }) {
        EXPECT_EQ(items->checkState(module, id, holder), 0);
        EXPECT_EQ(holder.state, 0);
        EXPECT_EQ(holder.email, me);
        EXPECT_EQ(holder.name, QStringLiteral("Anna Weiss"));
        holder = {};
    }
    EXPECT_EQ(items->itemState(module, 2), 2);
    EXPECT_EQ(changes, 2);
}

TEST_F(CheckOut, aRefusedCheckInChangesNothing)
{
    answer(1, { info(1, me, 1) });
    ASSERT_TRUE(items->checkOut(module, { 1 }));
    for (const double code : { 0.0, 0.9, 2.0, 621.0 }) {
        host.network.answer(QStringLiteral("checkin"), status(code));
        EXPECT_FALSE(items->checkIn(module, 1));
    }
    host.network.failPost(QStringLiteral("checkin"));
    EXPECT_FALSE(items->checkIn(module, { 1 }));
    EXPECT_EQ(items->itemState(module, 1), 1);
    EXPECT_EQ(changes, 1);
}

TEST_F(CheckOut, checkInOfOneItemSendsAListOfOne)
{
    EXPECT_TRUE(items->checkIn(module, 17));
    EXPECT_EQ(takeRequests("checkin").first().value(QLatin1String("IDs")).toString(),
        QStringLiteral("17;"));
}

TEST_F(CheckOut, checkInAllRefreshesEveryModuleWhateverTheReply)
{
    items->checkState(9, 1, holder);
    items->checkState(4, 1, holder);
    host.network.takeRequests();
    EXPECT_TRUE(items->checkInAll());
    QList<QJsonObject> requests = host.network.takeRequests();
    ASSERT_EQ(requests.size(), 3);
    EXPECT_EQ(requests.at(0), request("checkinall", {}));
    EXPECT_EQ(requests.at(1),
        request("checkout", json(R"({"ModuleType": 4, "NotifyOther": false, "IDs": ""})")));
    EXPECT_EQ(requests.at(2),
        request("checkout", json(R"({"ModuleType": 9, "NotifyOther": false, "IDs": ""})")));

    host.network.answer(QStringLiteral("checkinall"), status(0));
    EXPECT_FALSE(items->checkInAll());
    EXPECT_EQ(host.network.takeServices().size(), 3);
    host.network.answer(QStringLiteral("checkinall"), status(1));
    host.network.failPost(QStringLiteral("checkout"));
    EXPECT_TRUE(items->checkInAll()); // only its own reply counts
}

TEST_F(CheckOut, synchronisingStopsAtTheFirstFailure)
{
    for (const int type : { 3, 1, 2 })
        items->checkState(type, 1, holder);
    host.network.takeRequests();
    host.network.answerOnce(QStringLiteral("checkout"), status(1));
    host.network.answerOnce(QStringLiteral("checkout"), status(0));
    EXPECT_FALSE(items->syncCheckOutStates());
    const QList<QJsonObject> requests = host.network.takeRequests();
    ASSERT_EQ(requests.size(), 2);
    EXPECT_EQ(requests.at(0).value(QLatin1String("ModuleType")).toInt(), 1);
    EXPECT_EQ(requests.at(1).value(QLatin1String("ModuleType")).toInt(), 2);
}

TEST_F(CheckOut, synchronisingWithoutModulesSucceeds)
{
    EXPECT_TRUE(items->syncCheckOutStates());
    expectNoRequest(host);
}

TEST_F(CheckOut, anUnknownModuleIsAskedForOnce)
{
    answer(1, { info(2, other, 1) });
    EXPECT_EQ(items->checkState(module, 1, holder), 0);
    EXPECT_EQ(takeRequests("checkout").first(),
        request("checkout", json(R"({"ModuleType": 4, "NotifyOther": false, "IDs": ""})")));
    EXPECT_EQ(items->checkState(module, 2, holder), 2);
    expectNoRequest(host);
}

TEST_F(CheckOut, aModuleCountsAsKnownEvenWhenTheServerDidNotAnswer)
{
    host.network.failPost(QStringLiteral("checkout"));
    EXPECT_EQ(items->checkState(module, 1, holder), 0);
    answer(1, { info(1, other, 1) });
    EXPECT_EQ(items->checkState(module, 1, holder), 0);
    EXPECT_EQ(host.network.postCount(QStringLiteral("checkout")), 1);
    EXPECT_TRUE(items->syncCheckOutStates());
    EXPECT_EQ(items->checkState(module, 1, holder), 2);
}

TEST_F(CheckOut, theUsersOwnNewItemIsHisWithoutAsking)
{
    items->checkState(module, 1, holder);
    const int id = items->newItemId(&database);
    ASSERT_EQ(id, 1002);
    host.network.takeRequests();
    EXPECT_EQ(items->checkState(module, id, holder), 1);
    expectNoRequest(host);
    EXPECT_EQ(items->itemState(module, id), 0); // the server knows nothing of it

    EXPECT_TRUE(items->checkOutNewItems());
    EXPECT_EQ(takeRequests("checkout").first().value(QLatin1String("IDs")).toString(),
        QStringLiteral("1002;"));
    EXPECT_EQ(items->checkState(module, id, holder), 0); // the scripted reply named no holder
}

TEST_F(CheckOut, aStoredStateGoesBeforeTheOwnCreation)
{
    items->registerCreatedItems(module, { 1001 });
    answer(1, { info(1001, other, 1) });
    EXPECT_EQ(items->checkState(module, 1001, holder), 2);
}

TEST_F(CheckOut, ensuringAsksOnlyWhereNeeded)
{
    answer(1, { info(1, me, 1), info(2, other, 1) });
    EXPECT_EQ(items->ensureCheckedOut(module, 1, true), 1);
    EXPECT_EQ(takeSteps(), QStringList { QStringLiteral("checkout") }); // the module's picture
    EXPECT_EQ(items->ensureCheckedOut(module, 2, false), 2);
    expectNoRequest(host);
    answer(1, { info(2, me, 1) });
    EXPECT_EQ(items->ensureCheckedOut(module, 2, true), 1);
    EXPECT_EQ(
        takeSteps(), (QStringList { QStringLiteral("getlogversion"), QStringLiteral("checkout") }));
    answer(620, { info(3, other, 1) });
    EXPECT_EQ(items->ensureCheckedOut(module, 3, true), 2);
}

TEST_F(CheckOut, copyCheckStateNamesBothProjects)
{
    EXPECT_TRUE(items->copyCheckState(QStringLiteral("{old}"), QStringLiteral("{new}")));
    EXPECT_EQ(
        host.network.takeRequest(), json(R"({"service": "copycheckstate", "oldProjectGuid": "{old}",
            "newProjectGuid": "{new}"})"));
    host.network.answer(QStringLiteral("copycheckstate"), status(300));
    EXPECT_FALSE(items->copyCheckState(QStringLiteral("{old}"), QStringLiteral("{new}")));
}

TEST_F(CheckOut, newItemsAreCheckedOutModuleByModule)
{
    items->registerCreatedItems(9, { 1005 });
    items->registerCreatedItems(4, { 1010, 1002, 1003 });
    items->registerCreatedItems(6, { 5 }); // outside the range
    host.network.takeRequests();
    EXPECT_TRUE(items->checkOutNewItems());
    const QList<QJsonObject> requests = host.network.takeRequests();
    ASSERT_EQ(requests.size(), 2);
    EXPECT_EQ(requests.at(0),
        request("checkout",
            json(R"({"ModuleType": 4, "NotifyOther": false, "IDs": "1002;1003;1010;"})")));
    EXPECT_EQ(requests.at(1),
        request("checkout", json(R"({"ModuleType": 9, "NotifyOther": true, "IDs": "1005;"})")));
}

TEST_F(CheckOut, withoutNewItemsTheOthersAreStillTold)
{
    EXPECT_TRUE(items->checkOutNewItems());
    expectNoRequest(host); // no module is known

    items->registerCreatedItems(9, { 1005 });
    items->registerCreatedItems(4, { 1010 });
    items->checkOutNewItems();
    host.network.takeRequests();
    EXPECT_TRUE(items->checkOutNewItems());
    const QList<QJsonObject> requests = host.network.takeRequests();
    ASSERT_EQ(requests.size(), 1);
    EXPECT_EQ(requests.first(),
        request("checkout", json(R"({"ModuleType": 4, "NotifyOther": true, "IDs": ""})")));
}

TEST_F(CheckOut, aRefusedCheckOutOfNewItemsIsNotReported)
{
    items->registerCreatedItems(4, { 1001 });
    items->registerCreatedItems(5, { 1002 });
    host.network.takeRequests();
    host.network.failPost(QStringLiteral("checkout"));
    EXPECT_TRUE(items->checkOutNewItems());
    EXPECT_EQ(host.network.takeServices().size(), 2); // the second is tried all the same
    EXPECT_TRUE(items->checkOutNewItems());
    EXPECT_EQ(takeRequests("checkout").first().value(QLatin1String("IDs")).toString(), QString());
}

TEST_F(CheckOut, theHandedOutNumbersAreForgottenAfterTheSave)
{
    items->registerCreatedItems(4, { 7 }); // outside the range: handed out, never checked out
    items->checkState(4, 1, holder);
    EXPECT_EQ(items->checkState(4, 7, holder), 1);
    EXPECT_TRUE(items->checkOutNewItems());
    EXPECT_EQ(items->checkState(4, 7, holder), 0);
}

TEST_F(CheckOut, whatAReceiverCreatesBelongsToTheNextSave)
{
    items->registerCreatedItems(4, { 1001 });
    bool once = true;
    QObject::connect(items, &KVXCWIDManager::changed, [&] {
        if (once)
            items->registerCreatedItems(4, { 1500 });
        once = false;
    });
    EXPECT_TRUE(items->checkOutNewItems());
    host.network.takeRequests();
    EXPECT_TRUE(items->checkOutNewItems());
    EXPECT_EQ(takeRequests("checkout").first().value(QLatin1String("IDs")).toString(),
        QStringLiteral("1500;"));
}

TEST_F(CheckOut, whatAReceiverCreatesStaysHisOwn)
{
    items->registerCreatedItems(4, { 1001 });
    QObject::connect(
        items, &KVXCWIDManager::changed, [&] { items->registerCreatedItems(4, { 1500 }); });
    EXPECT_TRUE(items->checkOutNewItems());
    EXPECT_EQ(items->checkState(4, 1500, holder), 1);
}

TEST_F(CheckOut, aReceiverMayCallBack)
{
    int depth = 0;
    QObject::connect(items, &KVXCWIDManager::changed, [&] {
        if (depth++ < 3) {
            items->itemState(module, 1);
            items->syncCheckOutStates();
            items->newItemId(&database);
            items->checkState(depth, 1, holder);
        }
    });
    EXPECT_TRUE(items->checkOut(module, { 1 }));
    EXPECT_GE(depth, 4);
}

TEST_F(CheckOut, aReceiverMayCloseTheProjectInEveryOperation)
{
    const QList<std::function<void()>> operations {
        [&] { items->checkOut(module, { 1 }); },
        [&] { items->checkOut(module, 1, holder); },
        [&] { items->checkIn(module, { 1 }); },
        [&] { items->checkIn(module, 1); },
        [&] { EXPECT_EQ(items->checkState(module + 1, 1, holder), 0); },
        [&] { EXPECT_EQ(items->ensureCheckedOut(module + 1, 1, true), 0); },
        [&] { EXPECT_EQ(items->ensureCheckedOut(module, 1, true), 0); },
        [&] { items->checkInAll(); },
        [&] { EXPECT_FALSE(items->syncCheckOutStates()); },
        [&] { EXPECT_TRUE(items->checkOutNewItems()); },
    };
    for (int i = 0; i < operations.size(); ++i) {
        open(0);
        items->checkState(module, 1, holder);
        items->checkState(module + 9, 1, holder);
        items->registerCreatedItems(module, { server.nextNumber + 1 });
        items->registerCreatedItems(module + 1, { server.nextNumber + 2 });
        QObject::connect(items, &KVXCWIDManager::changed, [this] { close(); });
        host.network.takeRequests();
        operations.at(i)();
        EXPECT_TRUE(items.isNull()) << i;
        EXPECT_LE(takeRequests("checkout").size(), 1) << i;
    }
}

TEST_F(CheckOut, theProjectMayBeClosedByTheSynchronisation)
{
    for (int i = 0; i < 3; ++i) {
        open(0);
        publishLogs(1);
        database.onExecute = [this] { close(); };
        host.network.takeRequests();
        if (i == 0)
            EXPECT_FALSE(items->checkOut(module, { 1 }));
        else if (i == 1)
            EXPECT_FALSE(items->checkOut(module, 1, holder));
        else
            EXPECT_FALSE(items->checkIn(module, { 1 }));
        EXPECT_TRUE(items.isNull());
        EXPECT_EQ(takeRequests("checkout").size() + takeRequests("checkin").size(), 0);
    }
}

TEST_F(CheckOut, theProjectMayBeClosedDuringARequest)
{
    const auto closing = [this](const QJsonObject &, QJsonObject &reply) {
        close();
        reply = status(1);
        return true;
    };
    host.network.handle(QStringLiteral("checkout"), closing);
    EXPECT_FALSE(items->checkOut(module, { 1 }));
    open(0);
    host.network.handle(QStringLiteral("checkin"), closing);
    EXPECT_FALSE(items->checkIn(module, { 1 }));
    open(0);
    host.network.handle(QStringLiteral("checkinall"), closing);
    EXPECT_TRUE(items->checkInAll());
    EXPECT_TRUE(items.isNull());
}

TEST_F(CheckOut, aReceiverMayDeleteOnlyTheIdManager)
{
    items->checkState(module, 1, holder);
    QObject::connect(items, &KVXCWIDManager::changed,
        [] { KVXCollaborator::getInstance()->setIdManager(guid, nullptr); });
    EXPECT_TRUE(items->checkOut(module, { 1 }));
    EXPECT_TRUE(items.isNull());
    EXPECT_FALSE(project.isNull());
}

TEST_F(CheckOut, halfAMillionItemsAreSentAtOnce)
{
    QList<int> ids;
    ids.reserve(500000);
    for (int id = 0; id < 500000; ++id)
        ids.append(id + 1000000);
    EXPECT_TRUE(items->checkOut(module, ids));
    const QString text = takeRequests("checkout").first().value(QLatin1String("IDs")).toString();
    EXPECT_EQ(text.size(), 500000 * 8);
    EXPECT_TRUE(text.startsWith(QLatin1String("1000000;1000001;")));
    EXPECT_TRUE(text.endsWith(QLatin1String("1499999;")));
}

TEST_F(CheckOut, worksWithoutAUser)
{
    host.removeUser();
    answer(1, { info(1, other, 1) });
    EXPECT_TRUE(items->checkOut(module, { 1 }));
    EXPECT_EQ(items->itemState(module, 1), 2);
    EXPECT_TRUE(items->checkIn(module, 1));
    EXPECT_EQ(items->checkState(module, 1, holder), 0);
    EXPECT_EQ(holder.email, QString());
}

TEST_F(CheckOut, knowsItsProject)
{
    EXPECT_EQ(items->projectGuid(), guid);
}

} // namespace kvx::test
