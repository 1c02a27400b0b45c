#include "UsersFixture.h"
#include "support/WaitFor.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <atomic>
#include <condition_variable>
#include <thread>

using namespace kvx::test;

// Two threads at the table at once. A hang is ended by the watchdog.

namespace {

/// A request that is held in the server until it is let go.
class Held {
public:
    Held(FakeNetwork &network, const char *service, const QJsonObject &reply)
    {
        network.handle(text(service), [this, reply](const QJsonObject &, QJsonObject &out) {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_arrived = true;
            m_changed.notify_all();
            m_changed.wait(lock, [this] { return m_letGo; });
            out = reply;
            return true;
        });
    }
    void awaitArrival()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_arrived; });
    }
    void letGo()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_letGo = true;
        m_changed.notify_all();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_arrived = false;
    bool m_letGo = false;
};

class RoleThreads : public UsersTest {
protected:
    RoleThreads() { makeUsers({ role("Estimator", {}, { "anna@example.com" }) }); }

    /// No further table is asked for within a moment, which is long for a thread that need not
    /// wait.
    bool noTableIsAskedFor(int asked) const
    {
        const QString service = text("getroles");
        return !waitFor([&] { return host.network.postCount(service) > asked; },
            std::chrono::milliseconds(200));
    }
};

} // namespace

TEST_F(RoleThreads, ANotificationWaitsForAnUpdateUnderWay)
{
    Held update(host.network, "updateroles", json(R"({"statuscode":1})"));
    std::atomic<bool> updated { false };
    std::thread worker([&] { updated = users->updateRoles(); });
    update.awaitArrival();

    // The host's own thread takes the notification meanwhile and waits for the table.
    bool updatedFirst = false;
    QObject::connect(users, &KVXCWUser::currentUserPermissionChanged, users,
        [&] { updatedFirst = host.network.postCount(text("getroles")) == 2; });
    std::thread broker([this] { emit host.messager->notify(roleMessage()); });
    broker.join();
    std::thread server([&] {
        EXPECT_TRUE(noTableIsAskedFor(1)) << "while the update is under way";
        update.letGo();
    });
    QCoreApplication::processEvents();
    server.join();
    worker.join();
    EXPECT_TRUE(updated);
    EXPECT_TRUE(updatedFirst);
    EXPECT_EQ(host.network.takeServices(), QStringList({ text("updateroles"), text("getroles") }));
}

TEST_F(RoleThreads, ANotificationDuringAnUpdateOnTheHostsThreadComesAfterIt)
{
    // Our own update is in the server while the broker already tells somebody else's.
    host.network.handle(text("updateroles"), [this](const QJsonObject &, QJsonObject &reply) {
        std::thread broker([this] {
            emit host.messager->notify(roleMessage("anna@example.com"));
            emit host.messager->notify(roleMessage("ben@example.com"));
        });
        broker.join();
        reply = json(R"({"statuscode":1})");
        return true;
    });
    KVXRole *edited = users->roles().value(0);
    EXPECT_TRUE(users->updateRoles());
    EXPECT_EQ(users->roles().value(0), edited) << "nothing is replaced under the caller";
    EXPECT_TRUE(takeSignals().isEmpty());
    QCoreApplication::processEvents();
    EXPECT_EQ(takeSignals().size(), 1) << "of the other user's change alone";
    EXPECT_EQ(host.network.takeServices(), QStringList({ text("updateroles"), text("getroles") }));
}

TEST_F(RoleThreads, ANotificationDuringABracketedUpdateIsDroppedAndTheTableStaysAsEdited)
{
    answerRoles({ role("Chief", {}, { "ben@example.com" }) });
    users->beginUpdate();
    users->roles().value(0)->setName(text("Calculator"));
    host.notifyFromBroker(roleMessage());
    EXPECT_EQ(roleTexts(), QStringList({ text("Calculator: anna@example.com") }));
    EXPECT_TRUE(users->updateRoles());
    users->endUpdate();
    host.notifyFromBroker(roleMessage());
    EXPECT_EQ(roleTexts(), QStringList({ text("Chief: ben@example.com") }));
}

TEST_F(RoleThreads, TwoSynchronisationsFollowEachOther)
{
    Held first(host.network, "getroles", table({ role("A"), role("B") }));
    std::thread one([this] { users->syncToLocal(); });
    first.awaitArrival();
    std::thread two([this] { users->syncToLocal(); });
    EXPECT_TRUE(noTableIsAskedFor(2)) << "while the first one is under way";
    first.letGo();
    one.join();
    two.join();
    EXPECT_EQ(roleTexts(), QStringList({ text("A:"), text("B:") }));
}

TEST_F(RoleThreads, WithoutAServerAnUpdateDoesNotWaitForASynchronisation)
{
    Held sync(host.network, "getroles", table({}));
    std::thread worker([this] { users->syncToLocal(); });
    sync.awaitArrival();
    host.unconfigure();
    EXPECT_FALSE(users->updateRoles());
    EXPECT_EQ(users->keepAlive(), 0);
    sync.letGo();
    worker.join();
    EXPECT_EQ(host.network.postCount(text("updateroles")), 0);
}

TEST_F(RoleThreads, KeepingAliveDoesNotWaitForTheTable)
{
    Held sync(host.network, "getroles", table({}));
    std::thread worker([this] { users->syncToLocal(); });
    sync.awaitArrival();
    EXPECT_EQ(users->keepAlive(), 1);
    KVXUser ben(QString(), text("ben@example.com"));
    EXPECT_TRUE(users->updateUserProductVersion(&ben, KVXUser::Basic));
    sync.letGo();
    worker.join();
}

TEST_F(RoleThreads, TwoAdministratorsAtOnceAreToldApart)
{
    // The server takes the first table and refuses the second as older; nothing is overwritten.
    QJsonObject stored = role("Estimator", {}, { "anna@example.com" });
    stored.insert(text("Revision"), 4);
    answerRoles({ stored });
    users->syncToLocal();
    KVXCWUserImpl other;
    int revision = 4;
    host.network.handle(text("updateroles"), [&](const QJsonObject &request, QJsonObject &reply) {
        const QJsonObject sent = request.value(text("Roles")).toArray().at(0).toObject();
        const bool current = sent.value(text("Revision")).toInt() == revision;
        if (current) {
            ++revision;
            stored = sent;
            stored.insert(text("Revision"), revision);
        }
        reply = { { text("statuscode"), current ? 1 : 690 } };
        return true;
    });
    users->roles().value(0)->setName(text("Mine"));
    other.roles().value(0)->setName(text("Theirs"));
    EXPECT_TRUE(users->updateRoles());
    EXPECT_FALSE(other.updateRoles());
    EXPECT_EQ(other.statusCode(), 690);
    EXPECT_EQ(stored.value(text("Name")).toString(), text("Mine"));

    answerRoles({ stored });
    EXPECT_TRUE(other.syncToLocal());
    other.roles().value(0)->setPermission(KVXRole::ExportProject, 1);
    EXPECT_TRUE(other.updateRoles()) << "after looking again";
    EXPECT_EQ(stored.value(text("Name")).toString(), text("Mine"));
}
