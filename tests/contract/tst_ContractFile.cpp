#include "ContractFile.h"

#include <gmock/gmock.h>
#include <set>

// The comparison itself: a comparer that lets something through would make every contract
// worthless.

using namespace kvx::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<std::string> diff(const char *expected, const char *actual)
{
    return differences(parsedJson(expected), parsedJson(actual));
}

} // namespace

TEST(ContractFile, KeysMayStandInAnyOrder)
{
    EXPECT_THAT(diff(R"({"a":1,"b":[true,null]})", R"({"b":[true,null],"a":1})"), IsEmpty());
}

TEST(ContractFile, AMissingKeyIsNamed)
{
    EXPECT_THAT(
        diff(R"({"a":{"b":1}})", R"({"a":{}})"), ElementsAre("/a/b: is missing, expected 1"));
}

TEST(ContractFile, AnUnknownKeyIsNamed)
{
    EXPECT_THAT(
        diff(R"({})", R"({"more":[]})"), ElementsAre("/more: is not in the contract, found []"));
}

TEST(ContractFile, AnotherTypeDiffersEvenWhenItLooksAlike)
{
    EXPECT_THAT(diff(R"({"n":1})", R"({"n":"1"})"),
        ElementsAre("/n: expected the integer 1, found the text \"1\""));
    EXPECT_THAT(
        diff("[1]", "[1.0]"), ElementsAre("/0: expected the integer 1, found the number 1.0"));
    EXPECT_THAT(
        diff("[1]", "[true]"), ElementsAre("/0: expected the integer 1, found the flag true"));
    EXPECT_THAT(
        diff("{}", "[]"), ElementsAre("the whole: expected the object {}, found the array []"));
}

TEST(ContractFile, AnotherValueIsShownWithItsPlace)
{
    EXPECT_THAT(diff(R"({"a":[{"b":"x"}]})", R"({"a":[{"b":"y"}]})"),
        ElementsAre("/a/0/b: expected \"x\", found \"y\""));
    EXPECT_THAT(diff("[true]", "[false]"), ElementsAre("/0: expected true, found false"));
}

TEST(ContractFile, AnArrayOfAnotherLengthDiffers)
{
    EXPECT_THAT(diff("[1]", "[1,2]"), ElementsAre("the whole: expected 1 elements, found [1,2]"));
    EXPECT_THAT(diff("[1,2]", "[1]"), ElementsAre("the whole: expected 2 elements, found [1]"));
}

TEST(ContractFile, APlaceholderTakesItsOwnKindOnly)
{
    const char *digest = R"(["5feceb66ffc86f38d952786c6d696c79c2dbc239dd4e91b46729d73a27fb57e9"])";
    EXPECT_THAT(diff(R"(["<text>"])", R"([""])"), IsEmpty());
    EXPECT_THAT(diff(R"(["<text>"])", "[3]"), ElementsAre("/0: expected <text>, found 3"));
    EXPECT_THAT(diff(R"(["<date>"])", R"(["2026-11-21 14:05"])"), IsEmpty());
    EXPECT_EQ(diff(R"(["<date>"])", R"(["2026-11-21 14:05:30"])").size(), 1u);
    EXPECT_EQ(diff(R"(["<date>"])", R"(["2026-11-21T14:05"])").size(), 1u);
    EXPECT_THAT(diff(R"(["<integer>"])", "[-1]"), IsEmpty());
    EXPECT_EQ(diff(R"(["<integer>"])", "[1.5]").size(), 1u);
    EXPECT_EQ(diff(R"(["<integer>"])", R"(["1"])").size(), 1u);
    EXPECT_THAT(diff(R"(["<digest>"])", digest), IsEmpty());
    EXPECT_EQ(diff(R"(["<digest>"])", R"(["5fec"])").size(), 1u);
    EXPECT_EQ(diff(R"(["<id>"])", R"([""])").size(), 1u);
    EXPECT_THROW(diff(R"(["<dat>"])", R"(["x"])"), std::runtime_error);
}

TEST(ContractFile, AFilledPlaceholderMatchesIt)
{
    const auto expected
        = parsedJson(R"({"a":["<text>","<date>","<integer>","<digest>","<id>"],"b":2})");
    EXPECT_THAT(differences(expected, parsedJson(filledJson(expected))), IsEmpty());
}

TEST(ContractFile, TitlesTellTheExchangesOfAServiceApart)
{
    for (const std::string &service : contractServices()) {
        std::set<std::string> names;
        for (const Exchange &exchange : exchangesOf(service))
            EXPECT_TRUE(names.insert(exchange.testName()).second)
                << service << ": " << exchange.title;
    }
}
