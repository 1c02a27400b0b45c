#include "ServiceHarness.h"
#include "store/UserStore.h"

#include <map>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

using namespace kvx::test;
using namespace kvx::server;

namespace {

const std::string guid = guidOf(1);

/// "anna 1 1 1 1, ben 0 -1 …": who stands in a record with which levels.
std::string usersOf(const rapidjson::Value &record)
{
    std::string all;
    for (const auto &user : record["users"].GetArray()) {
        const std::string email = user["Email"].GetString();
        all += (all.empty() ? "" : ", ") + email.substr(0, email.find('@'));
        const char *keys[] = { "ProjectRW", "Money", "Addendum", "Report" };
        const auto &levels = user["Permission"];
        EXPECT_EQ(levels.Size(), 4u);
        for (unsigned i = 0; i < 4; ++i) {
            EXPECT_EQ(levels[i].MemberCount(), 1u);
            all += ' ' + std::to_string(levels[i][keys[i]].GetInt());
        }
    }
    return all;
}

struct Permissions : testing::Test {
    ServiceHarness harness;
    Session anna = harness.join("anna@example.com");
    Session ben = harness.join("ben@example.com");
    Session cora = harness.join("cora@example.com");

    void SetUp() override { ASSERT_EQ(anna.ask(newProject(anna, guid, "School")).status(), 1); }
    Message on(const char *service) { return Message(service).set("ProjectGUID", guid); }
    std::string seenBy(const Session &session)
    {
        const Answer answer = session.askAs(on("getproject"));
        return answer.status() == 1 ? usersOf(answer["Project"]) : std::to_string(answer.status());
    }
    std::int64_t count(const char *sql) { return harness.db().value<std::int64_t>(sql).value(); }
};

} // namespace

TEST_F(Permissions, AreReplacedAsAWholeAndAnnounced)
{
    harness.takeSent();
    EXPECT_EQ(permit(anna, guid, { { "ben@example.com", "0,-1,2,8" }, { "Cora@Example.com", "3" } })
                  .json(),
        R"({"statuscode":1})");
    EXPECT_EQ(seenBy(anna), "anna 1 1 1 1, ben 0 -1 2 8, cora 3 -1 -1 -1");
    EXPECT_EQ(seenBy(ben), seenBy(anna));
    const auto sent = harness.takeSent();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].command, "PermissionChanged");
    rapidjson::Document record;
    record.Parse(sent[0].content.c_str());
    EXPECT_EQ(usersOf(record), seenBy(anna));

    EXPECT_EQ(permit(anna, guid, { { "cora@example.com", "-1,1,1,1" } }).status(), 1);
    EXPECT_EQ(seenBy(anna), "anna 1 1 1 1, cora -1 1 1 1");
    EXPECT_EQ(seenBy(ben), "310");
    EXPECT_EQ(seenBy(cora), "310") << "without ProjectRW the project is not there";
    EXPECT_EQ(permit(anna, guid, {}).status(), 1);
    EXPECT_EQ(seenBy(anna), "anna 1 1 1 1") << "the creator's row stays";
    EXPECT_EQ(permit(anna, guid, {}).status(), 1) << "the same again is announced again";
    EXPECT_EQ(harness.takeSent().size(), 3u);
}

TEST_F(Permissions, AreRefused)
{
    EXPECT_EQ(permit(anna, guid, { { "nobody@example.com", "1" } }).status(), 302);
    EXPECT_EQ(permit(anna, guid, { { "nobody@example.com", "1" } }).text("message"),
        "There is no user \"nobody@example.com\".");
    EXPECT_EQ(
        permit(anna, guid, { { "ben@example.com", "1" }, { "BEN@example.com", "0" } }).status(),
        100);
    EXPECT_EQ(permit(anna, guid, { { "ben@example.com", "10" } }).status(), 100);
    EXPECT_EQ(permit(anna, guid, { { "ben@example.com", "-2" } }).status(), 100);
    EXPECT_EQ(permit(anna, guid, { { "ben@example.com", "9,1,1,1" } }).status(), 100);
    EXPECT_EQ(permit(anna, guid, { { "anna@example.com", "0,1,1,1" } }).status(), 320);
    EXPECT_EQ(anna.ask(on("projectpermission").raw("userperms", "{}")).status(), 100);
    EXPECT_EQ(permit(ben, guid, {}).status(), 310);
    ASSERT_EQ(permit(anna, guid, { { "ben@example.com", "1,1,1,1" } }).status(), 1);
    EXPECT_EQ(permit(ben, guid, {}).status(), 300);
    EXPECT_EQ(seenBy(anna), "anna 1 1 1 1, ben 1 1 1 1");
    ASSERT_EQ(ben.ask(on("projectlock").set("ReleaseLock", false)).status(), 1);
    EXPECT_EQ(permit(anna, guid, {}).status(), 314);
}

TEST_F(Permissions, AreGivenToTwoThousandUsersAtMost)
{
    Transaction transaction(harness.db(), Transaction::Kind::Write);
    std::vector<std::pair<std::string, std::string>> levels { { "anna@example.com", "1,1,1,1" } };
    for (int i = 1; i <= 2000; ++i) {
        levels.emplace_back("u" + std::to_string(i) + "@example.com", "0,1,1,1");
        addUser(harness.db(), 1, levels.back().first, "U", "no hash");
    }
    transaction.commit();
    EXPECT_EQ(permit(anna, guid, levels).status(), 100);
    levels.pop_back();
    EXPECT_EQ(permit(anna, guid, levels).status(), 1);
    EXPECT_EQ(count("SELECT count(*) FROM project_permission"), 2000);
}

TEST_F(Permissions, AnAdministratorMayTakeTheCreatorsAccess)
{
    const Session admin = harness.join("root@example.com", "Administrator");
    ASSERT_EQ(permit(admin, guid, { { "anna@example.com", "0,1,1,1" } }).status(), 1);
    EXPECT_EQ(permit(anna, guid, {}).status(), 300) << "a creator without write access is no owner";
    ASSERT_EQ(
        permit(admin, guid, { { "anna@example.com", "-1" }, { "ben@example.com", "1" } }).status(),
        1);
    EXPECT_EQ(seenBy(anna), "310");
    ASSERT_EQ(permit(admin, guid, {}).status(), 1);
    EXPECT_EQ(seenBy(anna), "310") << "left out means kept, not restored";
    ASSERT_EQ(permit(admin, guid, { { "anna@example.com", "1,1,1,1" } }).status(), 1);
    EXPECT_EQ(permit(anna, guid, {}).status(), 1);
}

TEST_F(Permissions, WhoLosesWriteLosesLocksStageAndCheckOuts)
{
    ASSERT_EQ(permit(anna, guid, { { "ben@example.com", "1,1,1,1" } }).status(), 1);
    ASSERT_EQ(ben.ask(on("openproject")).status(), 1);
    ASSERT_EQ(
        ben.ask(on("loglock").set("LogVersion", -1).set("ReleaseLock", false)).integer("Lock"), 1);
    ASSERT_EQ(ben.upload(guid + ".KVX", "staged").status(), 1);
    for (const int module : { 1, 2 })
        ASSERT_EQ(ben.ask(on("checkout")
                              .set("ModuleType", module)
                              .set("NotifyOther", false)
                              .set("IDs", "5;"))
                      .status(),
            1);
    harness.takeSent();

    ASSERT_EQ(permit(anna, guid, { { "ben@example.com", "0,1,1,1" } }).status(), 1);
    EXPECT_EQ(count("SELECT count(*) FROM project WHERE lock_session IS NOT NULL"), 0);
    EXPECT_EQ(count("SELECT count(*) FROM stage"), 0);
    EXPECT_EQ(count("SELECT count(*) FROM item WHERE state = 1"), 0);
    EXPECT_EQ(count("SELECT count(*) FROM project_open"), 1) << "he may still read";
    const auto sent = harness.takeSent();
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(sent[0].content,
        "{\"Command\":\"CheckIn\",\"ProjectGUID\":\"" + guid + "\",\"ModuleType\":1}");
    EXPECT_EQ(sent[0].type, "notifymsg_checkout");
    EXPECT_EQ(sent[0].sender, "") << "clients of the acting user do not know of it either";
    EXPECT_EQ(sent[1].command, "CheckIn");
    EXPECT_EQ(sent[2].command, "PermissionChanged");
    EXPECT_EQ(sent[2].sender, "anna@example.com");

    ASSERT_EQ(permit(anna, guid, {}).status(), 1);
    EXPECT_EQ(count("SELECT count(*) FROM project_open"), 0);
    EXPECT_EQ(ben.ask(on("closeproject")).status(), 1) << "what was taken can still be closed";
}

TEST_F(Permissions, AProjectLockGoesWithWriteAccess)
{
    const Session admin = harness.join("root@example.com", "Administrator");
    ASSERT_EQ(permit(anna, guid, { { "ben@example.com", "1" } }).status(), 1);
    ASSERT_EQ(ben.ask(on("projectlock").set("ReleaseLock", false)).status(), 1);
    ASSERT_EQ(permit(admin, guid, {}).status(), 314);
    ASSERT_EQ(admin.ask(on("projectlock").set("ReleaseLock", true)).status(), 1);
    ASSERT_EQ(ben.ask(on("projectlock").set("ReleaseLock", false)).status(), 1);
    harness.db().run("UPDATE project SET plock_session = 0"); // as if his session had ended
    ASSERT_EQ(permit(admin, guid, {}).status(), 1);
    EXPECT_EQ(count("SELECT count(*) FROM project WHERE plock_user IS NOT NULL"), 0);
}

TEST_F(Permissions, LosingOnlyTheStoredRowKeepsRightsByRole)
{
    const Session chief = harness.join("chief@example.com", "Everything");
    ASSERT_EQ(permit(anna, guid, { { "chief@example.com", "1,1,1,1" } }).status(), 1);
    ASSERT_EQ(
        chief.ask(on("checkout").set("ModuleType", 1).set("NotifyOther", false).set("IDs", "5;"))
            .status(),
        1);
    ASSERT_EQ(permit(anna, guid, {}).status(), 1);
    EXPECT_EQ(count("SELECT count(*) FROM item WHERE state = 1"), 1);
}

TEST_F(Permissions, ByRoleEntriesSentBackAreNotStored)
{
    const Session chief = harness.join("chief@example.com", "Everything");
    ASSERT_EQ(permit(anna, guid,
                  { { "chief@example.com", "9,9,9,9" }, { "ben@example.com", "0,9,9,9" },
                      { "cora@example.com", "1,1,1,1" } })
                  .status(),
        1);
    EXPECT_EQ(seenBy(anna), "anna 1 1 1 1, cora 1 1 1 1");
    EXPECT_EQ(seenBy(chief), "anna 1 1 1 1, cora 1 1 1 1, chief 9 9 9 9");
    EXPECT_EQ(seenBy(ben), "310");
}

TEST_F(Permissions, ByRoleMatrix)
{
    struct Row {
        const char *role;
        int tender, bills, rates; // by role: -1, 0 or 9
    };
    const Row rows[] = { { "Administrator", 9, 9, 9 }, { "Everything", 9, 9, 9 },
        { "Reviewer", 0, 0, 0 }, { "Estimator", -1, -1, -1 }, { "Library reader", -1, 0, 0 },
        { "Library writer", -1, 9, 9 }, { "Bill writer", -1, 9, -1 }, { "", -1, -1, -1 } };
    const Session admin = harness.join("root@example.com", "Administrator");
    ASSERT_EQ(admin.ask(newProject(admin, guidOf(2), "Bills", "BQLibrary")).status(), 1);
    ASSERT_EQ(admin.ask(newProject(admin, guidOf(3), "Rates", "ResourceLibrary")).status(), 1);
    harness.takeSent();
    int n = 0;
    for (const Row &row : rows) {
        const Session user = harness.join("user" + std::to_string(++n) + "@example.com", row.role);
        const std::string own = "user" + std::to_string(n);
        const int levels[] = { row.tender, row.bills, row.rates };
        for (int project = 1; project <= 3; ++project) {
            const int level = levels[project - 1];
            const Message about = Message("getproject").set("ProjectGUID", guidOf(project));
            const Answer answer = user.askAs(about);
            EXPECT_EQ(answer.status(), level >= 0 ? 1 : 310) << row.role << ' ' << project;
            const std::string entry = own + ' ' + std::to_string(level) + " 9 9 9";
            if (level >= 0) {
                EXPECT_NE(usersOf(answer["Project"]).find(entry), std::string::npos) << row.role;
            }
            const Message update
                = Message("updateproject").set("ProjectGUID", guidOf(project)).set("BidStatus", 0);
            EXPECT_EQ(user.ask(update).status(),
                level >= 1       ? 1
                    : level == 0 ? 300
                                 : 310)
                << row.role;
            // The announced record lists him alike; replies do not list others by role.
            ASSERT_EQ(permit(admin, guidOf(project), {}).status(), 1);
            rapidjson::Document announced;
            announced.Parse(harness.takeSent().back().content.c_str());
            EXPECT_EQ(usersOf(announced).find(entry) != std::string::npos, level >= 0)
                << row.role << ' ' << project;
            EXPECT_EQ(usersOf(admin.askAs(about)["Project"]).find(own + ' '), std::string::npos);
        }
    }
}

TEST_F(Permissions, TheHigherOfStoredAndByRoleCounts)
{
    const Session reviewer = harness.join("rita@example.com", "Reviewer");
    const Session chief = harness.join("chief@example.com", "Everything");
    ASSERT_EQ(permit(anna, guid,
                  { { "rita@example.com", "1,-1,-1,-1" }, { "chief@example.com", "0,-1,-1,-1" } })
                  .status(),
        1);
    EXPECT_EQ(reviewer.ask(on("updateproject")).status(), 1) << "stored write over reading by role";
    EXPECT_EQ(chief.ask(on("updateproject")).status(), 1) << "write by role over stored reading";
    const std::string listed = "anna 1 1 1 1, chief 0 -1 -1 -1, rita 1 -1 -1 -1";
    EXPECT_EQ(seenBy(reviewer), listed) << "with stored levels only";
    EXPECT_EQ(seenBy(chief), listed);
}

TEST_F(Permissions, AStoredRowWithoutProjectRwGivesWayToTheEntryByRole)
{
    const Session chief = harness.join("chief@example.com", "Everything");
    ASSERT_EQ(permit(anna, guid,
                  { { "chief@example.com", "-1,1,1,1" }, { "ben@example.com", "-1,1,1,1" } })
                  .status(),
        1);
    rapidjson::Document announced;
    announced.Parse(harness.takeSent().back().content.c_str());
    EXPECT_EQ(usersOf(announced), "anna 1 1 1 1, chief 9 9 9 9, ben -1 1 1 1");
    EXPECT_EQ(seenBy(chief), "anna 1 1 1 1, ben -1 1 1 1, chief 9 9 9 9");
    EXPECT_EQ(seenBy(anna), "anna 1 1 1 1, ben -1 1 1 1, chief -1 1 1 1");
}

TEST_F(Permissions, TheFirstRoleInOrderDecidesAlone)
{
    const Session user = harness.join("two@example.com", "Estimator"); // behind "Reviewer" in order
    EXPECT_EQ(seenBy(user), "310");
    Transaction transaction(harness.db(), Transaction::Kind::Write);
    assignRole(harness.db(), findRole(harness.db(), "Library writer").value(), user.userId);
    transaction.commit();
    EXPECT_EQ(user.ask(newProject(user, guidOf(9), "Rates", "ResourceLibrary")).status(), 300);
    Transaction second(harness.db(), Transaction::Kind::Write);
    assignRole(harness.db(), findRole(harness.db(), "Reviewer").value(), user.userId);
    second.commit();
    EXPECT_EQ(seenBy(user), "anna 1 1 1 1, two 0 9 9 9");
}

TEST_F(Permissions, DisabledUsersAreNotListedByRole)
{
    harness.addUser("gone@example.com", "Gone", "Reviewer");
    Transaction transaction(harness.db(), Transaction::Kind::Write);
    setDisabled(harness.db(), findUser(harness.db(), std::string("gone@example.com"))->id, true);
    transaction.commit();
    harness.takeSent();
    ASSERT_EQ(permit(anna, guid, {}).status(), 1);
    EXPECT_EQ(harness.takeSent().back().content.find("gone@"), std::string::npos);
}

TEST_F(Permissions, OverFourThousandByRoleOnlyRecentUsersAreListed)
{
    {
        Transaction transaction(harness.db(), Transaction::Kind::Write);
        const auto role = findRole(harness.db(), "Reviewer").value();
        for (int i = 0; i < 4001; ++i) {
            const auto id
                = addUser(harness.db(), 1, "r" + std::to_string(i) + "@example.com", "R", "x");
            assignRole(harness.db(), role, id);
            if (i < 10)
                noteLogin(harness.db(), id, wallTime() - (i < 3 ? 1000 : 25 * 3'600'000));
        }
        transaction.commit();
    }
    harness.takeSent();
    ASSERT_EQ(permit(anna, guid, {}).status(), 1);
    rapidjson::Document announced;
    announced.Parse(harness.takeSent().back().content.c_str());
    EXPECT_EQ(announced["users"].Size(), 4u) << "the creator and three who logged in today";
}
