#include "AdminFixture.h"

using namespace kvx::test;

namespace {

using AdminRoles = Administered;
using AdminRolesAloud = AdministeredAloud;

} // namespace

TEST_F(AdminRolesAloud, APermissionCountsAtOnceAndIsHeard)
{
    createShared();
    ASSERT_EQ(
        server
            .command({ "user", "add", "carl@example.com", "--name", "Carl", "--role", "Reviewer" },
                "pw\n")
            .exitCode,
        0);
    AdminClient carl(server, "carl");
    ASSERT_EQ(carl.login(), 1);
    EXPECT_EQ(carl.checkOut("1;"), 300);
    listenAnew();
    const AdminAnswer set = json({ "role", "set", "reviewer", "allprojectreadwrite=1" });
    ASSERT_EQ(set.exitCode, 0) << set.text;
    EXPECT_EQ(set["role"]["AllProjectReadWrite"].GetInt(), 1);
    EXPECT_EQ(set["role"]["AllProjectReview"].GetInt(), 1) << "what was not named stays";
    EXPECT_EQ(carl.checkOut("1;"), 1);
    EXPECT_TRUE(has(heard(R"("Users":["carl@example.com"])"), "notifymsg_role"));
    EXPECT_EQ(audited("role set"),
        std::vector<std::string> { "reviewer|Reviewer: AllProjectReadWrite AllProjectReview" });
}

TEST_F(AdminRolesAloud, WhoLosesARightThroughARoleLosesWhatHeHeld)
{
    ASSERT_EQ(anna.create("School Nordring"), 1);
    expect(0, { "role", "set", "Writer", "--new", "--place", "1", "AllProjectReadWrite=1" },
        "Writer has now: AllProjectReadWrite.");
    expect(0, { "role", "assign", "Writer", ben.email }, "has that role now");
    ASSERT_EQ(ben.checkOut("5;"), 1);
    ASSERT_EQ(ben.lock(-1), "1");
    ben.stage(0);
    listenAnew();
    expect(0, { "role", "set", "Writer", "AllProjectReadWrite=0", "AllProjectReview=1" },
        "Writer has now: AllProjectReview.");
    EXPECT_NE(ben.merge(0), 1) << "a late save is refused";
    EXPECT_NE(heard("\"CheckIn\""), "");
    EXPECT_EQ(anna.checkOut("5;"), 1);
    EXPECT_EQ(anna.lock(-1), "1");
}

TEST_F(AdminRoles, ARoleIsMadeRenamedAndMoved)
{
    expect(0, { "role", "set", "Site manager", "--new", "AllProjectReview=1" },
        "Site manager has now: AllProjectReview.");
    expect(1, { "role", "set", "site MANAGER", "--new" }, "there is a role");
    expect(0, { "role", "set", "Site manager", "--name", "Site office", "--place", "2" },
        "Site office has now");
    const AdminAnswer list = json({ "role", "list" });
    ASSERT_EQ(list.count("roles"), 5U);
    EXPECT_STREQ(list["roles"][1]["Name"].GetString(), "Site office");
    EXPECT_STREQ(list["roles"][4]["Name"].GetString(), "Reviewer");
    expect(1, { "role", "set", "Site office", "--name", "reviewer" }, "there is a role");
    expect(1, { "role", "set", "Site office", "--name", " " }, "1 to 100 characters");
    expect(1, { "role", "set", "Site manager", "Administrator=1" }, "there is no role");
    expect(0, { "role", "set", "Site office", "AllProjectReview=1" }, "is so already");
    EXPECT_EQ(audited("role set").size(), 2U);
}

TEST_F(AdminRoles, ARoleIsShownWithItsMembers)
{
    const AdminAnswer shown = json({ "role", "show", "estimator" });
    EXPECT_EQ(shown["role"]["users"].Size(), 2U);
    expect(0, { "role", "show", "Estimator" }, "Members: 2\n  anna@example.com  Anna Weiss");
    expect(1, { "role", "show", "King" }, "there is no role \"King\"");
}

TEST_F(AdminRoles, WhatDoesNotFitIsNamedAndChangesNothing)
{
    const std::string before = json({ "role", "list" }).text;
    expect(2, { "role", "set", "Estimator", "Fly=1" }, "there is no permission \"Fly\"");
    expect(2, { "role", "set", "Estimator", "ExportProject=yes" }, "ExportProject=0 or");
    expect(2, { "role", "set", "Estimator", "ExportProject" }, "ExportProject=0 or");
    expect(2, { "role", "set", "Estimator", "--place", "0" }, "--place counts from 1");
    expect(2, { "role", "set", "Estimator", "--place", "x" }, "not a whole number");
    expect(1, { "role", "set", "Administrator", "Administrator=0" },
        "at least one enabled administrator must remain");
    EXPECT_EQ(json({ "role", "list" }).text, before);
    EXPECT_EQ(audited("role set").size(), 0U);
}

TEST_F(AdminRolesAloud, MembershipIsChangedOnceAndHeard)
{
    expect(0, { "role", "assign", "Chief estimator", ben.email }, "has that role now");
    EXPECT_TRUE(has(heard("notifymsg_role"), R"("Users":["ben@example.com"])"));
    expect(0, { "role", "assign", "chief estimator", ben.email }, "has that role already");
    EXPECT_EQ(
        audited("role assign"), std::vector<std::string> { "ben@example.com|Chief estimator" });
    expect(0, { "role", "unassign", "Chief estimator", ben.email }, "no longer has");
    EXPECT_EQ(audited("role unassign").size(), 1U);
}
