#include "frame/ServiceReply.h"
#include "support/FakeHost.h"

#include <gtest/gtest.h>

namespace kvx::test {

TEST(ServiceReply, thatWasNotSentFailsEveryTest)
{
    const ServiceReply reply;
    EXPECT_FALSE(reply.sent());
    EXPECT_FALSE(reply.carried());
    EXPECT_FALSE(reply.ok());
    EXPECT_EQ(reply.status(), 0);
    double raw = 7;
    reply.storeRawStatus(&raw);
    EXPECT_EQ(raw, 7);
}

TEST(ServiceReply, judgesTheTruncatedStatus)
{
    const struct {
        const char *text;
        int status;
        double raw;
    } cases[] = {
        { R"({"statuscode": 1})", 1, 1 },
        { R"({"statuscode": 1.9})", 1, 1.9 },
        { R"({"statuscode": 0.5})", 0, 0.5 },
        { R"({"statuscode": 235})", 235, 235 },
        { R"({"statuscode": -1})", -1, -1 },
        { R"({"statuscode": 1e300})", 2147483647, 1e300 },
        { R"({"statuscode": "1"})", 0, 0 },
        { R"({"statuscode": null})", 0, 0 },
        { R"({"statuscode": {}})", 0, 0 },
        { R"({"statuscode": true})", 0, 0 },
        { R"({})", 0, 0 },
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.text);
        const ServiceReply reply(true, json(one.text));
        EXPECT_EQ(reply.status(), one.status);
        EXPECT_EQ(reply.ok(), one.status == 1);
        EXPECT_EQ(reply.rawStatus(), one.raw);
        double raw = 7;
        reply.storeRawStatus(&raw);
        EXPECT_EQ(raw, one.raw);
        reply.storeRawStatus(nullptr);
    }
}

TEST(ServiceReply, theStatusDoesNotDependOnTheTransport)
{
    const ServiceReply reply(false, json(R"({"statuscode": 1})"));
    EXPECT_TRUE(reply.sent());
    EXPECT_FALSE(reply.carried());
    EXPECT_TRUE(reply.ok());
}

TEST(ServiceReply, membersOfAnotherTypeReadAsEmpty)
{
    const ServiceReply reply(true, json(R"({"n": 3.7, "t": "x", "o": {"a": 1}})"));
    EXPECT_EQ(reply.integer("n"), 3);
    EXPECT_EQ(reply.text("t"), QStringLiteral("x"));
    EXPECT_EQ(reply["o"].toObject().value(QStringLiteral("a")).toInt(), 1);
    EXPECT_EQ(reply.integer("t"), 0);
    EXPECT_EQ(reply.text("n"), QString());
    EXPECT_EQ(reply.text("missing"), QString());
    EXPECT_TRUE(reply["missing"].isUndefined());
}

} // namespace kvx::test
