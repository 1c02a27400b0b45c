#include "NetworkFiles.h"

#include <csignal>
#include <sys/resource.h>

namespace kvx::test {

TEST_F(NetworkFiles, AMovingTransferIsNotCutByTheRequestLimit)
{
    server.handle("/kvx/service", [](const Request &, Connection &connection) {
        connection.send(
            "HTTP/1.1 200 OK\r\nKvx-Reply: {\"statuscode\":1}\r\nContent-Length: 20000\r\n\r\n");
        for (int i = 0; i < 10 && connection.wait(50); ++i)
            connection.send(std::string(2000, 'x'));
    });
    network->setTimeouts({ 0, 100, 0, 1000 });
    EXPECT_TRUE(download());
    EXPECT_EQ(readFile(path("target")).size(), 20000);
}

TEST_F(NetworkFiles, AStalledDownloadIsGivenUp)
{
    server.handle("/kvx/service", [](const Request &, Connection &connection) {
        connection.send(
            "HTTP/1.1 200 OK\r\nKvx-Reply: {\"statuscode\":1}\r\nContent-Length: 20000\r\n\r\nxxx");
        connection.wait(10'000);
    });
    network->setTimeouts({ 0, 0, 0, 1000 });
    QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(download());
    EXPECT_LT(timer.elapsed(), 5000);
    expectNothingStored();
}

TEST_F(NetworkFiles, DownloadStoresTheBodyAndFillsTheReplyFromItsHeader)
{
    const QByteArray bytes = someBytes(700'000);
    serveFile(bytes, digestHeader(bytes));
    Progress progress;
    EXPECT_TRUE(download(&progress));
    EXPECT_EQ(readFile(path("target")), bytes);
    EXPECT_EQ(reply.value("LogVersion").toInt(), 7);
    EXPECT_EQ(server.lastRequest().body, R"({"FileName":"{g}.KVX","service":"download"})");
    EXPECT_EQ(filesInFolder(), QStringList("target"));
    ASSERT_FALSE(progress.reports.isEmpty());
    EXPECT_EQ(progress.reports.last(), qMakePair(qint64(700'000), qint64(700'000)));
}

TEST_F(NetworkFiles, ADownloadByGetSendsNoBody)
{
    serveFile("package");
    EXPECT_TRUE(network->post(url(),
        { { "service", "download" }, { "LocalFileName", path("target") }, { "HttpMethod", "0" } },
        reply, nullptr, nullptr));
    EXPECT_EQ(server.lastRequest().method, "GET");
    EXPECT_EQ(readFile(path("target")), "package");
}

TEST_F(NetworkFiles, AnEmptyFileIsStored)
{
    serveFile("", digestHeader(""));
    EXPECT_TRUE(download());
    EXPECT_EQ(readFile(path("target")), "");
}

TEST_F(NetworkFiles, AnExistingFileIsReplacedAsAWhole)
{
    writeFile("target", someBytes(5000));
    serveFile("new");
    EXPECT_TRUE(download());
    EXPECT_EQ(readFile(path("target")), "new");
}

TEST_F(NetworkFiles, ARefusedDownloadFillsTheReplyAndStoresNothing)
{
    server.handle("/kvx/service", LoopbackServer::answer(R"({"statuscode":606})"));
    EXPECT_TRUE(download());
    EXPECT_EQ(reply.value("statuscode").toInt(), 606);
    expectNothingStored();
    serveFile("body", "", R"({"statuscode":606})");
    EXPECT_TRUE(download());
    EXPECT_EQ(reply.value("statuscode").toInt(), 606);
    expectNothingStored();
}

TEST_F(NetworkFiles, SuccessWithoutAFileIsRefused)
{
    server.handle("/kvx/service", LoopbackServer::answer(R"({"statuscode":1})"));
    EXPECT_FALSE(download());
    EXPECT_TRUE(reply.isEmpty());
    expectNothingStored();
}

TEST_F(NetworkFiles, ADownloadWithABadReplyHeaderStoresNothing)
{
    for (const char *header :
        { "", "x", "[1]", "{\"statuscode\":1", "{\"statuscode\":1}\r\nKvx-Reply: {}" }) {
        serveFile("body", "", header);
        EXPECT_FALSE(download()) << header;
        EXPECT_TRUE(reply.isEmpty()) << header;
        expectNothingStored();
    }
}

TEST_F(NetworkFiles, AFileUnderAnotherStatusIsNotStored)
{
    for (const int status : { 201, 206, 404, 500 }) {
        server.handle("/kvx/service",
            LoopbackServer::answer("body", status, "Kvx-Reply: {\"statuscode\":1}\r\n"));
        EXPECT_FALSE(download()) << status;
        EXPECT_TRUE(reply.isEmpty()) << status;
        expectNothingStored();
    }
}

TEST_F(NetworkFiles, ADownloadCutAtAnyByteLeavesTheTargetUntouched)
{
    writeFile("target", "before");
    const std::string whole = LoopbackServer::response(std::string(60, 'x'), 200,
        "Kvx-Reply: {\"statuscode\":1}\r\n" + digestHeader(QByteArray(60, 'x')));
    for (std::size_t size = 0; size < whole.size(); ++size) {
        server.handle("/kvx/service", LoopbackServer::raw(whole.substr(0, size)));
        EXPECT_FALSE(download()) << size;
        EXPECT_TRUE(reply.isEmpty()) << size;
        ASSERT_EQ(readFile(path("target")), "before") << size;
    }
    EXPECT_EQ(filesInFolder(), QStringList("target"));
    server.handle("/kvx/service", LoopbackServer::raw(whole));
    EXPECT_TRUE(download());
}

TEST_F(NetworkFiles, ADownloadThatDoesNotTellItsLengthFails)
{
    server.handle("/kvx/service",
        LoopbackServer::raw("HTTP/1.1 200 OK\r\nKvx-Reply: {\"statuscode\":1}\r\n\r\nhalf a file"));
    EXPECT_FALSE(download());
    EXPECT_TRUE(reply.isEmpty());
    expectNothingStored();
}

TEST_F(NetworkFiles, AWrongDigestIsNoticed)
{
    serveFile("bytes", digestHeader("other bytes"));
    EXPECT_FALSE(download());
    EXPECT_TRUE(reply.isEmpty());
    EXPECT_EQ(error(), QStringLiteral("The file arrived damaged."));
    expectNothingStored();
    for (const char *digest : { "sha-256=:YWJj:", "sha-256=xyz", "sha-256=", "sha-256=::" }) {
        serveFile("bytes", std::string("Repr-Digest: ") + digest + "\r\n");
        EXPECT_FALSE(download()) << digest;
        expectNothingStored();
    }
    serveFile("bytes", "Repr-Digest: sha-512=:YWJj:\r\n");
    EXPECT_TRUE(download()) << "another algorithm is not judged";
}

TEST_F(NetworkFiles, ADownloadIntoNowhereIsRefusedBeforeAnythingIsSent)
{
    serveFile("x");
    ASSERT_TRUE(QFile::link(path("elsewhere"), path("link")));
    for (const QString &target : { path("no/folder"), path("link"), path("."), QString() }) {
        EXPECT_FALSE(network->downloadFile(url(), "f", target, nullptr, nullptr))
            << target.toStdString();
        EXPECT_FALSE(error().isEmpty());
    }
    EXPECT_FALSE(QFile::exists(path("elsewhere")));
    EXPECT_EQ(server.requests().size(), 0u);
}

TEST_F(NetworkFiles, AFullDiskFailsAndLeavesTheTargetUntouched)
{
    writeFile("target", "before");
    serveFile(someBytes(500'000));
    rlimit old {};
    getrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, SIG_IGN);
    for (rlim_t limit = 0; limit < 500'000; limit += 90'000) {
        const rlimit small { limit, old.rlim_max };
        setrlimit(RLIMIT_FSIZE, &small);
        const bool stored = download();
        setrlimit(RLIMIT_FSIZE, &old);
        EXPECT_FALSE(stored) << limit;
        EXPECT_TRUE(error().contains("cannot be written")) << error().toStdString();
        EXPECT_EQ(readFile(path("target")), "before") << limit;
        EXPECT_EQ(filesInFolder(), QStringList("target")) << limit;
    }
    EXPECT_TRUE(download());
}

TEST_F(NetworkFiles, AProgressFunctionMayItselfUseTheTransport)
{
    serveFile(someBytes(100'000));
    server.handle("/other", LoopbackServer::answer("{}"));
    struct Nested {
        KVXNetwork *network;
        QString url;
        int answers = 0;
    } nested { network, url("/other") };
    const auto ask = [](void *receiver, qint64, qint64) {
        auto *own = static_cast<Nested *>(receiver);
        QJsonObject answer;
        own->answers += own->network->post(own->url, {}, answer, nullptr, nullptr);
    };
    EXPECT_TRUE(network->downloadFile(url(), "f", path("target"), &nested, ask));
    EXPECT_GE(nested.answers, 1);
}

} // namespace kvx::test
