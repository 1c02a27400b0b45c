#include "ProjectsFixture.h"

using namespace kvx::test;
using namespace kvx::server;

TEST_F(Projects, NewProjectIsRefusedInThisOrder)
{
    const auto create
        = [this](const std::string &name, const std::string &kind, const Session &who) {
              return who.ask(newProject(who, guidOf(5), name, kind));
          };
    EXPECT_EQ(create("", "Tender", anna).status(), 100);
    EXPECT_EQ(create(std::string(201, 'a'), "Tender", anna).status(), 100);
    EXPECT_EQ(create("a\nb", "Tender", anna).status(), 100);
    EXPECT_EQ(create("A", "Castle", anna).status(), 319);
    EXPECT_EQ(create("A", "Castle", anna).text("message"), "\"Castle\" is not a kind of project.");
    EXPECT_EQ(create("A", "BQLibrary", anna).status(), 300);
    const Session nobody = harness.join("nora@example.com", "");
    EXPECT_EQ(create("A", "Tender", nobody).status(), 300);
    EXPECT_EQ(anna.askAs(newProject(ben, guidOf(5), "A").set("Email", anna.email)).status(), 301);
    EXPECT_EQ(anna.askAs(newProject(anna, guidOf(5), "A").set("Email", ben.email)).status(), 301);
    EXPECT_EQ(anna.askAs(newProject(anna, guidOf(5), "A")).status(), 100) << "without Email";
    EXPECT_EQ(create("A", "Tender", anna).status(), 1);
    EXPECT_EQ(ben.ask(newProject(ben, guidOf(6), "a")).status(), 311);
    EXPECT_EQ(ben.ask(newProject(ben, guidOf(5), "B")).status(), 312);
    EXPECT_EQ(harness.takeSent().size(), 1u);
    makeReadOnly();
    EXPECT_EQ(create("C", "Tender", anna).status(), 104);
}

TEST_F(Projects, RolesDecideWhichKindsOneMayCreate)
{
    const std::vector<std::pair<std::string, std::string>> allowed
        = { { "Administrator", "Estimate Tender Addendum BQLibrary ResourceLibrary" },
              { "Everything", "Estimate Tender Addendum" },
              { "Reviewer", "Estimate Tender Addendum" },
              { "Library reader", "Estimate Tender Addendum" },
              { "Library writer", "Estimate Tender Addendum BQLibrary ResourceLibrary" },
              { "Bill writer", "Estimate Tender Addendum BQLibrary" }, { "", "" } };
    int n = 100;
    for (const auto &[role, kinds] : allowed) {
        const Session user = harness.join("user" + std::to_string(n) + "@example.com", role);
        for (const char *kind :
            { "Estimate", "Tender", "Addendum", "BQLibrary", "ResourceLibrary" }) {
            ++n;
            const bool may = kinds.find(kind) != std::string::npos;
            EXPECT_EQ(create(user, n, "P" + std::to_string(n), kind), may ? 1 : 300)
                << role << ' ' << kind;
        }
    }
}

TEST(ProjectSettings, CreationCanBeLeftToThoseWhoWriteEverywhereAndKindsCanBeAdded)
{
    ServiceHarness harness([](Config &config) {
        config.projectCreate = "allreadwrite";
        config.projectKinds = { "Forecast" };
    });
    const Session anna = harness.join("anna@example.com");
    const Session chief = harness.join("chief@example.com", "Everything");
    EXPECT_EQ(anna.ask(newProject(anna, guidOf(1), "A")).status(), 300);
    EXPECT_EQ(chief.ask(newProject(chief, guidOf(1), "A", "Forecast")).status(), 1);
}

TEST_F(Projects, ARepeatedCreationAnswersOneOnceMore)
{
    ASSERT_EQ(create(anna, 1, "School"), 1);
    EXPECT_EQ(create(anna, 1, "School"), 1);
    EXPECT_EQ(harness.takeSent().size(), 1u);
    EXPECT_EQ(create(anna, 1, "Schools"), 312);
    EXPECT_EQ(create(ben, 1, "School"), 312);
    harness.db().run("UPDATE project SET created = created - 600001");
    EXPECT_EQ(create(anna, 1, "School"), 312);
}

TEST_F(Projects, ASavedProjectIsNoRepeat)
{
    ASSERT_EQ(create(anna, 1, "School"), 1);
    ASSERT_EQ(save(anna, guid, -1).status(), 1);
    EXPECT_EQ(create(anna, 1, "School"), 312);
}

TEST_F(Projects, NamesAreUniqueWithoutRegardToCaseAndForm)
{
    ASSERT_EQ(create(anna, 1,
                  "Stra\xC3\x9F"
                  "e \xC3\x84gypten"),
        1); // ß folds to ss, Ä composed
    EXPECT_EQ(create(ben, 2, "STRASSE A\xCC\x88GYPTEN"), 311); // A and a combining diaeresis
    EXPECT_EQ(
        ben.askAs(Message("existsproject").set("Name", "strasse \xC3\xA4gypten")).status(), 1);
    EXPECT_EQ(ben.askAs(Message("existsproject").set("Name", "strasse")).status(), 316);
    EXPECT_EQ(create(ben, 3, std::string(200, 'x')), 1);
    std::string wide;
    for (int i = 0; i < 200; ++i)
        wide += "\xC3\xA9";
    EXPECT_EQ(create(ben, 4, wide), 1) << "characters are counted, not bytes";
    EXPECT_EQ(create(ben, 5, wide + "e"), 100);
}

TEST_F(Projects, AHiddenProjectsNameCountsAsTakenAndARemovedOnesIsFree)
{
    ASSERT_EQ(create(anna, 1, "Hidden"), 1);
    EXPECT_EQ(create(ben, 2, "hidden"), 311);
    ASSERT_EQ(anna.ask(on("removeproject", 1)).status(), 1);
    EXPECT_EQ(ben.askAs(Message("existsproject").set("Name", "Hidden")).status(), 316);
    EXPECT_EQ(create(ben, 2, "hidden"), 1);
    EXPECT_EQ(create(anna, 1, "Another"), 312) << "the GUID is never free again";
}

TEST_F(Projects, GeneratedNamesAreFreeAndNeverTheSameTwice)
{
    ASSERT_EQ(create(anna, 1, "project 2"), 1);
    EXPECT_EQ(
        anna.askAs(Message("genprojectname")).json(), R"({"statuscode":1,"Name":"Project 1"})");
    EXPECT_EQ(ben.askAs(Message("genprojectname")).text("Name"), "Project 3");
    EXPECT_EQ(anna.askAs(Message("genprojectname")).text("Name"), "Project 4");
}

TEST_F(Projects, NameQuestionsAreLimitedForEachSession)
{
    int refused = 0;
    for (int i = 0; i < 150; ++i)
        refused += anna.askAs(Message("existsproject").set("Name", "x")).status() == 103;
    EXPECT_GT(refused, 10);
    EXPECT_EQ(ben.askAs(Message("existsproject").set("Name", "x")).status(), 316);
}

TEST_F(Projects, TheInnerLibraryBelongsToItsGuidAndToAdministrators)
{
    const std::string inner = "{5E7C38FF-98c8-46ca-b40b-9397f7bc0a8f}";
    const std::string name = "KVXInnerRateLibrary";
    const Session writer = harness.join("lib@example.com", "Library writer");
    EXPECT_EQ(writer.ask(newProject(writer, inner, name, "ResourceLibrary")).status(), 300);
    EXPECT_EQ(admin.ask(newProject(admin, inner, "Else", "ResourceLibrary")).status(), 300);
    EXPECT_EQ(admin.ask(newProject(admin, guidOf(1), name, "ResourceLibrary")).status(), 300);
    EXPECT_EQ(admin.ask(newProject(admin, inner, name, "BQLibrary")).status(), 300);
    EXPECT_EQ(admin.ask(newProject(admin, inner, name, "ResourceLibrary")).status(), 1);
    EXPECT_EQ(admin
                  .ask(Message("renameproject")
                           .set("ProjectGUID", inner)
                           .set("OldName", name)
                           .set("NewName", "Mine"))
                  .status(),
        300);
    ASSERT_EQ(create(anna, 2, "Mine"), 1);
    EXPECT_EQ(
        anna.ask(
                on("renameproject", 2).set("OldName", "Mine").set("NewName", "kvxINNERratelibrary"))
            .status(),
        300);
}

TEST_F(Projects, AnAddendumCopiesTheRowsOfUsersWithAddendum)
{
    const Session cora = harness.join("cora@example.com");
    ASSERT_EQ(create(anna, 1, "Base"), 1);
    ASSERT_EQ(permit(anna, guid,
                  { { "ben@example.com", "1,-1,1,2" }, { "cora@example.com", "0,1,-1,1" } })
                  .status(),
        1);
    harness.takeSent();
    const auto addendum = [](const Session &who, int n, const std::string &base) {
        std::string json
            = newProject(who, guidOf(n), "Addendum " + std::to_string(n), "Addendum").json();
        json.replace(json.find("newproject"), 10, "addendumproject");
        json.pop_back();
        Message message("addendumproject");
        message.set("Type", "Addendum").set("Name", "Addendum " + std::to_string(n));
        message.set("ProjectGUID", guidOf(n)).set("CreatorName", "").set("CreatorEmail", who.email);
        message.set("Amount", "0").set("ProjectState", "1").set("BidStatus", 3);
        return who.ask(message.set("AddendumProjectGUID", base));
    };
    EXPECT_EQ(addendum(cora, 5, guid).status(), 300)
        << "reads the project, but has no Addendum there";
    EXPECT_EQ(addendum(ben, 5, "").status(), 310);
    EXPECT_EQ(addendum(ben, 5, guidOf(77)).status(), 310);
    EXPECT_EQ(addendum(ben, 5, guid).json(), R"({"statuscode":1})");
    EXPECT_EQ(addendum(ben, 5, guid).status(), 1) << "a repeat";
    const auto sent = harness.takeSent();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].command, "New");

    const Answer answer = anna.askAs(on("getproject", 5));
    ASSERT_EQ(answer.status(), 1) << "Anna's row has Addendum";
    const auto &record = answer["Project"];
    EXPECT_EQ(record["AddendumProjectGUID"].GetString(), guid);
    EXPECT_EQ(record["BidStatus"].GetInt(), 3);
    EXPECT_STREQ(record["ProjectState"].GetString(), "1");
    EXPECT_EQ(textOf(record["users"]),
        R"([{"Name":"Anna","Email":"anna@example.com","Permission":[{"ProjectRW":1},{"Money":1},{"Addendum":1},{"Report":1}]},)"
        R"({"Name":"Ben","Email":"ben@example.com","Permission":[{"ProjectRW":1},{"Money":1},{"Addendum":1},{"Report":1}]}])");
    EXPECT_EQ(cora.askAs(on("getproject", 5)).status(), 310);
}
