#include "frame/KVXServerInfo.h"
#include "support/FakeHost.h"

#include <gtest/gtest.h>
#include <thread>

namespace kvx::test {

namespace {

// Taken before any test has written to the one object of the process.
const QString urlAtFirst = KVXServerInfo::getInstance()->brokerUrl();
const bool configuredAtFirst = KVXServerInfo::getInstance()->isConfigured();

} // namespace

TEST(KVXServerInfo, beginsUnconfiguredWithTheDefaultBrokerPort)
{
    EXPECT_EQ(urlAtFirst, QStringLiteral("tcp://:61616"));
    EXPECT_FALSE(configuredAtFirst);
}

TEST(KVXServerInfo, isOneObject)
{
    KVXServerInfo *elsewhere = nullptr;
    std::thread([&] { elsewhere = KVXServerInfo::getInstance(); }).join();
    EXPECT_EQ(elsewhere, KVXServerInfo::getInstance());
}

TEST(KVXServerInfo, isConfiguredWithHostAndPortOnly)
{
    const FakeHost host;
    KVXServerInfo *server = KVXServerInfo::getInstance();
    EXPECT_TRUE(server->isConfigured());
    server->setHost(QString());
    EXPECT_FALSE(server->isConfigured());
    server->setHost(QStringLiteral("h"));
    server->setPort(QString());
    EXPECT_FALSE(server->isConfigured());
    server->setPort(QStringLiteral("no number"));
    EXPECT_TRUE(server->isConfigured());
}

TEST(KVXServerInfo, formsTheUrlsAnewOnEachCall)
{
    const FakeHost host;
    KVXServerInfo *server = KVXServerInfo::getInstance();
    EXPECT_EQ(server->serviceUrl(), QStringLiteral("http://127.0.0.1:8090/kvx/service"));

    server->setHost(QStringLiteral("kvx.example"));
    server->setPort(QStringLiteral("80"));
    server->setBrokerPort(QStringLiteral("61700"));
    EXPECT_EQ(server->host(), QStringLiteral("kvx.example"));
    EXPECT_EQ(server->port(), QStringLiteral("80"));
    EXPECT_EQ(server->serviceUrl(), QStringLiteral("http://kvx.example:80/kvx/service"));
    EXPECT_EQ(server->ocrUrl(), QStringLiteral("http://kvx.example:80/kvx/ocr"));
    EXPECT_EQ(server->brokerUrl(), QStringLiteral("tcp://kvx.example:61700"));
    EXPECT_EQ(server->baseUrl(), QStringLiteral("http://kvx.example:80"));
}

TEST(KVXServerInfo, handsProxySettingsToTheTransport)
{
    const FakeHost host;
    KVXServerInfo *server = KVXServerInfo::getInstance();
    server->setProxy(2, QStringLiteral("p"), 1080, QStringLiteral("u"), QStringLiteral("w"));

    ASSERT_EQ(host.network.proxies.size(), 1);
    for (const KVXNetworkProxy &proxy : { host.network.proxies[0], server->proxy() }) {
        EXPECT_EQ(proxy.type, 2);
        EXPECT_EQ(proxy.host, QStringLiteral("p"));
        EXPECT_EQ(proxy.port, 1080);
        EXPECT_EQ(proxy.user, QStringLiteral("u"));
        EXPECT_EQ(proxy.password, QStringLiteral("w"));
    }
}

} // namespace kvx::test
