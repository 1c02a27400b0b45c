#include "GuardFixture.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <thread>

namespace kvx::test {

namespace {

constexpr int cutLimit = 5; // seconds from a session's end, as promised

bool holds(const std::vector<std::string> &texts, const std::string &text)
{
    for (const std::string &one : texts) {
        if (one.find(text) != std::string::npos)
            return true;
    }
    return false;
}

TEST_F(ServerGuard, AClientThatConnectsRightBehindItsLoginIsLetIn)
{
    for (int i = 0; i < 20; ++i) {
        const auto session = login(anna);
        EXPECT_EQ(refusal(broker.uri(), anna), "") << "round " << i;
        logout(*session, anna);
    }
}

TEST_F(ServerGuard, AClientIdWithoutSessionIsRefused)
{
    const auto session = login(anna);
    EXPECT_EQ(refusal(broker.uri(), ben), "kvx-broker-guard 1: no session of ben@example.com");
    EXPECT_NE(refusal(broker.uri(), "stranger"), "");
    EXPECT_EQ(refusal(broker.uri(), anna), "");
}

TEST_F(ServerGuard, AClientIdInOtherCaseIsNotTheUsers)
{
    const auto session = login("Anna@Example.COM");
    EXPECT_NE(refusal(broker.uri(), "Anna@Example.COM"), "");
    EXPECT_EQ(refusal(broker.uri(), anna), "") << "the e-mail as the login reply has it";
}

TEST_F(ServerGuard, ASecondConnectionOfAUserIsStillToldSo)
{
    const auto session = login(anna);
    const auto first = listen(anna);
    EXPECT_NE(refusal(broker.uri(), anna).find("already connected"), std::string::npos);
    announceToAll();
    EXPECT_TRUE(holds(first->awaitText(forAll), forAll));
}

TEST_F(ServerGuard, AForgedNotificationReachesNobodyThoughItsProducerIsAccepted)
{
    const auto annas = login(anna);
    const auto bens = login(ben);
    const auto forger = listen(anna);
    const auto listener = listen(ben);
    forger->publish("{\"forged\":1}");
    forger->publish("{\"forged\":2}", ben);
    announceToAll();
    for (BrokerClient *client : { forger.get(), listener.get() }) {
        const auto heard = client->awaitText(forAll);
        EXPECT_TRUE(holds(heard, forAll));
        EXPECT_FALSE(holds(heard, "forged"));
    }
}

TEST_F(ServerGuard, AFloodOfForgedMessagesSlowsNobody)
{
    const auto annas = login(anna);
    const auto bens = login(ben);
    const auto forger = listen(anna);
    const auto listener = listen(ben);
    int heard = 1;
    const auto median = [&] {
        std::vector<double> took;
        for (int i = 0; i < 5; ++i) {
            const auto begin = std::chrono::steady_clock::now();
            announceToAll();
            const std::string next = numbered(++heard);
            EXPECT_TRUE(holds(listener->awaitText(next), next));
            took.push_back(
                std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin)
                    .count());
        }
        std::sort(took.begin(), took.end());
        return took[took.size() / 2];
    };
    const double quiet = median();
    std::atomic<bool> stop { false };
    std::atomic<int> forged { 0 };
    const auto begin = std::chrono::steady_clock::now();
    std::thread flood([&] {
        while (!stop) {
            forger->post("{\"forged\":1}");
            // A thousand or more a second; without a pause it would be the processor that is slow.
            if (++forged % 10 == 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    });
    const double flooded = median();
    EXPECT_TRUE(eventually([&] { return forged > 3000; }, 60));
    const double rate
        = forged / std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    stop = true;
    flood.join();
    EXPECT_GE(rate, floodPerSecond);
    EXPECT_LE(flooded, besideAFlood(quiet));
    std::printf("%.0f forged a second; a real one takes %.1f ms without, %.1f ms beside them\n",
        rate, quiet, flooded);
    EXPECT_FALSE(holds(listener->awaitText(numbered(heard)), "forged"));
}

TEST_F(ServerGuard, OnlyWhoSeesAProjectHearsOfIt)
{
    const auto annas = login(anna);
    const auto bens = login(ben);
    const auto administrators = login(admin);
    const auto annaHears = listen(anna);
    const auto benHears = listen(ben);
    const auto administratorHears = listen(admin);
    newProject(*annas, anna, "School Nordring");
    rename(*annas, anna, "School Nordring", "School Nordring II");
    EXPECT_TRUE(holds(annaHears->awaitText("\"Rename\""), "\"New\""));
    EXPECT_TRUE(holds(administratorHears->awaitText("\"Rename\""), "\"New\"")) << "by role";
    announceToAll();
    const auto heard = benHears->awaitText(forAll);
    EXPECT_EQ(heard.size(), 1U);
    EXPECT_FALSE(holds(heard, "Nordring"));
}

TEST_F(ServerGuard, WhoGainsAndLosesAProjectHearsOfBoth)
{
    const auto annas = login(anna);
    const auto bens = login(ben);
    newProject(*annas, anna, "School Nordring");
    const auto benHears = listen(ben);
    permit(*annas, { anna, ben });
    EXPECT_TRUE(holds(benHears->awaitText("PermissionChanged"), "\"Email\":\"ben@example.com\""));
    permit(*annas, { anna });
    rename(*annas, anna, "School Nordring", "School Nordring II");
    announceToAll();
    const auto heard = benHears->awaitText(forAll);
    ASSERT_EQ(heard.size(), 3U) << "gained, lost, and nothing of what comes after";
    EXPECT_NE(heard[1].find("PermissionChanged"), std::string::npos);
    EXPECT_EQ(heard[1].find("ben@example.com"), std::string::npos);
}

TEST_F(ServerGuard, ARemovalIsHeardByWhoSawTheProject)
{
    const auto annas = login(anna);
    const auto bens = login(ben);
    newProject(*annas, anna, "School Nordring");
    permit(*annas, { anna, ben });
    const auto benHears = listen(ben);
    ask(*annas, anna, "removeproject",
        { { "ProjectGUID", "\"{4b1d0c52-7e61-4c1f-9f0a-2d7b8a3c5e10}\"" } });
    EXPECT_TRUE(holds(benHears->awaitText("\"Remove\""), "\"Remove\""));
}

TEST_F(ServerGuard, ALogoutCutsTheConnectionOff)
{
    const auto session = login(anna);
    const auto client = listen(anna);
    logout(*session, anna);
    EXPECT_TRUE(client->awaitCut(cutLimit));
    EXPECT_NE(refusal(broker.uri(), anna), "");
}

TEST_F(ServerGuard, AnAccountThatIsDisabledIsCutOff)
{
    const auto session = login(anna);
    const auto client = listen(anna);
    ASSERT_EQ(server.command({ "user", "disable", anna }).exitCode, 0);
    EXPECT_TRUE(client->awaitCut(cutLimit));
}

TEST_F(ServerGuard, TheConnectionStaysAsLongAsTheUserHasASession)
{
    const auto first = login(anna);
    const auto second = login(anna);
    const auto client = listen(anna);
    logout(*first, anna);
    const auto bens = login(ben);
    const auto other = listen(ben);
    logout(*bens, ben);
    EXPECT_TRUE(other->awaitCut(cutLimit)) << "so the first end has been heard long ago";
    EXPECT_FALSE(client->isCut());
    logout(*second, anna);
    EXPECT_TRUE(client->awaitCut(cutLimit));
}

TEST_F(ServerGuard, ALoginInPlaceOfAnotherKeepsTheConnection)
{
    auto session = login(anna);
    const auto client = listen(anna);
    const auto bens = login(ben);
    const auto other = listen(ben);
    logout(*bens, ben);
    logout(*session, anna);
    session = login(anna);
    EXPECT_TRUE(other->awaitCut(cutLimit));
    announceToAll();
    EXPECT_TRUE(holds(client->awaitText(forAll), forAll));
    EXPECT_FALSE(client->isCut());
}

TEST_F(ServerGuard, ClientsStayWhileTheServerIsAway)
{
    const auto annas = login(anna);
    const auto client = listen(anna);
    server.kill();
    EXPECT_EQ(refusal(broker.uri(), ben), "kvx-broker-guard 1: no session of ben@example.com");
    server.start();
    awaitGuard(server);
    announceToAll();
    EXPECT_TRUE(holds(client->awaitText(forAll), forAll)) << server.logText() << broker.logText();
    EXPECT_FALSE(client->isCut());
}

TEST_F(ServerGuard, ASessionThatEndedWhileTheServerWasAwayIsCutOffAfterwards)
{
    const auto annas = login(anna);
    const auto client = listen(anna);
    server.kill();
    ASSERT_EQ(server.command({ "user", "disable", anna }).exitCode, 0);
    server.start();
    awaitGuard(server);
    EXPECT_TRUE(client->awaitCut(cutLimit));
}

TEST_F(ServerGuard, AServerThatKeepsSilentLetsNobodyIn)
{
    const auto annas = login(anna);
    EXPECT_EQ(refusal(broker.uri(), anna), "");
    server.signal(SIGSTOP);
    EXPECT_TRUE(eventually([&] { return !refusal(broker.uri(), anna).empty(); }, 30))
        << broker.logText() << server.logText();
    server.signal(SIGCONT);
    EXPECT_TRUE(eventually([&] { return refusal(broker.uri(), anna).empty(); }, 30));
}

TEST_F(ServerGuard, ABrokerThatWasKilledLetsClientsInAgain)
{
    const auto annas = login(anna);
    for (int round = 0; round < 3; ++round) {
        const auto client = listen(anna);
        broker.kill();
        EXPECT_TRUE(client->awaitCut(20));
        announceToAll();
        broker.restart();
        const auto again = login(anna);
        // At once, though the server may not have found the broker yet.
        EXPECT_EQ(refusal(broker.uri(), anna), "");
    }
    awaitGuard(server);
    const auto client = listen(anna);
    announceToAll();
    EXPECT_TRUE(holds(client->awaitText(forAll), forAll));
}

TEST_F(ServerGuard, TheServersOwnConnectionCannotBeFoundOutFromItsMessages)
{
    const auto annas = login(anna);
    const auto client = listen(anna);
    announceToAll();
    announceToAll();
    client->awaitText(numbered(3));
    EXPECT_EQ(
        client->messageIds(), (std::vector<std::string> { "ID:kvx:0:0:1:4", "ID:kvx:0:0:1:5" }));
}

TEST_F(ServerGuard, AServerWithAWrongPasswordIsRefused)
{
    ServerProcess other(withAccount({ { "broker.password", "wrong" } }));
    EXPECT_TRUE(eventually([&] {
        return other.logText().find("User name [kvx-server] or password is invalid.")
            != std::string::npos;
    })) << other.logText();
    HttpClient health(other.adminUrl());
    EXPECT_NE(health.get("/readyz").body.find("guard: away"), std::string::npos);
}

TEST_F(ServerGuard, AServerWithoutAccountIsNobody)
{
    ServerProcess::Options options;
    options.brokerUrl = broker.uri();
    ServerProcess other(options);
    EXPECT_TRUE(eventually([&] {
        return other.logText().find("kvx-broker-guard 1: no session of") != std::string::npos;
    })) << other.logText();
}

TEST_F(ServerGuard, ABrokerBeyondThisMachineIsPublishedToWhenItIsGuarded)
{
    server.stop();
    server.set("broker.url", "tcp://0.0.0.0:" + std::to_string(broker.port()));
    server.start();
    awaitGuard(server);
    const auto annas = login(anna);
    const auto client = listen(anna);
    announceToAll();
    EXPECT_TRUE(holds(client->awaitText(forAll), forAll));
}

class ServerGuardIdle : public ServerGuard {
protected:
    ServerGuardIdle()
        : ServerGuard({ { "session.idle", "2s" }, { "session.presence", "1s" } })
    {
    }
};

TEST_F(ServerGuardIdle, ASessionThatRunsOutCutsTheConnectionOff)
{
    const auto session = login(anna);
    const auto client = listen(anna);
    EXPECT_TRUE(client->awaitCut(2 + cutLimit));
}

class ServerGuardAddress : public ServerGuard {
protected:
    ServerGuardAddress()
        : ServerGuard({ { "broker.guard", "address" }, { "trusted.proxies", "127.0.0.1" } })
    {
    }
};

TEST_F(ServerGuardAddress, OnlyTheAddressOfTheLoginIsLetIn)
{
    const auto elsewhere = login(anna, { "X-Forwarded-For: 10.0.0.1" });
    EXPECT_NE(refusal(broker.uri(), anna), "");
    const auto here = login(anna);
    const auto client = listen(anna);
    logout(*here, anna);
    EXPECT_TRUE(client->awaitCut(cutLimit)) << "the session left is another machine's";
}

class ServerGuardOff : public ServerGuard {
protected:
    ServerGuardOff()
        : ServerGuard({ { "broker.guard", "off" } })
    {
    }
};

TEST_F(ServerGuardOff, EverybodyMayListenButOnlyTheServerIsHeard)
{
    const auto annas = login(anna);
    const auto stranger = listen("stranger");
    stranger->publish("{\"forged\":1}");
    newProject(*annas, anna, "School Nordring");
    announceToAll();
    const auto heard = stranger->awaitText(forAll);
    ASSERT_EQ(heard.size(), 1U);
    EXPECT_NE(heard[0].find(forAll), std::string::npos);
}

} // namespace

} // namespace kvx::test
