#include "AdminFixture.h"
#include "support/Watchdog.h"

using namespace kvx::test;

namespace {

using AdminUsers = Administered;
using AdminUsersAloud = AdministeredAloud;

} // namespace

TEST_F(AdminUsers, ARandomPasswordIsPrintedOnceAndNowhereElse)
{
    const AdminAnswer added
        = json({ "user", "add", "carl@example.com", "--name", "Carl", "--random-password" });
    ASSERT_EQ(added.exitCode, 0) << added.text;
    const std::string password = added["password"].GetString();
    EXPECT_EQ(password.size(), 20U);
    AdminClient carl(server, "carl");
    EXPECT_EQ(carl.login(password), 1);
    EXPECT_FALSE(has(server.logText(), password));
    EXPECT_FALSE(has(json({ "audit", "export" }).text, password));

    const CommandResult changed
        = server.command({ "user", "password", "carl@example.com", "--random-password" });
    ASSERT_EQ(changed.exitCode, 0);
    const std::size_t at = changed.out.find("password: ");
    ASSERT_NE(at, std::string::npos) << changed.out;
    const std::string fresh = changed.out.substr(at + 10, 20);
    EXPECT_NE(fresh, password);
    EXPECT_FALSE(carl.isLoggedIn()) << "the sessions have ended";
    EXPECT_EQ(carl.login(password), 235);
    EXPECT_EQ(carl.login(fresh), 1);
}

TEST_F(AdminUsers, APasswordIsNeverAnArgument)
{
    EXPECT_EQ(server.command({ "user", "password", anna.email, "secret" }).exitCode, 2);
    EXPECT_EQ(
        server.command({ "user", "add", "c@d", "--name", "C", "--password", "pw" }).exitCode, 2);
    EXPECT_TRUE(anna.isLoggedIn());
}

TEST_F(AdminUsers, TheListHasOneRowAnAccount)
{
    const AdminAnswer list = json({ "user", "list" });
    EXPECT_EQ(list.count("users"), 3U);
    EXPECT_EQ(list.rowKeys("users"), "email name role disabled productVersion lastLogin");
    const CommandResult table = server.command({ "user", "list" });
    EXPECT_EQ(table.out.rfind("E-mail            Name           Role           State", 0), 0U)
        << table.out;
    EXPECT_TRUE(has(table.out, "anna@example.com  Anna Weiss     Estimator      enabled"));
}

TEST_F(AdminUsersAloud, DisablingEndsTheSessionsAndTellsEverybody)
{
    createShared();
    listenAnew();
    ASSERT_EQ(ben.lock(-1), "1");
    expect(0, { "user", "disable", "BEN@example.com" }, "ben@example.com is disabled now.");
    EXPECT_FALSE(ben.isLoggedIn());
    EXPECT_EQ(ben.login(), 201);
    EXPECT_EQ(anna.lock(-1), "1") << "his save lock is free";
    EXPECT_TRUE(has(heard("notifymsg_role"), R"("Users":["ben@example.com"])"));
    expect(0, { "user", "disable", ben.email }, "is disabled already");
    expect(0, { "user", "enable", ben.email }, "ben@example.com is enabled now.");
    EXPECT_EQ(ben.login(), 1);
    EXPECT_EQ(audited("user disable"), std::vector<std::string> { "ben@example.com|" })
        << "what changed nothing is not recorded";
    EXPECT_EQ(audited("user enable"), std::vector<std::string> { "ben@example.com|" });
}

TEST_F(AdminUsersAloud, ADeletedAccountLosesEverythingButItsNameInHistory)
{
    createShared();
    listenAnew();
    anna.save(0);
    ASSERT_EQ(anna.checkOut("1;2;"), 1);
    ASSERT_EQ(anna.lock(0), "1");
    const AdminAnswer deleted = json({ "user", "delete", anna.email });
    ASSERT_EQ(deleted.exitCode, 0) << deleted.text;
    EXPECT_EQ(deleted["projects"].GetInt(), 1);

    EXPECT_FALSE(anna.isLoggedIn());
    EXPECT_EQ(anna.login(), 235) << "as if there had never been such an account";
    EXPECT_FALSE(has(server.command({ "user", "list" }).out, anna.email));
    EXPECT_EQ(ben.lock(0), "1") << "her save lock is free";
    EXPECT_EQ(ben.checkOut("1;2;"), 1) << "and her items";
    EXPECT_NE(heard("\"CheckIn\""), "");
    EXPECT_NE(heard("PermissionChanged"), "");
    EXPECT_TRUE(has(heard("notifymsg_role"), anna.email));

    const HttpReply record = ben.onProject("getproject");
    EXPECT_TRUE(has(record.member("Project"), R"("CreatorName":"Anna Weiss")")) << record.body;
    EXPECT_TRUE(has(record.member("Project"), R"("LastEditorEmail":"anna@example.com")"));
    EXPECT_TRUE(has(json({ "project", "history", guidOf(1) }).text, anna.email));
    EXPECT_EQ(audited("user delete"), std::vector<std::string> { "anna@example.com|Anna Weiss" });
    expect(1, { "user", "delete", anna.email }, "there is no user \"anna@example.com\"");
    expect(1, { "role", "assign", "Reviewer", anna.email }, "there is no user");
}

TEST_F(AdminUsers, AnEmailThatComesBackHasNoneOfItsFormerRights)
{
    createShared();
    ASSERT_EQ(
        anna.http
            .upload(
                jsonObject({ { "service", "\"upload\"" }, { "FileName", "\"own.txt\"" } }), "mine")
            .statusCode(),
        1);
    ASSERT_EQ(server.command({ "user", "delete", anna.email }).exitCode, 0);
    expect(0, { "user", "add", anna.email, "--name", "Anna Berg" }, "was added", "new\n");
    EXPECT_EQ(anna.login("pw"), 235);
    EXPECT_EQ(anna.login("new"), 1);
    EXPECT_EQ(anna.onProject("getproject").statusCode(), 310);
    EXPECT_EQ(anna.ask("hasupload", { { "FileName", "\"own.txt\"" } }).statusCode(), 606);
    EXPECT_EQ(anna.onProject("newproject",
                      { { "Type", "\"Tender\"" }, { "Name", "\"X\"" }, { "CreatorName", "\"\"" },
                          { "CreatorEmail", jsonQuoted(anna.email) }, { "Amount", "\"\"" },
                          { "ProjectState", "0" } },
                      2)
                  .statusCode(),
        300)
        << "no role";
}

TEST_F(AdminUsers, TheLastAdministratorStays)
{
    expect(1, { "user", "delete", "admin@localhost" },
        "at least one enabled administrator must remain");
    ASSERT_EQ(server.command({ "role", "assign", "Administrator", ben.email }).exitCode, 0);
    expect(0, { "user", "delete", "admin@localhost" }, "was deleted");
    expect(1, { "user", "disable", ben.email }, "at least one enabled administrator must remain");
    EXPECT_TRUE(ben.isLoggedIn()) << "a refused command changes nothing";
}

TEST_F(AdminUsersAloud, WhatWasDoneWithTheServerStoppedIsHeardAfterItsStart)
{
    createShared();
    listenAnew();
    server.stop();
    ASSERT_EQ(server.command({ "user", "delete", ben.email }).exitCode, 0);
    server.start();
    EXPECT_NE(heard("PermissionChanged"), "");
    EXPECT_TRUE(has(heard("notifymsg_role"), ben.email));
    EXPECT_EQ(ben.login(), 235);
}

TEST_F(AdminUsers, AUsersSessionsAreListed)
{
    const AdminAnswer list = json({ "user", "sessions", ben.email });
    ASSERT_EQ(list.count("sessions"), 1U);
    EXPECT_STREQ(list["sessions"][0]["device"].GetString(), "ben");
    expect(1, { "user", "sessions", "nobody@example.com" }, "there is no user");
}
