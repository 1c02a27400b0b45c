#include "base/Clock.h"
#include "base/Config.h"
#include "base/Digest.h"
#include "base/Text.h"
#include "http/ByteRange.h"
#include "notify/Message.h"
#include "services/Password.h"
#include "services/RateLimiter.h"
#include "services/Reply.h"
#include "services/Request.h"
#include "services/StatusCode.h"
#include "store/OutboxStore.h"

#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <set>

using namespace kvx::server;

namespace {

TEST(ServerText, EmailsAreTrimmedComposedAndLowerCased)
{
    EXPECT_EQ(canonicalEmail("  Anna@Example.COM\t"), "anna@example.com");
    EXPECT_EQ(canonicalEmail("Zoe\xCC\x88@x"), "zo\xC3\xAB@x")
        << "a letter and its dots become one character";
    EXPECT_EQ(canonicalEmail("\xC3\x84@x"), "\xC3\xA4@x");
    EXPECT_EQ(canonicalEmail("\xE2\x80\x83"
                             "a@x"),
        "a@x")
        << "an em space is white space";
}

TEST(ServerText, NamesAreComparedWithoutRegardToCase)
{
    EXPECT_EQ(foldedKey("Stra\xC3\x9F"
                        "e"),
        foldedKey("STRASSE"));
    EXPECT_EQ(foldedKey(" School "), foldedKey("sCHOOL"));
    EXPECT_NE(foldedKey("School"), foldedKey("Schools"));
}

TEST(ServerText, DisplayNamesRefuseControlCharactersAndLengths)
{
    EXPECT_EQ(displayName(" A b ", 10), "A b");
    EXPECT_FALSE(displayName("  ", 10));
    EXPECT_FALSE(displayName("a\nb", 10));
    EXPECT_FALSE(displayName(std::string("a\0b", 3), 10));
    EXPECT_TRUE(displayName("\xC3\xA4\xC3\xA4\xC3\xA4", 3)) << "characters count, not bytes";
    EXPECT_FALSE(displayName("abcd", 3));
}

TEST(ServerText, GuidsHaveBracesAndHexDigits)
{
    EXPECT_TRUE(isGuid("{5E7C38FF-98c8-46ca-b40b-9397f7bc0a8f}"));
    for (const char *text : { "", "{}", "5e7c38ff-98c8-46ca-b40b-9397f7bc0a8f",
             "{5e7c38ff-98c8-46ca-b40b-9397f7bc0a8g}", "{5e7c38ff98c8-46ca-b40b-9397f7bc0a8f-}",
             "{5e7c38ff-98c8-46ca-b40b-9397f7bc0a8f} " })
        EXPECT_FALSE(isGuid(text)) << text;
}

TEST(ServerText, Utf8IsJudgedStrictly)
{
    EXPECT_TRUE(isValidUtf8("a\xC3\xA4\xF0\x9F\x98\x80"));
    for (const char *text : { "\xC0\x80", "\xED\xA0\x80", "\xF5\x80\x80\x80", "\x80", "\xC3" })
        EXPECT_FALSE(isValidUtf8(text));
}

TEST(ServerStatusCodes, ArgumentsAreNeverReadAsPlaceholders)
{
    EXPECT_EQ(statusSentence(StatusCode::GlobalLockHeld, { "%2", "noon" }),
        "This is locked by %2 until noon.");
    EXPECT_EQ(statusSentence(StatusCode::NameTaken), "\"\" exists already.");
}

TEST(ServerStatusCodes, WordsAndNumbersAreDistinctAnd204IsNoneOfThem)
{
    std::set<std::string_view> words;
    std::set<int> numbers;
    for (const StatusCode code : allStatusCodes()) {
        EXPECT_TRUE(words.insert(statusWord(code)).second);
        EXPECT_TRUE(numbers.insert(static_cast<int>(code)).second);
        EXPECT_FALSE(statusSentence(code).empty());
    }
    EXPECT_EQ(numbers.count(204), 0U);
    EXPECT_EQ(numbers.size(), 59U);
}

TEST(ServerReply, ARefusalRepeatsItsSentenceUnderTheEmptyKeyWhereAsked)
{
    Reply reply = Reply::refused(StatusCode::GlobalLockNotHeld);
    EXPECT_EQ(reply.json("r"),
        R"({"statuscode":651,"error":"GlobalLockNotHeld","message":"This is not locked.","requestId":"r"})");
    reply.repeatSentence();
    EXPECT_EQ(reply.json("r"),
        R"({"statuscode":651,"error":"GlobalLockNotHeld","message":"This is not locked.","":"This is not locked.","requestId":"r"})");
}

TEST(ServerReply, AFaultTellsTheRequestsNumberAndNothingElse)
{
    EXPECT_EQ(Reply::refused(StatusCode::Failed, { "secret" }).json("abc"),
        R"({"statuscode":0,"error":"Failed","message":"The server could not carry out the request (number abc).","requestId":"abc"})");
}

TEST(ServerReply, TextIsEscaped)
{
    EXPECT_EQ(Reply::ok().set("a", "q\"\\\n\x01").set("b", true).set("c", -5).json(""),
        "{\"statuscode\":1,\"a\":\"q\\\"\\\\\\n\\u0001\",\"b\":true,\"c\":-5}");
    EXPECT_EQ(
        asciiJson("{\"a\":\"\xC3\xA4\xF0\x9F\x98\x80\"}"), "{\"a\":\"\\u00e4\\ud83d\\ude00\"}");
}

std::string refusal(const std::function<void(const Request &)> &read, const std::string &json)
{
    const auto request = Request::parse(json);
    try {
        read(*request);
    } catch (const BadRequest &error) {
        return error.what();
    }
    return "taken";
}

TEST(ServerRequest, IntegersAreWholeAndInRange)
{
    const auto read = [](const Request &request) { request.integer("n", -1, 100); };
    const auto with = [&read](const std::string &number) {
        return refusal(read, R"({"service":"x","n":)" + number + "}");
    };
    for (const char *good : { "-1", "0", "100", "5.0", "1e2" })
        EXPECT_EQ(with(good), "taken") << good;
    for (const char *bad :
        { "-2", "101", "1e300", "-1e300", "9223372036854775807", "18446744073709551616" })
        EXPECT_EQ(with(bad), "\"n\" must lie between -1 and 100") << bad;
    EXPECT_EQ(with("1.9"), "\"n\" must be a whole number");
    for (const char *bad : { "null", "true", "\"5\"", "[]", "{}" })
        EXPECT_EQ(with(bad), "\"n\" must be a number") << bad;
}

TEST(ServerRequest, NestedKeysAreNamedWithTheirPath)
{
    EXPECT_EQ(refusal([](const Request &r) { r.objects("a").at(1).flag("f"); },
                  R"({"service":"x","a":[{},{"f":1}]})"),
        "\"a[1].f\" must be true or false");
    EXPECT_EQ(refusal([](const Request &r) { r.texts("a"); }, R"({"service":"x","a":["b",1]})"),
        "\"a[1]\" must be a text");
    EXPECT_EQ(refusal([](const Request &r) { r.object("o").text("t", 3); },
                  R"({"service":"x","o":{"t":"abcd"}})"),
        "\"o.t\" is too long");
    EXPECT_EQ(refusal([](const Request &r) { r.guid("g"); }, R"({"service":"x","g":"{}"})"),
        "\"g\" must be a GUID in braces");
}

TEST(ServerRequest, LongArraysAreTakenOnlyWhereTheyBelong)
{
    std::string array = "[";
    for (int i = 0; i < 10'001; ++i)
        array += i ? ",0" : "0";
    array += ']';
    EXPECT_THROW(Request::parse(R"({"service":"x","IDs":)" + array + "}"), BadRequest);
    EXPECT_THROW(Request::parse(R"({"service":"x","o":{"a":)" + array + "}}"), BadRequest);
    for (const char *key : { "Roles", "Projects", "Table" })
        EXPECT_NO_THROW(Request::parse(
            R"({"service":"x",")" + std::string(key) + R"(":{"rows":)" + array + "}}"));
}

TEST(ServerRequest, DepthIsCountedFromTheOutside)
{
    const auto nested = [](int depth) {
        return R"({"service":"x","a":)" + std::string(static_cast<std::size_t>(depth - 1), '[')
            + std::string(static_cast<std::size_t>(depth - 1), ']') + "}";
    };
    EXPECT_NO_THROW(Request::parse(nested(64)));
    EXPECT_THROW(Request::parse(nested(65)), BadRequest);
    EXPECT_THROW(Request::parse(std::string(500'000, '[')), BadRequest);
    EXPECT_THROW(Request::parse(nested(400'000)), BadRequest);
}

TEST(ServerRanges, OneRangeIsAnsweredEverythingElseWithTheWholeFile)
{
    const auto range = [](const std::string &text, const std::string &ifRange = {}) {
        return requestedRange(text, ifRange, "\"e\"", 100);
    };
    const auto isPart = [&range](const std::string &text, std::int64_t begin, std::int64_t end) {
        const ByteRange found = range(text);
        return found.kind == ByteRange::Kind::Part && found.begin == begin && found.end == end;
    };
    EXPECT_TRUE(isPart("bytes=0-0", 0, 1));
    EXPECT_TRUE(isPart("bytes=10-", 10, 100));
    EXPECT_TRUE(isPart("bytes=90-1000", 90, 100));
    EXPECT_TRUE(isPart("bytes=-10", 90, 100));
    EXPECT_TRUE(isPart("bytes=-1000", 0, 100));
    for (const char *whole : { "", "bytes=", "bytes=a-b", "bytes=5-2", "lines=1-2", "bytes=0-1,5-6",
             "bytes=--5", "bytes=99999999999999999999-" })
        EXPECT_EQ(range(whole).kind, ByteRange::Kind::Whole) << whole;
    for (const char *beyond : { "bytes=100-", "bytes=100-200", "bytes=-0" })
        EXPECT_EQ(range(beyond).kind, ByteRange::Kind::Unsatisfiable) << beyond;
    EXPECT_EQ(range("bytes=0-5", "\"e\"").kind, ByteRange::Kind::Part);
    EXPECT_EQ(range("bytes=0-5", "\"f\"").kind, ByteRange::Kind::Whole);
}

TEST(ServerMessages, TextIsWrittenAsJavaReadsIt)
{
    EXPECT_EQ(modifiedUtf8("a\xC3\xA4\xE2\x82\xAC"), "a\xC3\xA4\xE2\x82\xAC");
    EXPECT_EQ(modifiedUtf8("\xF0\x9F\x98\x80"), "\xED\xA0\xBD\xED\xB8\x80");
    EXPECT_EQ(modifiedUtf8(std::string("a\0b", 3)),
        "a\xC0\x80"
        "b");
}

TEST(ServerMessages, ALongArrayIsSplitAndNothingElse)
{
    const std::string one = "{\"a\":\"" + std::string(40, 'x') + "\"}";
    const std::string array = "[" + one + "," + one + "," + one + "]";
    EXPECT_EQ(splitContent(array, 1000).size(), 1U);
    EXPECT_EQ(splitContent(array, 100),
        (std::vector<std::string> { "[" + one + "," + one + "]", "[" + one + "]" }));
    EXPECT_EQ(splitContent(array, 10).size(), 3U) << "a record stays whole";
    EXPECT_EQ(splitContent(one, 10), std::vector<std::string> { one });
}

TEST(ServerMessages, TheEnvelopeIsTheSameForAll)
{
    OutboxRow row;
    row.type = "notifymsg_checkout";
    row.sender = "anna@example.com";
    EXPECT_EQ(messageText(row, { "CheckIn", R"({"Command":"CheckIn","ModuleType":3})" }, 8812),
        R"({"notifymsg_type":"notifymsg_checkout","notifymsg_from":"anna@example.com","notifymsg_to":"","notifymsg_seq":8812,"Command":"CheckIn","notifymsg_content":{"Command":"CheckIn","ModuleType":3}})");
    EXPECT_EQ(withCommand("New", R"({"a":1})"), R"({"Command":"New","a":1})");
    EXPECT_EQ(withCommand("New", "{}"), R"({"Command":"New"})");
}

TEST(ServerRates, ABurstIsTakenAndThenTheRateHolds)
{
    RateLimiter limiter;
    const RateLimiter::Rate rate { 5, 50 };
    Time now = 1000;
    for (int i = 0; i < 50; ++i)
        EXPECT_TRUE(limiter.admit(1, rate, now));
    EXPECT_FALSE(limiter.admit(1, rate, now));
    EXPECT_TRUE(limiter.admit(2, rate, now)) << "another session has its own";
    int taken = 0;
    for (int i = 0; i < 100; ++i)
        taken += limiter.admit(1, rate, now += 100);
    EXPECT_NEAR(taken, 50, 1);
}

TEST(ServerPasswords, AreHashedWithTheirCostInTheText)
{
    const std::string hash = hashPassword("secret");
    EXPECT_EQ(hash.rfind("$argon2id$v=19$m=19456,t=2,p=1$", 0), 0U) << hash;
    EXPECT_TRUE(verifyPassword(hash, "secret"));
    EXPECT_FALSE(verifyPassword(hash, "Secret"));
    EXPECT_FALSE(verifyPassword("", "secret"));
    EXPECT_NE(hash, hashPassword("secret"));
    EXPECT_FALSE(needsRehash(hash));
    EXPECT_TRUE(needsRehash("$argon2id$v=19$m=8192,t=1,p=1$c2FsdHNhbHRzYWx0c2FsdA$"
                            "YWJjZGVmZ2hpamtsbW5vcHFyc3R1dnd4eXoxMjM0NTY"));
    EXPECT_EQ(randomPassword(20).size(), 20U);
}

TEST(ServerClock, NeverGoesBelowTheHighestTimeOfEarlierRuns)
{
    const Time ahead = wallTime() + 3'600'000;
    const Clock clock(ahead);
    EXPECT_GE(clock.now(), ahead);
    EXPECT_LT(clock.now(), ahead + 60'000);
    const Clock plain(5);
    EXPECT_GE(plain.now(), wallTime() - 60'000);
}

TEST(ServerClock, WritesDatesInTheZoneOfTheProcess)
{
    setenv("TZ", "Asia/Tokyo", 1);
    tzset();
    EXPECT_EQ(minuteText(1'763'703'589'123), "2025-11-21 14:39");
    EXPECT_EQ(secondText(1'763'703'589'123), "2025-11-21 14:39:49");
    EXPECT_EQ(utcText(1'763'703'589'123), "2025-11-21T05:39:49.123Z");
    unsetenv("TZ");
    tzset();
}

TEST(ServerDigests, MatchTheKnownOnes)
{
    EXPECT_EQ(sha256("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(md5("abc"), "900150983cd24fb0d6963f7d28e17f72");
}

} // namespace
