#include "NetworkTest.h"

#include <QCryptographicHash>
#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kvx::test {

namespace {

QByteArray someBytes(int size)
{
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i)
        bytes[i] = static_cast<char>((i * 2654435761U) >> 13);
    return bytes;
}

std::string digestHeader(const QByteArray &bytes)
{
    return "Repr-Digest: sha-256=:"
        + QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toBase64().toStdString() + ":\r\n";
}

std::string partOf(const std::string &body, const std::string &name)
{
    const auto head = body.find("name=\"" + name + "\"");
    if (head == std::string::npos)
        return "no part " + name;
    const auto begin = body.find("\r\n\r\n", head) + 4;
    return body.substr(begin, body.find("\r\n--", begin) - begin);
}

} // namespace

class NetworkFiles : public NetworkTest {
protected:
    bool upload(const QString &file, Progress *progress = nullptr)
    {
        return network->post(url(),
            { { "service", "upload" }, { "FileName", "{g}_log1" }, { "LocalFileName", file } }, reply,
            progress, progress ? &Progress::add : nullptr);
    }
    bool download(Progress *progress = nullptr)
    {
        return network->post(url(),
            { { "service", "download" }, { "FileName", "{g}.KVX" }, { "LocalFileName", path("target") } },
            reply, progress, progress ? &Progress::add : nullptr);
    }
    void serveFile(const QByteArray &bytes, const std::string &headers = "",
        const std::string &jsonReply = R"({"statuscode":1,"LogVersion":7})")
    {
        server.handle("/kvx/service",
            LoopbackServer::answer(
                bytes.toStdString(), 200, "Kvx-Reply: " + jsonReply + "\r\n" + headers));
    }
    void expectNothingStored()
    {
        EXPECT_FALSE(QFile::exists(path("target")));
        EXPECT_TRUE(filesInFolder().isEmpty()) << filesInFolder().join(' ').toStdString();
    }
};

TEST_F(NetworkFiles, UploadSendsTheRequestAndTheFileAsTwoParts)
{
    const QByteArray bytes = someBytes(1000);
    EXPECT_TRUE(upload(writeFile("local name.zip", bytes)));
    const Request request = server.lastRequest();
    EXPECT_EQ(request.header("content-type").find("multipart/form-data; boundary="), 0u);
    EXPECT_EQ(partOf(request.body, "jsonPart"), R"({"FileName":"{g}_log1","service":"upload"})");
    EXPECT_EQ(partOf(request.body, "dataPart"), bytes.toStdString());
    EXPECT_LT(request.body.find("jsonPart"), request.body.find("dataPart"));
    EXPECT_EQ(request.body.find("local name"), std::string::npos);
    EXPECT_EQ(reply.value("statuscode").toInt(), 1);
}

TEST_F(NetworkFiles, AnEmptyFileIsSentAsAnEmptyPart)
{
    Progress progress;
    EXPECT_TRUE(upload(writeFile("empty", QByteArray()), &progress));
    EXPECT_EQ(partOf(server.lastRequest().body, "dataPart"), "");
    ASSERT_EQ(progress.reports.size(), 1);
    EXPECT_EQ(progress.reports.last(), qMakePair(qint64(0), qint64(0)));
}

TEST_F(NetworkFiles, ALargeUploadIsStreamedAndReported)
{
    const qint64 size = 200LL * 1024 * 1024;
    QFile file(path("large"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.resize(size));
    file.close();
    rusage before {};
    getrusage(RUSAGE_SELF, &before);
    Progress progress;
    EXPECT_TRUE(upload(file.fileName(), &progress));
    rusage after {};
    getrusage(RUSAGE_SELF, &after);
    EXPECT_GE(server.lastRequest().bodySize, static_cast<std::size_t>(size));
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 64 * 1024) << "KiB";

    ASSERT_GE(progress.reports.size(), 2);
    EXPECT_EQ(progress.thread, std::this_thread::get_id());
    qint64 last = -1;
    for (const auto &report : qAsConst(progress.reports)) {
        EXPECT_GE(report.first, last);
        EXPECT_EQ(report.second, size);
        last = report.first;
    }
    EXPECT_EQ(last, size);
}

TEST_F(NetworkFiles, AMissingFileIsNamedAndNothingIsSent)
{
    EXPECT_FALSE(upload(path("missing.zip")));
    EXPECT_TRUE(error().contains(path("missing.zip"))) << error().toStdString();
    EXPECT_FALSE(upload(QString()));
    EXPECT_FALSE(error().isEmpty());
    EXPECT_EQ(server.requests().size(), 0u);
    EXPECT_EQ(server.connections(), 0);
}

TEST_F(NetworkFiles, LinksFoldersAndPipesAreNotSent)
{
    const QString real = writeFile("real", "secret");
    ASSERT_TRUE(QFile::link(real, path("link")));
    ASSERT_EQ(mkfifo(path("pipe").toLocal8Bit().constData(), 0600), 0);
    ASSERT_EQ(mkdir(path("folder").toLocal8Bit().constData(), 0700), 0);
    for (const char *name : { "link", "pipe", "folder", "." }) {
        EXPECT_FALSE(upload(path(name))) << name;
        EXPECT_TRUE(error().contains("link or no regular file")) << error().toStdString();
    }
    EXPECT_EQ(server.requests().size(), 0u);
}

TEST_F(NetworkFiles, AFileOfAnotherUserIsNotSentNorOverwritten)
{
    // As an ordinary user, any system file will do; the superuser owns those and gives one away.
    QString foreign = QStringLiteral("/etc/passwd");
    if (geteuid() == 0) {
        foreign = writeFile("foreign", "x");
        ASSERT_EQ(chown(foreign.toLocal8Bit().constData(), 12345, 12345), 0);
    }
    EXPECT_FALSE(upload(foreign));
    EXPECT_TRUE(error().contains("belongs to another user")) << error().toStdString();
    EXPECT_FALSE(network->downloadFile(url(), "f", foreign, nullptr, nullptr));
    EXPECT_EQ(server.requests().size(), 0u);
}

TEST_F(NetworkFiles, ARefusalComesBeforeTheBody)
{
    const QString file = writeFile("big", someBytes(3'000'000));
    for (const int status : { 200, 413 }) {
        std::atomic<bool> bodyCame { false };
        server.handleHead("/kvx/service", [&](const Request &request, Connection &connection) {
            EXPECT_EQ(request.header("expect"), "100-continue");
            connection.send(LoopbackServer::response(R"({"statuscode":600})", status));
            connection.close();
            while (!connection.clientIsGone() && connection.wait(10)) { }
            return true;
        });
        EXPECT_EQ(upload(file), status == 200);
        EXPECT_EQ(reply.value("statuscode").toInt(), status == 200 ? 600 : 0);
        EXPECT_LT(server.lastRequest().bodySize, 1u);
    }
    server.handleHead("/kvx/service", nullptr);
    EXPECT_TRUE(upload(file)) << "the connection of a refused upload is not used again";
    EXPECT_EQ(reply.value("statuscode").toInt(), 1);
}

TEST_F(NetworkFiles, ARefusedUploadReportsNoCompletion)
{
    server.handle("/kvx/service", LoopbackServer::answer(R"({"statuscode":107})"));
    Progress progress;
    EXPECT_TRUE(upload(writeFile("f", "x"), &progress));
    for (const auto &report : qAsConst(progress.reports))
        EXPECT_NE(report.first, -1);
    EXPECT_EQ(reply.value("statuscode").toInt(), 107);
}

TEST_F(NetworkFiles, AServerThatStopsReadingIsGivenUp)
{
    const QString file = writeFile("big", someBytes(30'000'000));
    server.handleHead("/kvx/service", [](const Request &, Connection &connection) {
        connection.send("HTTP/1.1 100 Continue\r\n\r\n");
        connection.wait(20'000);
        connection.close();
        return true;
    });
    network->setTimeouts({ 0, 0, 0, 1000 });
    QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(upload(file));
    EXPECT_LT(timer.elapsed(), 9000); // libcurl judges the speed of the last five seconds
    EXPECT_TRUE(error().contains("in time")) << error().toStdString();
}

TEST_F(NetworkFiles, ARefusalInTheMiddleOfTheBodyIsRead)
{
    const QString file = writeFile("big", someBytes(20'000'000));
    server.handleHead("/kvx/service", [](const Request &, Connection &connection) {
        connection.send("HTTP/1.1 100 Continue\r\n\r\n");
        connection.wait(100);
        connection.send(LoopbackServer::response(R"({"statuscode":106})", 200, "Connection: close\r\n"));
        while (!connection.clientIsGone() && connection.wait(10)) { }
        connection.close();
        return true;
    });
    network->setTimeouts({ 0, 0, 0, 2000 });
    EXPECT_TRUE(upload(file)) << error().toStdString();
    EXPECT_EQ(reply.value("statuscode").toInt(), 106);
    server.handleHead("/kvx/service", nullptr);
    EXPECT_TRUE(upload(file));
}

TEST_F(NetworkFiles, AFileThatShrinksWhileItIsSentFails)
{
    const QString file = writeFile("big", someBytes(20'000'000));
    server.handleHead("/kvx/service", [&file](const Request &, Connection &connection) {
        EXPECT_TRUE(QFile::resize(file, 1000));
        connection.send("HTTP/1.1 100 Continue\r\n\r\n");
        while (!connection.clientIsGone() && connection.wait(10)) { }
        connection.close();
        return true;
    });
    EXPECT_FALSE(upload(file));
    EXPECT_TRUE(error().contains("became shorter")) << error().toStdString();
    EXPECT_TRUE(reply.isEmpty());
}

TEST_F(NetworkFiles, AFileThatGrowsIsSentAsItWasAtTheStart)
{
    const QByteArray bytes = someBytes(100'000);
    const QString file = writeFile("growing", bytes);
    server.handleHead("/kvx/service", [&file](const Request &, Connection &) {
        QFile more(file);
        EXPECT_TRUE(more.open(QIODevice::Append) && more.write("more") == 4);
        return false;
    });
    EXPECT_TRUE(upload(file));
    EXPECT_EQ(partOf(server.lastRequest().body, "dataPart"), bytes.toStdString());
}

TEST_F(NetworkFiles, AMovingTransferIsNotCutByTheRequestLimit)
{
    server.handle("/kvx/service", [](const Request &, Connection &connection) {
        connection.send("HTTP/1.1 200 OK\r\nKvx-Reply: {\"statuscode\":1}\r\nContent-Length: 20000\r\n\r\n");
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
        connection.send("HTTP/1.1 200 OK\r\nKvx-Reply: {\"statuscode\":1}\r\nContent-Length: 20000\r\n\r\nxxx");
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
        { { "service", "download" }, { "LocalFileName", path("target") }, { "HttpMethod", "0" } }, reply,
        nullptr, nullptr));
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

TEST_F(NetworkFiles, SuccessWithoutAFileIsAFailure)
{
    server.handle("/kvx/service", LoopbackServer::answer(R"({"statuscode":1})"));
    EXPECT_FALSE(download());
    EXPECT_TRUE(reply.isEmpty());
    expectNothingStored();
}

TEST_F(NetworkFiles, ADownloadWithABadReplyHeaderStoresNothing)
{
    for (const char *header : { "", "x", "[1]", "{\"statuscode\":1", "{\"statuscode\":1}\r\nKvx-Reply: {}" }) {
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
        EXPECT_FALSE(network->downloadFile(url(), "f", target, nullptr, nullptr)) << target.toStdString();
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

TEST_F(NetworkFiles, RawTransfersSendServiceAndFileNameOnly)
{
    const QString file = writeFile("file", "content");
    Progress progress;
    EXPECT_TRUE(network->uploadFile(url(), file, "name on server", &progress, &Progress::add));
    EXPECT_EQ(partOf(server.lastRequest().body, "jsonPart"),
        R"({"FileName":"name on server","service":"upload"})");
    EXPECT_EQ(progress.reports.last(), qMakePair(qint64(7), qint64(7)));
    serveFile("served");
    EXPECT_TRUE(network->downloadFile(url(), "name on server", path("target"), nullptr, nullptr));
    EXPECT_EQ(server.lastRequest().body, R"({"FileName":"name on server","service":"download"})");
    EXPECT_EQ(readFile(path("target")), "served");

    server.handle("/kvx/service", LoopbackServer::answer(R"({"statuscode":606})"));
    EXPECT_FALSE(network->uploadFile(url(), file, "f", nullptr, nullptr));
    EXPECT_FALSE(network->downloadFile(url(), "f", path("other"), nullptr, nullptr));
    EXPECT_FALSE(QFile::exists(path("other")));
}

TEST_F(NetworkFiles, RecognitionRequestsMoveTheirFiles)
{
    EXPECT_TRUE(network->post(url(),
        { { "service", "submit" }, { "LocalFileName", writeFile("scan.png", "png") } }, reply, nullptr,
        nullptr));
    EXPECT_EQ(partOf(server.lastRequest().body, "dataPart"), "png");
    serveFile("pdf");
    EXPECT_TRUE(network->post(url(), { { "service", "result" }, { "LocalFileName", path("out.pdf") } },
        reply, nullptr, nullptr));
    EXPECT_EQ(readFile(path("out.pdf")), "pdf");
}

TEST_F(NetworkFiles, AnUploadOnADyingKeptConnectionIsNotRepeated)
{
    const QString file = writeFile("f", "x");
    EXPECT_TRUE(upload(file));
    server.handle("/kvx/service", [](const Request &, Connection &connection) { connection.close(); });
    EXPECT_FALSE(upload(file));
    EXPECT_EQ(server.requests().size(), 2u);
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
