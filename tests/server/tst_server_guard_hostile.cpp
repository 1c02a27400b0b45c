#include "GuardFixture.h"
#include "RawPeer.h"

namespace kvx::test {

namespace {

constexpr char topic[] = "com.orvane.kvx";
constexpr char notAllowed[] = "kvx-broker-guard 1: ";

/// Ben has a session and speaks to the broker by hand; what the server sends is for Anna's project
/// or for everybody.
class ServerGuardHostile : public ServerGuard {
protected:
    ServerGuardHostile() { EXPECT_EQ(peer.connect(ben), ""); }

    static bool isRefused(const std::string &words) { return words.rfind(notAllowed, 0) == 0; }

    /// What the server has published is at the broker, and with whoever may have it.
    void publish()
    {
        newProject(*annas, anna, "School Nordring");
        announceToAll();
        EXPECT_EQ(annaHears->awaitText(forAll).size(), 2U);
    }

    std::unique_ptr<HttpClient> annas = login(anna);
    std::unique_ptr<HttpClient> bens = login(ben);
    std::unique_ptr<BrokerClient> annaHears = listen(anna);
    RawPeer peer { broker.port() };
};

TEST_F(ServerGuardHostile, APlainSubscriptionByHandIsServedAsAnyOther)
{
    EXPECT_EQ(peer.consume({ RawPeer::Topic, topic }), "");
    publish();
    EXPECT_EQ(peer.dispatched(500), 1) << "what is for everybody";
}

TEST_F(ServerGuardHostile, EverythingButTheTopicOfNotificationsIsRefused)
{
    const std::pair<RawPeer::Kind, const char *> wanted[]
        = { { RawPeer::Topic, ">" }, { RawPeer::Topic, "*" }, { RawPeer::Topic, "com.orvane.>" },
              { RawPeer::Topic, "com.orvane.*" }, { RawPeer::Topic, "com.orvane.kvx.>" },
              { RawPeer::Topic, "com.orvane.kvx.guard" }, { RawPeer::Topic, "com.orvane.kvx,a" },
              { RawPeer::Topic, "a,com.orvane.kvx" }, { RawPeer::Topic, "ActiveMQ.Advisory.>" },
              { RawPeer::Topic, "ActiveMQ.Advisory.Connection" }, { RawPeer::Queue, topic },
              { RawPeer::Queue, ">" }, { RawPeer::Queue, "ActiveMQ.DLQ" },
              { RawPeer::Queue, "topic://com.orvane.kvx" }, { RawPeer::TemporaryTopic, topic },
              { RawPeer::TemporaryQueue, topic } };
    for (const auto &[kind, name] : wanted)
        EXPECT_TRUE(isRefused(peer.consume({ kind, name }))) << int(kind) << ' ' << name;
    publish();
    EXPECT_EQ(peer.dispatched(500), 0);
}

TEST_F(ServerGuardHostile, OnlyPlainSubscriptionsAreServed)
{
    RawPeer::Wanted durable { RawPeer::Topic, topic };
    durable.subscription = "ben";
    RawPeer::Wanted browser { RawPeer::Topic, topic };
    browser.browser = true;
    RawPeer::Wanted network { RawPeer::Topic, topic };
    network.network = true;
    RawPeer::Wanted selective { RawPeer::Topic, topic };
    selective.selector = "kvxTo IS NOT NULL";
    for (const RawPeer::Wanted &wanted : { durable, browser, network, selective })
        EXPECT_TRUE(isRefused(peer.consume(wanted)));
    publish();
    EXPECT_EQ(peer.dispatched(500), 0);
}

TEST_F(ServerGuardHostile, WhatClientLibrariesListenToBesidesIsSilent)
{
    EXPECT_EQ(
        peer.consume({ RawPeer::Topic, "ActiveMQ.Advisory.TempQueue,ActiveMQ.Advisory.TempTopic" }),
        "");
    publish();
    EXPECT_EQ(peer.dispatched(500), 0);
}

TEST_F(ServerGuardHostile, ProducersAreForTheTopicOrForAnyDestination)
{
    EXPECT_EQ(peer.produce(RawPeer::Topic, topic), "");
    EXPECT_TRUE(isRefused(peer.produce(RawPeer::Topic, "com.orvane.kvx.guard")));
    EXPECT_TRUE(isRefused(peer.produce(RawPeer::Queue, "a")));
    EXPECT_EQ(peer.produce(RawPeer::Topic, ""), "");
    EXPECT_EQ(peer.send(RawPeer::Topic, "com.orvane.kvx.guard", "sessions off\n"), "")
        << "accepted, and dropped like everything that is not the server's";
    EXPECT_NE(refusal(broker.uri(), "stranger"), "");
    EXPECT_EQ(peer.send(RawPeer::Topic, topic, "{\"forged\":1}"), "");
    publish();
}

TEST_F(ServerGuardHostile, DestinationsAreTheServersMatter)
{
    EXPECT_TRUE(isRefused(peer.addDestination(RawPeer::TemporaryQueue, "raw:1")));
    EXPECT_TRUE(isRefused(peer.addDestination(RawPeer::TemporaryTopic, "raw:2")));
    EXPECT_TRUE(isRefused(peer.addDestination(RawPeer::Queue, "a")));
    EXPECT_TRUE(isRefused(peer.removeDestination(RawPeer::Topic, topic)));
    publish();
}

TEST_F(ServerGuardHostile, AnAccountIsAskedForItsPassword)
{
    for (const char *wrong : { "", "wrong" }) {
        RawPeer other(broker.port());
        EXPECT_EQ(other.connect("x", Broker::guardedServer.name, wrong),
            "User name [kvx-server] or password is invalid.");
    }
    RawPeer unknown(broker.port());
    EXPECT_NE(unknown.connect(ben, "somebody", "x"), "");
}

TEST_F(ServerGuardHostile, NobodyIsLetInWithoutClientId)
{
    RawPeer other(broker.port());
    EXPECT_TRUE(isRefused(other.connect("")));
    RawPeer anonymous(broker.port());
    EXPECT_TRUE(isRefused(anonymous.connect("anonymous")));
}

TEST_F(ServerGuardHostile, AClientThatReadsNothingHoldsNobodyUp)
{
    // Asked to be served on the thread that serves the server, and then standing still.
    RawPeer::Wanted stalled { RawPeer::Topic, topic };
    stalled.dispatchAsync = false;
    EXPECT_EQ(peer.consume(stalled), "");
    newProject(*annas, anna, "School Nordring");
    permit(*annas, { anna, ben });
    const std::string info(200'000, 'x');
    for (int i = 0; i < 60; ++i)
        ask(*annas, anna, "updateprojectadditionalinfo",
            { { "ProjectGUID", "\"{4b1d0c52-7e61-4c1f-9f0a-2d7b8a3c5e10}\"" },
                { "AdditionalInfo", "{\"a\":" + jsonQuoted(info) + "}" } });
    announceToAll();
    const auto heard = annaHears->awaitText(forAll, 60);
    EXPECT_EQ(heard.size(), 63U);
}

} // namespace

} // namespace kvx::test
