#include "ChildProcess.h"
#include "Client.h"
#include "support/Broker.h"
#include "support/Watchdog.h"

#include <cms/AsyncCallback.h>
#include <cms/InvalidDestinationException.h>
#include <cms/InvalidSelectorException.h>
#include <cms/MessageFormatException.h>
#include <cms/MessageNotWriteableException.h>
#include <cms/UnsupportedOperationException.h>

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

using namespace kvx::test;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class Delivery : public testing::TestWithParam<bool> {
protected:
    static void SetUpTestSuite()
    {
        Broker::Options options;
        options.maxFrame = 32 << 20;
        s_broker = std::make_unique<Broker>(options);
    }
    static void TearDownTestSuite() { s_broker.reset(); }
    static std::string uri() { return GetParam() ? s_broker->autoUri() : s_broker->uri(); }
    static std::unique_ptr<Broker> s_broker;
};

std::unique_ptr<Broker> Delivery::s_broker;

INSTANTIATE_TEST_SUITE_P(Connectors, Delivery, testing::Bool(),
    [](const auto &info) { return info.param ? "automatic" : "plain"; });

std::string repeated(const std::string &text, std::size_t count)
{
    std::string result;
    for (std::size_t i = 0; i < count; ++i)
        result += text;
    return result;
}

// On the wire: NUL as two bytes, characters above U+FFFF as two surrogates of three bytes.
const std::vector<std::string> &interestingTexts()
{
    static const std::vector<std::string> texts = {
        "",
        "{\"a\":1}",
        std::string("a\xc0\x80") + "b",
        "emoji \xed\xa0\xbd\xed\xb8\x80 end",
        "Stra\xc3\x9f"
        "e \xe2\x82\xac \xe6\xbc\xa2 \xef\xbf\xbf",
        std::string(300, 'x'),
        std::string(301, 'x'),
        repeated("\xc3\xa4", 1 << 19),
    };
    return texts;
}

class Peer {
public:
    explicit Peer(const std::string &uri)
        : m_process({ KVX_PEER_JAVA, "-Xmx512m", "-XX:+UseSerialGC", "-XX:TieredStopAtLevel=1",
            "-cp", KVX_PEER_CLASSPATH, "JmsPeer", uri, "delivery.from.peer", "delivery.to.peer" })
    {
        expect("connected");
    }
    std::string order(const std::string &line)
    {
        m_process.say(line);
        return m_process.line();
    }
    void expect(const std::string &answer) { EXPECT_EQ(m_process.line(), answer); }

private:
    ChildProcess m_process;
};

struct Receipts : cms::AsyncCallback {
    void onSuccess() override { ++succeeded; }
    void onException(const cms::CMSException &) override { ++failed; }
    bool waitFor(int count)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (succeeded + failed < count && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return succeeded + failed == count;
    }
    std::atomic<int> succeeded { 0 };
    std::atomic<int> failed { 0 };
};

} // namespace

TEST_P(Delivery, textsArriveByteForByte)
{
    Client client(uri());
    client.open("delivery.texts");
    for (const std::string &text : interestingTexts()) {
        client.publish(text);
        EXPECT_EQ(client.receiveText(), text);
    }
}

TEST_P(Delivery, textOfTwentyMegabytesArrives)
{
    Client client(uri());
    client.open("delivery.large");
    const std::string text(20'000'000, 'z');
    client.publish(text);
    EXPECT_TRUE(client.receiveText() == text);
    client.publish("behind it");
    EXPECT_EQ(client.receiveText(), "behind it");
}

TEST_P(Delivery, frameAboveTheBrokersLimitIsRefusedHereAndTheConnectionStays)
{
    Client client(uri());
    client.open("delivery.toolarge");
    const std::string text(33 << 20, 'z');
    EXPECT_THAT(failureOf([&] { client.publish(text); }),
        HasSubstr("larger than the broker takes (33554432)"));
    client.producer->setDeliveryMode(cms::DeliveryMode::PERSISTENT);
    EXPECT_THAT(
        failureOf([&] { client.publish(text); }), HasSubstr("larger than the broker takes"));
    client.publish("small");
    EXPECT_EQ(client.receiveText(), "small");
}

TEST_P(Delivery, javaReadsWhatWeWriteAndWeReadWhatJavaWrites)
{
    Peer peer(uri());
    Client in(uri());
    in.open("delivery.from.peer");
    Client out(uri());
    out.open("delivery.to.peer");
    out.consumer.reset();
    for (const std::string &text : interestingTexts()) {
        out.publish(text);
        EXPECT_THAT(peer.order("echo"), testing::MatchesRegex("[0-9]+"));
        EXPECT_EQ(in.receiveText(), text);
    }
}

TEST_P(Delivery, javaTextsInEveryForm)
{
    Peer peer(uri());
    Client in(uri());
    in.open("delivery.from.peer");
    for (const char *compress : { "off", "on" }) {
        EXPECT_EQ(peer.order(std::string("compress ") + compress), "ok");
        EXPECT_EQ(peer.order("text 00410000D83DDE00"), "ok");
        EXPECT_EQ(in.receiveText(), "A\xc0\x80\xed\xa0\xbd\xed\xb8\x80");
        EXPECT_EQ(peer.order("text D83D0042FFFF"), "ok"); // half an emoji
        EXPECT_EQ(in.receiveText(),
            "\xed\xa0\xbd"
            "B\xef\xbf\xbf");
        EXPECT_EQ(peer.order("text"), "ok");
        EXPECT_EQ(in.receiveText(), "");
        EXPECT_EQ(peer.order("null"), "ok");
        EXPECT_EQ(in.receiveText(), "");
        EXPECT_EQ(peer.order("repeat 00e4 1000000"), "ok");
        EXPECT_TRUE(in.receiveText() == repeated("\xc3\xa4", 1000000));
    }
}

TEST_P(Delivery, javaBodiesOtherThanTextAreKeptApart)
{
    Peer peer(uri());
    Client in(uri());
    in.open("delivery.from.peer");
    for (const char *compress : { "off", "on" }) {
        peer.order(std::string("compress ") + compress);
        for (const char *order : { "bytes 209", "map", "stream", "object", "plain" })
            ASSERT_EQ(peer.order(order), "ok");
        std::unique_ptr<cms::Message> message(in.consumer->receive(20000));
        const auto *bytes = dynamic_cast<cms::BytesMessage *>(message.get());
        ASSERT_TRUE(bytes);
        ASSERT_EQ(bytes->getBodyLength(), 209);
        const std::unique_ptr<unsigned char[]> body(bytes->getBodyBytes());
        for (int i = 0; i < 209; ++i)
            ASSERT_EQ(body[static_cast<std::size_t>(i)], i);
        message.reset(in.consumer->receive(20000));
        EXPECT_TRUE(dynamic_cast<cms::MapMessage *>(message.get()));
        message.reset(in.consumer->receive(20000));
        EXPECT_TRUE(dynamic_cast<cms::StreamMessage *>(message.get()));
        message.reset(in.consumer->receive(20000));
        EXPECT_TRUE(dynamic_cast<cms::ObjectMessage *>(message.get()));
        message.reset(in.consumer->receive(20000));
        ASSERT_TRUE(message);
        EXPECT_FALSE(dynamic_cast<cms::TextMessage *>(message.get()));
    }
}

TEST_P(Delivery, javaPropertiesAndHeadersAreRead)
{
    Peer peer(uri());
    Client in(uri());
    in.open("delivery.from.peer");
    ASSERT_EQ(peer.order("properties"), "ok");
    const std::unique_ptr<cms::Message> message(in.consumer->receive(20000));
    ASSERT_TRUE(message);
    EXPECT_TRUE(message->getBooleanProperty("truth"));
    EXPECT_EQ(static_cast<signed char>(message->getByteProperty("byte")), -7);
    EXPECT_EQ(message->getShortProperty("short"), -300);
    EXPECT_EQ(message->getIntProperty("short"), -300);
    EXPECT_EQ(message->getIntProperty("int"), -70000);
    EXPECT_EQ(message->getLongProperty("long"), -(1ll << 40));
    EXPECT_EQ(message->getFloatProperty("float"), 1.5f);
    EXPECT_EQ(message->getDoubleProperty("float"), 1.5);
    EXPECT_EQ(message->getDoubleProperty("double"), -2.25);
    EXPECT_EQ(message->getStringProperty("text"),
        "Stra\xc3\x9f"
        "e");
    EXPECT_EQ(message->getStringProperty("int"), "-70000");
    EXPECT_EQ(message->getStringProperty("big"), std::string(9000, 'x'));
    EXPECT_THROW(message->getIntProperty("long"), cms::MessageFormatException);
    EXPECT_THROW(message->getStringProperty("missing"), cms::CMSException);
    EXPECT_EQ(message->getCMSCorrelationID(), "correlation");
    EXPECT_EQ(message->getCMSType(), "kind");
    EXPECT_THAT(message->getCMSMessageID(), HasSubstr("ID:"));
    const auto *topic = dynamic_cast<const cms::Topic *>(message->getCMSDestination());
    ASSERT_TRUE(topic);
    EXPECT_EQ(topic->getTopicName(), "delivery.from.peer");
}

TEST_P(Delivery, fiveThousandMessagesOfTheOtherLibraryArriveInOrder)
{
    Peer peer(uri());
    Client in(uri());
    Recorder recorder;
    in.open("delivery.from.peer");
    in.consumer->setMessageListener(&recorder);
    ASSERT_EQ(peer.order("count 5000"), "ok");
    ASSERT_TRUE(recorder.waitFor(5000));
    const std::vector<std::string> texts = recorder.texts();
    for (std::size_t i = 0; i < 5000; ++i)
        ASSERT_EQ(texts[i], std::to_string(i));
    in.consumer->setMessageListener(nullptr);
}

TEST_P(Delivery, twentyThousandMessagesArriveInOrderAndOnce)
{
    Client in(uri());
    Recorder recorder;
    in.open("delivery.order");
    in.consumer->setMessageListener(&recorder);
    Client out(uri());
    out.open("delivery.order.other");
    const std::unique_ptr<cms::MessageProducer> producer(
        out.session->createProducer(in.topic.get()));
    producer->setDeliveryMode(cms::DeliveryMode::NON_PERSISTENT);
    const std::unique_ptr<cms::TextMessage> message(out.session->createTextMessage());
    for (int i = 0; i < 20000; ++i) {
        message->setText(std::to_string(i));
        producer->send(message.get());
    }
    ASSERT_TRUE(recorder.waitFor(20000));
    const std::vector<std::string> texts = recorder.texts();
    ASSERT_EQ(texts.size(), 20000u);
    for (std::size_t i = 0; i < texts.size(); ++i)
        ASSERT_EQ(texts[i], std::to_string(i));
    in.consumer->setMessageListener(nullptr);
}

TEST_P(Delivery, messagesWaitForStart)
{
    Client client(uri());
    client.session.reset(client.connection->createSession());
    client.connection->stop();
    client.topic.reset(client.session->createTopic("delivery.start"));
    client.consumer.reset(client.session->createConsumer(client.topic.get()));
    client.producer.reset(client.session->createProducer(client.topic.get()));
    client.publish("early");
    EXPECT_EQ(client.consumer->receive(50), nullptr);
    client.connection->start();
    EXPECT_EQ(client.receiveText(), "early");
}

TEST_P(Delivery, sixtyFourReceiptsInFlightAreAllAnswered)
{
    Client client(uri());
    client.open("delivery.receipts");
    client.consumer.reset();
    Receipts receipts;
    const std::unique_ptr<cms::TextMessage> message(client.session->createTextMessage("receipt"));
    for (int i = 0; i < 64; ++i)
        client.producer->send(message.get(), &receipts);
    ASSERT_TRUE(receipts.waitFor(64));
    EXPECT_EQ(receipts.succeeded, 64);
}

TEST_P(Delivery, receiptsThatAreOutFailWhenTheConnectionCloses)
{
    Client client(uri());
    client.open("delivery.receipts.close");
    Receipts receipts;
    const std::unique_ptr<cms::TextMessage> message(client.session->createTextMessage("receipt"));
    for (int i = 0; i < 1000; ++i)
        client.producer->send(message.get(), &receipts);
    client.connection->close();
    EXPECT_EQ(
        receipts.succeeded + receipts.failed, 1000); // none is forgotten once close has returned
    EXPECT_NE(failureOf([&] { client.producer->send(message.get(), &receipts); }), "");
    EXPECT_EQ(receipts.succeeded + receipts.failed, 1000);
}

TEST_P(Delivery, callbackMaySendAndWait)
{
    struct Again : cms::AsyncCallback {
        void onSuccess() override
        {
            client->producer->setDeliveryMode(cms::DeliveryMode::PERSISTENT);
            failure = failureOf([this] { client->publish("from the callback"); });
            done.set();
        }
        void onException(const cms::CMSException &) override { done.set(); }
        Client *client = nullptr;
        std::string failure = "not called";
        Signal done;
    } again;
    Client client(uri());
    client.open("delivery.callback");
    again.client = &client;
    const std::unique_ptr<cms::TextMessage> message(client.session->createTextMessage("first"));
    client.producer->send(message.get(), &again);
    ASSERT_TRUE(again.done.wait());
    EXPECT_EQ(again.failure, "");
}

TEST_P(Delivery, sendWritesItsDecisionsIntoTheMessage)
{
    Client client(uri());
    client.open("delivery.headers");
    const std::unique_ptr<cms::TextMessage> message(client.session->createTextMessage("x"));
    message->setStringProperty("kvxTo", "anna@example.org;j\xc3\xb6rg@example.org");
    message->setIntProperty("number", 7);
    message->setIntProperty("number", 8);
    client.producer->send(message.get(), cms::DeliveryMode::NON_PERSISTENT, 7, 60000);
    const std::string firstId = message->getCMSMessageID();
    EXPECT_EQ(message->getCMSPriority(), 7);
    EXPECT_EQ(message->getCMSDeliveryMode(), cms::DeliveryMode::NON_PERSISTENT);
    EXPECT_EQ(message->getCMSExpiration() - message->getCMSTimestamp(), 60000);
    client.producer->send(message.get());
    EXPECT_NE(message->getCMSMessageID(), firstId);

    const std::unique_ptr<cms::Message> received(client.consumer->receive(20000));
    ASSERT_TRUE(received);
    EXPECT_EQ(received->getCMSMessageID(), firstId);
    EXPECT_EQ(received->getCMSPriority(), 7);
    EXPECT_EQ(received->getStringProperty("kvxTo"), "anna@example.org;j\xc3\xb6rg@example.org");
    EXPECT_EQ(received->getIntProperty("number"), 8);
    EXPECT_THROW(dynamic_cast<cms::TextMessage &>(*received).setText("y"),
        cms::MessageNotWriteableException);
    const std::unique_ptr<cms::Message> copy(received->clone());
    EXPECT_EQ(dynamic_cast<cms::TextMessage &>(*copy).getText(), "x");
}

TEST_P(Delivery, selectorsAndNoLocalFilter)
{
    Client client(uri());
    client.open("delivery.filter");
    const std::unique_ptr<cms::MessageConsumer> selecting(
        client.session->createConsumer(client.topic.get(), "number > 5"));
    const std::unique_ptr<cms::MessageConsumer> foreign(
        client.session->createConsumer(client.topic.get(), "", true));
    for (int number : { 1, 9 }) {
        const std::unique_ptr<cms::TextMessage> message(
            client.session->createTextMessage(std::to_string(number)));
        message->setIntProperty("number", number);
        client.producer->send(message.get());
    }
    const std::unique_ptr<cms::Message> selected(selecting->receive(20000));
    ASSERT_TRUE(selected);
    EXPECT_EQ(dynamic_cast<cms::TextMessage &>(*selected).getText(), "9");
    EXPECT_EQ(foreign->receiveNoWait(), nullptr);
    EXPECT_EQ(failureOf([&] { client.session->createConsumer(client.topic.get(), "number >"); }),
        "Couldn't create TopicSubscription");
    client.publish("and the connection still works");
    EXPECT_EQ(client.receiveText(), "1");
}

TEST_P(Delivery, destinationsAreChecked)
{
    Client client(uri());
    client.open("delivery.destinations");
    EXPECT_THROW(client.session->createConsumer(nullptr), cms::InvalidDestinationException);
    const std::unique_ptr<cms::MessageProducer> nameless(client.session->createProducer());
    const std::unique_ptr<cms::TextMessage> message(client.session->createTextMessage("x"));
    EXPECT_THROW(nameless->send(message.get()), cms::UnsupportedOperationException);
    EXPECT_THROW(nameless->send(nullptr, message.get()), cms::InvalidDestinationException);
    nameless->send(client.topic.get(), message.get());
    EXPECT_EQ(client.receiveText(), "x");
    const std::unique_ptr<cms::Topic> other(
        client.session->createTopic("delivery.destinations.other"));
    EXPECT_THROW(
        client.producer->send(other.get(), message.get()), cms::UnsupportedOperationException);
    const std::unique_ptr<cms::Queue> queue(client.session->createQueue("delivery.queue"));
    const std::unique_ptr<cms::MessageConsumer> queueConsumer(
        client.session->createConsumer(queue.get()));
    nameless->send(queue.get(), message.get());
    const std::unique_ptr<cms::Message> received(queueConsumer->receive(20000));
    ASSERT_TRUE(received);
    EXPECT_TRUE(received->getCMSDestination()->equals(*queue));
}

TEST_P(Delivery, receiveIsRefusedBesideAListener)
{
    Client client(uri());
    client.open("delivery.mixed");
    Recorder recorder;
    client.consumer->setMessageListener(&recorder);
    EXPECT_EQ(failureOf([&] { client.consumer->receive(1); }),
        "Cannot synchronously receive a message when a MessageListener is set");
    client.consumer->setMessageListener(nullptr);
}

TEST_P(Delivery, everyOlderVersionOfTheWireFormatWorks)
{
    for (int version = 1; version <= 12; ++version) {
        Client client(uri() + "?wireFormat.version=" + std::to_string(version));
        client.open("delivery.versions");
        client.producer->setDeliveryMode(cms::DeliveryMode::PERSISTENT);
        client.publish("version " + std::to_string(version));
        EXPECT_EQ(client.receiveText(), "version " + std::to_string(version));
        client.connection->close();
    }
}
