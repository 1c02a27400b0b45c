#include "ServiceHarness.h"

using namespace kvx::test;
using namespace kvx::server;

namespace {

struct Groups : testing::Test {
    ServiceHarness harness;
    Session admin = harness.join("root@example.com", "Administrator");
    Session anna = harness.join("anna@example.com");
    Session ben = harness.join("ben@example.com");

    int make(const Session &who, const std::string &name, const std::string &kind = "Tender")
    {
        return who.askAs(Message("newprojectgroup").set("Name", name).set("Type", kind)).status();
    }
    Answer remove(const Session &who, const std::string &name)
    {
        return who.askAs(Message("removeprojectgroup").set("Name", name));
    }
    int rename(const Session &who, const std::string &from, const std::string &to)
    {
        return who.askAs(Message("renameprojectgroup").set("OldName", from).set("NewName", to))
            .status();
    }
    int exists(const std::string &name)
    {
        return anna.askAs(Message("existsprojectgroup").set("Name", name)).status();
    }
    void put(int n, const std::string &info)
    {
        ASSERT_EQ(anna.ask(newProject(anna, guidOf(n), "P" + std::to_string(n))).status(), 1);
        ASSERT_EQ(anna.ask(Message("updateprojectadditionalinfo")
                               .set("ProjectGUID", guidOf(n))
                               .raw("AdditionalInfo", info))
                      .status(),
            1);
    }
};

} // namespace

TEST_F(Groups, AreCreatedOnceAndListed)
{
    EXPECT_EQ(exists("Schools"), 316);
    EXPECT_EQ(make(anna, "Schools"), 1);
    EXPECT_EQ(make(anna, "schools"), 1) << "the same kind by the same user";
    EXPECT_EQ(make(anna, "Schools", "Estimate"), 311);
    EXPECT_EQ(make(ben, "Schools"), 311);
    EXPECT_EQ(make(anna, "Bills", "BQLibrary"), 300);
    EXPECT_EQ(make(anna, "X", "Castle"), 319);
    EXPECT_EQ(make(anna, ""), 100);
    EXPECT_EQ(make(anna, std::string(101, 'x')), 100);
    EXPECT_EQ(exists("SCHOOLS"), 1);
    EXPECT_EQ(ben.ask(Message("projectlistsynctolocal")).json(),
        R"({"statuscode":1,"data":{"Projects":[],"ProjectGroups":[{"Name":"Schools","Type":"Tender"}]}})");
    EXPECT_TRUE(harness.takeSent().empty()) << "group names are not announced";
}

TEST_F(Groups, AreRemovedByTheirCreatorWhenNoProjectNamesThem)
{
    ASSERT_EQ(make(anna, "Schools"), 1);
    put(1, R"({"Group":"schools"})");
    put(2, R"({"Group":"Others"})");
    EXPECT_EQ(remove(ben, "Schools").status(), 300);
    EXPECT_EQ(remove(anna, "Nothing").status(), 317);
    const Answer full = remove(anna, "Schools");
    EXPECT_EQ(full.status(), 318);
    EXPECT_EQ(full.text("message"), "The group still holds 1 projects.");
    ASSERT_EQ(anna.ask(Message("removeproject").set("ProjectGUID", guidOf(1))).status(), 1);
    EXPECT_EQ(remove(anna, "Schools").status(), 1);
    EXPECT_EQ(remove(anna, "Schools").status(), 317);
    ASSERT_EQ(make(anna, "Schools"), 1);
    EXPECT_EQ(remove(admin, "Schools").status(), 1);
}

TEST_F(Groups, RenamingReachesTheirProjectsAndIsAnnouncedForEach)
{
    ASSERT_EQ(make(anna, "Schools"), 1);
    ASSERT_EQ(make(ben, "Bridges"), 1);
    put(1, R"({"a":1,"Group":"Schools","b":[2]})");
    put(2, R"({"Group":"Bridges"})");
    put(3, R"({"Group":"Schools"})");
    put(4, R"({"note":"the \"Group\" of Schools"})");
    put(5, R"({"Group":{"name":"Schools"}})");
    harness.takeSent();
    EXPECT_EQ(rename(ben, "Schools", "Colleges"), 300);
    EXPECT_EQ(rename(anna, "Nothing", "Colleges"), 317);
    EXPECT_EQ(rename(anna, "Schools", "bridges"), 311);
    EXPECT_EQ(rename(anna, "Schools", "Colleges"), 1);
    EXPECT_EQ(rename(anna, "Schools", "Colleges"), 1) << "done already";
    EXPECT_EQ(rename(ben, "Schools", "Colleges"), 317);
    const auto sent = harness.takeSent();
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0].command, "UpdateAddionalInfo");
    EXPECT_EQ(sent[0].content,
        "{\"Command\":\"UpdateAddionalInfo\",\"ProjectGUID\":\"" + guidOf(1)
            + R"(","AdditionalInfo":{"a":1,"Group":"Colleges","b":[2]}})");
    EXPECT_EQ(sent[1].content,
        "{\"Command\":\"UpdateAddionalInfo\",\"ProjectGUID\":\"" + guidOf(3)
            + R"(","AdditionalInfo":{"Group":"Colleges"}})");
    const Answer other = anna.askAs(Message("getproject").set("ProjectGUID", guidOf(2)));
    EXPECT_STREQ(other["Project"]["AdditionalInfo"].GetString(), R"({"Group":"Bridges"})");
    EXPECT_EQ(exists("Schools"), 316);
    EXPECT_EQ(rename(anna, "Colleges", "COLLEGES"), 1) << "only the case changes";
}

TEST_F(Groups, NoMoreThanAThousandProjectsAreRenamedAtOnce)
{
    ASSERT_EQ(make(anna, "Schools"), 1);
    put(1, R"({"Group":"Schools"})");
    Transaction transaction(harness.db(), Transaction::Kind::Write);
    for (int i = 2; i <= 1001; ++i) {
        harness.db().run(
            "INSERT INTO project (id, guid, guid_key, name, name_key, live_name_key, kind, "
            "creator_id,"
            " created, editor_id, modified, info) SELECT :id, :guid, :key, :name, :k, :live, kind,"
            " creator_id, created, editor_id, modified, info FROM project WHERE id = 1",
            { { "id", 1000 + i }, { "guid", guidOf(i) }, { "key", guidOf(i) },
                { "name", std::to_string(i) }, { "k", std::to_string(i) },
                { "live", std::to_string(i) } });
    }
    transaction.commit();
    EXPECT_EQ(rename(anna, "Schools", "Colleges"), 102);
    harness.db().run("DELETE FROM project WHERE id = 2001");
    EXPECT_EQ(rename(anna, "Schools", "Colleges"), 1);
    harness.takeSent();
    EXPECT_EQ(remove(anna, "Colleges").text("message"), "The group still holds 1000 projects.");
}
