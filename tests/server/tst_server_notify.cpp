#include "support/Broker.h"
#include "support/HttpClient.h"
#include "support/ServerProcess.h"
#include "support/TopicListener.h"
#include "support/Watchdog.h"

#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <memory>
#include <rapidjson/document.h>
#include <set>

using kvx::test::Broker;
using kvx::test::HttpClient;
using kvx::test::ServerProcess;
using kvx::test::TopicListener;

namespace {

ServerProcess::Options withBroker(const Broker &broker)
{
    ServerProcess::Options options;
    options.brokerUrl = broker.uri();
    return options;
}

void awaitBroker(const ServerProcess &server)
{
    HttpClient health(server.adminUrl());
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < end) {
        if (health.get("/readyz").body.find("broker: ok") != std::string::npos)
            return;
    }
    FAIL() << "the server does not reach the broker";
}

void toggleRole(const ServerProcess &server, bool assign)
{
    ASSERT_EQ(
        server.command({ "role", assign ? "assign" : "unassign", "Reviewer", "admin@localhost" })
            .exitCode,
        0);
}

std::int64_t number(const std::string &text)
{
    rapidjson::Document message;
    message.Parse(text.c_str());
    return message.IsObject() && message.HasMember("notifymsg_seq")
        ? message["notifymsg_seq"].GetInt64()
        : -1;
}

void awaitNumber(TopicListener &listener, std::int64_t last)
{
    // A broker that has just started may keep the server waiting for a login, which gives it 15 s.
    listener.awaitText("\"notifymsg_seq\":" + std::to_string(last) + ",", 60);
}

/// Starts the broker again with a listener on it before the server can send anything.
std::unique_ptr<TopicListener> restartUnseen(Broker &broker, ServerProcess &server)
{
    server.signal(SIGSTOP);
    broker.restart();
    auto listener = std::make_unique<TopicListener>(broker.uri());
    server.signal(SIGCONT);
    return listener;
}

TEST(ServerNotifications, ACommandsAnnouncementReachesEverybody)
{
    Broker broker;
    ServerProcess server(withBroker(broker));
    TopicListener listener(broker.uri());
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
    EXPECT_EQ(client.login(server.adminEmail(), server.adminPassword()).statusCode(), 1)
        << "HTTP work goes on";
    const auto listenerOwner = restartUnseen(broker, server);
    const auto heard = listenerOwner->await(4);
    std::set<std::int64_t> numbers;
    for (const std::string &text : heard)
        numbers.insert(number(text));
    EXPECT_EQ(numbers, (std::set<std::int64_t> { 1, 2, 3, 4 }));
}

TEST(ServerNotifications, EveryCommitIsHeardThoughTheBrokerIsKilledAgainAndAgain)
{
    kvx::test::Watchdog::allow(500); // a broker starts again and again, each time slowly under load
    Broker broker;
    ServerProcess server(withBroker(broker));
    auto listener = std::make_unique<TopicListener>(broker.uri());
    std::set<std::int64_t> numbers;
    std::set<std::int64_t> expected;
    const auto announce = [&] {
        toggleRole(server, expected.size() % 2 == 0);
        expected.insert(static_cast<std::int64_t>(expected.size()) + 1);
    };
    for (int round = 0; round < 3; ++round) {
        awaitBroker(server);
        for (int i = 0; i < 4; ++i)
            announce();
        // A message that the broker has confirmed dies with it where a listener has not got it yet:
        // the topic is not durable. What is announced while the broker is away must not be lost.
        awaitNumber(*listener, static_cast<std::int64_t>(expected.size()));
        for (const std::string &text : listener->await(0))
            numbers.insert(number(text));
        broker.kill();
        announce();
        listener = restartUnseen(broker, server);
        awaitNumber(*listener, static_cast<std::int64_t>(expected.size()));
        for (const std::string &text : listener->await(0))
            numbers.insert(number(text));
    }
    EXPECT_EQ(numbers, expected) << server.logText();
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
    TopicListener listener(broker.uri());
    server.start();
    const auto heard = listener.await(1);
    ASSERT_GE(heard.size(), 1U);
    EXPECT_EQ(number(heard[0]), 1);
}

TEST(ServerNotifications, NumbersGoOnAfterARestart)
{
    Broker broker;
    ServerProcess server(withBroker(broker));
    TopicListener listener(broker.uri());
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
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
    broker.thaw();
    TopicListener listener(broker.uri());
    server.start();
    EXPECT_GE(listener.await(1).size(), 1U) << "and nothing is lost: " << server.logText();
}

TEST(ServerNotifications, ABrokerBeyondThisMachineWithoutGuardGetsNothing)
{
    Broker broker;
    ServerProcess::Options options;
    // Every address of this machine: the server cannot tell who else reaches it.
    options.brokerUrl = "tcp://0.0.0.0:" + std::to_string(broker.port());
    ServerProcess server(options);
    TopicListener listener(broker.uri());
    HttpClient health(server.adminUrl());
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (health.get("/readyz").body.find("publisher: off") == std::string::npos)
        ASSERT_LT(std::chrono::steady_clock::now(), end) << server.logText();
    const std::string line = " error nothing is published: the broker can be reached from other "
                             "machines and has no guard; broker.guard=off accepts that url=";
    EXPECT_NE(server.logText().find(line), std::string::npos) << server.logText();
    EXPECT_NE(health.get("/readyz").body.find("guard: none"), std::string::npos);
    toggleRole(server, true);

    EXPECT_EQ(server.stop(), 0);
    EXPECT_TRUE(listener.await(0).empty());
    server.set("broker.guard", "off");
    server.start();
    EXPECT_EQ(listener.await(1).size(), 1U) << "it waited for somebody to accept that";
}

} // namespace
