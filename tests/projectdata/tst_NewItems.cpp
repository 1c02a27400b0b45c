#include "projectdata/CheckOutFixture.h"

#include <KVXCollaboration/KVXCollaborator.h>
#include <functional>

// Items that the user created, and receivers that act or close the project in between.

namespace kvx::test {

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

TEST_F(CheckOut, anItemCreatedWithoutARangeIsCheckedOutOnceOneIsHeld)
{
    items->checkState(module, 1, holder);
    host.network.answerOnce(QStringLiteral("allocateidrange"), status(622));
    items->registerCreatedItems(module, { 1001 });
    host.network.takeRequests();
    EXPECT_EQ(items->checkState(module, 1001, holder), 1); // and now there is a range
    EXPECT_EQ(takeSteps(), QStringList { QStringLiteral("allocateidrange") });

    EXPECT_TRUE(items->checkOutNewItems());
    const QList<QJsonObject> requests = takeRequests("checkout");
    ASSERT_EQ(requests.size(), 1);
    EXPECT_EQ(requests.first().value(QLatin1String("IDs")).toString(), QStringLiteral("1001;"));
}

TEST_F(CheckOut, anItemCreatedWithoutARangeIsTheUsersOwnAndNeverCheckedOut)
{
    items->checkState(module, 1, holder);
    host.network.answer(QStringLiteral("allocateidrange"), status(622));
    items->registerCreatedItems(module, { 1001 });
    EXPECT_EQ(items->checkState(module, 1001, holder), 1);
    host.network.takeRequests();
    EXPECT_TRUE(items->checkOutNewItems());
    EXPECT_EQ(takeRequests("checkout").first().value(QLatin1String("IDs")).toString(), QString());
}

TEST_F(CheckOut, aStoredStateGoesBeforeTheOwnCreation)
{
    items->registerCreatedItems(module, { 1001 });
    answer(1, { info(1001, other, 1) });
    EXPECT_EQ(items->checkState(module, 1001, holder), 2);
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

} // namespace kvx::test
