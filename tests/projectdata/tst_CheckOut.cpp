#include "projectdata/CheckOutFixture.h"

#include <KVXCollaboration/KVXCollaborator.h>

namespace kvx::test {

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
    holder.email = QStringLiteral("untouched");
    EXPECT_FALSE(items->checkOut(module, 1, holder));
    EXPECT_EQ(holder.email, QStringLiteral("untouched"));
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

TEST_F(CheckOut, ofOneItemLeavesTheCallersHolderWithoutAnAnswer)
{
    answer(620, { info(1, other, 1) });
    ASSERT_FALSE(items->checkOut(module, 1, holder));
    ASSERT_EQ(holder.email, other);
    host.network.failPost(QStringLiteral("checkout"));
    EXPECT_FALSE(items->checkOut(module, 1, holder));
    EXPECT_EQ(holder.state, 2);
    EXPECT_EQ(holder.email, other);
    EXPECT_EQ(holder.name, QStringLiteral("Name of ben@example.com"));
}

TEST_F(CheckOut, ofOneItemHandsBackNobodyWhereARefusalNamesNone)
{
    answer(620, { info(2, other, 1) });
    holder.state = 2;
    holder.email = other;
    EXPECT_FALSE(items->checkOut(module, 1, holder));
    EXPECT_EQ(holder.state, 0);
    EXPECT_EQ(holder.email, QString());
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
