#include "ServiceHarness.h"

using namespace kvx::test;
using namespace kvx::server;

namespace {

const std::string guid = guidOf(1);

struct OpenClose : testing::Test {
    ServiceHarness harness;
    Session admin = harness.join("root@example.com", "Administrator");
    Session anna = harness.join("anna@example.com");
    Session ben = harness.join("ben@example.com");
    Session annasLaptop = harness.login("anna@example.com", "laptop");

    void SetUp() override
    {
        ASSERT_EQ(anna.ask(newProject(anna, guid, "School")).status(), 1);
        ASSERT_EQ(permit(anna, guid, { { "ben@example.com", "0,1,1,1" } }).status(), 1);
        harness.takeSent();
    }
    void TearDown() override
    {
        EXPECT_TRUE(harness.takeSent().empty()) << "nothing of this is announced";
    }
    Message on(const char *service) { return Message(service).set("ProjectGUID", guid); }
    Answer lock(const Session &session, bool release)
    {
        return session.ask(on("projectlock").set("ReleaseLock", release));
    }
    void leave(const Session &session, Time milliseconds)
    {
        harness.db().run("UPDATE session SET last_seen = last_seen - :time WHERE id = :id",
            { { "time", milliseconds }, { "id", session.id } });
    }
    std::string editors()
    {
        std::string names;
        const Answer answer = admin.ask(on("onlineeditors"));
        EXPECT_EQ(answer.keys(), "statuscode users");
        for (const auto &user : answer["users"].GetArray()) {
            EXPECT_EQ(user.MemberCount(), 3u);
            EXPECT_EQ(user["Since"].GetStringLength(), 16u);
            EXPECT_NE(std::string(user["Email"].GetString()), "");
            names += (names.empty() ? "" : " ") + std::string(user["Name"].GetString());
        }
        return names;
    }
};

} // namespace

TEST_F(OpenClose, OpeningTellsTheVersionAndTheEpoch)
{
    const Answer opened = ben.ask(on("openproject"));
    EXPECT_EQ(opened.keys(), "statuscode LogVersion Epoch");
    EXPECT_EQ(opened.integer("LogVersion"), -1);
    EXPECT_EQ(opened.text("Epoch").size(), 36u);
    EXPECT_EQ(ben.ask(on("openproject")).status(), 1) << "a repeat";
}

TEST_F(OpenClose, EditorsAreThePresentUsersByTime)
{
    EXPECT_EQ(editors(), "");
    ASSERT_EQ(ben.ask(on("openproject")).status(), 1);
    harness.db().run("UPDATE project_open SET since = since - 1000");
    ASSERT_EQ(anna.ask(on("openproject")).status(), 1);
    EXPECT_EQ(editors(), "Ben Anna");
    ASSERT_EQ(ben.ask(on("openproject")).status(), 1);
    EXPECT_EQ(editors(), "Ben Anna") << "a repeat does not change the order";
    leave(ben, 300'001);
    EXPECT_EQ(editors(), "Anna");
    ASSERT_EQ(ben.askAs(Message("genprojectname")).status(), 1);
    EXPECT_EQ(editors(), "Ben Anna") << "any request makes him present again";
    ASSERT_EQ(anna.ask(on("closeproject")).status(), 1);
    EXPECT_EQ(editors(), "Ben");
}

TEST_F(OpenClose, OneUserWorksOnOneDeviceOnly)
{
    ASSERT_EQ(anna.ask(on("openproject")).status(), 1);
    const Answer elsewhere = annasLaptop.ask(on("openproject"));
    EXPECT_EQ(elsewhere.status(), 321);
    EXPECT_EQ(elsewhere.text("message"),
        "You have this project open on desk of Anna. Close it there first.");
    const Message items = on("checkout").set("ModuleType", 1).set("NotifyOther", false);
    EXPECT_EQ(annasLaptop.ask(Message(items).set("IDs", "1;")).status(), 321);
    EXPECT_EQ(annasLaptop.ask(Message(items).set("IDs", "")).status(), 1) << "reading is allowed";
    EXPECT_EQ(annasLaptop.ask(on("allocateidrange").set("NewRange", true)).status(), 321);
    EXPECT_EQ(annasLaptop.upload(guid + ".KVX", "x").status(), 321);
    EXPECT_EQ(annasLaptop.ask(on("closeproject")).status(), 3) << "open in the other session only";

    const Session again = harness.login("anna@example.com", anna.device);
    EXPECT_EQ(again.ask(on("openproject")).status(), 1) << "the same device takes over";
    EXPECT_EQ(anna.ask(on("closeproject")).status(), 3);
    leave(again, 300'001);
    EXPECT_EQ(annasLaptop.ask(on("openproject")).status(), 1) << "an absent session gives way";
    EXPECT_EQ(annasLaptop.ask(on("closeproject")).status(), 1);
}

TEST_F(OpenClose, ClosingIsAlwaysPossible)
{
    EXPECT_EQ(ben.ask(on("closeproject")).json(), R"({"statuscode":1})") << "not open";
    EXPECT_EQ(ben.ask(Message("closeproject").set("ProjectGUID", guidOf(77))).status(), 1)
        << "unknown";
    EXPECT_EQ(ben.ask(Message("closeproject").set("ProjectGUID", "{77}")).status(), 100);
    ASSERT_EQ(ben.ask(on("openproject")).status(), 1);
    ASSERT_EQ(permit(anna, guid, {}).status(), 1);
    EXPECT_EQ(ben.ask(on("closeproject")).status(), 1) << "taken away";
    EXPECT_EQ(harness.takeSent().size(), 1u);
}

TEST_F(OpenClose, ClosingFreesTheLogLockAndTheProjectLockOfTheSession)
{
    ASSERT_EQ(anna.ask(on("openproject")).status(), 1);
    ASSERT_EQ(
        anna.ask(on("loglock").set("LogVersion", -1).set("ReleaseLock", false)).integer("Lock"), 1);
    ASSERT_EQ(lock(anna, false).status(), 1);
    ASSERT_EQ(anna.ask(on("closeproject")).status(), 1);
    EXPECT_EQ(harness.db()
                  .value<int>("SELECT count(*) FROM project WHERE lock_session IS NOT NULL"
                              " OR plock_session IS NOT NULL")
                  .value(),
        0);
}

TEST_F(OpenClose, ALockedProjectIsTheHoldersAlone)
{
    const Answer locked = lock(anna, false);
    EXPECT_EQ(
        locked.json(), R"({"statuscode":1,"LockedName":"Anna","LockedEmail":"anna@example.com"})");
    EXPECT_EQ(lock(anna, false).status(), 1) << "a repeat";
    const Answer refused = ben.ask(on("openproject"));
    EXPECT_EQ(refused.status(), 314);
    EXPECT_EQ(lock(ben, false).status(), 300) << "a reader locks nothing";
    const Answer other = lock(admin, false);
    EXPECT_EQ(other.status(), 314);
    EXPECT_EQ(other.text("LockedName"), "Anna");
    EXPECT_EQ(other.text("LockedEmail"), "anna@example.com");
    EXPECT_EQ(anna.ask(on("openproject")).status(), 1);
    EXPECT_EQ(lock(admin, true).status(), 1) << "an administrator frees it";
    EXPECT_EQ(ben.ask(on("openproject")).status(), 1);
    EXPECT_EQ(lock(anna, true).status(), 1) << "releasing what is not locked";
}

TEST_F(OpenClose, WhoHasALockedProjectOpenMayAskToOpenItAgain)
{
    ASSERT_EQ(anna.ask(on("openproject")).status(), 1);
    ASSERT_EQ(lock(admin, false).status(), 1);
    EXPECT_EQ(anna.ask(on("openproject")).status(), 1) << "the first reply was lost";
    EXPECT_EQ(ben.ask(on("openproject")).status(), 314);
    EXPECT_EQ(annasLaptop.ask(on("openproject")).status(), 314);
    ASSERT_EQ(anna.ask(on("closeproject")).status(), 1);
    EXPECT_EQ(anna.ask(on("openproject")).status(), 314) << "that would be newly";
}

TEST_F(OpenClose, OnlyTheHolderAndAdministratorsReleaseAProjectLock)
{
    ASSERT_EQ(permit(anna, guid, { { "ben@example.com", "1,1,1,1" } }).status(), 1);
    harness.takeSent();
    ASSERT_EQ(lock(anna, false).status(), 1);
    EXPECT_EQ(lock(ben, true).status(), 300);
    EXPECT_EQ(lock(annasLaptop, true).status(), 1) << "the same user";
    EXPECT_EQ(lock(ben, false).status(), 1);
}

TEST_F(OpenClose, TheLockOfADeadSessionHoldsNobodyUp)
{
    ASSERT_EQ(lock(anna, false).status(), 1);
    leave(anna, 31 * 60'000);
    EXPECT_EQ(ben.ask(on("openproject")).status(), 1);
    EXPECT_EQ(lock(admin, false).status(), 1);
}

TEST_F(OpenClose, InMaintenanceOnlyReleasesGoThrough)
{
    ASSERT_EQ(ben.ask(on("openproject")).status(), 1);
    ASSERT_EQ(lock(anna, false).status(), 1);
    harness.db().execute("INSERT INTO meta (name, value) VALUES ('read_only', '1')");
    EXPECT_EQ(lock(anna, false).status(), 104);
    EXPECT_EQ(lock(anna, true).status(), 1);
    EXPECT_EQ(ben.ask(on("openproject")).status(), 104);
    EXPECT_EQ(ben.ask(on("closeproject")).status(), 1);
    EXPECT_EQ(anna.ask(on("onlineeditors")).status(), 1);
}
