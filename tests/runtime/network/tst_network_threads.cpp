#include "NetworkTest.h"

namespace kvx::test {

class NetworkThreads : public NetworkTest {
protected:
    void runThreads(int count, const std::function<void(int)> &work)
    {
        std::vector<std::thread> threads;
        for (int i = 0; i < count; ++i)
            threads.emplace_back(work, i);
        for (std::thread &thread : threads)
            thread.join();
    }
};

TEST_F(NetworkThreads, EachThreadGetsTheReplyToItsOwnRequest)
{
    server.handle("/kvx/service", [](const Request &request, Connection &connection) {
        connection.send(LoopbackServer::response(request.body));
    });
    runThreads(8, [this](int thread) {
        for (int i = 0; i < 50; ++i) {
            const QJsonObject request { { "service", "echo" }, { "thread", thread },
                { "number", i } };
            QJsonObject answer;
            ASSERT_TRUE(network->post(url(), request, answer, nullptr, nullptr))
                << error().toStdString();
            ASSERT_EQ(answer, request);
        }
    });
    EXPECT_EQ(server.requests().size(), 400u);
    EXPECT_LE(server.connections(), 8);
}

TEST_F(NetworkThreads, PostsSurviveProxyChangesAbortsAndClearedSessions)
{
    server.handle("/kvx/service",
        LoopbackServer::answer(R"({"statuscode":1})", 200, "Set-Cookie: kvxsid=s; Path=/\r\n"));
    server.handle("/file",
        LoopbackServer::answer(std::string(50'000, 'x'), 200, "Kvx-Reply: {\"statuscode\":1}\r\n"));
    server.handle("/kvx/v2/api/server", LoopbackServer::answer(R"({"product":"kvx-server"})"));
    const LoopbackServer notAProxy;
    std::atomic<bool> ending { false };
    std::thread disturber([&] {
        KVXNetworkProxy proxy;
        proxy.host = "127.0.0.1";
        proxy.port = notAProxy.port();
        for (int i = 0; !ending; ++i) {
            proxy.type = i % 3 == 0 ? KVXNetworkProxy::HttpProxy : KVXNetworkProxy::NoProxy;
            network->setProxy(proxy);
            network->setTimeouts({ 500, 500 + i % 7, 0, 1000 });
            if (i % 5 == 0)
                network->abort();
            if (i % 11 == 0)
                network->clearSession();
            network->hasSession();
            network->proxy();
            network->cancelSearch();
            std::this_thread::yield();
        }
    });
    std::atomic<int> carried { 0 };
    runThreads(8, [&](int thread) {
        QJsonObject answer;
        const QString target = path(QString::number(thread));
        for (int i = 0; i < 60; ++i) {
            if (network->post(url(), { { "service", "getroles" } }, answer, nullptr, nullptr)) {
                EXPECT_EQ(answer.value("statuscode").toInt(), 1);
                EXPECT_TRUE(error().isEmpty());
                ++carried;
            } else {
                EXPECT_TRUE(answer.isEmpty());
                EXPECT_FALSE(error().isEmpty());
            }
            if (i % 10 == thread % 10)
                network->searchServer({ "127.0.0.1" }, server.port(), nullptr, nullptr);
            if (i % 5 == 0 && network->downloadFile(url("/file"), "f", target, nullptr, nullptr)) {
                EXPECT_EQ(readFile(target).size(), 50'000);
            }
        }
    });
    ending = true;
    disturber.join();
    network->setProxy(KVXNetworkProxy());
    network->setTimeouts({});
    EXPECT_TRUE(post()) << error().toStdString();
    EXPECT_TRUE(network->hasSession());
    for (const QString &name : filesInFolder())
        EXPECT_EQ(name.size(), 1) << "a temporary was left: " << name.toStdString();
}

TEST_F(NetworkThreads, ALoginOfOneThreadIsTheSessionOfAll)
{
    server.handle("/kvx/service", [](const Request &request, Connection &connection) {
        const bool login = request.body.find("login") != std::string::npos;
        connection.send(LoopbackServer::response(
            R"({"statuscode":1})", 200, login ? "Set-Cookie: kvxsid=mine; Path=/kvx\r\n" : ""));
    });
    EXPECT_TRUE(post("login"));
    runThreads(4, [this](int) {
        QJsonObject answer;
        EXPECT_TRUE(network->post(url(), { { "service", "x" } }, answer, nullptr, nullptr));
    });
    const auto requests = server.requests();
    for (std::size_t i = 1; i < requests.size(); ++i)
        EXPECT_EQ(requests[i].header("cookie"), "kvxsid=mine");
}

} // namespace kvx::test
