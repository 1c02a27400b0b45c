#include "common/KVXCWCommonImpl.h"

#include "support/FakeHost.h"
#include "support/LoopbackServer.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace kvx::test;

namespace {

class CommonResources : public testing::Test {
protected:
    bool askVersion()
    {
        return common.resourceVersion(QStringLiteral("res%2.example"), 8091, version);
    }

    FakeHost host;
    KVXCWCommonImpl common;
    QString version = QStringLiteral("before");
};

} // namespace

TEST_F(CommonResources, theVersionIsAskedOfTheHostAndPortGiven)
{
    host.network.httpBody = R"({"statuscode":1,"data":{"version":"2026.11"}})";
    host.unconfigure();
    EXPECT_TRUE(askVersion());
    EXPECT_EQ(version.toStdString(), "2026.11");
    ASSERT_EQ(host.network.httpRequests.size(), 1);
    EXPECT_EQ(host.network.httpRequests[0].first.toStdString(),
        "http://res%2.example:8091/kvx/v2/api/comresource/version");
    EXPECT_TRUE(host.network.httpRequests[0].second.isEmpty());
    expectNoRequest(host);
}

TEST_F(CommonResources, anotherHttpStatusThan200IsNoVersion)
{
    host.network.httpBody = R"({"statuscode":1,"data":{"version":"2026.11"}})";
    for (const int status : { 0, 201, 206, 404, 500 }) {
        host.network.httpStatus = status;
        EXPECT_FALSE(askVersion()) << status;
        EXPECT_EQ(version.toStdString(), "before");
    }
}

TEST_F(CommonResources, anotherStatusThanOneIsNoVersion)
{
    for (const char *body : { R"({"statuscode":670,"data":{"version":"2026.11"}})",
             R"({"data":{"version":"2026.11"}})", R"({"statuscode":"1"})", R"([1])", "", "no json",
             R"({"statuscode":0.9,"data":{"version":"x"}})" }) {
        host.network.httpBody = body;
        EXPECT_FALSE(askVersion()) << body;
        EXPECT_EQ(version.toStdString(), "before");
    }
}

TEST_F(CommonResources, aVersionThatIsNoTextIsEmpty)
{
    for (const char *body : { R"({"statuscode":1})", R"({"statuscode":1.9,"data":{"version":7}})",
             R"({"statuscode":1,"data":"2026","version":"2026"})" }) {
        host.network.httpBody = body;
        version = QStringLiteral("before");
        EXPECT_TRUE(askVersion()) << body;
        EXPECT_EQ(version.toStdString(), "");
    }
}

TEST_F(CommonResources, theDownloadIsPostedToTheHostAndPortGiven)
{
    host.unconfigure();
    EXPECT_EQ(common.downloadResource(
                  QStringLiteral("/a/b%1.zip"), QStringLiteral("res%2.example"), 8091),
        1);
    EXPECT_EQ(host.network.lastUrl().toStdString(),
        "http://res%2.example:8091/kvx/v2/api/comresource/download");
    EXPECT_EQ(host.network.lastReceiver(), nullptr);
    EXPECT_EQ(host.network.lastProgress(), nullptr);
    expectJson(host.network.takeRequest(),
        R"({"service":"download","LocalFileName":"/a/b%1.zip","HttpMethod":"0"})");
}

TEST_F(CommonResources, theDownloadReturnsTheServersStatus)
{
    const auto statusOf = [this](const char *reply) {
        host.network.answer(QStringLiteral("download"), json(reply));
        return common.downloadResource(QStringLiteral("f"), QStringLiteral("h"), 1);
    };
    EXPECT_EQ(statusOf(R"({"statuscode":670})"), 670);
    EXPECT_EQ(statusOf(R"({"statuscode":1.9})"), 1);
    EXPECT_EQ(statusOf("{}"), 0);
    EXPECT_EQ(statusOf(R"({"statuscode":"1"})"), 0);
    host.network.failPost(QStringLiteral("download"));
    EXPECT_EQ(common.downloadResource(QStringLiteral("f"), QStringLiteral("h"), 1), 0);
}

TEST_F(CommonResources, nothingIsLogged)
{
    host.network.httpStatus = 500;
    askVersion();
    host.network.failPost(QStringLiteral("download"));
    common.downloadResource(QStringLiteral("f"), QStringLiteral("h"), 1);
    EXPECT_TRUE(host.takeLog().isEmpty());
}

TEST_F(CommonResources, thePackageArrivesOverHttp)
{
    KVXNetwork::setInstance(nullptr); // the built-in transport
    LoopbackServer server;
    server.handle("/kvx/v2/api/comresource/version",
        LoopbackServer::answer(R"({"statuscode":1,"data":{"version":"2026.11"}})"));
    server.handle("/kvx/v2/api/comresource/download",
        LoopbackServer::answer("the package", 200,
            "Content-Type: application/octet-stream\r\n"
            "Kvx-Reply: {\"statuscode\":1,\"version\":\"2026.11\"}\r\n"));
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("package"));
    const QString loopback = QStringLiteral("127.0.0.1");
    EXPECT_TRUE(common.resourceVersion(loopback, server.port(), version));
    EXPECT_EQ(version.toStdString(), "2026.11");
    EXPECT_EQ(common.downloadResource(path, loopback, server.port()), 1);
    EXPECT_EQ(server.lastRequest().method, "GET");
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), "the package");

    server.handle("/kvx/v2/api/comresource/download",
        LoopbackServer::answer(R"({"statuscode":670})", 404, "Content-Type: application/json\r\n"));
    const QString second = folder.filePath(QStringLiteral("second"));
    EXPECT_NE(common.downloadResource(second, loopback, server.port()), 1);
    EXPECT_FALSE(QFile::exists(second));
}
