#include "ProjectsFixture.h"
#include "base/JsonText.h"

using namespace kvx::test;
using namespace kvx::server;

namespace {

std::string keysOf(const rapidjson::Value &object)
{
    std::string keys;
    for (const auto &member : object.GetObject())
        keys += (keys.empty() ? "" : " ") + std::string(member.name.GetString());
    return keys;
}

rapidjson::Document parsed(const std::string &json)
{
    rapidjson::Document document;
    document.Parse(json.c_str());
    return document;
}

constexpr const char *shortKeys
    = "Command ProjectGUID Description Type CreatorName CreatorEmail CreateDate LastEditorName"
      " LastEditorEmail LastModifyDate LogVersion Amount ProjectState BidStatus "
      "AddendumProjectGUID";

} // namespace

TEST_F(Projects, ANewProjectIsListedWithEveryKeyOfItsRecord)
{
    const Answer created = anna.ask(newProject(anna, guid, " School Nordring "));
    EXPECT_EQ(created.json(), R"({"statuscode":1})");
    const Answer list = anna.ask(Message("projectlistsynctolocal"));
    EXPECT_EQ(list.keys(), "statuscode data");
    EXPECT_EQ(keysOf(list["data"]), "Projects ProjectGroups");
    ASSERT_EQ(list["data"]["Projects"].Size(), 1u) << list.json();
    const auto &record = list["data"]["Projects"][0];
    EXPECT_EQ(keysOf(record),
        "ProjectGUID Description Type CreatorName CreatorEmail CreateDate LastEditorName "
        "LastEditorEmail"
        " LastModifyDate LogVersion Amount ProjectState BidStatus AddendumProjectGUID "
        "AdditionalInfo users");
    EXPECT_EQ(record["ProjectGUID"].GetString(), guid);
    EXPECT_STREQ(record["Description"].GetString(), "School Nordring");
    EXPECT_STREQ(record["CreatorName"].GetString(), "Anna");
    EXPECT_STREQ(record["CreatorEmail"].GetString(), "anna@example.com");
    EXPECT_EQ(record["CreateDate"].GetStringLength(), 16u);
    EXPECT_EQ(record["LogVersion"].GetInt(), -1);
    EXPECT_STREQ(record["Amount"].GetString(), "12.50");
    EXPECT_STREQ(record["ProjectState"].GetString(), "0");
    EXPECT_EQ(record["BidStatus"].GetInt(), 0);
    EXPECT_STREQ(record["AddendumProjectGUID"].GetString(), "");
    EXPECT_STREQ(record["AdditionalInfo"].GetString(), "{}");
    EXPECT_EQ(textOf(record["users"]),
        R"([{"Name":"Anna","Email":"anna@example.com","Permission":[{"ProjectRW":1},{"Money":1},{"Addendum":1},{"Report":1}]}])");

    const Answer single = anna.askAs(on("getproject"));
    EXPECT_EQ(single.keys(), "statuscode Project");
    EXPECT_EQ(textOf(single["Project"]), textOf(record));

    const auto sent = harness.takeSent();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].type, "notifymsg_projectlist");
    EXPECT_EQ(sent[0].command, "New");
    EXPECT_EQ(sent[0].sender, "anna@example.com");
}

TEST_F(Projects, AnEmptyListIsAnEmptyArray)
{
    EXPECT_EQ(ben.ask(Message("projectlistsynctolocal")).json(),
        R"({"statuscode":1,"data":{"Projects":[],"ProjectGroups":[]}})");
}

TEST_F(Projects, TheListHoldsWhatTheCallerMayReadAndNothingElse)
{
    const Session reviewer = harness.join("rita@example.com", "Reviewer");
    const Session reader = harness.join("lars@example.com", "Library reader");
    const Session nobody = harness.join("nora@example.com", "");
    ASSERT_EQ(create(anna, 1, "Tender one"), 1);
    ASSERT_EQ(create(ben, 2, "Tender two"), 1);
    ASSERT_EQ(create(admin, 3, "Rates", "ResourceLibrary"), 1);
    ASSERT_EQ(create(admin, 4, "Bills", "BQLibrary"), 1);
    using Names = std::set<std::string>;
    EXPECT_EQ(listed(anna), (Names { "Tender one" }));
    EXPECT_EQ(listed(ben), (Names { "Tender two" }));
    EXPECT_EQ(listed(reader), (Names { "Rates", "Bills" }));
    EXPECT_EQ(listed(reviewer).size(), 4u);
    EXPECT_EQ(listed(admin).size(), 4u);
    EXPECT_TRUE(listed(nobody).empty());
    ASSERT_EQ(permit(anna, guidOf(1), { { "nora@example.com", "0,-1,-1,-1" } }).status(), 1);
    EXPECT_EQ(listed(nobody), (Names { "Tender one" }));
}

TEST_F(Projects, TheListOfManyProjectsEqualsTheSingleRecords)
{
    for (int i = 1; i <= 150; ++i)
        ASSERT_EQ(create(i % 2 ? anna : ben, i, "Project no " + std::to_string(i)), 1);
    for (int round = 0; round < 2; ++round) { // rendered together, then from the cache
        const Answer list = admin.ask(Message("projectlistsynctolocal"));
        ASSERT_EQ(list["data"]["Projects"].Size(), 150u);
        for (const auto &record : list["data"]["Projects"].GetArray()) {
            const Answer single = admin.askAs(
                Message("getproject").set("ProjectGUID", record["ProjectGUID"].GetString()));
            EXPECT_EQ(textOf(single["Project"]), textOf(record));
        }
        ASSERT_EQ(admin
                      .ask(on("renameproject", 7)
                               .set("OldName", round ? "B" : "Project no 7")
                               .set("NewName", round ? "A" : "B"))
                      .status(),
            1);
    }
    EXPECT_EQ(listed(admin).count("A"), 1u);
}

TEST_F(Projects, UnknownRemovedAndInvisibleProjectsLookAlike)
{
    ASSERT_EQ(create(anna, 1, "Hidden"), 1);
    ASSERT_EQ(create(anna, 2, "Removed"), 1);
    ASSERT_EQ(anna.ask(on("removeproject", 2)).status(), 1);
    std::set<std::string> texts;
    for (const int n : { 1, 2, 3 }) {
        const Answer answer = ben.askAs(on("getproject", n));
        EXPECT_EQ(answer.status(), 310);
        texts.insert(answer.text("error") + answer.text("message"));
    }
    EXPECT_EQ(texts, (std::set<std::string> { "NoSuchProjectThere is no such project." }));
    for (const char *service : { "getproject", "openproject", "getlogversion", "onlineeditors",
             "updateproject", "removeproject", "checkinall" })
        EXPECT_EQ(ben.ask(on(service, 1)).status(), 310) << service;
    EXPECT_EQ(ben.ask(Message("getproject").set("ProjectGUID", "4b1d")).status(), 100);
}

TEST_F(Projects, GuidsAreFoundInAnyLetterCaseAndSentBackAsGiven)
{
    ASSERT_EQ(create(anna, 1, "Case"), 1);
    std::string upper = guid;
    for (char &c : upper)
        c = static_cast<char>(std::toupper(c));
    const Answer answer = anna.askAs(Message("getproject").set("ProjectGUID", upper));
    ASSERT_EQ(answer.status(), 1);
    EXPECT_EQ(answer["Project"]["ProjectGUID"].GetString(), guid);
    EXPECT_EQ(anna.ask(newProject(anna, upper, "Other")).status(), 312);
}

TEST_F(Projects, RemovalNeedsTheCreatorAndAProjectOpenNowhere)
{
    ASSERT_EQ(create(anna, 1, "School"), 1);
    ASSERT_EQ(permit(anna, guid, { { "ben@example.com", "1,1,1,1" } }).status(), 1);
    EXPECT_EQ(ben.ask(on("removeproject")).status(), 300);
    ASSERT_EQ(ben.ask(on("openproject")).status(), 1);
    ASSERT_EQ(anna.ask(on("openproject")).status(), 1);
    const Answer used = anna.ask(on("removeproject"));
    EXPECT_EQ(used.status(), 313);
    // In order of opening; within one millisecond either.
    EXPECT_TRUE(used.text("message") == "The project is open at: Ben, Anna."
        || used.text("message") == "The project is open at: Anna, Ben.")
        << used.text("message");
    ASSERT_EQ(anna.ask(on("closeproject")).status(), 1);
    ASSERT_EQ(ben.ask(on("closeproject")).status(), 1);
    ASSERT_EQ(ben.ask(on("projectlock").set("ReleaseLock", false)).status(), 1);
    EXPECT_EQ(anna.ask(on("removeproject")).status(), 314);
    ASSERT_EQ(ben.ask(on("projectlock").set("ReleaseLock", true)).status(), 1);
    harness.takeSent();

    EXPECT_EQ(anna.ask(on("removeproject")).json(), R"({"statuscode":1})");
    const auto sent = harness.takeSent();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].command, "Remove");
    EXPECT_EQ(keysOf(parsed(sent[0].content)), shortKeys);
    EXPECT_STREQ(parsed(sent[0].content)["Description"].GetString(), "School");
    EXPECT_TRUE(listed(anna).empty());
    EXPECT_TRUE(listed(admin).empty());

    EXPECT_EQ(anna.ask(on("removeproject")).status(), 1) << "the remover's repeat";
    EXPECT_EQ(ben.ask(on("removeproject")).status(), 310);
    EXPECT_EQ(admin.ask(on("removeproject")).status(), 310);
    EXPECT_TRUE(harness.takeSent().empty());
    harness.db().run("UPDATE project SET removed_at = removed_at - 86400001");
    EXPECT_EQ(anna.ask(on("removeproject")).status(), 310);
}

TEST_F(Projects, RemovalTakesCheckOutsLocksAndStagesWithIt)
{
    ASSERT_EQ(create(anna, 1, "School"), 1);
    ASSERT_EQ(
        anna.ask(on("checkout").set("ModuleType", 1).set("NotifyOther", false).set("IDs", "1;2;"))
            .status(),
        1);
    ASSERT_EQ(
        anna.ask(on("loglock").set("LogVersion", -1).set("ReleaseLock", false)).integer("Lock"), 1);
    ASSERT_EQ(anna.upload(guid + ".KVX", "bytes").status(), 1);
    ASSERT_EQ(anna.ask(on("removeproject")).status(), 1);
    const auto count
        = [this](const char *sql) { return harness.db().value<std::int64_t>(sql).value(); };
    EXPECT_EQ(count("SELECT count(*) FROM item WHERE state = 1"), 0);
    EXPECT_EQ(count("SELECT count(*) FROM stage"), 0);
    EXPECT_EQ(count("SELECT count(*) FROM project WHERE lock_session IS NOT NULL OR plock_session "
                    "IS NOT NULL"),
        0);
}

TEST_F(Projects, AnAbsentUserDoesNotKeepAProjectOpen)
{
    ASSERT_EQ(create(anna, 1, "School"), 1);
    ASSERT_EQ(permit(anna, guid, { { "ben@example.com", "1,1,1,1" } }).status(), 1);
    ASSERT_EQ(ben.ask(on("openproject")).status(), 1);
    harness.db().run(
        "UPDATE session SET last_seen = last_seen - 300001 WHERE id = :id", { { "id", ben.id } });
    EXPECT_EQ(anna.ask(on("removeproject")).status(), 1);
}

TEST_F(Projects, UpdateTakesThreeFieldsAndIgnoresEverythingElse)
{
    ASSERT_EQ(create(anna, 1, "School"), 1);
    ASSERT_EQ(permit(anna, guid, { { "ben@example.com", "1,1,1,1" } }).status(), 1);
    harness.takeSent();
    const Answer answer = ben.ask(on("updateproject")
                                      .set("Description", "Stolen")
                                      .set("CreatorEmail", "ben@example.com")
                                      .set("LogVersion", 99)
                                      .raw("users", "[]")
                                      .set("AdditionalInfo", "{\"a\":1}")
                                      .set("ProjectState", "1")
                                      .set("Amount", "77.10")
                                      .set("BidStatus", 4)
                                      .set("Type", "Estimate"));
    EXPECT_EQ(answer.json(), R"({"statuscode":1})");
    const Answer changed = anna.askAs(on("getproject"));
    const auto &record = changed["Project"];
    EXPECT_STREQ(record["Description"].GetString(), "School");
    EXPECT_STREQ(record["CreatorEmail"].GetString(), "anna@example.com");
    EXPECT_STREQ(record["LastEditorEmail"].GetString(), "ben@example.com");
    EXPECT_EQ(record["LogVersion"].GetInt(), -1);
    EXPECT_STREQ(record["ProjectState"].GetString(), "1");
    EXPECT_STREQ(record["Amount"].GetString(), "77.10");
    EXPECT_EQ(record["BidStatus"].GetInt(), 4);
    EXPECT_STREQ(record["Type"].GetString(), "Tender");
    EXPECT_STREQ(record["AdditionalInfo"].GetString(), "{}");
    EXPECT_EQ(record["users"].Size(), 2u);

    const auto sent = harness.takeSent();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].command, "Update");
    const auto content = parsed(sent[0].content);
    EXPECT_EQ(keysOf(content), shortKeys);
    EXPECT_STREQ(content["ProjectState"].GetString(), "1");
    EXPECT_STREQ(content["LastEditorName"].GetString(), "Ben");

    EXPECT_EQ(anna.ask(on("updateproject").set("ProjectState", 0)).status(), 1)
        << "a number, others kept";
    EXPECT_STREQ(anna.askAs(on("getproject"))["Project"]["Amount"].GetString(), "77.10");
    EXPECT_EQ(anna.ask(on("updateproject").set("ProjectState", "one")).status(), 100);
    EXPECT_EQ(anna.ask(on("updateproject").set("Amount", std::string(65, '1'))).status(), 100);
}

TEST_F(Projects, ChangesNeedWriteAccessAndAnUnlockedProject)
{
    ASSERT_EQ(create(anna, 1, "School"), 1);
    ASSERT_EQ(permit(anna, guid, { { "ben@example.com", "0,1,1,1" } }).status(), 1);
    const std::vector<Message> changes = { on("updateproject").set("ProjectState", 1),
        on("renameproject").set("OldName", "School").set("NewName", "Other"),
        on("updateprojectadditionalinfo").raw("AdditionalInfo", "{}") };
    for (const Message &change : changes)
        EXPECT_EQ(ben.ask(change).status(), 300) << change.json();
    ASSERT_EQ(admin.ask(on("projectlock").set("ReleaseLock", false)).status(), 1);
    for (const Message &change : changes) {
        const Answer locked = anna.ask(change);
        EXPECT_EQ(locked.status(), 314) << change.json();
        EXPECT_EQ(locked.text("message"), "The project is locked by Root.");
        EXPECT_EQ(admin.ask(change).status(), 1) << "the holder himself";
    }
}

TEST_F(Projects, ARepeatedRenameIsDoneThoughTheProjectIsLockedMeanwhile)
{
    ASSERT_EQ(create(anna, 1, "School"), 1);
    const auto rename = [&](const std::string &from, const std::string &to) {
        return anna.ask(on("renameproject").set("OldName", from).set("NewName", to)).status();
    };
    ASSERT_EQ(rename("School", "School II"), 1);
    ASSERT_EQ(admin.ask(on("projectlock").set("ReleaseLock", false)).status(), 1);
    harness.takeSent();
    EXPECT_EQ(rename("School", "School II"), 1) << "the first reply was lost";
    EXPECT_TRUE(harness.takeSent().empty());
    EXPECT_EQ(rename("School II", "School III"), 314);
}

TEST_F(Projects, RenameChecksTheOldNameAndIsQuietWhenRepeated)
{
    ASSERT_EQ(create(anna, 1, "School"), 1);
    ASSERT_EQ(create(anna, 2, "Bridge"), 1);
    harness.takeSent();
    const auto rename = [&](const std::string &from, const std::string &to) {
        return anna.ask(on("renameproject").set("OldName", from).set("NewName", to));
    };
    const Answer changed = rename("Scool", "School II");
    EXPECT_EQ(changed.status(), 315);
    EXPECT_EQ(changed.text("message"), "The project is no longer named \"Scool\".");
    EXPECT_EQ(rename("School", "bridge").status(), 311);
    EXPECT_EQ(rename("School", " ").status(), 100);
    EXPECT_TRUE(harness.takeSent().empty());
    EXPECT_EQ(rename("School", "School II").json(), R"({"statuscode":1})");
    EXPECT_EQ(rename("School", "School II").status(), 1);
    EXPECT_EQ(rename("School II", "SCHOOL II").status(), 1) << "only the case changes";
    const auto sent = harness.takeSent();
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0].command, "Rename");
    EXPECT_EQ(keysOf(parsed(sent[0].content)), shortKeys);
    EXPECT_STREQ(parsed(sent[0].content)["Description"].GetString(), "School II");
}

TEST_F(Projects, AdditionalInformationIsKeptAsCompactTextInTheOrderSent)
{
    ASSERT_EQ(create(anna, 1, "School"), 1);
    harness.takeSent();
    const auto put = [&](const std::string &json) {
        return anna.ask(on("updateprojectadditionalinfo").raw("AdditionalInfo", json)).status();
    };
    EXPECT_EQ(put(R"({ "z" : 1.5, "a" : ["\u00e4", null], "client" : "City" })"), 1);
    const std::string kept = "{\"z\":1.5,\"a\":[\"\xC3\xA4\",null],\"client\":\"City\"}";
    EXPECT_EQ(anna.askAs(on("getproject"))["Project"]["AdditionalInfo"].GetString(), kept);
    const auto sent = harness.takeSent();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].command, "UpdateAddionalInfo");
    EXPECT_EQ(sent[0].content,
        "{\"Command\":\"UpdateAddionalInfo\",\"ProjectGUID\":\"" + guid
            + "\",\"AdditionalInfo\":" + kept + '}');

    EXPECT_EQ(put(jsonText(R"({"b": {"c":2}})")), 1) << "an object as text";
    EXPECT_STREQ(
        anna.askAs(on("getproject"))["Project"]["AdditionalInfo"].GetString(), R"({"b":{"c":2}})");
    EXPECT_EQ(put("{}"), 1);
    EXPECT_STREQ(anna.askAs(on("getproject"))["Project"]["AdditionalInfo"].GetString(), "{}");
    for (const char *bad :
        { "[]", "null", "1", "\"\"", "\"[1]\"", "\"{\\\"a\\\":1,\\\"a\\\":2}\"" })
        EXPECT_EQ(put(bad), 100) << bad;
    EXPECT_EQ(put("{\"a\":\"" + std::string(256 * 1024 - 8, 'x') + "\"}"), 1);
    EXPECT_EQ(put("{\"a\":\"" + std::string(256 * 1024 - 7, 'x') + "\"}"), 100);
}

TEST_F(Projects, EveryServiceNeedsASession)
{
    Session stranger = anna;
    stranger.token = "forged";
    for (const char *service : { "projectlistsynctolocal", "getproject", "genprojectname",
             "existsproject", "newproject", "addendumproject", "removeproject", "updateproject",
             "renameproject", "updateprojectadditionalinfo", "projectpermission", "newprojectgroup",
             "removeprojectgroup", "renameprojectgroup", "existsprojectgroup", "openproject",
             "closeproject", "projectlock", "onlineeditors", "getlogversion", "loglock",
             "sendservertomerge", "download", "hasupload", "checkout", "checkin", "checkinall",
             "allocateidrange", "copycheckstate" })
        EXPECT_EQ(stranger.ask(Message(service)).status(), 2) << service;
    EXPECT_EQ(stranger.upload("notes.txt", "x").status(), 2);
}

TEST_F(Projects, AnEmailOfAnotherUserIsRefusedForAdministratorsToo)
{
    ASSERT_EQ(create(anna, 1, "School"), 1);
    for (const char *service : { "projectlistsynctolocal", "removeproject", "updateproject",
             "renameproject", "updateprojectadditionalinfo", "projectpermission", "openproject",
             "closeproject", "projectlock", "onlineeditors", "getlogversion", "loglock",
             "sendservertomerge", "checkout", "checkin", "checkinall", "allocateidrange" }) {
        EXPECT_EQ(admin.askAs(on(service).set("Email", anna.email)).status(), 301) << service;
        EXPECT_EQ(admin.askAs(on(service)).status(), 100) << service;
    }
    EXPECT_EQ(anna.askAs(on("getlogversion").set("Email", " ANNA@Example.COM ")).status(), 1);
}
