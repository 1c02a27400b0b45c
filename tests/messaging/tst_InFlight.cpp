#include "MessagingFixture.h"

#include "support/Watchdog.h"

#include <QCoreApplication>
#include <QThread>
#include <random>
#include <thread>

// What happens to a notification that is being delivered while the host stops, restarts or
// destroys the messager. The dispatch thread waits for the host thread then.

namespace kvx::test {

class InFlight : public MessagingFixture {
protected:
    void SetUp() override { ASSERT_TRUE(start()) << messager->errorString().toStdString(); }

    /// A message has arrived and the dispatch thread is about to wait for the blocking receivers,
    /// which have to be connected after the arrivals.
    bool publishAndWait()
    {
        publisher.send(message(1));
        return arrivals->waitFor(1);
    }

    void expectDelivers()
    {
        Recorder recorder(messager.get());
        publisher.send(message(77));
        EXPECT_TRUE(waitUntil([&] { return recorder.count() > 0; }));
    }

    Publisher publisher { topic.toStdString() };
    std::unique_ptr<Recorder> arrivals = std::make_unique<Recorder>(messager.get());
};

TEST_F(InFlight, stopDropsWhatWaitsForTheHostThread)
{
    int handled = 0;
    const auto count = [&](const QJsonObject &) { ++handled; };
    Receiver first(messager.get(), Qt::BlockingQueuedConnection, count);
    Receiver second(messager.get(), Qt::BlockingQueuedConnection, count);
    ASSERT_TRUE(publishAndWait());

    bool stopped = false;
    EXPECT_LT(elapsedMs([&] { stopped = messager->stop(); }), SecondMs / 2);
    EXPECT_TRUE(stopped);
    QCoreApplication::processEvents();
    EXPECT_EQ(handled, 0);
}

TEST_F(InFlight, stopLeavesTheHostsOwnQueuedCallsAlone)
{
    Receiver blocking(messager.get(), Qt::BlockingQueuedConnection, [](const QJsonObject &) {});
    QObject other;
    bool called = false;
    QMetaObject::invokeMethod(
        &other, [&] { called = true; }, Qt::QueuedConnection);
    ASSERT_TRUE(publishAndWait());
    EXPECT_TRUE(messager->stop());
    QCoreApplication::processEvents();
    EXPECT_TRUE(called);
}

TEST_F(InFlight, aSecondStartDropsWhatWaitsForTheHostThread)
{
    int handled = 0;
    auto blocking = std::make_unique<Receiver>(
        messager.get(), Qt::BlockingQueuedConnection, [&](const QJsonObject &) { ++handled; });
    ASSERT_TRUE(publishAndWait());

    EXPECT_TRUE(start()) << messager->errorString().toStdString();
    QCoreApplication::processEvents();
    EXPECT_EQ(handled, 0);
    expectDelivers();
    EXPECT_EQ(handled, 1);
}

TEST_F(InFlight, destructionDropsWhatWaitsForTheHostThread)
{
    int handled = 0;
    Receiver blocking(
        messager.get(), Qt::BlockingQueuedConnection, [&](const QJsonObject &) { ++handled; });
    ASSERT_TRUE(publishAndWait());

    EXPECT_LT(elapsedMs([this] { messager.reset(); }), SecondMs / 2);
    QCoreApplication::processEvents();
    EXPECT_EQ(handled, 0);
}

TEST_F(InFlight, aReceiverOfTheHostsOwnDoesNotHoldUpDestruction)
{
    // Not entered as ours are, so its call is not dropped: it runs once the messager is gone.
    QObject context;
    int handled = 0;
    QObject::connect(
        messager.get(), &KVXCWMessage::notify, &context, [&](const QJsonObject &) { ++handled; },
        Qt::BlockingQueuedConnection);
    ASSERT_TRUE(publishAndWait());

    EXPECT_LT(elapsedMs([this] { messager.reset(); }), SecondMs);
    QCoreApplication::processEvents();
    EXPECT_EQ(handled, 1);
}

TEST_F(InFlight, stopFromInsideAReceiverReturns)
{
    for (const Qt::ConnectionType type :
        { Qt::BlockingQueuedConnection, Qt::QueuedConnection, Qt::DirectConnection }) {
        SCOPED_TRACE(int(type));
        ASSERT_TRUE(start()) << messager->errorString().toStdString();
        std::atomic<int> took { -1 };
        Receiver receiver(messager.get(), type,
            [&](const QJsonObject &) { took = elapsedMs([&] { EXPECT_TRUE(messager->stop()); }); });
        publisher.send(message(1));
        ASSERT_TRUE(waitUntil([&] { return took >= 0; }));
        EXPECT_LT(took, SecondMs);
    }
    ASSERT_TRUE(start()) << messager->errorString().toStdString();
    expectDelivers();
}

TEST_F(InFlight, startFromInsideAReceiverReturnsAndDelivers)
{
    for (const Qt::ConnectionType type :
        { Qt::BlockingQueuedConnection, Qt::QueuedConnection, Qt::DirectConnection }) {
        SCOPED_TRACE(int(type));
        std::atomic<int> took { -1 };
        {
            Receiver receiver(messager.get(), type, [&](const QJsonObject &) {
                if (took >= 0)
                    return;
                took = elapsedMs(
                    [&] { EXPECT_TRUE(start()) << messager->errorString().toStdString(); });
            });
            publisher.send(message(1));
            ASSERT_TRUE(waitUntil([&] { return took >= 0; }));
            EXPECT_LT(took, SecondMs);
        }
        expectDelivers();
    }
}

TEST_F(InFlight, destructionFromInsideAReceiverReturns)
{
    for (const Qt::ConnectionType type :
        { Qt::BlockingQueuedConnection, Qt::QueuedConnection, Qt::DirectConnection }) {
        SCOPED_TRACE(int(type));
        arrivals.reset();
        messager = std::make_unique<KVXCWMessageImpl>();
        messager->setBrokerURI(QString::fromStdString(broker().uri()));
        messager->setTopic(topic);
        // The connection before may still be on its way out.
        ASSERT_TRUE(waitUntil([this] { return start(); })) << messager->errorString().toStdString();
        std::atomic<int> took { -1 };
        std::atomic<int> later { 0 };
        Receiver receiver(messager.get(), type, [&](const QJsonObject &) {
            const int time = elapsedMs([&] { messager.reset(); });
            took = time;
        });
        Receiver next(messager.get(), type, [&](const QJsonObject &) { ++later; });
        publisher.send(message(1));
        ASSERT_TRUE(waitUntil([&] { return took >= 0; }));
        EXPECT_LT(took, SecondMs);
        if (type != Qt::QueuedConnection) {
            EXPECT_EQ(later, 0); // its connection went with the messager
        }
    }
}

TEST_F(InFlight, stopAndDestructionFromInsideAConnectionNotificationReturn)
{
    for (const bool destroy : { false, true }) {
        auto failing = std::make_unique<KVXCWMessageImpl>();
        failing->setBrokerURI(QStringLiteral("tcp://127.0.0.1:1"));
        std::atomic<int> took { -1 };
        Receiver receiver(failing.get(), Qt::BlockingQueuedConnection, [&](const QJsonObject &) {
            took = elapsedMs([&] {
                if (destroy) {
                    failing.reset();
                } else {
                    EXPECT_TRUE(failing->stop());
                }
            });
        });
        EXPECT_FALSE(failing->start());
        ASSERT_TRUE(waitUntil([&] { return took >= 0; }));
        EXPECT_LT(took, SecondMs);
    }
}

TEST_F(InFlight, destructionDropsAConnectionNotificationThatWaits)
{
    auto failing = std::make_unique<KVXCWMessageImpl>();
    std::atomic<bool> entered { false };
    Receiver direct(
        failing.get(), Qt::DirectConnection, [&](const QJsonObject &) { entered = true; });
    int handled = 0;
    Receiver blocking(
        failing.get(), Qt::BlockingQueuedConnection, [&](const QJsonObject &) { ++handled; });
    EXPECT_FALSE(failing->start());
    ASSERT_TRUE(waitBlocked([&] { return entered.load(); }));

    EXPECT_LT(elapsedMs([&] { failing.reset(); }), SecondMs / 2);
    QCoreApplication::processEvents();
    EXPECT_EQ(handled, 0);
}

TEST_F(InFlight, aManagerDestroyedWhileANotificationForItWaitsLetsTheNextOneThrough)
{
    int handled = 0;
    auto receiver = std::make_unique<Receiver>(
        messager.get(), Qt::BlockingQueuedConnection, [&](const QJsonObject &) { ++handled; });
    ASSERT_TRUE(publishAndWait());

    receiver.reset();
    publisher.send(message(2));
    ASSERT_TRUE(arrivals->waitFor(2));
    QCoreApplication::processEvents();
    EXPECT_EQ(handled, 0);
}

TEST_F(InFlight, aManagerMayDestroyItselfInItsSlot)
{
    Receiver *receiver = nullptr;
    receiver = new Receiver(messager.get(), Qt::BlockingQueuedConnection, [&](const QJsonObject &) {
        delete receiver;
        receiver = nullptr;
    });
    publisher.send(message(1));
    ASSERT_TRUE(waitUntil([&] { return !receiver; }));
    expectDelivers();
}

TEST_F(InFlight, receiversOnOtherThreadsAreServedWhileTheHostIsBlocked)
{
    QThread thread;
    thread.start();
    std::atomic<int> handled { 0 };
    auto receiver = std::make_unique<Receiver>(
        messager.get(), Qt::BlockingQueuedConnection, [&](const QJsonObject &) { ++handled; });
    receiver->moveToThread(&thread);
    publisher.send(message(1));
    EXPECT_TRUE(waitBlocked([&] { return handled == 1; }));
    EXPECT_TRUE(messager->stop());
    thread.quit();
    thread.wait();
}

TEST_F(InFlight, closingAtAnyMomentReturnsInTime)
{
    // Every round ends while messages stream in, at another moment, in another way.
    const int rounds = longRun() ? 2000 : 300;
    Watchdog::allow(longRun() ? 580 : 120);
    std::mt19937 random(7);
    std::atomic<bool> ending { false };
    std::atomic<int> sent { 0 };
    std::thread stream([&] {
        Publisher own(topic.toStdString());
        while (!ending) {
            own.send(message(++sent));
            std::this_thread::yield();
        }
    });
    std::atomic<int> handled { 0 };
    int worst = 0;
    for (int round = 0; round < rounds; ++round) {
        if (!messager) {
            messager = std::make_unique<KVXCWMessageImpl>();
            messager->setBrokerURI(QString::fromStdString(broker().uri()));
            messager->setTopic(topic);
        }
        if (!start())
            ADD_FAILURE() << "round " << round << ": " << messager->errorString().toStdString();
        const auto count = [&](const QJsonObject &) { ++handled; };
        Receiver first(messager.get(), Qt::BlockingQueuedConnection, count);
        Receiver second(messager.get(), Qt::BlockingQueuedConnection, count);
        const int passes = int(random() % 6);
        for (int i = 0; i < passes; ++i)
            QCoreApplication::processEvents();
        const bool waitForNext = random() % 2 == 0;
        const int before = sent;
        if (waitForNext) {
            EXPECT_TRUE(waitBlocked([&] { return sent > before; }));
        }
        const auto way = random() % 3;
        const int took = elapsedMs([&] {
            if (way == 0) {
                EXPECT_TRUE(messager->stop());
            } else if (way == 1) {
                EXPECT_TRUE(start()) << messager->errorString().toStdString();
            } else {
                messager.reset();
            }
        });
        worst = std::max(worst, took);
    }
    ending = true;
    stream.join();
    EXPECT_LT(worst, SecondMs);
    RecordProperty("worstMs", worst);
    RecordProperty("handled", handled.load());
}

} // namespace kvx::test
