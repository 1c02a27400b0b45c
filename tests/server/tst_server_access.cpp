#include "AccessModel.h"
#include "AccessWorld.h"

#include "services/ServiceTable.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

// Every service × every kind of caller × his own, a foreign and a missing object. What must come
// out stands in AccessModel.cpp, which knows nothing of the server's own tables of rights.

using namespace kvx::test;

namespace {

std::set<std::string> servedServices()
{
    std::set<std::string> names;
    for (const auto &endpoint : kvx::server::allEndpoints()) {
        for (const auto *table : endpoint.tables) {
            for (const auto &service : *table)
                names.insert(service.name);
        }
    }
    return names;
}

constexpr Caller callers[] = { Caller::Nobody, Caller::Expired, Caller::LoggedOut, Caller::Other,
    Caller::Reader, Caller::Writer, Caller::Creator, Caller::Administrator };
constexpr Object objects[] = { Object::Own, Object::Foreign, Object::Missing };

} // namespace

TEST(Access, EveryServiceHasAnExpectation)
{
    std::set<std::string> expected;
    for (const Expectation &row : accessModel())
        expected.insert(row.service);
    for (const std::string &service : servedServices())
        EXPECT_EQ(expected.count(service), 1u) << service << " has no row in AccessModel.cpp";
    for (const std::string &service : expected)
        EXPECT_EQ(servedServices().count(service), 1u) << service << " is served nowhere";
}

TEST(Access, IsJudgedByRoleInFewPlaces)
{
    const std::map<std::string, std::string> allowed {
        { "Access.cpp", "answers the questions of handlers" },
        { "Admission.cpp", "judges the tables' rules" },
        { "Call.cpp", "finds the projects that the caller sees" },
        { "Login.cpp", "tells the client its rights" },
        { "ProjectList.cpp", "lists what the caller sees" },
        { "ProjectRecord.cpp", "shows who sees a project by role" },
        { "RoleChange.cpp", "compares the rights before and after" },
        { "Roles.cpp", "changes them" },
        { "Tables.cpp", "knows a table's own right" },
    };
    const auto mentions = [](const std::string &line) {
        return line.find(".rights") != std::string::npos
            || line.find(">rights") != std::string::npos
            || line.find("hasRole") != std::string::npos;
    };
    for (const char *folder : { "/services", "/ocr" }) {
        for (const auto &entry :
            std::filesystem::directory_iterator(std::string(KVX_SERVER_FOLDER) + folder)) {
            const std::string name = entry.path().filename().string();
            if (entry.path().extension() != ".cpp" || allowed.count(name) > 0)
                continue;
            std::ifstream source(entry.path());
            int number = 0;
            for (std::string line; std::getline(source, line);) {
                ++number;
                line = line.substr(0, line.find("//"));
                EXPECT_FALSE(mentions(line)) << name << ':' << number << line;
            }
        }
    }
}

TEST(Access, IsWhatTheModelSaysAndARefusalChangesNothing)
{
    World world;
    int cases = 0;
    int refusals = 0;
    for (const Expectation &row : accessModel()) {
        for (const Caller caller : callers) {
            for (const Object object : objects) {
                const Outcome expected = row.outcome(Person(world.scenario(), caller), object);
                const std::string what = row.service + (row.variant.empty() ? "" : " ")
                    + row.variant + ", " + nameOf(caller) + ", " + nameOf(object);
                const int status = world.ask(caller, row, object);
                EXPECT_EQ(status, expected.status) << what;
                ++cases;
                if (expected.status != 1 || !expected.mayChange) {
                    EXPECT_EQ(world.digest(), world.given()) << what << " changed something";
                    ++refusals;
                }
                if (status == 1)
                    world.restore();
            }
        }
    }
    std::printf("%d cases, %d of them may change nothing\n", cases, refusals);
    RecordProperty("cases", cases);
    EXPECT_GT(cases, 1300);
}

TEST(Access, InMaintenanceEveryServiceThatChangesSomethingIsRefused)
{
    const std::set<std::string> reading { "getroles", "server", "projectlistsynctolocal",
        "getproject", "existsproject", "onlineeditors", "existsprojectgroup", "getlogversion",
        "download", "hasupload", "reportTemplateDownload", "reportTemplateQuery",
        "reportTemplateExist", "reportTemplateExistByID", "gettable", "comresource/version",
        "comresource/download", "state", "result", "languages" };
    const std::set<std::string> goOn { "login", "logout", "keepactive", "closeproject", "checkin",
        "checkinall", "loglock", "projectlock release", "GlobalUnlock", "checkout of nothing",
        "checkout of nothing, announced" };
    const std::string refusedBefore = "newproject with another as its creator";
    World world;
    int refused = 0;
    for (const Expectation &row : accessModel()) {
        const std::string what = row.service + (row.variant.empty() ? "" : " ") + row.variant;
        const Caller caller = Caller::Administrator;
        const int usual = row.outcome(Person(world.scenario(), caller), Object::Own).status;
        world.makeReadOnly();
        const std::string before = world.digest();
        const int status = world.ask(caller, row, Object::Own);
        const bool served = reading.count(row.service) > 0 || goOn.count(row.service) > 0
            || goOn.count(what) > 0 || what == refusedBefore;
        EXPECT_EQ(status, served ? usual : 104) << what;
        if (status == 104) {
            EXPECT_EQ(world.digest(), before) << what << " changed something";
            ++refused;
        }
        world.restore();
    }
    std::printf("%d kinds of request are refused in maintenance\n", refused);
    EXPECT_GT(refused, 25);
}

TEST(Access, WithoutARoleOneWorksWhereOneIsListed)
{
    ServiceHarness harness([](kvx::server::Config &config) { config.ocrWorkers = 0; });
    const Session anna = harness.join("anna@example.com");
    const Session dana = harness.join("dana@example.com", "");
    ASSERT_EQ(anna.ask(newProject(anna, guidOf(1), "School")).status(), 1);
    ASSERT_EQ(permit(anna, guidOf(1), { { "dana@example.com", "1,1,1,1" } }).status(), 1);
    EXPECT_EQ(dana.askAs(Message("getroles")).status(), 1);
    EXPECT_EQ(dana.ask(Message("openproject").set("ProjectGUID", guidOf(1))).status(), 1);
    EXPECT_EQ(save(dana, guidOf(1), -1).status(), 1);
    EXPECT_EQ(dana.upload("mine.txt", "a file").status(), 1);
    EXPECT_EQ(dana.ask(newProject(dana, guidOf(2), "Hers")).status(), 300);
    EXPECT_EQ(
        dana.askAs(Message("newprojectgroup").set("Name", "G").set("Type", "Tender")).status(),
        300);
    EXPECT_EQ(dana.askAs(Message("languages")).status(), 300);
    for (const char *service : { "state", "result", "cancel" })
        EXPECT_EQ(dana.askAs(Message(service).set("JobID", "x")).status(), 300) << service;
    Message scan("submit");
    scan.set("FileName", "scan.pdf").raw("Languages", "[\"eng\"]");
    EXPECT_EQ(
        dana.upload(scan.set("ExportType", 0).raw("PageIndexes", "[]"), "a scan").status(), 300);
}

TEST(Access, NobodyActsInAnothersName)
{
    World world;
    int cases = 0;
    for (const Expectation &row : accessModel()) {
        if (row.identity.empty())
            continue;
        for (const Caller caller : callers) {
            if (!hasSession(caller))
                continue;
            EXPECT_EQ(world.askAsAnother(caller, row), 301)
                << row.service << ' ' << row.variant << ", " << nameOf(caller);
            EXPECT_EQ(world.digest(), world.given()) << row.service << " changed something";
            ++cases;
        }
    }
    std::printf("%d cases in another's name\n", cases);
    EXPECT_GT(cases, 100);
}
