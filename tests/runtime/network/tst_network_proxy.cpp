#include "NetworkTest.h"
#include "RealProxy.h"

namespace kvx::test {

class NetworkProxy : public NetworkTest {
protected:
    void use(KVXNetworkProxy::Type type, int port, const char *user = "", const char *password = "",
        const char *host = "127.0.0.1")
    {
        KVXNetworkProxy proxy;
        proxy.type = type;
        proxy.host = host;
        proxy.port = port;
        proxy.user = user;
        proxy.password = password;
        network->setProxy(proxy);
    }
    bool cameThroughHttpProxy() const { return !server.lastRequest().header("via").empty(); }
};

TEST_F(NetworkProxy, WhatWasSetIsToldAgain)
{
    use(KVXNetworkProxy::Socks5Proxy, 1080, "user", "word", "proxy.example");
    const KVXNetworkProxy proxy = network->proxy();
    EXPECT_EQ(proxy.type, KVXNetworkProxy::Socks5Proxy);
    EXPECT_EQ(proxy.host, "proxy.example");
    EXPECT_EQ(proxy.port, 1080);
    EXPECT_EQ(proxy.user, "user");
    EXPECT_EQ(proxy.password, "word");
}

TEST_F(NetworkProxy, TheVeryNextRequestGoesThroughTheHttpProxy)
{
    HttpProxy proxy("", "");
    EXPECT_TRUE(post());
    EXPECT_FALSE(cameThroughHttpProxy());
    use(KVXNetworkProxy::HttpProxy, proxy.port());
    EXPECT_TRUE(post());
    EXPECT_TRUE(cameThroughHttpProxy());
    network->setProxy(KVXNetworkProxy());
    EXPECT_TRUE(post());
    EXPECT_FALSE(cameThroughHttpProxy());
}

TEST_F(NetworkProxy, TheHttpProxyAsksForUserAndPassword)
{
    HttpProxy proxy("anna", "s3cret");
    use(KVXNetworkProxy::HttpProxy, proxy.port(), "anna", "s3cret");
    EXPECT_TRUE(post());
    EXPECT_TRUE(cameThroughHttpProxy());
    use(KVXNetworkProxy::HttpProxy, proxy.port(), "anna", "wrong");
    QByteArray body;
    EXPECT_NE(network->httpGet(url(), body), 200);
    EXPECT_TRUE(error().contains("did not accept the user name and password"))
        << error().toStdString();
    // The proxy may end the connection over the unread body before its answer is read.
    EXPECT_FALSE(post());
    EXPECT_TRUE(error().contains(QString("proxy 127.0.0.1:%1").arg(proxy.port())))
        << error().toStdString();
    use(KVXNetworkProxy::HttpProxy, proxy.port());
    EXPECT_EQ(network->httpGet(url(), body), 407);
    EXPECT_FALSE(post());
    EXPECT_EQ(server.requests().size(), 1u);
    use(KVXNetworkProxy::HttpProxy, proxy.port(), "anna", "s3cret");
    EXPECT_TRUE(post());
}

TEST_F(NetworkProxy, TheServerNeverSeesTheProxyPassword)
{
    HttpProxy proxy("anna", "s3cret");
    use(KVXNetworkProxy::HttpProxy, proxy.port(), "anna", "s3cret");
    EXPECT_TRUE(post());
    EXPECT_EQ(server.lastRequest().header("proxy-authorization"), "");
    network->setProxy(KVXNetworkProxy());
    EXPECT_TRUE(post());
    EXPECT_EQ(server.lastRequest().header("proxy-authorization"), "");
}

TEST_F(NetworkProxy, TheVeryNextRequestGoesThroughTheSocksProxy)
{
    SocksProxy proxy("", "");
    use(KVXNetworkProxy::Socks5Proxy, proxy.port());
    EXPECT_TRUE(post());
    EXPECT_TRUE(proxy.log().contains("connected to 127.0.0.1:" + QByteArray::number(server.port())))
        << proxy.log().constData();
}

TEST_F(NetworkProxy, TheSocksProxyAsksForUserAndPassword)
{
    SocksProxy proxy("anna", "s3cret");
    use(KVXNetworkProxy::Socks5Proxy, proxy.port(), "anna", "s3cret");
    EXPECT_TRUE(post());
    use(KVXNetworkProxy::Socks5Proxy, proxy.port(), "anna", "wrong");
    EXPECT_FALSE(post());
    EXPECT_TRUE(error().startsWith("The proxy 127.0.0.1:")) << error().toStdString();
    use(KVXNetworkProxy::Socks5Proxy, proxy.port());
    EXPECT_FALSE(post());
    EXPECT_EQ(server.requests().size(), 1u);
    use(KVXNetworkProxy::Socks5Proxy, proxy.port(), "anna", "s3cret");
    EXPECT_TRUE(post());
}

TEST_F(NetworkProxy, TheSocksProxyResolvesTheServersName)
{
    SocksProxy proxy("", "");
    use(KVXNetworkProxy::Socks5Proxy, proxy.port());
    EXPECT_TRUE(network->post(QStringLiteral("http://localhost:%1/kvx/service").arg(server.port()),
        {}, reply, nullptr, nullptr));
    EXPECT_TRUE(proxy.log().contains("connected to localhost:")) << proxy.log().constData();
}

TEST_F(NetworkProxy, FilesGoThroughBothProxies)
{
    HttpProxy http("", "");
    SocksProxy socks("", "");
    const QByteArray bytes(300'000, 'f');
    const QString file = writeFile("file", bytes);
    for (const bool useHttp : { true, false }) {
        use(useHttp ? KVXNetworkProxy::HttpProxy : KVXNetworkProxy::Socks5Proxy,
            useHttp ? http.port() : socks.port());
        server.handle("/kvx/service", LoopbackServer::answer(R"({"statuscode":1})"));
        EXPECT_TRUE(network->uploadFile(url(), file, "f", nullptr, nullptr))
            << error().toStdString();
        EXPECT_GT(server.lastRequest().bodySize, 300'000u);
        server.handle("/kvx/service",
            LoopbackServer::answer(bytes.toStdString(), 200, "Kvx-Reply: {\"statuscode\":1}\r\n"));
        EXPECT_TRUE(network->downloadFile(url(), "f", path("out"), nullptr, nullptr))
            << error().toStdString();
        EXPECT_EQ(readFile(path("out")), bytes);
        EXPECT_EQ(cameThroughHttpProxy(), useHttp) << server.lastRequest().head;
    }
}

TEST_F(NetworkProxy, SearchAndPingUseTheProxy)
{
    server.handle(
        "/kvx/v2/api/server", LoopbackServer::answer(R"({"product":"kvx-server","name":"n"})"));
    HttpProxy proxy("", "");
    use(KVXNetworkProxy::HttpProxy, proxy.port());
    EXPECT_TRUE(network->ping("127.0.0.1", server.port()));
    EXPECT_TRUE(cameThroughHttpProxy());
    network->searchServer({ "127.0.0.1" }, server.port(), nullptr, nullptr);
    EXPECT_TRUE(cameThroughHttpProxy());
    EXPECT_EQ(server.requests().size(), 2u);
}

TEST_F(NetworkProxy, ProxiesOfTheEnvironmentAreIgnored)
{
    for (const char *name : { "http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY" })
        qputenv(name, "http://127.0.0.1:9");
    EXPECT_TRUE(post());
    HttpProxy proxy("", "");
    qputenv("no_proxy", "127.0.0.1,localhost");
    use(KVXNetworkProxy::HttpProxy, proxy.port());
    EXPECT_TRUE(post());
    EXPECT_TRUE(cameThroughHttpProxy());
    for (const char *name : { "http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY", "no_proxy" })
        qunsetenv(name);
}

TEST_F(NetworkProxy, ADeadProxyIsNamed)
{
    const int gone = LoopbackServer().port();
    use(KVXNetworkProxy::HttpProxy, gone);
    EXPECT_FALSE(post());
    EXPECT_EQ(error(), QStringLiteral("No server answers at 127.0.0.1:%1.").arg(gone));
    use(KVXNetworkProxy::Socks5Proxy, gone);
    EXPECT_FALSE(post());
    use(KVXNetworkProxy::HttpProxy, 8080, "", "", "nowhere.invalid");
    EXPECT_FALSE(post());
    EXPECT_EQ(error(), QStringLiteral("There is no proxy named \"nowhere.invalid:8080\"."));
    EXPECT_EQ(server.requests().size(), 0u);
}

TEST_F(NetworkProxy, AnUnusableProxyAddressIsAnErrorAndNoDirectConnection)
{
    for (const char *host : { "", "socks5://127.0.0.1", "a b", "user@127.0.0.1", "x/y", "x\n" }) {
        use(KVXNetworkProxy::HttpProxy, 8080, "", "", host);
        EXPECT_FALSE(post()) << host;
        EXPECT_TRUE(error().contains("not a valid proxy address")) << error().toStdString();
    }
    for (const int port : { 0, -1, 65536 }) {
        use(KVXNetworkProxy::Socks5Proxy, port);
        EXPECT_FALSE(post()) << port;
    }
    EXPECT_EQ(server.requests().size(), 0u);
}

TEST_F(NetworkProxy, AnUnknownTypeCountsAsNoProxy)
{
    KVXNetworkProxy proxy;
    proxy.type = 7;
    proxy.host = "127.0.0.1";
    proxy.port = 9;
    network->setProxy(proxy);
    EXPECT_TRUE(post());
    EXPECT_EQ(network->proxy().type, 7);
}

} // namespace kvx::test
