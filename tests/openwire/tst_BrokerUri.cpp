#include "BrokerUri.h"

#include <cms/CMSException.h>

#include <gmock/gmock.h>

using kvx::openwire::BrokerUri;

TEST(BrokerUri, hostPortAndOptions)
{
    const BrokerUri uri = BrokerUri::parse("tcp://broker.example.org:61616?soConnectTimeout=5000"
                                           "&wireFormat.MaxInactivityDuration=0&keepAlive=true&x");
    EXPECT_EQ(uri.scheme, "tcp");
    EXPECT_EQ(uri.host, "broker.example.org");
    EXPECT_EQ(uri.port, 61616);
    EXPECT_EQ(uri.connectLimit.count(), 5000);
    EXPECT_EQ(uri.wireFormat.maxInactivity.count(), 0);
    EXPECT_EQ(uri.wireFormat.initialDelay.count(), 10000);
    EXPECT_EQ(uri.requestLimit.count(), 15000);
}

TEST(BrokerUri, defaults)
{
    const BrokerUri uri = BrokerUri::parse("tcp://127.0.0.1:1");
    EXPECT_EQ(uri.connectLimit.count(), 10000);
    EXPECT_EQ(uri.loginLimit.count(), 15000);
    EXPECT_EQ(uri.closeLimit.count(), 2000);
    EXPECT_EQ(uri.wireFormat.version, 12);
    EXPECT_EQ(uri.wireFormat.maxInactivity.count(), 30000);
}

TEST(BrokerUri, addressesOfIPv6StandInBrackets)
{
    const BrokerUri uri = BrokerUri::parse("tcp://[::1]:61616?a=b");
    EXPECT_EQ(uri.host, "::1");
    EXPECT_EQ(uri.port, 61616);
}

TEST(BrokerUri, missingPartsAreLeftToTheConnection)
{
    EXPECT_EQ(BrokerUri::parse("").scheme, "");
    EXPECT_EQ(BrokerUri::parse("localhost").scheme, "");
    EXPECT_EQ(BrokerUri::parse("tcp://host").port, 0);
    EXPECT_EQ(BrokerUri::parse("tcp://host:").port, 0);
    EXPECT_EQ(BrokerUri::parse("tcp:///").host, "");
    EXPECT_EQ(BrokerUri::parse("failover:(tcp://a:1,tcp://b:2)").scheme, "failover");
}

TEST(BrokerUri, whatIsNoUriIsRefused)
{
    for (const char *text :
        { "tcp://a b:1", "tcp://h:port", "tcp://h:65536", "tcp://h:-1", "tcp://[::1:1",
            "tcp://::1:1", "tcp:", "://h:1", "tc p://h:1", "tcp://h:1?soConnectTimeout=soon",
            "tcp://h:1?wireFormat.version=0", "tcp://h:1?wireFormat.version=13", "tcp://h<>:1",
            "tcp://h:1\n", "tcp://\xc3\xa4:1", "tcp://[::1]x:1" }) {
        try {
            BrokerUri::parse(text);
            ADD_FAILURE() << text;
        } catch (const cms::CMSException &ex) {
            EXPECT_EQ(ex.getMessage(), "Invalid Connection Uri detected.") << text;
        }
    }
}
