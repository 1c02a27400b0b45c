#include "AdminFixture.h"

using namespace kvx::test;

namespace {

using AdminItems = Administered;
using AdminItemsAloud = AdministeredAloud;
const std::string school = "School Nordring";

} // namespace

TEST_F(AdminItems, AreListedByModuleAndHolder)
{
    createShared();
    ASSERT_EQ(anna.checkOut("5;2;", 3), 1);
    ASSERT_EQ(ben.checkOut("2147483647;", 4), 1);
    const AdminAnswer list = json({ "item", "list", school });
    EXPECT_EQ(list.rowKeys("items"), "module id email name since");
    ASSERT_EQ(list.count("items"), 3U);
    EXPECT_EQ(list["items"][0]["id"].GetInt(), 2);
    EXPECT_EQ(list["items"][2]["id"].GetInt(), 2147483647);
    EXPECT_EQ(json({ "item", "list", school, "--module", "3" }).count("items"), 2U);
    EXPECT_EQ(json({ "item", "list", school, "--user", ben.email }).count("items"), 1U);
    EXPECT_EQ(json({ "item", "list", school, "--module", "9" }).count("items"), 0U);
    expect(1, { "item", "list", "Nix" }, "there is no project");
    expect(1, { "item", "list", school, "--user", "nobody@example.com" }, "there is no user");
    expect(2, { "item", "list", school, "--module", "x" }, "not a whole number");
}

TEST_F(AdminItemsAloud, AReleasedOneIsFreeForOthersAndHeardByItsHolderToo)
{
    createShared();
    listenAnew();
    ASSERT_EQ(anna.checkOut("1;2;3;"), 1);
    EXPECT_EQ(ben.checkOut("2;"), 620);
    const AdminAnswer released
        = json({ "item", "release", school, "--module", "3", "3", "2", "2", "77" });
    ASSERT_EQ(released.exitCode, 0) << released.text;
    ASSERT_EQ(released["released"].Size(), 2U);
    EXPECT_EQ(released["released"][0].GetInt(), 2);
    const std::string message = heard("\"CheckIn\"");
    EXPECT_TRUE(has(message, "\"ModuleType\":3"));
    EXPECT_TRUE(has(message, R"("notifymsg_from":"")")) << "no client takes it for its own";
    EXPECT_EQ(ben.checkOut("2;3;"), 1);
    EXPECT_EQ(ben.checkOut("1;"), 620) << "the others stay";
    EXPECT_TRUE(
        has(anna.onProject("checkout",
                    { { "ModuleType", "3" }, { "NotifyOther", "false" }, { "IDs", "\"\"" } })
                .body,
            R"({"ID":2,"Email":"ben@example.com")"));
    EXPECT_EQ(audited("item release"), std::vector<std::string> { guidOf(1) + "|module 3: 2,3" });
}

TEST_F(AdminItems, WhatIsFreeAlreadyChangesNothing)
{
    createShared();
    expect(0, { "item", "release", school, "--module", "3", "1", "2" },
        "0 of 2 items were checked out");
    EXPECT_EQ(audited("item release").size(), 0U);
    expect(2, { "item", "release", school, "1" }, "--module is required");
    expect(2, { "item", "release", school, "--module", "3" }, "item is required");
    expect(1, { "item", "release", "Nix", "--module", "3", "1" }, "there is no project");
}

TEST_F(AdminItemsAloud, AReleaseWithTheServerStoppedIsHeardAfterItsStart)
{
    createShared();
    listenAnew();
    ASSERT_EQ(anna.checkOut("1;"), 1);
    server.stop();
    expect(0, { "item", "release", school, "--module", "3", "1" }, "1 of 1 items");
    server.start();
    EXPECT_NE(heard("\"CheckIn\""), "");
    EXPECT_EQ(ben.checkOut("1;"), 1);
}
