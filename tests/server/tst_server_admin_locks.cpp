#include "AdminFixture.h"

using namespace kvx::test;

namespace {

using AdminLocks = Administered;

} // namespace

TEST_F(AdminLocks, OfAllKindsAreListed)
{
    createShared();
    ASSERT_EQ(anna.lock(-1), "1");
    ASSERT_EQ(anna.onProject("projectlock", { { "ReleaseLock", "false" } }).statusCode(), 1);
    takeGlobalLock(4);
    takeGlobalLock(5, kvx::server::wallTime() - 1);
    const AdminAnswer list = json({ "lock", "list" });
    EXPECT_EQ(list.rowKeys("locks"), "kind guid name type email device session since until");
    ASSERT_EQ(list.count("locks"), 3U) << "one that is over is free: " << list.text;
    EXPECT_STREQ(list["locks"][0]["kind"].GetString(), "save");
    EXPECT_STREQ(list["locks"][0]["device"].GetString(), "anna");
    EXPECT_STREQ(list["locks"][1]["kind"].GetString(), "project");
    EXPECT_STREQ(list["locks"][1]["email"].GetString(), "anna@example.com");
    EXPECT_STREQ(list["locks"][2]["kind"].GetString(), "global");
    EXPECT_EQ(list["locks"][2]["type"].GetInt(), 4);
    EXPECT_STREQ(list["locks"][2]["email"].GetString(), "ben@example.com");
    expect(0, { "lock", "list" }, "School Nordring");
}

TEST_F(AdminLocks, AGlobalOneIsFreedOnce)
{
    takeGlobalLock(-4);
    expect(0, { "lock", "free", "-4" }, "The global lock of type -4 of ben@example.com is free.");
    expect(1, { "lock", "free", "-4" }, "there is no global lock of type -4");
    expect(2, { "lock", "free", "four" }, "not a whole number");
    expect(2, { "lock", "free" }, "type is required");
    EXPECT_EQ(json({ "lock", "list" }).count("locks"), 0U);
    EXPECT_EQ(audited("lock free"), std::vector<std::string> { "global lock -4|ben@example.com" });
}

TEST_F(AdminLocks, AnAnswerWithoutLocksSaysSo)
{
    expect(0, { "lock", "list" }, "Nothing to show.");
    EXPECT_EQ(json({ "lock", "list" }).text, "{\"ok\":true,\"locks\":[]}\n");
}
