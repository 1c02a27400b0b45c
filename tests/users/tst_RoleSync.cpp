#include "UsersFixture.h"

#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCollaboration/KVXPermissionControl.h>

using namespace kvx::test;

TEST_F(UsersTest, TheTableIsReadWhenTheManagerIsMade)
{
    answerRoles({ role("Chief", { "Administrator" }, { "anna@example.com" }),
        role("Estimator", { "ExportProject" }, { "ben@example.com", "eva@example.com" }) });
    users = new KVXCWUserImpl;
    KVXCollaborator::getInstance()->setUserManager(users);

    expectJson(host.network.takeRequest(), R"({"service":"getroles"})");
    EXPECT_EQ(host.network.lastUrl(), text("http://127.0.0.1:8090/kvx/service"));
    expectNoRequest(host);
    EXPECT_EQ(roleTexts(),
        QStringList({ text("Chief: anna@example.com"),
            text("Estimator: ben@example.com eva@example.com") }));
    EXPECT_EQ(takeInfos(), QStringList({ text("syncRolesToLocal: Result=1") }));
    ASSERT_NE(user()->role(), nullptr);
    EXPECT_TRUE(user()->role()->isAdministrator());
    EXPECT_FALSE(users->isUpdating());
}

TEST_F(UsersTest, TheManagerIsMadeWithoutAServerAndWithAnEmptyTable)
{
    host.unconfigure();
    users = new KVXCWUserImpl;
    KVXCollaborator::getInstance()->setUserManager(users);
    expectNoRequest(host);
    EXPECT_TRUE(users->roles().isEmpty());
    EXPECT_TRUE(users->users().isEmpty());
    EXPECT_EQ(takeInfos(), QStringList({ text("syncRolesToLocal: Result=0") }));
}

TEST_F(UsersTest, TheManagerIsMadeWithAnEmptyTableWhenTheServerRefusesOrFails)
{
    for (const bool refuses : { true, false }) {
        SCOPED_TRACE(refuses);
        if (refuses)
            host.network.answer(text("getroles"), json(R"({"statuscode":2})"));
        else
            host.network.failPost(text("getroles"));
        users = new KVXCWUserImpl;
        KVXCollaborator::getInstance()->setUserManager(users);
        EXPECT_EQ(host.network.takeServices(), QStringList { text("getroles") });
        EXPECT_TRUE(users->roles().isEmpty());
        EXPECT_TRUE(users->users().isEmpty());
        EXPECT_EQ(takeInfos(), QStringList { text("syncRolesToLocal: Result=0") });

        answerRoles({ role("Chief", {}, { "anna@example.com" }) });
        host.notifyFromBroker(roleMessage());
        EXPECT_EQ(roleTexts(), QStringList { text("Chief: anna@example.com") })
            << "it listens all the same";
        forget();
    }
}

TEST_F(UsersTest, TheManagerIsMadeWithoutAMessagerAndWithoutAUser)
{
    KVXCollaborator::getInstance()->setMessager(nullptr);
    host.removeUser();
    answerRoles({ role("Estimator", {}, { "anna@example.com" }) });
    {
        const KVXCWUserImpl made;
        EXPECT_EQ(made.roles().size(), 1);
    }
}

TEST_F(UsersTest, TheManagerOutlivesTheMessager)
{
    makeUsers({ role("Estimator") });
    KVXCollaborator::getInstance()->setMessager(nullptr);
    KVXCollaborator::getInstance()->setUserManager(nullptr);
}

TEST_F(UsersTest, ARoleIsReadWhole)
{
    QJsonObject object = role("Estimator", { "ExportUnitRate", "ReadWriteBQLibrary" }, {});
    object.insert(text("RoleID"), 7);
    object.insert(text("Revision"), 12);
    makeUsers({ object });
    const KVXRole *read = users->roles().value(0);
    EXPECT_EQ(read->id(), 7);
    EXPECT_EQ(granted(read->permissions()), text("ExportUnitRate ReadWriteBQLibrary"));
    EXPECT_EQ(read->toJson(), object);
}

TEST_F(UsersTest, AUserBelongsToTheRoleThatNamesHim)
{
    makeUsers({ role("Chief", {}, { "anna@example.com" }) });
    const KVXUser *listed = users->users().value(0);
    EXPECT_EQ(listed->email(), text("anna@example.com"));
    EXPECT_EQ(listed->name(), text("Somebody"));
    EXPECT_EQ(listed->version(), KVXUser::Standard);
    EXPECT_EQ(listed->role(), users->roles().value(0));
    EXPECT_EQ(users->roles().value(0)->users().value(0), listed);
}

TEST_F(UsersTest, AUserOfTwoRolesIsListedTwice)
{
    makeUsers({ role("Chief", {}, { "ben@example.com", "anna@example.com" }),
        role("Estimator", {}, { "anna@example.com" }) });
    QStringList emails;
    for (const KVXUser *listed : users->users())
        emails.append(listed->email());
    EXPECT_EQ(emails,
        QStringList(
            { text("ben@example.com"), text("anna@example.com"), text("anna@example.com") }));
}

TEST_F(UsersTest, TheFirstRoleInTheServersOrderDecidesTheCopy)
{
    makeUsers({ role("Nobody"), role("Reviewer", { "AllProjectReview" }, { "anna@example.com" }),
        role("Chief", { "Administrator" }, { "anna@example.com" }) });
    EXPECT_EQ(user()->role()->name(), text("Reviewer"));
    EXPECT_EQ(granted(user()->role()->permissions()), text("AllProjectReview"));
}

TEST_F(UsersTest, TheRoleOfTheUserIsACopyOfHisOwn)
{
    makeUsers({ role("Chief", { "Administrator" }, { "anna@example.com" }) });
    const KVXRole *copy = user()->role();
    EXPECT_NE(copy, users->roles().value(0));
    EXPECT_TRUE(copy->users().isEmpty());
    users->roles().value(0)->setPermission(KVXRole::Administrator, 0);
    EXPECT_TRUE(copy->isAdministrator());
    KVXCollaborator::getInstance()->setUserManager(nullptr);
    EXPECT_TRUE(user()->role()->isAdministrator());
    EXPECT_EQ(user()->role()->name(), text("Chief"));
}

TEST_F(UsersTest, EMailsAreComparedLetterByLetter)
{
    makeUsers({ role("Chief", { "Administrator" }, { "Anna@example.com" }) });
    EXPECT_EQ(user()->role(), nullptr);
}

TEST_F(UsersTest, AUserWhomNoRoleNamesKeepsTheCopyHeHas)
{
    makeUsers({ role("Chief", { "Administrator" }, { "anna@example.com" }) });
    const KVXRole *copy = user()->role();
    answerRoles({ role("Chief", {}, { "ben@example.com" }) });
    EXPECT_TRUE(users->syncToLocal());
    EXPECT_EQ(user()->role(), copy);
    EXPECT_TRUE(copy->isAdministrator());
    EXPECT_TRUE(KVXPermissionControl::getInstance()->canReadRateLibrary());
}

TEST_F(UsersTest, ASynchronisationReplacesTheTable)
{
    makeUsers({ role("A", {}, { "anna@example.com" }), role("B") });
    answerRoles({ role("C", { "ExportProject" }, { "eva@example.com", "anna@example.com" }) });
    EXPECT_TRUE(users->syncToLocal());
    expectJson(host.network.takeRequest(), R"({"service":"getroles"})");
    EXPECT_EQ(roleTexts(), QStringList({ text("C: eva@example.com anna@example.com") }));
    EXPECT_EQ(users->users().size(), 2);
    EXPECT_EQ(user()->role()->name(), text("C"));
    EXPECT_EQ(takeInfos(), QStringList({ text("syncRolesToLocal: Result=1") }));
    EXPECT_TRUE(takeSignals().isEmpty()) << "only a notification leads to the signal";
}

TEST_F(UsersTest, AFailedSynchronisationLeavesTheTableEmptyAndSaysSo)
{
    for (const char *reply : { R"({"statuscode":0})", R"({"statuscode":2,"error":"NotLoggedIn"})",
             R"({"statuscode":0.5})", R"({"statuscode":"1"})", R"({"statuscode":1e300})", "{}",
             R"({"statuscode":2,"Roles":[{"Name":"X"}]})" }) {
        makeUsers({ role("Chief", { "Administrator" }, { "anna@example.com" }) });
        const KVXRole *copy = user()->role();
        host.network.answer(text("getroles"), json(reply));
        EXPECT_FALSE(users->syncToLocal()) << reply;
        EXPECT_TRUE(users->roles().isEmpty()) << reply;
        EXPECT_TRUE(users->users().isEmpty()) << reply;
        EXPECT_EQ(user()->role(), copy) << reply;
        EXPECT_EQ(takeInfos(), QStringList({ text("syncRolesToLocal: Result=0") })) << reply;
    }
}

TEST_F(UsersTest, ABrokenPostIsAFailedSynchronisation)
{
    makeUsers({ role("Chief") });
    host.network.failPost(text("getroles"));
    EXPECT_FALSE(users->syncToLocal());
    EXPECT_TRUE(users->roles().isEmpty());
    EXPECT_EQ(takeInfos(), QStringList({ text("syncRolesToLocal: Result=0") }));
}

TEST_F(UsersTest, WithoutAServerASynchronisationStillEmptiesTheTable)
{
    makeUsers({ role("Chief", {}, { "anna@example.com" }) });
    host.unconfigure();
    EXPECT_FALSE(users->syncToLocal());
    expectNoRequest(host);
    EXPECT_TRUE(users->roles().isEmpty());
    EXPECT_TRUE(users->users().isEmpty());
    EXPECT_EQ(takeInfos(), QStringList({ text("syncRolesToLocal: Result=0") }));
}

TEST_F(UsersTest, AStatusOfOnePointNineIsASuccess)
{
    makeUsers({ role("Chief") });
    host.network.answer(text("getroles"), json(R"({"statuscode":1.9,"Roles":[{"Name":"X"}]})"));
    EXPECT_TRUE(users->syncToLocal());
    EXPECT_EQ(roleTexts(), QStringList({ text("X:") }));
}

TEST_F(UsersTest, ARoleWithoutUsersHasNone)
{
    makeUsers({});
    host.network.answer(
        text("getroles"), json(R"({"statuscode":1,"Roles":[{"Name":"A"},{"Name":"B","users":null},
                 {"Name":"C","users":{}},{"Name":"D","users":"anna@example.com"}]})"));
    EXPECT_TRUE(users->syncToLocal());
    EXPECT_EQ(roleTexts(), QStringList({ text("A:"), text("B:"), text("C:"), text("D:") }));
    EXPECT_TRUE(users->users().isEmpty());
}

TEST_F(UsersTest, AReplyWithoutRolesIsAnEmptyTable)
{
    for (const char *reply : { R"({"statuscode":1})", R"({"statuscode":1,"Roles":{}})",
             R"({"statuscode":1,"Roles":null})", R"({"statuscode":1,"Roles":[]})" }) {
        makeUsers({ role("Chief", {}, { "anna@example.com" }) });
        host.network.answer(text("getroles"), json(reply));
        EXPECT_TRUE(users->syncToLocal()) << reply;
        EXPECT_TRUE(users->roles().isEmpty()) << reply;
        EXPECT_TRUE(users->users().isEmpty()) << reply;
    }
}

TEST_F(UsersTest, ElementsThatAreNoObjectsDoNoHarm)
{
    makeUsers({});
    host.network.answer(text("getroles"), json(R"({"statuscode":1,"Roles":[1,null,"x",[],
        {"Name":7,"RoleID":"x","Administrator":"1","users":[null,3,[],{"Email":5},
         {"Email":"anna@example.com","UserProductVersion":1e99}]}]})"));
    EXPECT_TRUE(users->syncToLocal());
    EXPECT_EQ(users->roles().size(), 5);
    EXPECT_EQ(users->users().size(), 5);
    EXPECT_FALSE(user()->role()->isAdministrator());
    EXPECT_EQ(user()->role()->id(), 0);
    EXPECT_TRUE(users->updateRoles());
}
