#include "support/Broker.h"
#include "support/HttpClient.h"
#include "support/ServerProcess.h"

#include <activemq/library/ActiveMQCPP.h>
#include <chrono>
#include <cms/Connection.h>
#include <cms/ConnectionFactory.h>
#include <cms/MessageConsumer.h>
#include <cms/MessageListener.h>
#include <cms/Session.h>
#include <condition_variable>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <rapidjson/document.h>
#include <set>

using kvx::test::Broker;
using kvx::test::HttpClient;
using kvx::test::ServerProcess;

namespace {

struct Library {
    Library() { activemq::library::ActiveMQCPP::initializeLibrary(); }
};

/// A subscriber of the topic that keeps what it hears.
class Listener : public cms::MessageListener {
public:
    explicit Listener(const std::string &url)
    {
        static const Library library;
        m_factory.reset(cms::ConnectionFactory::createCMSConnectionFactory(url));
        m_connection.reset(m_factory->createConnection());
        m_session.reset(m_connection->createSession(cms::Session::AUTO_ACKNOWLEDGE));
        const std::unique_ptr<cms::Topic> topic(m_session->createTopic("com.orvane.kvx"));
        m_consumer.reset(m_session->createConsumer(topic.get()));
        m_consumer->setMessageListener(this);
        m_connection->start();
    }
    ~Listener() override
    {
        try {
            m_connection->close();
        } catch (const cms::CMSException &) {
        }
    }

    void onMessage(const cms::Message *message) override
    {
        const auto *text = dynamic_cast<const cms::TextMessage *>(message);
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_texts.push_back(text ? text->getText() : "not a text");
        m_changed.notify_all();
    }

    /// The messages heard so far, once there are `count`.
    std::vector<std::string> await(std::size_t count, int seconds = 20)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait_for(lock, std::chrono::seconds(seconds), [&] { return m_texts.size() >= count; });
        return m_texts;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_texts;
    std::unique_ptr<cms::ConnectionFactory> m_factory;
    std::unique_ptr<cms::Connection> m_connection;
    std::unique_ptr<cms::Session> m_session;
    std::unique_ptr<cms::MessageConsumer> m_consumer;
};

ServerProcess::Options withBroker(const Broker &broker)
{
    ServerProcess::Options options;
    options.brokerUrl = broker.uri();
    return options;
}

void awaitBroker(const ServerProcess &server)
{
    HttpClient health(server.adminUrl());
    for (int i = 0; i < 2000; ++i) {
        if (health.get("/readyz").body.find("broker: ok") != std::string::npos)
            return;
    }
    FAIL() << "the server does not reach the broker";
}

void toggleRole(const ServerProcess &server, bool assign)
{
    ASSERT_EQ(server.command({ "role", assign ? "assign" : "unassign", "Reviewer", "admin@localhost" }).exitCode, 0);
}

std::int64_t number(const std::string &text)
{
    rapidjson::Document message;
    message.Parse(text.c_str());
    return message.IsObject() && message.HasMember("notifymsg_seq") ? message["notifymsg_seq"].GetInt64() : -1;
}

TEST(ServerNotifications, ACommandsAnnouncementReachesEverybody)
{
    Broker broker;
    ServerProcess server(withBroker(broker));
    Listener listener(broker.uri());
    awaitBroker(server);
    toggleRole(server, true);
    const auto heard = listener.await(1);
    ASSERT_EQ(heard.size(), 1U);
    EXPECT_EQ(heard[0],
        R"({"notifymsg_type":"notifymsg_role","notifymsg_from":"","notifymsg_to":"","notifymsg_seq":1,)"
        R"("Command":"Update","notifymsg_content":{"Command":"Update","Users":["admin@localhost"]}})");
}

TEST(ServerNotifications, ABrokerThatIsAwayDelaysThemAndLosesNone)
{
    Broker broker;
    ServerProcess server(withBroker(broker));
    awaitBroker(server);
    broker.kill();
    for (int i = 0; i < 4; ++i)
        toggleRole(server, i % 2 == 0);
    HttpClient client(server.url());
    EXPECT_EQ(client.login(server.adminEmail(), server.adminPassword()).statusCode(), 1) << "HTTP work goes on";
    broker.restart();
    Listener listener(broker.uri());
    const auto heard = listener.await(4);
    std::set<std::int64_t> numbers;
    for (const std::string &text : heard)
        numbers.insert(number(text));
    EXPECT_EQ(numbers, (std::set<std::int64_t> { 1, 2, 3, 4 }));
}

TEST(ServerNotifications, EveryCommitIsHeardThoughTheBrokerIsKilledAgainAndAgain)
{
    Broker broker;
    ServerProcess server(withBroker(broker));
    std::set<std::int64_t> numbers;
    int announced = 0;
    for (int round = 0; round < 3; ++round) {
        {
            Listener listener(broker.uri());
            awaitBroker(server);
            for (int i = 0; i < 4; ++i)
                toggleRole(server, announced++ % 2 == 0);
            for (const std::string &text : listener.await(4))
                numbers.insert(number(text));
        }
        broker.kill();
        toggleRole(server, announced++ % 2 == 0);
        broker.restart();
        Listener after(broker.uri());
        for (const std::string &text : after.await(1))
            numbers.insert(number(text));
    }
    // Nobody listened between the broker's start and the listener's: one message of each round may
    // have gone by, but every one was given to the broker.
    EXPECT_GE(numbers.size(), 12U);
    EXPECT_LE(*numbers.rbegin(), announced);
}

TEST(ServerNotifications, AServerKilledBeforeItCouldSendSendsAfterwards)
{
    Broker broker;
    ServerProcess server(withBroker(broker));
    awaitBroker(server);
    broker.kill();
    toggleRole(server, true);
    server.kill();
    broker.restart();
    Listener listener(broker.uri());
    server.start();
    const auto heard = listener.await(1);
    ASSERT_GE(heard.size(), 1U);
    EXPECT_EQ(number(heard[0]), 1);
}

TEST(ServerNotifications, NumbersGoOnAfterARestart)
{
    Broker broker;
    ServerProcess server(withBroker(broker));
    Listener listener(broker.uri());
    awaitBroker(server);
    toggleRole(server, true);
    listener.await(1);
    EXPECT_EQ(server.stop(), 0);
    server.start();
    toggleRole(server, false);
    const auto heard = listener.await(2);
    ASSERT_GE(heard.size(), 2U);
    EXPECT_EQ(number(heard.back()), 2);
}

TEST(ServerNotifications, AFrozenBrokerDoesNotHoldUpTheServersEnd)
{
    Broker broker;
    ServerProcess server(withBroker(broker));
    awaitBroker(server);
    broker.freeze();
    toggleRole(server, true);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(server.stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(15));
    broker.thaw();
    Listener listener(broker.uri());
    server.start();
    EXPECT_GE(listener.await(1).size(), 1U) << "and nothing is lost";
}

TEST(ServerNotifications, AReachableBrokerWithoutGuardGetsNothing)
{
    ServerProcess::Options options;
    options.brokerUrl = "tcp://192.0.2.1:61616";
    ServerProcess server(options);
    EXPECT_NE(server.logText().find("nothing is published"), std::string::npos);
    HttpClient health(server.adminUrl());
    EXPECT_NE(health.get("/readyz").body.find("publisher: off"), std::string::npos);
}

} // namespace
