#include "content/Decimal.h"

#include <gtest/gtest.h>
#include <limits>

using namespace kvx::content;

namespace {

std::optional<Thousandths> parse(const char *text, bool comma = false)
{
    return parseDecimal(QString::fromUtf8(text), comma);
}

} // namespace

TEST(Decimal, ReadsWholeThousandths)
{
    EXPECT_EQ(parse("0"), 0);
    EXPECT_EQ(parse("12.5"), 12500);
    EXPECT_EQ(parse("-0.125"), -125);
    EXPECT_EQ(parse("+3"), 3000);
    EXPECT_EQ(parse(" 7.100 "), 7100);
    EXPECT_EQ(parse("7.100000"), 7100);
    EXPECT_EQ(parse("999999999999.999"), 999999999999999);
}

TEST(Decimal, RefusesWhatWouldLoseDigitsOrIsNoNumber)
{
    for (const char *text : { "", "-", ".", ".5", "5.", "1.2345", "1,5", "1e3", "0x10", "1 000",
             "1234567890123", "12.5.1", "nan", "\xd9\xa1" })
        EXPECT_FALSE(parse(text)) << text;
}

TEST(Decimal, ReadsTheDecimalComma)
{
    EXPECT_EQ(parse("1.234,50", true), 1234500);
    EXPECT_EQ(parse("12,5", true), 12500);
    EXPECT_EQ(parse("12.5", true), 12500);
    EXPECT_FALSE(parse("1,2,3", true));
}

TEST(Decimal, FormatsWithoutSuperfluousZeros)
{
    EXPECT_EQ(formatDecimal(12500), QStringLiteral("12.5"));
    EXPECT_EQ(formatDecimal(12500, 2), QStringLiteral("12.50"));
    EXPECT_EQ(formatDecimal(-125), QStringLiteral("-0.125"));
    EXPECT_EQ(formatDecimal(3000), QStringLiteral("3"));
    EXPECT_EQ(formatDecimal(std::numeric_limits<Thousandths>::min()),
        QStringLiteral("-9223372036854775.808"));
}

TEST(Decimal, WhatWasFormattedReadsBackEqual)
{
    for (Thousandths value : { 0LL, 1LL, 999LL, 1000LL, -1LL, 123456789LL, -987654321012LL })
        EXPECT_EQ(parseDecimal(formatDecimal(value)), value);
}

TEST(Decimal, AmountsAreRoundedHalfAwayFromZero)
{
    EXPECT_EQ(amountInCents(1000, 1005), 101); // 1 × 1.005
    EXPECT_EQ(amountInCents(1000, 1004), 100);
    EXPECT_EQ(amountInCents(-1000, 1005), -101);
    EXPECT_EQ(amountInCents(100000, 12500), 125000);
    EXPECT_EQ(formatCents(125000), QStringLiteral("1250.00"));
}

TEST(Decimal, AnAmountThatDoesNotFitIsNone)
{
    EXPECT_FALSE(amountInCents(std::numeric_limits<Thousandths>::max(), 2));
    EXPECT_FALSE(amountInCents(std::numeric_limits<Thousandths>::max(), 1));
}
