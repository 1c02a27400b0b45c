#include "Commands.h"
#include "base/Config.h"
#include "notify/Publisher.h"
#include "openwire/FakeBroker.h"
#include "store/Db.h"
#include "store/DbPool.h"
#include "store/Migrations.h"
#include "support/Broker.h"
#include "support/TopicListener.h"

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>

using namespace kvx::server;
using kvx::test::Broker;
using kvx::test::TopicListener;

namespace {

constexpr char projectType[] = "notifymsg_projectlist";

/// The publisher over a real database and a real broker, without the rest of the server.
class ServerPublisher : public testing::Test {
protected:
    ServerPublisher()
    {
        const char *base = std::getenv("TMPDIR");
        std::string pattern
            = std::string(base && *base ? base : P_tmpdir) + "/kvx-publisher-XXXXXX";
        folder = mkdtemp(pattern.data());
        config.brokerUrl = broker.uri();
        db = std::make_unique<Db>(folder + "/x.sqlite", Db::Mode::Create);
        migrate(*db, 1);
        db->run("INSERT INTO users (id, email, name, password, created) VALUES (1, 'a@b', 'A', "
                "'x', 0)");
        for (const char *id : { "1", "2" })
            db->run("INSERT INTO project (id, guid, guid_key, name, name_key, kind, creator_id, "
                    "created, editor_id, modified) "
                    "VALUES (:id, :guid, :key, 'n', 'n', 'Tender', 1, 0, 1, 0)",
                { { "id", std::atoi(id) }, { "guid", id }, { "key", id } });
        pool = std::make_unique<DbPool>(folder + "/x.sqlite", 1);
    }
    ~ServerPublisher() override
    {
        publisher.reset();
        pool.reset();
        db.reset();
        std::filesystem::remove_all(folder);
    }

    void start()
    {
        publisher = std::make_unique<Publisher>(config, clock, *pool,
            [](Db &, Time, std::int64_t project,
                const std::string &command) -> std::optional<std::string> {
                if (project == 2)
                    return std::nullopt; // removed meanwhile
                const std::string record = "{\"ProjectGUID\":\"" + std::to_string(project) + "\"}";
                return command.empty() ? record
                                       : "{\"Command\":\"" + command + "\"," + record.substr(1);
            });
    }
    void announce(
        const std::string &command, std::int64_t project, Time at, const std::string &content = {})
    {
        Transaction transaction(*db, Transaction::Kind::Write);
        addAnnouncement(*db, at, { projectType, command, content, project, {}, "a@b" });
        transaction.commit();
        if (publisher)
            publisher->wake();
    }
    static std::string message(int number, const std::string &command, const std::string &content)
    {
        return "{\"notifymsg_type\":\"notifymsg_projectlist\",\"notifymsg_from\":\"a@b\","
               "\"notifymsg_to\":\"\","
               "\"notifymsg_seq\":"
            + std::to_string(number) + ",\"Command\":\"" + command
            + "\",\"notifymsg_content\":" + content + '}';
    }
    bool awaitAllMarked()
    {
        for (int i = 0; i < 2000; ++i) {
            if (unsentRows(*db, 0, 1).empty())
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return false;
    }
    /// Serves the publisher, and hands every text that it sends to `answer`.
    static void serve(kvx::test::FakePeer &peer,
        const std::function<void(const kvx::test::FakePeer::Frame &)> &answer)
    {
        using namespace kvx::openwire;
        for (peer.offer();;) {
            const auto frame = peer.frame();
            if (frame.type == -1)
                return;
            if (frame.type == TextMessageType)
                answer(frame);
            else if (frame.type != WireFormatInfoType)
                peer.answer(frame.commandId);
        }
    }
    void awaitConnected()
    {
        for (int i = 0; i < 4000 && !publisher->isConnected(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        ASSERT_TRUE(publisher->isConnected());
    }

    Broker broker;
    std::string folder;
    Config config;
    Clock clock;
    std::unique_ptr<Db> db;
    std::unique_ptr<DbPool> pool;
    std::unique_ptr<Publisher> publisher;
};

TEST_F(ServerPublisher, ANewThatIsSentAtOnceGoesOutAsNew)
{
    TopicListener listener(broker.uri());
    start();
    awaitConnected();
    announce("New", 1, clock.now());
    const auto heard = listener.await(1);
    ASSERT_EQ(heard.size(), 1U);
    EXPECT_EQ(heard[0], message(1, "New", R"({"Command":"New","ProjectGUID":"1"})"));
    EXPECT_TRUE(awaitAllMarked());
}

TEST_F(ServerPublisher, ALateNewGoesOutAsPermissionChanged)
{
    TopicListener listener(broker.uri());
    start();
    awaitConnected();
    announce("New", 1, clock.now() - 5001);
    const auto heard = listener.await(1);
    ASSERT_EQ(heard.size(), 1U);
    EXPECT_EQ(heard[0], message(1, "PermissionChanged", R"([{"ProjectGUID":"1"}])"));
}

TEST_F(ServerPublisher, ANewThatAnEarlierRunMayHaveSentGoesOutAsPermissionChanged)
{
    TopicListener listener(broker.uri());
    announce("New", 1, clock.now());
    start();
    const auto heard = listener.await(1);
    ASSERT_EQ(heard.size(), 1U);
    EXPECT_EQ(heard[0], message(1, "PermissionChanged", R"([{"ProjectGUID":"1"}])"));
}

TEST_F(ServerPublisher, ANewOfARemovedProjectIsSkippedAndTakesNoNumber)
{
    TopicListener listener(broker.uri());
    start();
    awaitConnected();
    announce("New", 2, clock.now());
    announce("Save", 1, clock.now(), R"({"Command":"Save"})");
    const auto heard = listener.await(1);
    ASSERT_EQ(heard.size(), 1U);
    EXPECT_EQ(heard[0], message(1, "Save", R"({"Command":"Save"})"));
    EXPECT_TRUE(awaitAllMarked());
    EXPECT_EQ(db->value<int>("SELECT count(*) FROM outbox WHERE sent_seq IS NULL"), 1);
}

TEST_F(ServerPublisher, AProjectsMessagesKeepTheOrderOfTheirCommits)
{
    TopicListener listener(broker.uri());
    start();
    for (int i = 0; i < 300; ++i)
        announce("Save", 1, clock.now(), "{\"n\":" + std::to_string(i) + "}");
    const auto heard = listener.await(300);
    ASSERT_EQ(heard.size(), 300U);
    for (int i = 0; i < 300; ++i)
        EXPECT_EQ(heard[static_cast<std::size_t>(i)],
            message(i + 1, "Save", "{\"n\":" + std::to_string(i) + "}"));
    EXPECT_TRUE(awaitAllMarked());
}

TEST_F(ServerPublisher, ALongPermissionArrayIsSplitIntoNumberedMessages)
{
    TopicListener listener(broker.uri());
    start();
    awaitConnected();
    const std::string record = "{\"a\":\"" + std::string(600'000, 'x') + "\"}";
    announce("PermissionChanged", 1, clock.now(), "[" + record + "," + record + "," + record + "]");
    announce("Save", 1, clock.now(), "{}");
    const auto heard = listener.await(4);
    ASSERT_EQ(heard.size(), 4U);
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(heard[static_cast<std::size_t>(i)]
            == message(i + 1, "PermissionChanged", "[" + record + "]"));
    EXPECT_EQ(heard[3], message(4, "Save", "{}"));
}

TEST_F(ServerPublisher, TextBeyondTheBasicPlaneArrivesAsJavaWritesIt)
{
    TopicListener listener(broker.uri());
    start();
    announce("Save", 1, clock.now(), "{\"a\":\"\xF0\x9F\x98\x80\"}");
    const auto heard = listener.await(1);
    ASSERT_EQ(heard.size(), 1U);
    EXPECT_EQ(heard[0], message(1, "Save", "{\"a\":\"\xED\xA0\xBD\xED\xB8\x80\"}"));
}

/// What is published without its audience is heard by everybody behind a guard.
TEST_F(ServerPublisher, ABrokerThatDoesNotSayWhetherItHasAGuardGetsNothing)
{
    std::atomic<int> hellos { 0 };
    std::atomic<int> others { 0 };
    kvx::test::FakeBroker silent([&](kvx::test::FakePeer &peer) {
        serve(peer, [&](const kvx::test::FakePeer::Frame &frame) {
            ++(frame.bytes.find("hello") == std::string::npos ? others : hellos);
        });
    });
    config.brokerUrl = silent.uri("?connection.sendTimeout=300");
    announce("Save", 1, clock.now(), "{}");
    start();
    for (int i = 0; i < 4000 && hellos < 3; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_GE(hellos, 3) << "it is asked again";
    EXPECT_EQ(others, 0);
    EXPECT_FALSE(publisher->isConnected());
}

TEST_F(ServerPublisher, ABrokerWhoseOwnRulesForbidTheQuestionHasNoGuard)
{
    using kvx::test::fromHex;
    std::atomic<int> others { 0 };
    kvx::test::FakeBroker strict([&](kvx::test::FakePeer &peer) {
        serve(peer, [&](const kvx::test::FakePeer::Frame &frame) {
            if (frame.bytes.find("hello") == std::string::npos) {
                ++others;
                peer.answer(frame.commandId);
                return;
            }
            peer.send(kvx::test::framed(fromHex("1f 00000000 00") + frame.bytes.substr(1, 4)
                + fromHex("01 01 001b") + "java.lang.SecurityException" + fromHex("01 0002 6e6f")));
        });
    });
    config.brokerUrl = strict.uri();
    announce("Save", 1, clock.now(), "{}");
    start();
    EXPECT_TRUE(awaitAllMarked());
    EXPECT_EQ(others, 1);
}

TEST_F(ServerPublisher, ABrokerThatComesBackGetsEverythingInOrder)
{
    start();
    awaitConnected();
    broker.kill();
    for (int i = 0; i < 100; ++i)
        announce("Save", 1, clock.now(), "{\"n\":" + std::to_string(i) + "}");
    broker.restart();
    TopicListener listener(broker.uri());
    ASSERT_TRUE(awaitAllMarked());
    announce("Save", 1, clock.now(), R"({"n":"last"})");
    const auto heard = listener.awaitText("\"last\"");
    ASSERT_FALSE(heard.empty());
    EXPECT_EQ(heard.back(), message(101, "Save", R"({"n":"last"})")) << "numbers without gaps";
}

} // namespace
