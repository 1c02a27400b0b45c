#include "Client.h"
#include "FakeBroker.h"

#include "Commands.h"
#include "FrameBuffer.h"
#include "WireFormat.h"

#include <cms/CMSSecurityException.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

using namespace kvx::test;
using namespace kvx::openwire;
using testing::AnyOf;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

const char shortLimits[] = "?connection.connectResponseTimeout=300&connection.sendTimeout=300&"
                           "connection.closeTimeout=300";

std::string use(const std::string &uri)
{
    return failureOf([&] {
        Client client(uri, "anna");
        client.open("hostile");
    });
}

std::string dispatchTo(const std::string &consumer, const std::string &message)
{
    return framed(
        fromHex("15 00000000 00") + consumer + fromHex("00") + message + fromHex("00000000"));
}

// A consumer's id as the client gave it: it stands at the same place in ConsumerInfo.
std::string consumerOf(const FakePeer::Frame &consumerInfo)
{
    const std::size_t length = static_cast<unsigned char>(consumerInfo.bytes[10]);
    return consumerInfo.bytes.substr(6, 2 + 1 + 2 + length + 16);
}

// Serves a client to the point where it waits for messages, and gives the id of its consumer.
std::string serveToConsumer(FakePeer &peer)
{
    peer.offer();
    std::string consumer;
    for (;;) {
        const FakePeer::Frame request = peer.frame();
        if (request.type == -1)
            return consumer;
        if (request.type == WireFormatInfoType)
            continue;
        if (request.type == ConsumerInfoType)
            consumer = consumerOf(request);
        peer.answer(request.commandId);
        if (request.type == ProducerInfoType)
            return consumer;
    }
}

// Answers everything, each time as late as that.
void serveLate(FakePeer &peer, std::chrono::milliseconds late)
{
    peer.offer();
    for (;;) {
        const FakePeer::Frame request = peer.frame();
        if (request.type == -1)
            return;
        std::this_thread::sleep_for(late);
        if (request.type != WireFormatInfoType)
            peer.answer(request.commandId);
    }
}

std::string textMessage(const std::string &text)
{
    MessageData data;
    data.type = TextMessageType;
    data.destination = DestinationName { cms::Destination::TOPIC, "hostile" };
    data.content = framed(text);
    return fromHex("01") + encodeMessage(data, 0, false, 12).substr(4);
}

} // namespace

TEST(HostileBroker, freezeAtEveryStepOfTheHandshakeEndsAtTheLimit)
{
    struct Step {
        const char *name;
        std::function<void(FakePeer &)> script;
    };
    const Step steps[] = {
        { "after the connection", [](FakePeer &peer) { peer.freeze(); } },
        { "inside the offer",
            [](FakePeer &peer) {
                peer.send(encodeWireFormatInfo({}).substr(0, 20));
                peer.freeze();
            } },
        { "after the offer",
            [](FakePeer &peer) {
                peer.serveUntil(ConnectionInfoType);
                peer.freeze();
            } },
        { "at the session",
            [](FakePeer &peer) {
                peer.serveUntil(SessionInfoType);
                peer.freeze();
            } },
        { "at the consumer",
            [](FakePeer &peer) {
                peer.serveUntil(ConsumerInfoType);
                peer.freeze();
            } },
        { "at the producer",
            [](FakePeer &peer) {
                peer.serveUntil(ProducerInfoType);
                peer.freeze();
            } },
    };
    for (const Step &step : steps) {
        FakeBroker broker(step.script);
        std::string failure;
        const auto time = timeOf([&] { failure = use(broker.uri(shortLimits)); });
        EXPECT_THAT(failure, HasSubstr("did not answer in time")) << step.name;
        EXPECT_GE(time.count(), 290) << step.name;
        EXPECT_LT(time.count(), 3000) << step.name;
    }
}

TEST(HostileBroker, lateAnswersToEveryStepEndAtTheOneLimitOfTheLogin)
{
    FakeBroker broker([](FakePeer &peer) { serveLate(peer, std::chrono::milliseconds(400)); });
    std::string failure;
    const auto time = timeOf([&] {
        failure = use(
            broker.uri("?connection.connectResponseTimeout=1000&connection.closeTimeout=300"));
    });
    EXPECT_THAT(failure, HasSubstr("did not answer in time"));
    EXPECT_GE(time.count(), 990);
    EXPECT_LT(time.count(), 3000);
}

TEST(HostileBroker, whoIsLoggedInHasALimitForEachRequest)
{
    FakeBroker broker([](FakePeer &peer) { serveLate(peer, std::chrono::milliseconds(20)); });
    Client client(broker.uri("?connection.connectResponseTimeout=1000"), "anna");
    client.open("hostile");
    for (int i = 0; i < 60; ++i)
        std::unique_ptr<cms::Session>(client.connection->createSession())->close();
}

TEST(HostileBroker, freezeAtTheFarewellDoesNotHoldUpClose)
{
    FakeBroker broker([](FakePeer &peer) {
        peer.serveUntil(RemoveInfoType);
        peer.freeze();
    });
    Client client(broker.uri(), "anna");
    client.open("hostile");
    const auto time = timeOf([&] { client.connection->close(); });
    EXPECT_GE(time.count(), 1900);
    EXPECT_LT(time.count(), 3000);
}

TEST(HostileBroker, closedAtEveryStepOfTheHandshakeIsAnErrorAtOnce)
{
    for (const int type : { 0x100, int(ConnectionInfoType), int(SessionInfoType),
             int(ConsumerInfoType), int(ProducerInfoType) }) {
        FakeBroker broker([type](FakePeer &peer) {
            if (type != 0x100)
                peer.serveUntil(type);
        });
        std::string failure;
        const auto time = timeOf([&] { failure = use(broker.uri()); });
        EXPECT_THAT(failure, AnyOf(HasSubstr("closed the connection"), HasSubstr("lost"))) << type;
        EXPECT_LT(time.count(), 2000) << type;
    }
}

TEST(HostileBroker, aLoginThatIsClosedWithoutAWordIsTriedOnceMore)
{
    // What the broker sends in answer to the login of each connection; empty: it closes.
    const std::string refusal
        = framed(fromHex("1f 00000000 00 00000001 01"
                         "01 0001 61 01 0011 616c726561647920636f6e6e6563746564"));
    for (const bool answersTheSecond : { true, false }) {
        std::atomic<int> connections { 0 };
        {
            FakeBroker broker([&](FakePeer &peer) {
                peer.serveUntil(ConnectionInfoType);
                if (++connections == 1 || !answersTheSecond)
                    return;
                peer.send(refusal);
                peer.freeze();
            });
            EXPECT_THAT(failureOf([&] { Client client(broker.uri(), "anna"); }),
                HasSubstr(answersTheSecond ? "already connected" : "closed the connection"));
        }
        EXPECT_EQ(connections, 2);
    }
}

TEST(HostileBroker, aLoginThatIsClosedLateIsNotTriedAgain)
{
    std::atomic<int> connections { 0 };
    {
        FakeBroker broker([&](FakePeer &peer) {
            peer.serveUntil(ConnectionInfoType);
            ++connections;
            std::this_thread::sleep_for(std::chrono::milliseconds(1200));
        });
        EXPECT_THAT(failureOf([&] { Client client(broker.uri(), "anna"); }),
            HasSubstr("closed the connection"));
    }
    EXPECT_EQ(connections, 1);
}

TEST(HostileBroker, aConnectionThatIsClosedDuringItsLoginStaysClosed)
{
    std::atomic<int> connections { 0 };
    std::atomic<cms::Connection *> connection { nullptr };
    FakeBroker broker([&](FakePeer &peer) {
        peer.serveUntil(ConnectionInfoType);
        if (++connections == 1)
            connection.load()->close();
    });
    Client client(broker.uri(), {});
    connection = client.connection.get();
    EXPECT_NE(failureOf([&] { client.connection->setClientID("anna"); }), std::string());
    EXPECT_EQ(connections, 1);
    EXPECT_NE(failureOf([&] { client.connection->start(); }), std::string());
}

TEST(HostileBroker, aSecondLoginKeepsTheListenerForFailures)
{
    std::atomic<int> connections { 0 };
    FakeBroker broker([&](FakePeer &peer) {
        peer.serveUntil(++connections == 1 ? ConnectionInfoType : SessionInfoType);
    });
    Client client(broker.uri(), {});
    Failures failures;
    client.connection->setExceptionListener(&failures);
    EXPECT_EQ(failureOf([&] { client.connection->setClientID("anna"); }), std::string());
    EXPECT_EQ(client.connection->getClientID(), "anna");
    EXPECT_EQ(client.connection->getExceptionListener(), &failures);
    const std::size_t before = failures.texts().size();
    EXPECT_NE(failureOf([&] { delete client.connection->createSession(); }), std::string());
    EXPECT_TRUE(failures.waitFor(before + 1));
}

TEST(HostileBroker, offersThatAreNoneEndTheConnection)
{
    const std::string offer = encodeWireFormatInfo({});
    std::string magic = offer;
    magic[6] = 'X';
    std::string version = offer;
    version[16] = 0; // of 12
    std::string negative = offer;
    negative[13] = '\xff';
    const std::string offers[] = {
        "HTTP/1.1 400 Bad Request\r\n\r\n",
        framed(fromHex("1e 00000000 00 00000001")), // an answer to nothing
        magic, version, negative, framed(offer.substr(4, 30)), // cut inside the options
        fromHex("00000000"), fromHex("ffffffff"), fromHex("7fffffff 01"),
        fromHex("04000001 01"), // one byte above the limit
    };
    for (const std::string &bytes : offers) {
        FakeBroker broker([&](FakePeer &peer) {
            peer.send(bytes);
            peer.freeze();
        });
        std::string failure;
        const auto time = timeOf([&] { failure = use(broker.uri()); });
        EXPECT_NE(failure, "") << toHex(bytes);
        EXPECT_LT(time.count(), 2000) << toHex(bytes);
    }
}

TEST(HostileBroker, frameOfAnImpossibleLengthEndsAnEstablishedConnection)
{
    for (const char *length : { "00000000", "ffffffff", "80000000", "7fffffff", "04000001" }) {
        Signal opened;
        FakeBroker broker([&](FakePeer &peer) {
            serveToConsumer(peer);
            opened.wait();
            peer.send(fromHex(length));
            peer.freeze();
        });
        Client client(broker.uri(shortLimits), "anna");
        Failures failures;
        client.connection->setExceptionListener(&failures);
        client.open("hostile");
        opened.set();
        ASSERT_TRUE(failures.waitFor(1)) << length;
        EXPECT_THAT(failures.texts().front(), HasSubstr("The broker sent a frame of")) << length;
    }
}

TEST(HostileBroker, largeLengthWithoutBytesCostsNoMemory)
{
    FrameBuffer buffer;
    buffer.append(fromHex("04000000 15"));
    EXPECT_FALSE(buffer.next());
    EXPECT_LT(buffer.capacity(), 1000u);
}

TEST(HostileBroker, unknownBrokenAndEmptyFramesAreSkipped)
{
    FakeBroker broker([](FakePeer &peer) {
        const std::string consumer = serveToConsumer(peer);
        peer.send(framed(fromHex("00"))); // null command
        peer.send(framed(fromHex("fe 0102030405060708")));
        peer.send(framed(fromHex("0e 00000000 00 01 0004 73746f70"))); // "stop", as text
        peer.send(framed(fromHex("15"))); // a dispatch that ends at once
        peer.send(dispatchTo(consumer, fromHex("00"))); // no message
        peer.send(dispatchTo(consumer, fromHex("01 63"))); // a message of an unknown type
        peer.send(dispatchTo(consumer, fromHex("01 1c 00000000")));
        peer.send(framed(fromHex("1e 00000000 00 7fffffff"))); // an answer to nothing
        peer.send(framed(fromHex("13 00000000 00 00 00000005"))); // producer acknowledgement
        peer.send(
            framed(fromHex("12 00000000 00 01 01 00 00 00 00 00 00 00"))); // connection control
        peer.send(dispatchTo(fromHex("00"), textMessage("to nobody")));
        peer.send(dispatchTo(consumer, textMessage("good")));
        peer.serveUntil(0);
    });
    Client client(broker.uri(shortLimits), "anna");
    Failures failures;
    client.connection->setExceptionListener(&failures);
    client.open("hostile");
    EXPECT_EQ(client.receiveText(), "good");
    EXPECT_THAT(failures.texts(), IsEmpty());
}

TEST(HostileBroker, cutAtEveryByteOfAMessageIsALossAndNothingElse)
{
    std::atomic<std::size_t> length { 0 };
    std::atomic<std::size_t> cut { 0 };
    Signal listening;
    FakeBroker broker([&](FakePeer &peer) {
        const std::string consumer = serveToConsumer(peer);
        listening.wait();
        const std::string frame = dispatchTo(consumer, textMessage("never seen"));
        length = frame.size();
        // The connection's id is part of it and not always of one length.
        peer.send(std::string_view(frame).substr(0, std::min<std::size_t>(cut, frame.size() - 1)));
    });
    do {
        Client client(broker.uri(shortLimits), "anna");
        Recorder recorder;
        Failures failures;
        client.connection->setExceptionListener(&failures);
        client.open("hostile");
        client.consumer->setMessageListener(&recorder);
        listening.set();
        ASSERT_TRUE(failures.waitFor(1)) << cut;
        ASSERT_THAT(recorder.texts(), IsEmpty()) << cut;
        client.consumer->setMessageListener(nullptr);
        listening.reset();
    } while (++cut < length);
}

TEST(HostileBroker, classNamesAreTextOnly)
{
    const auto refusal = [](std::string_view className, std::string_view text) {
        return [=](FakePeer &peer) {
            peer.offer();
            FakePeer::Frame request = peer.frame();
            while (request.type == WireFormatInfoType)
                request = peer.frame();
            std::string frame = fromHex("1f 00000000 00");
            for (int shift = 24; shift >= 0; shift -= 8)
                frame += static_cast<char>(request.commandId >> shift & 0xff);
            frame += '\1';
            for (const std::string_view part : { className, text }) {
                frame += '\1';
                frame += static_cast<char>(part.size() >> 8);
                frame += static_cast<char>(part.size() & 0xff);
                frame += part;
            }
            peer.send(framed(frame));
            peer.freeze();
        };
    };
    {
        FakeBroker broker(
            refusal("org.springframework.context.support.ClassPathXmlApplicationContext",
                "http://127.0.0.1/%s%n.xml"));
        EXPECT_EQ(use(broker.uri()), "http://127.0.0.1/%s%n.xml");
    }
    {
        FakeBroker broker(refusal("javax.jms.JMSSecurityException", "no"));
        EXPECT_THROW(Client(broker.uri(), "anna"), cms::CMSSecurityException);
    }
    {
        FakeBroker broker(refusal("just.a.Name", ""));
        EXPECT_EQ(use(broker.uri()), "just.a.Name");
    }
}

TEST(HostileBroker, connectionErrorRefusesALoginAndIsReportedLater)
{
    const std::string error
        = framed(fromHex("10 00000000 00 01 01 0003 612e62 01 0004 6f6f7073 00"));
    {
        FakeBroker broker([&](FakePeer &peer) {
            peer.serveUntil(ConnectionInfoType);
            peer.send(error);
            peer.freeze();
        });
        EXPECT_EQ(use(broker.uri()), "oops");
    }
    FakeBroker broker([&](FakePeer &peer) {
        const std::string consumer = serveToConsumer(peer);
        peer.send(error);
        peer.send(dispatchTo(consumer, textMessage("and on")));
        peer.serveUntil(0);
    });
    Client client(broker.uri(shortLimits), "anna");
    Failures failures;
    client.connection->setExceptionListener(&failures);
    client.open("hostile");
    ASSERT_TRUE(failures.waitFor(1));
    EXPECT_EQ(failures.texts().front(), "oops");
    EXPECT_EQ(client.receiveText(), "and on");
}

TEST(HostileBroker, endedConsumerIsReported)
{
    FakeBroker broker([](FakePeer &peer) {
        const std::string consumer = serveToConsumer(peer);
        peer.send(
            framed(fromHex("11 00000000 00 00 01") + consumer + fromHex("00000000 00 00 00")));
        peer.serveUntil(0);
    });
    Client client(broker.uri(shortLimits), "anna");
    Failures failures;
    client.connection->setExceptionListener(&failures);
    client.open("hostile");
    ASSERT_TRUE(failures.waitFor(1));
    EXPECT_EQ(failures.texts().front(), "The broker has ended the subscription.");
    EXPECT_EQ(failureOf([&] { client.receiveText(); }), "The broker has ended the subscription.");
}

TEST(HostileBroker, floodBeyondWhatWasAskedForEndsTheConnection)
{
    Signal opened;
    FakeBroker broker([&](FakePeer &peer) {
        const std::string frame = dispatchTo(serveToConsumer(peer), textMessage("flood"));
        opened.wait();
        for (int i = 0; i < 5000; ++i)
            peer.send(frame);
        peer.freeze();
    });
    Client client(broker.uri(shortLimits), "anna");
    Failures failures;
    client.connection->setExceptionListener(&failures);
    client.open("hostile");
    opened.set();
    ASSERT_TRUE(failures.waitFor(1));
    EXPECT_EQ(failures.texts().front(), "The broker sends more messages than were asked for");
}

TEST(HostileBroker, pingIsAnsweredWithItsOwnNumber)
{
    Signal answered;
    FakeBroker broker([&](FakePeer &peer) {
        serveToConsumer(peer);
        peer.send(framed(fromHex("0a 00001234 01")));
        for (FakePeer::Frame frame = peer.frame(); frame.type != -1; frame = peer.frame()) {
            if (frame.type == KeepAliveInfoType && frame.commandId == 0x1234)
                answered.set();
        }
    });
    Client client(broker.uri(shortLimits), "anna");
    client.open("hostile");
    EXPECT_TRUE(answered.wait());
}

TEST(HostileBroker, silentBrokerIsNoticed)
{
    FakeBroker broker([](FakePeer &peer) {
        serveToConsumer(peer);
        peer.freeze();
    });
    Client client(
        broker.uri("?wireFormat.MaxInactivityDuration=400&connection.closeTimeout=300"), "anna");
    Failures failures;
    client.connection->setExceptionListener(&failures);
    client.open("hostile");
    ASSERT_TRUE(failures.waitFor(1));
    EXPECT_THAT(failures.texts().front(), HasSubstr("Channel was inactive for too long"));
}

TEST(HostileBroker, brokerThatStopsReadingHoldsNobodyUpForEver)
{
    Signal done;
    FakeBroker broker([&](FakePeer &peer) {
        serveToConsumer(peer);
        done.wait();
    });
    Client client(broker.uri(shortLimits), "anna");
    client.open("hostile");
    const std::string text(1 << 20, 'x');
    std::string failure;
    const auto time = timeOf([&] {
        for (int i = 0; i < 100 && failure.empty(); ++i)
            failure = failureOf([&] { client.publish(text); });
    });
    EXPECT_THAT(failure, HasSubstr("takes no more data"));
    EXPECT_LT(time.count(), 5000);
    EXPECT_LT(timeOf([&] { client.connection->close(); }).count(), 2000);
    done.set();
}
