#include "NetworkFiles.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kvx::test {

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
        connection.send(
            LoopbackServer::response(R"({"statuscode":106})", 200, "Connection: close\r\n"));
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
        { { "service", "submit" }, { "LocalFileName", writeFile("scan.png", "png") } }, reply,
        nullptr, nullptr));
    EXPECT_EQ(partOf(server.lastRequest().body, "dataPart"), "png");
    serveFile("pdf");
    EXPECT_TRUE(
        network->post(url(), { { "service", "result" }, { "LocalFileName", path("out.pdf") } },
            reply, nullptr, nullptr));
    EXPECT_EQ(readFile(path("out.pdf")), "pdf");
}

TEST_F(NetworkFiles, AnUploadOnADyingKeptConnectionIsNotRepeated)
{
    const QString file = writeFile("f", "x");
    EXPECT_TRUE(upload(file));
    server.handle(
        "/kvx/service", [](const Request &, Connection &connection) { connection.close(); });
    EXPECT_FALSE(upload(file));
    EXPECT_EQ(server.requests().size(), 2u);
}

} // namespace kvx::test
