#include "support/HttpClient.h"
#include "support/ServerProcess.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>

using kvx::test::CommandResult;
using kvx::test::HttpClient;
using kvx::test::ServerProcess;

namespace {

bool contains(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

ServerProcess::Options notStarted()
{
    ServerProcess::Options options;
    options.start = false;
    return options;
}

std::string written(const ServerProcess &server, const std::string &name, const std::string &text)
{
    const std::string path = server.folder() + "/" + name;
    std::ofstream(path) << text;
    return path;
}

TEST(ServerSettings, AnUnknownKeyStopsTheStartWhereverItStands)
{
    const ServerProcess server(notStarted());
    const std::string data = server.dataFolder();
    const CommandResult option
        = ServerProcess::run({ "serve", "--check", "--data", data, "--nosuch", "1" });
    EXPECT_EQ(option.exitCode, 2);
    EXPECT_TRUE(contains(option.out + option.err, "nosuch")) << option.err;
    const std::string file
        = written(server, "conf", "# ours\n\nlisten = 127.0.0.1:0\nnosuch = 1\n");
    const CommandResult inFile
        = ServerProcess::run({ "serve", "--check", "--data", data, "--config", file });
    EXPECT_EQ(inFile.exitCode, 2);
    EXPECT_TRUE(contains(inFile.err, "conf:4: there is no setting \"nosuch\"")) << inFile.err;
    const CommandResult variable = ServerProcess::run(
        { "serve", "--check", "--data", data }, "", { { "KVX_SESSION_IDEL", "1s" } });
    EXPECT_EQ(variable.exitCode, 2);
    EXPECT_TRUE(contains(variable.err, "KVX_SESSION_IDEL")) << variable.err;
    EXPECT_FALSE(std::filesystem::exists(data)) << "nothing was made";
}

TEST(ServerSettings, ForeignVariablesAreLeftAlone)
{
    const ServerProcess server(notStarted());
    const CommandResult result
        = ServerProcess::run({ "serve", "--check", "--data", server.dataFolder(),
                                 "--admin-password-file", server.folder() + "/pw" },
            "", { { "KVX_TEST_LIMIT", "60" } });
    EXPECT_EQ(result.exitCode, 0) << result.err;
}

TEST(ServerSettings, AValueThatDoesNotFitIsNamedWithWhatWould)
{
    const ServerProcess server(notStarted());
    const auto tried = [&server](const std::string &key, const std::string &value) {
        return ServerProcess::run(
            { "serve", "--check", "--data", server.dataFolder(), "--" + key, value });
    };
    for (const auto &[key, value] : { std::pair("session.idle", "30"), { "session.idle", "0s" },
             { "session.perUser", "none" }, { "session.perUser", "0" },
             { "limits.upload", "5 parsecs" }, { "limits.upload", "-1MiB" },
             { "limits.upload", "99999999999GiB" }, { "listen", "8090" },
             { "listen", "127.0.0.1:99999" }, { "log.format", "xml" }, { "broker.guard", "maybe" },
             { "database", "oracle" }, { "resource.anonymous", "true" } }) {
        const CommandResult result = tried(key, value);
        EXPECT_EQ(result.exitCode, 2) << key << value;
        EXPECT_TRUE(contains(result.err, std::string("--") + key + ": " + key + " must be"))
            << result.err;
    }
    for (const auto &[key, value] : { std::pair("session.idle", "90 s"), { "session.idle", "2h" },
             { "limits.upload", "64 KiB" }, { "listen", "[::1]:0" } }) {
        const CommandResult result
            = ServerProcess::run({ "serve", "--check", "--data", server.dataFolder(),
                "--admin-password-file", server.folder() + "/pw", std::string("--") + key, value });
        EXPECT_EQ(result.exitCode, 0) << key << value << result.err;
    }
}

TEST(ServerSettings, FileThenEnvironmentThenOption)
{
    const ServerProcess server(notStarted());
    const std::string file = written(server, "conf", "log.format = xml\n");
    const auto check = [&](std::vector<std::string> more,
                           const std::map<std::string, std::string> &environment) {
        std::vector<std::string> all { "serve", "--check", "--data", server.dataFolder(),
            "--admin-password-file", server.folder() + "/pw" };
        all.insert(all.end(), more.begin(), more.end());
        return ServerProcess::run(all, "", environment);
    };
    EXPECT_TRUE(contains(check({ "--config", file }, {}).err, "conf:1: log.format"))
        << "the file is read";
    EXPECT_TRUE(
        contains(check({}, { { "KVX_LOG_FORMAT", "xml" } }).err, "KVX_LOG_FORMAT: log.format"));
    const std::string reachable = written(server, "wide", "listen = 0.0.0.0:0\n");
    EXPECT_EQ(check({ "--config", reachable }, {}).exitCode, 2);
    EXPECT_EQ(check({ "--config", reachable }, { { "KVX_LISTEN", "127.0.0.1:0" } }).exitCode, 0);
    EXPECT_EQ(check({ "--config", reachable, "--listen", "10.0.0.1:0" },
                  { { "KVX_LISTEN", "127.0.0.1:0" } })
                  .exitCode,
        2);
}

TEST(ServerSettings, PlainHttpBeyondThisMachineMustBeAllowed)
{
    const ServerProcess server(notStarted());
    const std::vector<std::string> arguments { "serve", "--check", "--data", server.dataFolder(),
        "--listen", "0.0.0.0:0", "--admin-password-file", server.folder() + "/pw" };
    const CommandResult refused = ServerProcess::run(arguments);
    EXPECT_EQ(refused.exitCode, 2);
    EXPECT_TRUE(contains(refused.err, "http.plain=allow")) << refused.err;
    std::vector<std::string> allowed = arguments;
    allowed.insert(allowed.end(), { "--http.plain", "allow" });
    EXPECT_EQ(ServerProcess::run(allowed).exitCode, 0);
}

TEST(ServerSettings, TheDataFolderMustBeGiven)
{
    const CommandResult result = ServerProcess::run({ "serve", "--check" });
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_TRUE(contains(result.err, "data:")) << result.err;
}

TEST(ServerCommands, UsageErrorsAre2AndHelpIs0)
{
    EXPECT_EQ(ServerProcess::run({}).exitCode, 2);
    EXPECT_EQ(ServerProcess::run({ "nosuch" }).exitCode, 2);
    EXPECT_EQ(ServerProcess::run({ "user" }).exitCode, 2);
    EXPECT_EQ(ServerProcess::run({ "user", "add" }).exitCode, 2);
    const CommandResult help = ServerProcess::run({ "--help" });
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_TRUE(contains(help.out, "--session.perUser"));
}

TEST(ServerCommands, WithoutADatabaseTheyAre3)
{
    const ServerProcess server(notStarted());
    const CommandResult result
        = ServerProcess::run({ "user", "list", "--data", server.dataFolder() });
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_TRUE(contains(result.err, "kvx.sqlite")) << result.err;
    const CommandResult json
        = ServerProcess::run({ "--json", "user", "list", "--data", server.dataFolder() });
    EXPECT_EQ(json.exitCode, 3);
    EXPECT_TRUE(contains(json.out, "{\"ok\":false,\"error\":")) << json.out;
    EXPECT_FALSE(std::filesystem::exists(server.dataFolder()));
}

TEST(ServerFirstStart, MakesFourRolesAndOneAdministratorOnce)
{
    const ServerProcess server(notStarted());
    const std::string pw = server.folder() + "/pw";
    const CommandResult made = ServerProcess::run(
        { "init", "--data", server.dataFolder(), "--admin.email", "Boss@Example.com" });
    ASSERT_EQ(made.exitCode, 0) << made.err;
    const std::size_t at = made.out.find("password: ");
    ASSERT_NE(at, std::string::npos) << made.out;
    EXPECT_TRUE(contains(made.out, "boss@example.com"));
    EXPECT_EQ(made.out.substr(at + 10).find('\n'), 20U) << "twenty characters";
    const CommandResult again = ServerProcess::run({ "init", "--data", server.dataFolder() });
    EXPECT_EQ(again.exitCode, 0);
    EXPECT_FALSE(contains(again.out, "password"));
    const CommandResult roles
        = ServerProcess::run({ "--json", "role", "list", "--data", server.dataFolder() });
    std::size_t last = 0;
    for (const char *name :
        { "\"Administrator\",", "\"Chief estimator\",", "\"Estimator\",", "\"Reviewer\"," }) {
        const std::size_t place = roles.out.find(std::string("\"Name\":") + name);
        ASSERT_NE(place, std::string::npos) << roles.out;
        EXPECT_GT(place, last);
        last = place;
    }
    for (const char *role :
        { R"("Name":"Administrator","AllProjectReadWrite":0,"AllProjectReview":0,"ExportProject":0,"ExportUnitRate":0,"UploadReportSetting":0,"ReadOnlyRateLibrary":0,"ReadWriteRateLibrary":0,"ReadWriteBQLibrary":0,"Administrator":1)",
            R"("Name":"Chief estimator","AllProjectReadWrite":1,"AllProjectReview":1,"ExportProject":1,"ExportUnitRate":1,"UploadReportSetting":1,"ReadOnlyRateLibrary":1,"ReadWriteRateLibrary":1,"ReadWriteBQLibrary":1,"Administrator":0)",
            R"("Name":"Estimator","AllProjectReadWrite":0,"AllProjectReview":0,"ExportProject":1,"ExportUnitRate":0,"UploadReportSetting":1,"ReadOnlyRateLibrary":1,"ReadWriteRateLibrary":0,"ReadWriteBQLibrary":0,"Administrator":0)",
            R"("Name":"Reviewer","AllProjectReadWrite":0,"AllProjectReview":1,"ExportProject":0,"ExportUnitRate":0,"UploadReportSetting":0,"ReadOnlyRateLibrary":0,"ReadWriteRateLibrary":0,"ReadWriteBQLibrary":0,"Administrator":0)" })
        EXPECT_TRUE(contains(roles.out, role)) << role << " in " << roles.out;
    struct stat status { };
    ASSERT_EQ(stat(server.dataFolder().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0700U);
}

TEST(ServerFirstStart, ThePasswordFileIsPrivateAndNeverOverwritten)
{
    const ServerProcess server(notStarted());
    const std::string pw = written(server, "pw", "kept");
    const CommandResult refused = ServerProcess::run(
        { "init", "--data", server.dataFolder(), "--admin-password-file", pw });
    EXPECT_EQ(refused.exitCode, 3);
    EXPECT_TRUE(contains(refused.err, pw)) << refused.err;
    std::filesystem::remove(pw);
    const CommandResult made = ServerProcess::run(
        { "init", "--data", server.dataFolder(), "--admin-password-file", pw });
    EXPECT_EQ(made.exitCode, 0) << "nothing of the refused start is in the way: " << made.err;
    struct stat status { };
    ASSERT_EQ(stat(pw.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    EXPECT_EQ(status.st_size, 21);
    EXPECT_FALSE(contains(made.out, "password: "));
}

TEST(ServerCommands, AnAddedUserCanLogInAtOnce)
{
    const ServerProcess server;
    const CommandResult added = server.command(
        { "user", "add", " Zoë@Example.COM", "--name", " Zoë  Ito ", "--role", "reviewer" },
        "päss\n");
    ASSERT_EQ(added.exitCode, 0) << added.err;
    HttpClient client(server.url());
    const auto reply = client.login("zoë@example.com", "päss");
    EXPECT_EQ(reply.statusCode(), 1) << reply.body;
    EXPECT_EQ(reply.member("Email"), "zoë@example.com");
    EXPECT_TRUE(contains(reply.member("Role"), "\"Name\":\"Reviewer\""))
        << "role names without regard to case";
    const CommandResult list = server.command({ "user", "list", "--json" });
    EXPECT_TRUE(contains(list.out, R"("email":"zoë@example.com")")) << list.out;
    EXPECT_FALSE(contains(list.out, "argon2"));
}

TEST(ServerCommands, RefusalsAre1AndSayWhy)
{
    const ServerProcess server;
    const auto refused = [&server](const std::vector<std::string> &arguments,
                             const std::string &input, const std::string &why) {
        const CommandResult result = server.command(arguments, input);
        EXPECT_EQ(result.exitCode, 1) << why;
        EXPECT_TRUE(contains(result.err, why)) << result.err;
    };
    refused({ "user", "add", "no-at-sign", "--name", "X" }, "pw\n", "is not an e-mail");
    refused({ "user", "add", "a;b@c", "--name", "X" }, "pw\n", "is not an e-mail");
    refused({ "user", "add", "a%b@c", "--name", "X" }, "pw\n", "is not an e-mail");
    refused(
        { "user", "add", "a@b", "--name", "  " }, "pw\n", "the name must have 1 to 100 characters");
    refused({ "user", "add", "a@b", "--name", "X" }, "\n", "the password must not be empty");
    refused(
        { "user", "add", "a@b", "--name", "X" }, std::string(1025, 'x') + "\n", "longer than 1024");
    refused({ "user", "add", "a@b", "--name", "X", "--role", "King" }, "pw\n",
        "there is no role \"King\"");
    refused({ "user", "add", "ADMIN@localhost", "--name", "X" }, "pw\n", "already");
    refused({ "user", "password", "ghost@b" }, "pw\n", "there is no user \"ghost@b\"");
    refused({ "user", "disable", "admin@localhost" }, "",
        "at least one enabled administrator must remain");
    refused({ "role", "unassign", "Administrator", "admin@localhost" }, "",
        "at least one enabled administrator must remain");
    refused({ "role", "assign", "King", "admin@localhost" }, "", "there is no role \"King\"");
    HttpClient client(server.url());
    EXPECT_EQ(client.login(server.adminEmail(), server.adminPassword()).statusCode(), 1)
        << "nothing was changed";
}

TEST(ServerCommands, TheFirstRoleInOrderCountsAndChangesAtOnce)
{
    const ServerProcess server;
    server.addUser("a@b", "A", "pw", { "Reviewer", "Estimator" });
    HttpClient client(server.url());
    EXPECT_TRUE(contains(client.login("a@b", "pw").member("Role"), "\"Name\":\"Estimator\""));
    ASSERT_EQ(server.command({ "role", "assign", "Administrator", "a@b" }).exitCode, 0);
    EXPECT_EQ(client.post(R"({"service":"getroles"})").statusCode(), 1)
        << "a role change ends no session";
    ASSERT_EQ(server.command({ "user", "disable", "admin@localhost" }).exitCode, 0)
        << "another administrator remains";
    EXPECT_EQ(server.command({ "role", "unassign", "Administrator", "a@b" }).exitCode, 1);
    EXPECT_EQ(server.command({ "role", "unassign", "Reviewer", "a@b" }).exitCode, 0);
    EXPECT_TRUE(
        contains(server.command({ "role", "unassign", "Reviewer", "a@b" }).out, "does not have"));
}

} // namespace
