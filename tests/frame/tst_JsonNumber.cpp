#include "frame/JsonNumber.h"

#include <gtest/gtest.h>
#include <limits>

TEST(JsonNumber, truncatesTowardsZero)
{
    EXPECT_EQ(kvx::toInt(1.9), 1);
    EXPECT_EQ(kvx::toInt(0.5), 0);
    EXPECT_EQ(kvx::toInt(-1.9), -1);
    EXPECT_EQ(kvx::toInt(235), 235);
}

TEST(JsonNumber, staysInTheRangeOfInt)
{
    constexpr int highest = std::numeric_limits<int>::max();
    constexpr int lowest = std::numeric_limits<int>::min();
    EXPECT_EQ(kvx::toInt(2147483647.0), highest);
    EXPECT_EQ(kvx::toInt(2147483648.0), highest);
    EXPECT_EQ(kvx::toInt(1e300), highest);
    EXPECT_EQ(kvx::toInt(-2147483648.0), lowest);
    EXPECT_EQ(kvx::toInt(-3e9), lowest);
    EXPECT_EQ(kvx::toInt(-1e300), lowest);
}

TEST(JsonNumber, isZeroForAnythingElse)
{
    EXPECT_EQ(kvx::toInt(QJsonValue()), 0);
    EXPECT_EQ(kvx::toInt(QJsonValue(QJsonValue::Undefined)), 0);
    EXPECT_EQ(kvx::toInt(QStringLiteral("1")), 0);
    EXPECT_EQ(kvx::toInt(true), 0);
}
