#include "frame/KVXServerInfo.h"
#include "frame/ServiceRequest.h"
#include "support/FakeHost.h"

#include <gtest/gtest.h>

namespace kvx::test {

namespace {

void ignoreProgress(void *, qint64, qint64) { }

} // namespace

TEST(ServiceRequest, isSentToTheServiceUrlWithoutProgress)
{
    FakeHost host;
    const ServiceReply reply
        = ServiceRequest("s").set("Name", QStringLiteral("n")).set("Count", 3).post();

    EXPECT_TRUE(reply.ok());
    EXPECT_TRUE(reply.carried());
    EXPECT_EQ(host.network.takeRequest(), json(R"({"service": "s", "Name": "n", "Count": 3})"));
    EXPECT_EQ(host.network.lastUrl(), QStringLiteral("http://127.0.0.1:8090/kvx/service"));
    EXPECT_EQ(host.network.lastReceiver(), nullptr);
    EXPECT_TRUE(host.network.lastProgress() == nullptr);
}

TEST(ServiceRequest, isNotSentWithoutHostOrPort)
{
    FakeHost host;
    KVXServerInfo::getInstance()->setPort(QString());
    EXPECT_FALSE(ServiceRequest("s").post().sent());
    KVXServerInfo::getInstance()->setPort(QStringLiteral("1"));
    KVXServerInfo::getInstance()->setHost(QString());
    EXPECT_FALSE(ServiceRequest("s").post().sent());
    expectNoRequest(host);
}

TEST(ServiceRequest, laysTheServiceOverTheKeysGiven)
{
    FakeHost host;
    ServiceRequest("s", json(R"({"service": "other", "a": 1})")).post();
    EXPECT_EQ(host.network.takeRequest(), json(R"({"service": "s", "a": 1})"));
}

TEST(ServiceRequest, takesKeysThatAreNotAscii)
{
    const QString key = QStringLiteral("größe");
    EXPECT_EQ(ServiceRequest("s").set(key, 1).object().value(key), 1);
}

TEST(ServiceRequest, mayBePostedAgain)
{
    FakeHost host;
    const ServiceRequest request("s");
    host.network.answerOnce(QStringLiteral("s"), json(R"({"statuscode": 2})"));
    EXPECT_EQ(request.post().status(), 2);
    EXPECT_EQ(request.post().status(), 1);
    EXPECT_EQ(host.network.takeServices().size(), 2);
}

TEST(ServiceRequest, goesToAnotherUrlWithoutAServer)
{
    FakeHost host;
    host.unconfigure();
    int receiver = 0;
    EXPECT_TRUE(ServiceRequest("s")
                    .progress(&receiver, ignoreProgress)
                    .postTo(QStringLiteral("http://elsewhere"))
                    .ok());
    EXPECT_EQ(host.network.lastUrl(), QStringLiteral("http://elsewhere"));
    EXPECT_EQ(host.network.lastReceiver(), &receiver);
    EXPECT_TRUE(host.network.lastProgress() == ignoreProgress);
}

TEST(ServiceRequest, aTransportFailureLeavesAnEmptyReply)
{
    FakeHost host;
    host.network.failPost(QStringLiteral("s"));
    const ServiceReply reply = ServiceRequest("s").post();
    EXPECT_TRUE(reply.sent());
    EXPECT_FALSE(reply.carried());
    EXPECT_EQ(reply.status(), 0);
}

} // namespace kvx::test
