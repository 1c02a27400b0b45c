#include "AdminFixture.h"

#include <future>

using namespace kvx::test;

namespace {

struct AdminSessions : Administered {
    std::string idOf(const AdminClient &client)
    {
        const AdminAnswer list = json({ "session", "list", "--user", client.email });
        return list.count("sessions") == 1U ? std::to_string(list["sessions"][0]["id"].GetInt64())
                                            : std::string("none");
    }
};

} // namespace

TEST_F(AdminSessions, AreListedWithWhatTheyHold)
{
    createShared();
    ASSERT_EQ(anna.open(), 1);
    ASSERT_EQ(anna.lock(-1), "1");
    const AdminAnswer list = json({ "session", "list" });
    EXPECT_EQ(list.count("sessions"), 2U);
    EXPECT_EQ(list.rowKeys("sessions"),
        "id email state device address product version created lastSeen openProjects saveLocks");
    const AdminAnswer own = json({ "session", "list", "--user", anna.email });
    ASSERT_EQ(own.count("sessions"), 1U);
    EXPECT_STREQ(own["sessions"][0]["state"].GetString(), "present");
    EXPECT_STREQ(own["sessions"][0]["address"].GetString(), "127.0.0.1");
    EXPECT_EQ(own["sessions"][0]["openProjects"].GetInt(), 1);
    EXPECT_EQ(own["sessions"][0]["saveLocks"].GetInt(), 1);
    expect(1, { "session", "list", "--user", "nobody@example.com" }, "there is no user");
}

TEST_F(AdminSessions, AnEndedOneIsRefusedAndHoldsNothing)
{
    createShared();
    ASSERT_EQ(anna.open(), 1);
    ASSERT_EQ(anna.lock(-1), "1");
    anna.stage(0);
    ASSERT_EQ(anna.checkOut("1;"), 1);
    const AdminAnswer ended = json({ "session", "end", idOf(anna) });
    ASSERT_EQ(ended.exitCode, 0) << ended.text;
    EXPECT_EQ(ended["ended"].Size(), 1U);
    ASSERT_EQ(ended["unlocked"].Size(), 1U);
    EXPECT_EQ(ended["unlocked"][0].GetString(), guidOf(1));

    EXPECT_EQ(anna.merge(0), 2) << "a save under way is refused";
    EXPECT_EQ(ben.onProject("onlineeditors").member("users"), "[]");
    EXPECT_EQ(ben.lock(-1), "1");
    EXPECT_EQ(ben.checkOut("1;"), 620) << "check-outs stay with the user";
    ASSERT_EQ(anna.login(), 1);
    EXPECT_EQ(anna.merge(0), 600) << "nor does it come back with the next session";
}

TEST_F(AdminSessions, OneThatWaitsForTheLockGetsItWithoutAskingAgain)
{
    createShared();
    ASSERT_EQ(anna.lock(-1), "1");
    auto waiting = std::async(std::launch::async, [this] { return ben.lock(-1); });
    expect(0, { "session", "end", idOf(anna) }, "anna@example.com has ended.");
    EXPECT_EQ(waiting.get(), "1") << "at the latest when its request has been held long enough";
}

TEST_F(AdminSessions, EndsOnceHoweverOftenItIsAsked)
{
    const std::string id = idOf(anna);
    auto other = std::async(std::launch::async, [&] {
        return server.command({ "session", "end", id }).exitCode;
    });
    const int one = server.command({ "session", "end", id }).exitCode;
    EXPECT_EQ(one + other.get(), 1) << "one is done, one is refused";
    expect(1, { "session", "end", id }, "there is no session " + id);
    EXPECT_EQ(audited("session end").size(), 1U);
}

TEST_F(AdminSessions, SeveralEndTogetherOrNotAtAll)
{
    expect(1, { "session", "end", idOf(anna), "999999" }, "there is no session 999999");
    EXPECT_TRUE(anna.isLoggedIn());
    expect(0, { "session", "end", idOf(anna), idOf(ben) }, "ben@example.com has ended.");
    EXPECT_FALSE(anna.isLoggedIn());
    EXPECT_FALSE(ben.isLoggedIn());
    ASSERT_EQ(anna.login(), 1);
    expect(0, { "session", "end", "--user", anna.email }, "has ended");
    EXPECT_FALSE(anna.isLoggedIn());
    expect(0, { "session", "end", "--user", anna.email }, "There was no session.");
}

TEST_F(AdminSessions, WhatIsNotUnderstoodEndsNothing)
{
    expect(2, { "session", "end" }, "numbers of sessions, or --user");
    expect(2, { "session", "end", "1", "--user", anna.email }, "numbers of sessions, or --user");
    expect(2, { "session", "end", "one" }, "not a whole number");
    EXPECT_TRUE(anna.isLoggedIn());
}

TEST_F(AdminSessions, ADeviceNameCannotWriteToTheTerminal)
{
    HttpClient hostile(server.url());
    ASSERT_EQ(hostile
                  .login(ben.email, "pw",
                      "desk\x1B[2J\nroot\xC2\x9B"
                      "1m")
                  .statusCode(),
        1);
    const CommandResult list = server.command({ "session", "list" });
    EXPECT_FALSE(has(list.out, "\x1B"));
    EXPECT_FALSE(has(list.out, "\xC2\x9B"));
    EXPECT_TRUE(has(list.out, "desk?[2J?root?1m")) << list.out;
    EXPECT_TRUE(has(json({ "session", "list" }).text, R"(desk\u001B[2J\nroot)"))
        << "programs get what was sent";
}

TEST_F(AdminSessions, EndWithTheServerStoppedToo)
{
    const std::string id = idOf(anna);
    server.stop();
    expect(0, { "session", "end", id }, "has ended");
    server.start();
    EXPECT_FALSE(anna.isLoggedIn());
    EXPECT_TRUE(ben.isLoggedIn());
}
