#include "AdminFixture.h"

#include <future>

using namespace kvx::test;

namespace {

using AdminProjects = Administered;
using AdminProjectsAloud = AdministeredAloud;
const std::string school = "School Nordring";

} // namespace

TEST_F(AdminProjects, AreListedAndShown)
{
    createShared();
    anna.save(0);
    ASSERT_EQ(ben.open(), 1);
    ASSERT_EQ(ben.checkOut("1;2;3;"), 1);
    ASSERT_EQ(ben.lock(0), "1");
    const AdminAnswer list = json({ "project", "list" });
    EXPECT_EQ(list.count("projects"), 1U);
    EXPECT_EQ(list.rowKeys("projects"), "guid name kind creator version editor modified");
    EXPECT_EQ(list["projects"][0]["guid"].GetString(), guidOf(1));
    EXPECT_EQ(list["projects"][0]["version"].GetInt(), 0);

    const std::string bare = guidOf(1).substr(1, 36);
    for (const std::string &name : { guidOf(1), bare, school, std::string("SCHOOL nordring") }) {
        const AdminAnswer shown = json({ "project", "show", name });
        ASSERT_EQ(shown.exitCode, 0) << shown.text;
        EXPECT_STREQ(shown["project"]["creator"].GetString(), "anna@example.com");
        EXPECT_STREQ(shown["project"]["amount"].GetString(), "12.50");
        EXPECT_EQ(shown["project"]["checkedOut"].GetInt(), 3);
        EXPECT_GT(shown["project"]["logBytes"].GetInt(), 0);
        EXPECT_GT(shown["project"]["fileBytes"].GetInt(), 0);
        EXPECT_EQ(shown["users"].Size(), 2U);
        EXPECT_EQ(shown["open"].Size(), 1U);
        ASSERT_EQ(shown["locks"].Size(), 1U);
        EXPECT_STREQ(shown["locks"][0]["kind"].GetString(), "save");
    }
    expect(0, { "project", "show", school }, "Creator                 anna@example.com\n");
    expect(1, { "project", "show", "Nix" }, "there is no project \"Nix\"");
    expect(1, { "project", "show", guidOf(9) }, "there is no project");
}

TEST_F(AdminProjects, EveryVersionStandsInTheHistory)
{
    createShared();
    anna.save(0);
    ASSERT_EQ(ben.lock(0), "1");
    ben.stage(1);
    ASSERT_EQ(ben.merge(1), 1);
    const AdminAnswer history = json({ "project", "history", school });
    EXPECT_EQ(history.rowKeys("history"), "version at email device size amount sha256 chain");
    ASSERT_EQ(history.count("history"), 2U);
    EXPECT_EQ(history["history"][1]["version"].GetInt(), 1);
    EXPECT_STREQ(history["history"][1]["email"].GetString(), "ben@example.com");
    EXPECT_EQ(history["history"][1]["sha256"].GetStringLength(), 64U);
    expect(0, { "project", "history", school }, "Version  Saved");
    expect(1, { "project", "history", "Nix" }, "there is no project");
}

TEST_F(AdminProjectsAloud, ARemovedOneGoesEverywhereAndComesBackWhole)
{
    createShared();
    listenAnew();
    anna.save(0);
    ASSERT_EQ(anna.checkOut("1;"), 1);
    const AdminAnswer removed = json({ "project", "remove", school });
    ASSERT_EQ(removed.exitCode, 0) << removed.text;
    EXPECT_EQ(removed["ProjectGUID"].GetString(), guidOf(1));
    EXPECT_TRUE(has(heard("\"Remove\""), R"("notifymsg_from":"")"));
    EXPECT_EQ(anna.onProject("getproject").statusCode(), 310);
    EXPECT_EQ(json({ "project", "list" }).count("projects"), 0U);
    const AdminAnswer trash = json({ "project", "list", "--removed" });
    EXPECT_EQ(trash.rowKeys("projects"), "guid name kind removed removedBy purged");
    EXPECT_STREQ(trash["projects"][0]["removedBy"].GetString(), "");

    expect(1, { "project", "remove", school }, "there is no project");
    expect(0, { "project", "restore", school }, "\"School Nordring\" is back.");
    const std::string message = heard("\"Command\":\"New\"");
    EXPECT_TRUE(has(message, "\"users\":["));
    EXPECT_TRUE(has(message, "ben@example.com"));
    EXPECT_EQ(ben.onProject("getlogversion").member("LogVersion"), "0");
    EXPECT_EQ(ben.checkOut("1;"), 1) << "check-outs do not come back";
    anna.save(1);
    expect(1, { "project", "restore", school }, "there is no removed project");
    EXPECT_EQ(audited("project remove"), std::vector<std::string> { guidOf(1) + '|' + school });
    EXPECT_EQ(audited("project restore").size(), 1U);
}

TEST_F(AdminProjects, OneThatIsInUseIsNotRemoved)
{
    createShared();
    ASSERT_EQ(ben.open(), 1);
    expect(1, { "project", "remove", school }, "The project is open at: Ben Ito.");
    ASSERT_EQ(ben.onProject("closeproject").statusCode(), 1);
    ASSERT_EQ(ben.onProject("projectlock", { { "ReleaseLock", "false" } }).statusCode(), 1);
    expect(1, { "project", "remove", school }, "The project is locked by Ben Ito.");
    expect(0, { "project", "unlock", school }, "The project lock of ben@example.com");
    expect(0, { "project", "remove", school }, "is removed");
}

TEST_F(AdminProjects, ARestoredOneMayNeedAnotherName)
{
    createShared();
    ASSERT_EQ(server.command({ "project", "remove", school }).exitCode, 0);
    ASSERT_EQ(anna.create("school nordring", 2), 1);
    expect(1, { "project", "restore", guidOf(1) }, "give another name with --name");
    expect(1, { "project", "restore", guidOf(1), "--name", " " }, "1 to 200 characters");
    expect(0, { "project", "restore", guidOf(1), "--name", "School, old" }, "\"School, old\" is");
    EXPECT_TRUE(has(anna.onProject("getproject").body, "School, old"));

    ASSERT_EQ(server.command({ "project", "remove", guidOf(1) }).exitCode, 0);
    ASSERT_EQ(server.command({ "project", "remove", guidOf(2) }).exitCode, 0);
    ASSERT_EQ(anna.create("School, old", 3), 1);
    ASSERT_EQ(server.command({ "project", "remove", guidOf(3) }).exitCode, 0);
    expect(1, { "project", "restore", "School, old" }, "several removed projects are named");
}

TEST_F(AdminProjects, APurgedOneIsGoneForEver)
{
    createShared();
    anna.save(0);
    expect(1, { "project", "purge", school }, "there is no removed project");
    ASSERT_EQ(server.command({ "project", "remove", school }).exitCode, 0);
    expect(0, { "project", "purge", school }, "gone for ever");
    expect(1, { "project", "restore", guidOf(1) }, "is purged: nothing of it is left");
    expect(1, { "project", "purge", guidOf(1) }, "is purged: nothing of it is left");
    EXPECT_EQ(json({ "project", "history", guidOf(1) }).count("history"), 0U);
    EXPECT_EQ(anna.create("Another"), 312) << "its number is never free again";
    EXPECT_EQ(audited("project purge").size(), 1U);
}

TEST_F(AdminProjectsAloud, PermissionsAreSetAndHeard)
{
    createShared();
    listenAnew();
    ASSERT_EQ(ben.lock(-1), "1");
    ben.stage(0);
    ASSERT_EQ(ben.checkOut("7;"), 1);
    const AdminAnswer set
        = json({ "project", "permissions", school, "--set", "ben@example.com=0,-1,1" });
    ASSERT_EQ(set.exitCode, 0) << set.text;
    EXPECT_EQ(set.rowKeys("users"), "email name ProjectRW Money Addendum Report");
    EXPECT_EQ(set["users"][1]["ProjectRW"].GetInt(), 0);
    EXPECT_EQ(set["users"][1]["Addendum"].GetInt(), 1);
    EXPECT_EQ(set["users"][1]["Report"].GetInt(), -1);
    EXPECT_NE(ben.merge(0), 1) << "what he held went with the right";
    EXPECT_EQ(anna.lock(-1), "1");
    EXPECT_EQ(anna.checkOut("7;"), 1);
    EXPECT_TRUE(has(heard("PermissionChanged"), R"("notifymsg_from":"")"));
    EXPECT_TRUE(has(heard("\"CheckIn\""), R"("notifymsg_from":"")"));

    expect(0, { "project", "permissions", school, "--remove", "ben@example.com" }, "anna");
    EXPECT_EQ(ben.onProject("getproject").statusCode(), 310);
    expect(0, { "project", "permissions", school, "--set", "anna@example.com=0" }, "Anna Weiss");
    EXPECT_EQ(anna.checkOut("8;"), 300) << "an administrator may take the creator's access";
    EXPECT_EQ(audited("project permissions"),
        (std::vector<std::string> { guidOf(1) + "|ben@example.com=0,-1,1",
            guidOf(1) + "|ben@example.com=none", guidOf(1) + "|anna@example.com=0" }));
}

TEST_F(AdminProjects, LevelsThatDoNotFitChangeNothing)
{
    createShared();
    const std::string before = json({ "project", "permissions", school }).text;
    for (const char *wrong : { "ben@example.com", "ben@example.com=", "ben@example.com=1,1,1,1,1",
             "ben@example.com=9", "ben@example.com=x", "ben@example.com=-2" })
        EXPECT_EQ(server.command({ "project", "permissions", school, "--set", wrong }).exitCode, 2)
            << wrong;
    expect(2, { "project", "permissions", school, "--set", "ben@example.com=9" },
        "a level must be -1 (none) to 8, not \"9\"");
    expect(1, { "project", "permissions", school, "--set", "nobody@example.com=1" },
        "there is no user");
    expect(1, { "project", "permissions", school, "--remove", "admin@localhost" },
        "has no permission in");
    EXPECT_EQ(json({ "project", "permissions", school }).text, before);
}

TEST_F(AdminProjects, AfterAnUnlockALateSaveIsRefused)
{
    createShared();
    anna.save(0);
    ASSERT_EQ(anna.lock(0), "1");
    anna.stage(1);
    const AdminAnswer freed = json({ "project", "unlock", school });
    ASSERT_EQ(freed.exitCode, 0) << freed.text;
    ASSERT_EQ(freed.count("freed"), 1U);
    EXPECT_STREQ(freed["freed"][0]["kind"].GetString(), "save");
    EXPECT_STREQ(freed["freed"][0]["email"].GetString(), "anna@example.com");
    EXPECT_EQ(anna.merge(1), 600);

    ASSERT_EQ(ben.lock(0), "1");
    EXPECT_EQ(anna.merge(1), 600) << "nor does it count under the next holder";
    ben.stage(1);
    EXPECT_EQ(ben.merge(1), 1);
    ben.lock(1, true);
    EXPECT_EQ(anna.lock(1), "1");
    EXPECT_EQ(anna.merge(2), 603) << "what was uploaded before the unlock is gone";
    expect(0, { "project", "unlock", school }, "The save lock of anna@example.com");
    expect(0, { "project", "unlock", school }, "is not locked");
    EXPECT_EQ(audited("project unlock").size(), 2U);
    EXPECT_EQ(audited("project unlock")[0], guidOf(1) + "|save lock of anna@example.com");
}

TEST_F(AdminProjects, AnUnlockLetsTheNextOneIn)
{
    createShared();
    ASSERT_EQ(anna.lock(-1), "1");
    ASSERT_EQ(anna.onProject("projectlock", { { "ReleaseLock", "false" } }).statusCode(), 1);
    EXPECT_EQ(ben.open(), 314);
    expect(0, { "project", "unlock", school }, "The project lock of anna@example.com");
    EXPECT_EQ(ben.open(), 1);
    ASSERT_EQ(anna.lock(-1), "1");
    auto waiting = std::async(std::launch::async, [this] { return ben.lock(-1); });
    expect(0, { "project", "unlock", school }, "is free");
    EXPECT_EQ(waiting.get(), "1") << "a save that waits goes on";
}

TEST_F(AdminProjectsAloud, CheckedOutItemsComeBackAtOnce)
{
    createShared();
    listenAnew();
    ASSERT_EQ(anna.checkOut("1;2;", 3), 1);
    ASSERT_EQ(ben.checkOut("3;", 4), 1);
    expect(0, { "project", "checkin", school, "--user", anna.email }, "2 items");
    EXPECT_TRUE(has(heard("\"CheckIn\""), "\"ModuleType\":3"));
    EXPECT_EQ(ben.checkOut("1;2;", 3), 1);
    EXPECT_EQ(anna.checkOut("3;", 4), 620) << "another's stay";
    expect(0, { "project", "checkin", school }, "3 items");
    EXPECT_NE(heard("\"ModuleType\":4"), "");
    EXPECT_EQ(anna.checkOut("1;3;", 4), 1);
    ASSERT_EQ(server.command({ "project", "checkin", school }).exitCode, 0);
    expect(0, { "project", "checkin", school }, "0 items");
    EXPECT_EQ(audited("project checkin").size(), 3U) << "what changed nothing is not recorded";
    expect(1, { "project", "checkin", "Nix" }, "there is no project");
}

TEST_F(AdminProjectsAloud, WhatWasDoneWithTheServerStoppedIsHeardAfterItsStart)
{
    createShared();
    listenAnew();
    anna.save(0);
    ASSERT_EQ(anna.lock(0), "1");
    anna.stage(1);
    server.stop();
    expect(0, { "project", "unlock", school }, "is free");
    expect(0, { "project", "permissions", school, "--remove", "ben@example.com" }, "anna");
    server.start();
    EXPECT_EQ(anna.merge(1), 600);
    EXPECT_NE(heard("PermissionChanged"), "");
    EXPECT_EQ(ben.onProject("getproject").statusCode(), 310);
}
