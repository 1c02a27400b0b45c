#include "Client.h"
#include "support/Broker.h"
#include "support/Watchdog.h"

#include <gmock/gmock.h>

#include <thread>

using namespace kvx::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

// Keep-alive every third of a second, silence noticed after two.
const char quick[]
    = "?wireFormat.MaxInactivityDuration=1000&wireFormat.MaxInactivityDurationInitalDelay=100";

} // namespace

TEST(Loss, killedBrokerIsReportedOnceAndEveryLaterCallFails)
{
    Broker broker;
    Client client(broker.uri(), "anna");
    Failures failures;
    client.connection->setExceptionListener(&failures);
    client.open("loss.killed");
    broker.kill();
    ASSERT_TRUE(failures.waitFor(1));
    EXPECT_THAT(failures.texts().front(), HasSubstr("127.0.0.1:" + std::to_string(broker.port())));
    EXPECT_EQ(failureOf([&] { client.publish("lost"); }), failures.texts().front());
    EXPECT_EQ(failureOf([&] { client.receiveText(); }), failures.texts().front());
    EXPECT_EQ(failureOf([&] { client.connection->createSession(); }), failures.texts().front());
    EXPECT_LT(timeOf([&] { client.connection->close(); }).count(), 1000);
    EXPECT_EQ(failures.texts().size(), 1u);
}

TEST(Loss, brokerThatIsStoppedOrderlyIsReportedToo)
{
    Broker broker;
    Client client(broker.autoUri(), "anna");
    Failures failures;
    client.connection->setExceptionListener(&failures);
    client.open("loss.stopped");
    broker.stop();
    EXPECT_TRUE(failures.waitFor(1));
}

TEST(Loss, messagesThatHadArrivedAreStillDelivered)
{
    Broker broker;
    Client client(broker.uri());
    client.open("loss.delivered");
    Failures failures;
    client.connection->setExceptionListener(&failures);
    Signal arrived;
    Signal goOn;
    Recorder recorder;
    recorder.onArrival = [&] {
        arrived.set();
        goOn.wait();
    };
    client.consumer->setMessageListener(&recorder);
    // The broker serves the consumers of a connection one after the other: what the later one has,
    // the earlier one has too.
    const std::unique_ptr<cms::Session> witness(client.connection->createSession());
    const std::unique_ptr<cms::MessageConsumer> later(witness->createConsumer(client.topic.get()));
    Recorder witnessed;
    later->setMessageListener(&witnessed);
    for (int i = 0; i < 50; ++i)
        client.publish(std::to_string(i));
    ASSERT_TRUE(witnessed.waitFor(50));
    ASSERT_TRUE(arrived.wait());
    broker.kill();
    ASSERT_TRUE(failures.waitFor(1));
    goOn.set();
    EXPECT_TRUE(recorder.waitFor(50));
    later->setMessageListener(nullptr);
    client.consumer->setMessageListener(nullptr);
}

TEST(Loss, restartedBrokerIsReachedWithANewConnection)
{
    Broker broker;
    for (int round = 0; round < 3; ++round) {
        Client client(broker.uri(), "anna");
        Failures failures;
        client.connection->setExceptionListener(&failures);
        client.open("loss.restart");
        client.publish("hello");
        EXPECT_EQ(client.receiveText(), "hello");
        broker.kill();
        ASSERT_TRUE(failures.waitFor(1));
        EXPECT_EQ(failureOf([&] { Client nobody(broker.uri()); }), "Connection refused");
        broker.restart();
    }
}

TEST(Loss, frozenBrokerIsNoticedBySilence)
{
    Broker broker;
    Client client(broker.uri() + quick, "anna");
    Failures failures;
    client.connection->setExceptionListener(&failures);
    client.open("loss.frozen");
    broker.freeze();
    const auto time = timeOf([&] { ASSERT_TRUE(failures.waitFor(1)); });
    EXPECT_THAT(failures.texts(), ElementsAre(HasSubstr("Channel was inactive for too long")));
    EXPECT_LT(time.count(), 5000);
    broker.thaw();
}

TEST(Loss, frozenBrokerDoesNotHoldUpClose)
{
    Broker broker;
    Client client(broker.uri(), "anna");
    client.open("loss.frozenclose");
    broker.freeze();
    EXPECT_LT(timeOf([&] { client.connection->close(); }).count(), 4000);
    broker.thaw();
}

TEST(Loss, frozenBrokerEndsARequestAtItsLimit)
{
    Broker broker;
    Client client(broker.uri() + "?connection.sendTimeout=300&connection.closeTimeout=300");
    client.open("loss.frozenrequest");
    broker.freeze();
    client.producer->setDeliveryMode(cms::DeliveryMode::PERSISTENT);
    EXPECT_THAT(
        failureOf([&] { client.publish("no answer"); }), HasSubstr("did not answer in time"));
    broker.thaw();
}

TEST(Loss, idleConnectionIsKeptAliveByBothEnds)
{
    Broker broker;
    for (const std::string &uri : { broker.uri(), broker.autoUri() }) {
        Client client(uri + quick, "anna");
        Failures failures;
        client.connection->setExceptionListener(&failures);
        client.open("loss.idle");
        std::this_thread::sleep_for(
            std::chrono::seconds(5)); // five times what the broker tolerates
        client.publish("still there");
        EXPECT_EQ(client.receiveText(), "still there");
        EXPECT_THAT(failures.texts(), IsEmpty());
    }
}

TEST(Loss, slowListenerDoesNotStopTheKeepAlives)
{
    Broker broker;
    Client client(broker.uri() + quick, "anna");
    Failures failures;
    client.connection->setExceptionListener(&failures);
    Recorder recorder;
    recorder.onArrival = [] { std::this_thread::sleep_for(std::chrono::seconds(4)); };
    client.open("loss.slow");
    client.consumer->setMessageListener(&recorder);
    client.publish("take your time");
    EXPECT_TRUE(recorder.waitFor(1));
    EXPECT_THAT(failures.texts(), IsEmpty());
    client.consumer->setMessageListener(nullptr);
}

TEST(Loss, subscriberThatTakesNothingIsCutOffAndHearsOfIt)
{
    Broker::Options options;
    options.slowLimit = 1000;
    Broker broker(options);
    Client client(broker.uri(), "anna");
    Failures failures;
    client.connection->setExceptionListener(&failures);
    client.open("loss.cut");
    Client publisher(broker.uri());
    publisher.open("loss.other");
    Signal end;
    Recorder recorder;
    recorder.onArrival = [&] { end.wait(); };
    client.consumer->setMessageListener(&recorder);
    for (int i = 0; i < 10; ++i)
        client.publish(std::to_string(i));
    EXPECT_TRUE(failures.waitFor(1));
    end.set();
    EXPECT_EQ(failureOf([&] { publisher.publish("undisturbed"); }), "");
    client.consumer->setMessageListener(nullptr);
}

TEST(Loss, cutIsReportedNeverFromInsideClose)
{
    Broker broker;
    for (int round = 0; round < 50; ++round) {
        Client client(broker.uri());
        Failures failures;
        client.connection->setExceptionListener(&failures);
        client.open("loss.close");
        client.connection->close();
        EXPECT_THAT(failures.texts(), IsEmpty());
    }
}
