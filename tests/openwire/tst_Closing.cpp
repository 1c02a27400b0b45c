#include "Client.h"
#include "support/Broker.h"
#include "support/Watchdog.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

using namespace kvx::test;
using testing::HasSubstr;

namespace {

class Closing : public testing::Test {
protected:
    static void SetUpTestSuite() { s_broker = std::make_unique<Broker>(); }
    static void TearDownTestSuite() { s_broker.reset(); }
    static std::string uri() { return s_broker->uri(); }
    static std::unique_ptr<Broker> s_broker;
};

std::unique_ptr<Broker> Closing::s_broker;

// Publishes without pause until it ends.
class Publisher {
public:
    Publisher(const std::string &uri, const std::string &topic)
        : m_client(uri)
    {
        m_client.open(topic);
        m_client.consumer.reset();
        m_thread = std::thread([this] {
            while (!m_ending) {
                m_client.publish("news");
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
        });
    }
    ~Publisher()
    {
        m_ending = true;
        m_thread.join();
    }

private:
    Client m_client;
    std::atomic<bool> m_ending { false };
    std::thread m_thread;
};

} // namespace

// Closing begins while the listener is blocked and has to notice when it is let go: two thousand
// chances for a lost wake-up.
TEST_F(Closing, closeDuringABlockedDeliveryEndsTwoThousandTimes)
{
    Watchdog::allow(300);
    Client publisher(uri());
    publisher.open("closing.rounds");
    publisher.consumer.reset();
    for (int round = 0; round < 2000; ++round) {
        Client client(uri());
        Signal arrived;
        Signal released;
        Recorder recorder;
        recorder.onArrival = [&] {
            arrived.set();
            released.wait();
        };
        client.open("closing.rounds");
        client.consumer->setMessageListener(&recorder);
        publisher.publish("in flight");
        ASSERT_TRUE(arrived.wait()) << round;
        std::thread closer([&] { client.connection->close(); });
        if (round % 2)
            std::this_thread::yield();
        released.set();
        const auto time = timeOf([&] { closer.join(); });
        ASSERT_LT(time.count(), 1900) << round;
    }
}

TEST_F(Closing, closeWhileMessagesStreamInEndsAndNothingIsDeliveredAfterwards)
{
    Publisher publisher(uri(), "closing.stream");
    for (int round = 0; round < 200; ++round) {
        Client client(uri());
        std::atomic<bool> closed { false };
        std::atomic<int> late { 0 };
        Recorder recorder;
        recorder.onArrival = [&] { late += closed; };
        client.open("closing.stream");
        client.consumer->setMessageListener(&recorder);
        ASSERT_TRUE(recorder.waitFor(1));
        client.connection->close();
        closed = true;
        ASSERT_EQ(late, 0);
    }
}

TEST_F(Closing, handlesMayBeDeletedInAnyOrderWhileMessagesStreamIn)
{
    Publisher publisher(uri(), "closing.order");
    for (int round = 0; round < 120; ++round) {
        Recorder recorder;
        Client client(uri());
        client.open("closing.order");
        client.consumer->setMessageListener(&recorder);
        ASSERT_TRUE(recorder.waitFor(1));
        switch (round % 4) {
        case 0:
            client.connection.reset();
            break;
        case 1:
            client.session.reset();
            break;
        case 2:
            client.consumer.reset();
            break;
        case 3:
            client.producer.reset();
            break;
        }
    }
}

TEST_F(Closing, listenerThatDoesNotReturnIsLeftBehindAfterTwoSeconds)
{
    const auto released = std::make_shared<Signal>();
    const auto finished = std::make_shared<Signal>();
    const auto recorder = std::make_shared<Recorder>();
    Signal arrived;
    recorder->onArrival = [&arrived, released] {
        arrived.set();
        released->wait(std::chrono::seconds(30));
    };
    {
        Client client(uri());
        client.open("closing.hang");
        client.consumer->setMessageListener(recorder.get());
        client.publish("hang");
        ASSERT_TRUE(arrived.wait());
        const auto time = timeOf([&] { client.connection->close(); });
        EXPECT_GE(time.count(), 1900);
        EXPECT_LT(time.count(), 3500);
        // Everything is deleted under the feet of the listener that is still running.
    }
    released->set();
    EXPECT_TRUE(recorder->waitFor(1)); // it returns into a session that nobody holds any more
}

TEST_F(Closing, abandonedListenerFreesTheClientIdAtOnce)
{
    Signal arrived;
    Signal released;
    Recorder recorder;
    recorder.onArrival = [&] {
        arrived.set();
        released.wait();
    };
    Client client(uri(), "hanging");
    client.open("closing.id");
    client.consumer->setMessageListener(&recorder);
    client.publish("hang");
    ASSERT_TRUE(arrived.wait());
    client.connection->close();
    EXPECT_EQ(failureOf([] { Client again(uri(), "hanging"); }), "");
    released.set();
    client.consumer->setMessageListener(nullptr); // waits for it, so that it may be destroyed
    EXPECT_EQ(recorder.texts().size(), 1u);
}

TEST_F(Closing, closeFromInsideAListenerReturnsAtOnce)
{
    enum What { Connection, Session, Consumer };
    for (const What what : { Connection, Session, Consumer }) {
        Client client(uri());
        client.open("closing.inside");
        Recorder recorder;
        std::chrono::milliseconds time {};
        recorder.onArrival = [&] {
            time = timeOf([&] {
                switch (what) {
                case Connection:
                    client.connection->close();
                    break;
                case Session:
                    client.session->close();
                    break;
                case Consumer:
                    client.consumer->close();
                    break;
                }
            });
        };
        client.consumer->setMessageListener(&recorder);
        client.publish("close");
        ASSERT_TRUE(recorder.waitFor(1));
        EXPECT_LT(time.count(), 1500) << what;
    }
}

TEST_F(Closing, everythingMayBeDeletedFromInsideAListener)
{
    for (int round = 0; round < 50; ++round) {
        auto client = std::make_unique<Client>(uri());
        client->open("closing.delete");
        Recorder recorder;
        recorder.onArrival = [&] { client.reset(); };
        client->consumer->setMessageListener(&recorder);
        Client publisher(uri());
        publisher.open("closing.delete");
        publisher.publish("delete");
        ASSERT_TRUE(recorder.waitFor(1));
    }
}

TEST_F(Closing, listenerMayReplaceItselfAndCreateAndSend)
{
    Client client(uri());
    client.open("closing.busy");
    Recorder second;
    Recorder first;
    first.onArrival = [&] {
        client.consumer->setMessageListener(&second);
        client.producer->setDeliveryMode(cms::DeliveryMode::PERSISTENT);
        client.publish("from the listener");
    };
    client.consumer->setMessageListener(&first);
    client.publish("start");
    EXPECT_TRUE(second.waitFor(1));
    client.consumer->setMessageListener(nullptr);
    EXPECT_EQ(first.texts().size(), 1u);
}

TEST_F(Closing, exceptionListenerMayCloseOrDeleteTheConnection)
{
    for (const bool deleting : { false, true }) {
        Broker broker;
        auto client = std::make_unique<Client>(broker.uri());
        client->open("closing.lost");
        Failures failures;
        failures.onFailure = [&] {
            if (deleting)
                client.reset();
            else
                client->connection->close();
        };
        client->connection->setExceptionListener(&failures);
        broker.kill();
        EXPECT_TRUE(failures.waitFor(1));
    }
}

TEST_F(Closing, listenersThatThrowAreHarmless)
{
    Client client(uri());
    client.open("closing.throw");
    Recorder recorder;
    std::atomic<int> calls { 0 };
    recorder.onArrival = [&] {
        if (++calls < 3)
            throw std::runtime_error("listener");
    };
    client.consumer->setMessageListener(&recorder);
    for (int i = 0; i < 3; ++i)
        client.publish(std::to_string(i));
    EXPECT_TRUE(recorder.waitFor(1));
    EXPECT_THAT(recorder.texts(), testing::ElementsAre("2"));
    client.consumer->setMessageListener(nullptr);
}

TEST_F(Closing, closeWakesWhoWaitsForAMessage)
{
    Client client(uri());
    client.open("closing.receive");
    std::unique_ptr<cms::Message> received;
    client.publish("first");
    Signal waiting;
    std::thread waiter([&] {
        received.reset(client.consumer->receive());
        waiting.set();
        received.reset(client.consumer->receive());
    });
    EXPECT_TRUE(waiting.wait());
    client.connection->close();
    waiter.join();
    EXPECT_FALSE(received);
}

TEST_F(Closing, twoThreadsMayCloseAtTheSameTime)
{
    for (int round = 0; round < 50; ++round) {
        Client client(uri());
        client.open("closing.both");
        std::thread other([&] { client.connection->close(); });
        client.connection->close();
        other.join();
    }
}

TEST_F(Closing, callsOnClosedObjectsSaySo)
{
    Client client(uri());
    client.open("closing.closed");
    client.producer->close();
    client.producer->close();
    EXPECT_THAT(failureOf([&] { client.publish("x"); }), HasSubstr("has already been closed!"));
    client.consumer->close();
    EXPECT_EQ(client.consumer->receive(10), nullptr);
    Recorder recorder;
    EXPECT_THAT(
        failureOf([&] { client.consumer->setMessageListener(&recorder); }), HasSubstr("closed"));
    client.session->close();
    EXPECT_THAT(failureOf([&] { client.session->createTopic("x"); }), HasSubstr("closed"));
    client.connection->close();
    client.connection->close();
    EXPECT_THAT(failureOf([&] { client.connection->createSession(); }), HasSubstr("closed"));
    EXPECT_THAT(failureOf([&] { client.connection->start(); }), HasSubstr("closed"));
}

TEST_F(Closing, stopHoldsMessagesBackUntilStart)
{
    Client client(uri());
    client.open("closing.stop");
    Recorder recorder;
    client.consumer->setMessageListener(&recorder);
    client.connection->stop();
    client.publish("later");
    client.producer->setDeliveryMode(cms::DeliveryMode::PERSISTENT);
    client.publish("later still");
    EXPECT_TRUE(recorder.texts().empty());
    client.connection->start();
    EXPECT_TRUE(recorder.waitFor(2));
    client.consumer->setMessageListener(nullptr);
}
