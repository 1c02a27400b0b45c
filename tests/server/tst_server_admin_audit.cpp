#include "AdminFixture.h"

#include <ctime>
#include <filesystem>
#include <pwd.h>
#include <set>
#include <sstream>
#include <unistd.h>

using namespace kvx::test;

namespace {

using AdminAudit = Administered;

std::string today(int days)
{
    const std::time_t now = std::time(nullptr) + days * 24L * 3600;
    std::tm parts {};
    localtime_r(&now, &parts);
    char text[16];
    std::strftime(text, sizeof text, "%Y-%m-%d", &parts);
    return text;
}

} // namespace

TEST_F(AdminAudit, NamesWhoWhatOnWhatAndWhen)
{
    createShared();
    ASSERT_EQ(server.command({ "project", "remove", guidOf(1) }).exitCode, 0);
    const AdminAnswer log = json({ "audit", "export", "--project", guidOf(1) });
    EXPECT_EQ(log.rowKeys("entries"),
        "at email address session service project object status detail process number chain");
    bool found = false;
    for (const auto &entry : log["entries"].GetArray()) {
        if (std::string(entry["service"].GetString()) != "project remove")
            continue;
        found = true;
        const passwd *own = getpwuid(getuid());
        EXPECT_TRUE(has(entry["address"].GetString(), std::string("system user ") + own->pw_name));
        EXPECT_STREQ(entry["email"].GetString(), "");
        EXPECT_EQ(entry["project"].GetString(), guidOf(1));
        EXPECT_EQ(std::string(entry["at"].GetString()).size(), 24U);
        EXPECT_EQ(entry["status"].GetInt(), 1);
    }
    EXPECT_TRUE(found) << log.text;
}

TEST_F(AdminAudit, IsCsvThatKeepsEveryText)
{
    ASSERT_EQ(anna.create("Bridge, \"north\" = 1"), 1);
    const CommandResult csv = server.command({ "audit", "export", "--service", "newproject" });
    ASSERT_EQ(csv.exitCode, 0) << csv.err;
    std::istringstream lines(csv.out);
    std::string heading;
    std::string row;
    std::getline(lines, heading);
    std::getline(lines, row);
    EXPECT_EQ(heading,
        "at,email,address,session,service,project,object,status,detail,process,number,chain");
    EXPECT_TRUE(has(row, R"(,anna@example.com,127.0.0.1,)")) << row;
    EXPECT_TRUE(has(row, R"(,"Bridge, ""north"" = 1",)")) << row;
    EXPECT_FALSE(std::getline(lines, row)) << "one row: " << row;
}

TEST_F(AdminAudit, IsCutToWhatIsAskedFor)
{
    createShared();
    const auto count = [this](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), { "audit", "export" });
        return json(arguments).count("entries");
    };
    const std::size_t all = count({});
    EXPECT_GE(all, 6U);
    EXPECT_EQ(count({ "--from", today(0), "--to", today(1) }), all);
    EXPECT_EQ(count({ "--from", today(1) }), 0U);
    EXPECT_EQ(count({ "--to", today(-2) }), 0U);
    EXPECT_EQ(count({ "--service", "user add" }), 2U);
    EXPECT_EQ(count({ "--user", ben.email }), 1U) << "his login";
    EXPECT_LT(count({ "--user", anna.email }), all);
    expect(2, { "audit", "export", "--from", "yesterday" }, "--from must be a day like 2026-11-21");
    expect(2, { "audit", "export", "--from", "2026-02-30" }, "not \"2026-02-30\"");
    expect(2, { "audit", "export", "--from", today(1), "--to", today(0) }, "must not be later");
    expect(1, { "audit", "export", "--user", "nobody@example.com" }, "there is no user");
    expect(1, { "audit", "export", "--project", "Nix" }, "there is no project");
}

TEST_F(AdminAudit, EveryChangingCommandLeavesOneRow)
{
    createShared();
    ASSERT_EQ(anna.checkOut("1;2;"), 1);
    ASSERT_EQ(anna.lock(-1), "1");
    const std::vector<std::vector<std::string>> commands {
        { "user", "add", "carl@example.com", "--name", "Carl", "--random-password" },
        { "user", "password", "carl@example.com", "--random-password" },
        { "user", "disable", "carl@example.com" },
        { "user", "enable", "carl@example.com" },
        { "role", "assign", "Reviewer", "carl@example.com" },
        { "role", "unassign", "Reviewer", "carl@example.com" },
        { "role", "set", "Reviewer", "ExportProject=1" },
        { "item", "release", guidOf(1), "--module", "3", "1" },
        { "project", "checkin", guidOf(1) },
        { "project", "unlock", guidOf(1) },
        { "project", "permissions", guidOf(1), "--set", "carl@example.com=1" },
        { "session", "end", "--user", "ben@example.com" },
        { "project", "remove", guidOf(1) },
        { "project", "restore", guidOf(1) },
        { "user", "delete", "carl@example.com" },
    };
    const std::size_t before = json({ "audit", "export" }).count("entries");
    std::size_t rows = before;
    for (const auto &command : commands) {
        const CommandResult result = server.command(command);
        ASSERT_EQ(result.exitCode, 0) << command[0] << ' ' << command[1] << result.err;
        const AdminAnswer log = json({ "audit", "export" });
        ASSERT_EQ(log.count("entries"), ++rows) << command[0] << ' ' << command[1];
        const auto &last = log["entries"][static_cast<rapidjson::SizeType>(rows - 1)];
        EXPECT_EQ(last["service"].GetString(), command[0] + ' ' + command[1]);
    }
}

TEST_F(AdminAudit, TheStorageReportAddsUp)
{
    createShared();
    anna.save(0);
    ASSERT_EQ(
        anna.http
            .upload(jsonObject({ { "service", "\"upload\"" }, { "FileName", "\"own.txt\"" } }),
                std::string(1000, 'x'))
            .statusCode(),
        1);
    const AdminAnswer report = json({ "report", "storage" });
    EXPECT_EQ(
        report.rowKeys("rows"), "what name guid logs logBytes fileBytes files otherBytes bytes");
    ASSERT_EQ(report.count("rows"), 2U) << report.text;
    std::int64_t total = 0;
    for (const auto &row : report["rows"].GetArray())
        total += row["bytes"].GetInt64();
    EXPECT_EQ(total, report["stored"].GetInt64());
    EXPECT_EQ(report["contents"].GetInt(), 3) << "a log, a project file, a file of her own";
    EXPECT_EQ(report["rows"][1]["bytes"].GetInt(), 1000);
    EXPECT_GT(report["free"].GetInt64(), 0);
    expect(0, { "report", "storage" }, "1000 B");
    expect(0, { "report", "storage", "--csv" },
        "what,name,guid,logs,logBytes,fileBytes,files,otherBytes,bytes\nproject,School Nordring,");
    ASSERT_EQ(server.command({ "project", "remove", guidOf(1) }).exitCode, 0);
    EXPECT_STREQ(json({ "report", "storage" })["rows"][0]["what"].GetString(), "removed");
}

TEST_F(AdminAudit, GroupsAreListedWithTheirProjects)
{
    ASSERT_EQ(anna.create("School Nordring"), 1);
    ASSERT_EQ(anna.ask("newprojectgroup", { { "Name", "\"Schools\"" }, { "Type", "\"Tender\"" } })
                  .statusCode(),
        1);
    ASSERT_EQ(anna.onProject("updateprojectadditionalinfo",
                      { { "AdditionalInfo", R"({"Group":"schools"})" } })
                  .statusCode(),
        1);
    const AdminAnswer list = json({ "group", "list" });
    EXPECT_EQ(list.rowKeys("groups"), "name kind creator projects");
    ASSERT_EQ(list.count("groups"), 1U);
    EXPECT_EQ(list["groups"][0]["projects"].GetInt(), 1);
    expect(0, { "group", "list" }, "Schools  Tender  anna@example.com         1");
}
