#include "NetworkTest.h"
#include "support/WaitFor.h"

namespace kvx::test {

class NetworkSession : public NetworkTest {
protected:
    void setCookie(const std::string &cookie)
    {
        server.handle("/kvx/service",
            LoopbackServer::answer(R"({"statuscode":1})", 200, "Set-Cookie: " + cookie + "\r\n"));
        EXPECT_TRUE(post("login"));
        server.handle("/kvx/service", LoopbackServer::answer(R"({"statuscode":1})"));
    }
    std::string cookieOf(const std::string &target)
    {
        server.handle(target, LoopbackServer::answer("{}"));
        network->post(url(target), {}, reply, nullptr, nullptr);
        return server.lastRequest().header("cookie");
    }
};

const char SessionCookie[] = "kvxsid=abc_-123; HttpOnly; SameSite=Strict; Path=/kvx";

TEST_F(NetworkSession, TheSessionCookieComesBackUnderItsPath)
{
    EXPECT_FALSE(network->hasSession());
    setCookie(SessionCookie);
    EXPECT_TRUE(network->hasSession());
    EXPECT_EQ(cookieOf("/kvx/service"), "kvxsid=abc_-123");
    EXPECT_EQ(cookieOf("/kvx/ocr"), "kvxsid=abc_-123");
    EXPECT_EQ(cookieOf("/other"), "");
}

TEST_F(NetworkSession, ANewLoginReplacesTheCookie)
{
    setCookie(SessionCookie);
    setCookie("kvxsid=new; Path=/kvx");
    EXPECT_EQ(cookieOf("/kvx/service"), "kvxsid=new");
}

TEST_F(NetworkSession, AClearedCookieEndsTheSession)
{
    setCookie(SessionCookie);
    setCookie("kvxsid=; Path=/kvx; Max-Age=0");
    EXPECT_FALSE(network->hasSession());
    EXPECT_EQ(cookieOf("/kvx/service"), "");
}

TEST_F(NetworkSession, ACookieOfAFailedExchangeCounts)
{
    server.handle("/kvx/service",
        LoopbackServer::answer("{}", 503, "Set-Cookie: kvxsid=kept; Path=/kvx\r\n"));
    EXPECT_FALSE(post("login"));
    EXPECT_TRUE(network->hasSession());
}

TEST_F(NetworkSession, OtherCookiesAreNoSession)
{
    setCookie("balancer=7; Path=/");
    EXPECT_FALSE(network->hasSession());
    EXPECT_EQ(cookieOf("/kvx/service"), "balancer=7");
}

TEST_F(NetworkSession, AnotherPortOrHostNameGetsNoCookie)
{
    setCookie(SessionCookie);
    LoopbackServer other;
    other.handle("/kvx/service", LoopbackServer::answer(R"({"statuscode":1})"));
    EXPECT_TRUE(network->post(
        QString::fromStdString(other.url()), { { "service", "x" } }, reply, nullptr, nullptr));
    EXPECT_EQ(other.lastRequest().header("cookie"), "");

    const QString otherName = QStringLiteral("http://localhost:%1/kvx/service").arg(server.port());
    EXPECT_TRUE(network->post(otherName, { { "service", "x" } }, reply, nullptr, nullptr));
    EXPECT_EQ(server.lastRequest().header("cookie"), "");
    EXPECT_EQ(cookieOf("/kvx/service"), "kvxsid=abc_-123");
}

TEST_F(NetworkSession, AnotherServerCannotReplaceTheCookie)
{
    setCookie(SessionCookie);
    LoopbackServer other;
    other.handle("/kvx/service",
        LoopbackServer::answer("{}", 200, "Set-Cookie: kvxsid=planted; Path=/kvx\r\n"));
    EXPECT_TRUE(network->post(QString::fromStdString(other.url()), {}, reply, nullptr, nullptr));
    EXPECT_EQ(cookieOf("/kvx/service"), "kvxsid=abc_-123");
}

TEST_F(NetworkSession, ACookieForAForeignDomainIsDropped)
{
    setCookie("kvxsid=x; Domain=example.com; Path=/");
    EXPECT_FALSE(network->hasSession());
}

// Behind a name: libcurl trusts the loopback address as if it were encrypted.
TEST_F(NetworkSession, ASecureCookieIsNotSentInClear)
{
    KVXNetworkProxy proxy;
    proxy.type = KVXNetworkProxy::HttpProxy;
    proxy.host = "127.0.0.1";
    proxy.port = server.port();
    network->setProxy(proxy);
    const QString named = "http://kvx.example/kvx/service";
    for (const char *attribute : { "; Secure", "" }) {
        server.handle("/kvx/service",
            LoopbackServer::answer(
                "{}", 200, std::string("Set-Cookie: kvxsid=x; Path=/kvx") + attribute + "\r\n"));
        EXPECT_TRUE(network->post(named, { { "service", "login" } }, reply, nullptr, nullptr));
        EXPECT_TRUE(network->post(named, { { "service", "getroles" } }, reply, nullptr, nullptr));
        EXPECT_EQ(server.lastRequest().header("cookie"), *attribute ? "" : "kvxsid=x");
    }
}

TEST_F(NetworkSession, ClearSessionForgetsCookiesAndConnections)
{
    setCookie(SessionCookie);
    network->clearSession();
    EXPECT_FALSE(network->hasSession());
    EXPECT_EQ(cookieOf("/kvx/service"), "");
    EXPECT_EQ(server.connections(), 2);
}

TEST_F(NetworkSession, ACookieThatArrivesAfterClearSessionIsNotTaken)
{
    server.handle("/kvx/service", [this](const Request &, Connection &connection) {
        network->clearSession();
        connection.send(LoopbackServer::response(
            R"({"statuscode":1})", 200, "Set-Cookie: kvxsid=late; Path=/kvx\r\n"));
    });
    EXPECT_TRUE(post("login"));
    EXPECT_FALSE(network->hasSession());
}

TEST_F(NetworkSession, ASlowRequestDoesNotBringTheOldCookieBack)
{
    setCookie("kvxsid=old; Path=/kvx");
    server.handle("/slow", [](const Request &, Connection &connection) {
        connection.wait(300);
        connection.send(LoopbackServer::response("{}"));
    });
    std::thread slow([this] {
        QJsonObject own;
        network->post(url("/slow"), {}, own, nullptr, nullptr);
    });
    EXPECT_TRUE(server.waitForRequests(2));
    setCookie("kvxsid=new; Path=/kvx");
    slow.join();
    EXPECT_EQ(cookieOf("/kvx/service"), "kvxsid=new");
}

TEST_F(NetworkSession, RequestsShareAConnection)
{
    for (int i = 0; i < 5; ++i)
        EXPECT_TRUE(post());
    EXPECT_EQ(server.connections(), 1);
}

TEST_F(NetworkSession, AnAnswerToAnEarlierRequestIsNotTaken)
{
    // A request that arrived twice is answered twice; the second answer waits for the next request.
    std::string mark;
    server.handle("/kvx/service", [&](const Request &request, Connection &connection) {
        if (mark.empty())
            mark = request.header("kvx-exchange");
        connection.send(
            LoopbackServer::response(R"({"statuscode":1})", 200, "Kvx-Exchange: " + mark + "\r\n"));
    });
    EXPECT_TRUE(post());
    EXPECT_FALSE(mark.empty());
    EXPECT_FALSE(post());
    EXPECT_TRUE(reply.isEmpty());
    EXPECT_EQ(error(),
        QStringLiteral("The answer of 127.0.0.1:%1 belongs to another request.")
            .arg(server.port()));
    const int before = server.connections();
    mark.clear();
    EXPECT_TRUE(post());
    EXPECT_EQ(server.connections(), before + 1) << "nothing more is read from that connection";
}

TEST_F(NetworkSession, AConnectionOnWhichMoreHasComeIsNotUsedAgain)
{
    std::atomic<bool> sent { false };
    server.handle("/kvx/service", [&](const Request &, Connection &connection) {
        const bool first = !sent; // the case may be over once its second answer is sent
        connection.send(LoopbackServer::response(R"({"statuscode":1})"));
        if (first) {
            connection.wait(50); // or it comes with the answer
            connection.send(LoopbackServer::response(R"({"statuscode":300})"));
            sent = true;
        }
    });
    EXPECT_TRUE(post());
    EXPECT_TRUE(waitFor([&] { return sent.load(); }));
    EXPECT_TRUE(post());
    EXPECT_EQ(reply.value("statuscode").toInt(), 1);
    EXPECT_EQ(server.connections(), 2);
}

TEST_F(NetworkSession, LockAndMergeUseAConnectionThatWasJustUsed)
{
    EXPECT_TRUE(post());
    EXPECT_TRUE(post("loglock"));
    EXPECT_TRUE(post("sendservertomerge"));
    EXPECT_EQ(server.connections(), 1);
}

TEST_F(NetworkSession, LockAndMergeUseAFreshConnectionAfterAPause)
{
    EXPECT_TRUE(post());
    std::this_thread::sleep_for(std::chrono::milliseconds(2100));
    EXPECT_TRUE(post());
    EXPECT_EQ(server.connections(), 1) << "others do not";
    std::this_thread::sleep_for(std::chrono::milliseconds(2100));
    EXPECT_TRUE(post("loglock"));
    EXPECT_EQ(server.connections(), 2);
    std::this_thread::sleep_for(std::chrono::milliseconds(2100));
    EXPECT_TRUE(post("sendservertomerge"));
    EXPECT_EQ(server.connections(), 3);
}

// The server reads the second request on a kept connection and dies without a word: it may have
// acted on it.
TEST_F(NetworkSession, APostOnADyingKeptConnectionIsNotRepeated)
{
    EXPECT_TRUE(post());
    server.handle(
        "/kvx/service", [](const Request &, Connection &connection) { connection.close(); });
    EXPECT_FALSE(post("newproject"));
    EXPECT_TRUE(error().contains("broke")) << error().toStdString();
    EXPECT_EQ(server.requests().size(), 2u);
    EXPECT_EQ(server.requests()[1].connection, 1);

    server.handle(
        "/kvx/service", [](const Request &, Connection &connection) { connection.reset(); });
    EXPECT_FALSE(post("newproject"));
    EXPECT_EQ(server.requests().size(), 3u);
}

TEST_F(NetworkSession, AGetOnADyingKeptConnectionIsRepeated)
{
    server.handle("/version", LoopbackServer::answer("{}"));
    QByteArray body;
    EXPECT_EQ(network->httpGet(url("/version"), body), 200);
    server.handle("/version", [](const Request &request, Connection &connection) {
        if (request.connection == 1)
            connection.close();
        else
            connection.send(LoopbackServer::response("{}"));
    });
    EXPECT_EQ(network->httpGet(url("/version"), body), 200);
    EXPECT_EQ(server.requests().size(), 3u);
}

TEST_F(NetworkSession, AfterARestartOfTheServerRequestsGoOn)
{
    EXPECT_TRUE(post());
    server.dropConnections();
    while (server.openConnections() > 0)
        std::this_thread::yield();
    EXPECT_TRUE(post("newproject"));
    EXPECT_EQ(server.connections(), 2);
}

TEST_F(NetworkSession, AbortEndsWaitingRequestsAtOnce)
{
    server.handle(
        "/kvx/service", [](const Request &, Connection &connection) { connection.wait(30'000); });
    QElapsedTimer timer;
    std::thread threads[2];
    for (std::thread &thread : threads) {
        thread = std::thread([this] {
            QJsonObject own;
            EXPECT_FALSE(network->post(url(), { { "service", "loglock" } }, own, nullptr, nullptr));
            EXPECT_EQ(error(), QStringLiteral("The request was cancelled."));
        });
    }
    EXPECT_TRUE(server.waitForRequests(2));
    timer.start();
    network->abort();
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_LT(timer.elapsed(), 10'000);
    server.handle("/kvx/service", LoopbackServer::answer("{}"));
    EXPECT_TRUE(post()) << "an abort concerns what was under way only";
}

TEST_F(NetworkSession, AbortFromTheProgressFunctionEndsTheTransfer)
{
    server.handle("/kvx/service", [](const Request &, Connection &connection) {
        connection.send(
            "HTTP/1.1 200 OK\r\nKvx-Reply: {\"statuscode\":1}\r\nContent-Length: 10000000\r\n\r\n");
        while (connection.send(std::string(10'000, 'x')) && connection.wait(10)) { }
    });
    const auto stop
        = [](void *receiver, qint64, qint64) { static_cast<KVXNetwork *>(receiver)->abort(); };
    EXPECT_FALSE(network->post(url(), { { "service", "download" }, { "LocalFileName", path("f") } },
        reply, network, stop));
    EXPECT_TRUE(filesInFolder().isEmpty());
}

} // namespace kvx::test
