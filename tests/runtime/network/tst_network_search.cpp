#include "NetworkTest.h"

#include <sys/socket.h>

namespace kvx::test {

namespace {

const char ServerAnswer[]
    = R"({"statuscode":1,"product":"kvx-server","name":"Kalkulation\n Nord","api":["1","2"]})";
const char ServerPath[] = "/kvx/v2/api/server";

struct Found {
    QStringList texts;
    QVector<int> done;
    QVector<int> totals;
    std::thread::id thread;
    static void add(void *receiver, const QString &text, int done, int total)
    {
        auto *found = static_cast<Found *>(receiver);
        found->texts.append(text);
        found->done.append(done);
        found->totals.append(total);
        found->thread = std::this_thread::get_id();
    }
};

} // namespace

class NetworkSearch : public NetworkTest {
protected:
    NetworkSearch() { server.handle(ServerPath, LoopbackServer::answer(ServerAnswer)); }
    Found found;
};

TEST_F(NetworkSearch, FindsServersAndReportsEveryAddress)
{
    LoopbackServer other;
    other.handle(ServerPath, LoopbackServer::answer(R"({"product":"something else","name":"x"})"));
    LoopbackServer silent;
    silent.handle(
        ServerPath, [](const Request &, Connection &connection) { connection.wait(20'000); });
    const QString own = QStringLiteral("127.0.0.1:%1").arg(server.port());
    const QString foreign = QStringLiteral("127.0.0.1:%1").arg(other.port());
    const QString mute = QStringLiteral("127.0.0.1:%1").arg(silent.port());
    QElapsedTimer timer;
    timer.start();
    network->searchServer(
        { "127.0.0.1", foreign, mute, "nowhere.invalid", "bad host", "a:b", "", own },
        server.port(), &found, &Found::add);
    EXPECT_LT(timer.elapsed(), 4000);
    EXPECT_EQ(found.texts.size(), 8);
    EXPECT_EQ(found.texts.count(own + " Kalkulation Nord"), 2);
    for (const QString &text : { foreign, mute, QString("nowhere.invalid"), QString("bad host"),
             QString("a:b"), QString() })
        EXPECT_EQ(found.texts.count(text), 1) << text.toStdString();
    EXPECT_EQ(found.done, (QVector<int> { 1, 2, 3, 4, 5, 6, 7, 8 }));
    EXPECT_EQ(found.totals, QVector<int>(8, 8));
    EXPECT_EQ(found.thread, std::this_thread::get_id());
    EXPECT_EQ(server.lastRequest().method, "GET");
}

TEST_F(NetworkSearch, SilentAddressesAreProbedInParallel)
{
    LoopbackServer silent;
    silent.handle(
        ServerPath, [](const Request &, Connection &connection) { connection.wait(20'000); });
    QStringList addresses;
    for (int i = 1; i <= 64; ++i)
        addresses << "127.0.0.1";
    QElapsedTimer timer;
    timer.start();
    network->searchServer(addresses, silent.port(), &found, &Found::add);
    EXPECT_EQ(found.texts.size(), 64);
    EXPECT_GE(timer.elapsed(), 1400);
    EXPECT_LT(timer.elapsed(), 4000);
}

TEST_F(NetworkSearch, NoMoreThan64AreProbedAtOnce)
{
    std::atomic<int> current { 0 };
    std::atomic<int> most { 0 };
    server.handle(ServerPath, [&](const Request &, Connection &connection) {
        const int now = ++current;
        int seen = most;
        while (now > seen && !most.compare_exchange_weak(seen, now)) { }
        connection.wait(150);
        --current;
        connection.send(LoopbackServer::response(ServerAnswer));
    });
    QStringList addresses;
    for (int i = 0; i < 150; ++i)
        addresses << "127.0.0.1";
    network->searchServer(addresses, server.port(), &found, &Found::add);
    EXPECT_EQ(found.texts.size(), 150);
    EXPECT_LE(most, 64);
    EXPECT_GE(most, 8);
}

TEST_F(NetworkSearch, NothingToProbeEndsAtOnce)
{
    network->searchServer({}, 8080, &found, &Found::add);
    network->searchServer({ "127.0.0.1", "" }, 0, nullptr, nullptr);
    EXPECT_TRUE(found.texts.isEmpty());
}

TEST_F(NetworkSearch, ASearchCarriesNoCookie)
{
    server.handle(
        "/kvx/service", LoopbackServer::answer("{}", 200, "Set-Cookie: kvxsid=x; Path=/\r\n"));
    EXPECT_TRUE(post("login"));
    network->searchServer({ "127.0.0.1" }, server.port(), &found, &Found::add);
    EXPECT_EQ(server.lastRequest().header("cookie"), "");
}

TEST_F(NetworkSearch, CancelEndsASearchOfAnotherThread)
{
    LoopbackServer silent;
    silent.handle(
        ServerPath, [](const Request &, Connection &connection) { connection.wait(20'000); });
    QElapsedTimer timer;
    std::thread searching([&] {
        network->searchServer({ "127.0.0.1", "127.0.0.1" }, silent.port(), &found, &Found::add);
    });
    EXPECT_TRUE(silent.waitForRequests(2));
    timer.start();
    network->cancelSearch();
    searching.join();
    EXPECT_LT(timer.elapsed(), 10'000);
    EXPECT_TRUE(found.texts.isEmpty());
}

TEST_F(NetworkSearch, CancelFromTheProgressFunctionEndsTheSearch)
{
    QStringList addresses;
    for (int i = 0; i < 200; ++i)
        addresses << "127.0.0.1";
    struct Stop {
        KVXNetwork *network;
        int reports = 0;
    } stop { network };
    network->searchServer(
        addresses, server.port(), &stop, [](void *receiver, const QString &, int, int) {
            auto *own = static_cast<Stop *>(receiver);
            ++own->reports;
            own->network->cancelSearch();
        });
    EXPECT_EQ(stop.reports, 1);
}

TEST_F(NetworkSearch, PingTellsAServerOfThisProduct)
{
    EXPECT_TRUE(network->ping("127.0.0.1", server.port()));
    EXPECT_TRUE(network->ping("localhost", server.port()));
    EXPECT_EQ(network->serverVersion("127.0.0.1", server.port()), QStringLiteral("1,2"));
    for (const char *answer :
        { "{}", "[]", "x", "{\"product\":1}", "{\"product\":\"KVX-Server\"}" }) {
        server.handle(ServerPath, LoopbackServer::answer(answer));
        EXPECT_FALSE(network->ping("127.0.0.1", server.port())) << answer;
        EXPECT_TRUE(error().contains("no collaboration server")) << error().toStdString();
        EXPECT_TRUE(network->serverVersion("127.0.0.1", server.port()).isEmpty()) << answer;
    }
    server.handle(ServerPath, LoopbackServer::answer(ServerAnswer, 404));
    EXPECT_FALSE(network->ping("127.0.0.1", server.port()));
}

TEST_F(NetworkSearch, PingOfNonsenseNamesTheAddress)
{
    for (const char *host : { "", " ", "a b", "http://x", "x/y", "user@x", "x?y", "[::1" }) {
        EXPECT_FALSE(network->ping(host, 80)) << host;
        EXPECT_FALSE(error().isEmpty()) << host;
    }
    EXPECT_FALSE(network->ping("127.0.0.1", 0));
    EXPECT_FALSE(network->ping("127.0.0.1", 70000));
}

TEST_F(NetworkSearch, Ipv6AddressesAreUnderstoodWithAndWithoutBrackets)
{
    const int gone = LoopbackServer().port();
    for (const char *host : { "::1", "[::1]" }) {
        EXPECT_FALSE(network->ping(host, gone));
        EXPECT_EQ(error(), QStringLiteral("No server answers at [::1]:%1.").arg(gone));
    }
}

TEST_F(NetworkSearch, PingGivesUpAtTheConnectLimit)
{
    server.handle(
        ServerPath, [](const Request &, Connection &connection) { connection.wait(10'000); });
    network->setTimeouts({ 200, 0, 0, 0 });
    QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(network->ping("127.0.0.1", server.port()));
    EXPECT_LT(timer.elapsed(), 5'000);
}

} // namespace kvx::test
