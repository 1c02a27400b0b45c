#include "base/Digest.h"
#include "store/Db.h"
#include "store/Migrations.h"
#include "support/HttpClient.h"
#include "support/ServerProcess.h"
#include "support/WaitFor.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <thread>

using kvx::server::Db;
using kvx::server::Migration;
using kvx::server::MigrationError;
using kvx::test::CommandResult;
using kvx::test::HttpClient;
using kvx::test::HttpReply;
using kvx::test::jsonObject;
using kvx::test::jsonQuoted;
using kvx::test::RawConnection;
using kvx::test::ServerProcess;
using kvx::test::waitFor;

namespace {

using std::chrono::milliseconds;
using Steady = std::chrono::steady_clock;

const std::string guid = "{11111111-2222-3333-4444-555555555555}";

std::string newProject(const std::string &email)
{
    return jsonObject({ { "service", "\"newproject\"" }, { "Type", "\"Tender\"" },
        { "Name", "\"School\"" }, { "ProjectGUID", jsonQuoted(guid) }, { "CreatorName", "\"x\"" },
        { "CreatorEmail", jsonQuoted(email) }, { "Email", jsonQuoted(email) }, { "Amount", "\"\"" },
        { "ProjectState", "0" } });
}

std::string logLock(const std::string &email, bool release)
{
    return jsonObject({ { "service", "\"loglock\"" }, { "Email", jsonQuoted(email) },
        { "ProjectGUID", jsonQuoted(guid) }, { "LogVersion", "-1" },
        { "ReleaseLock", release ? "true" : "false" } });
}

/// Two sessions of one administrator; the first holds the log lock of a project.
struct LockedProject {
    explicit LockedProject(ServerProcess &server)
        : holder(server.url())
        , waiter(server.url())
        , email(server.adminEmail())
    {
        EXPECT_EQ(holder.login(email, server.adminPassword(), "one").statusCode(), 1);
        EXPECT_EQ(waiter.login(email, server.adminPassword(), "two").statusCode(), 1);
        EXPECT_EQ(holder.post(newProject(email)).statusCode(), 1);
        EXPECT_EQ(holder.post(logLock(email, false)).member("Lock"), "1");
    }
    HttpClient holder;
    HttpClient waiter;
    std::string email;
};

TEST(ServerStop, AnIdleServerEndsAtOnce)
{
    ServerProcess server;
    RawConnection idle(server.host(), server.port());
    HttpClient client(server.url());
    ASSERT_EQ(client.post("{\"service\":\"getroles\"}").statusCode(), 2);
    const auto begin = Steady::now();
    EXPECT_EQ(server.stop(), 0);
    EXPECT_LT(Steady::now() - begin, std::chrono::seconds(8));
    EXPECT_NE(server.logText().find("info stopped"), std::string::npos);
}

TEST(ServerStop, AHeldReplyIsAnsweredBeforeTheEnd)
{
    ServerProcess server;
    LockedProject project(server);
    HttpReply held;
    std::thread waiting([&] { held = project.waiter.post(logLock(project.email, false)); });
    // The request counts as held once another one, sent later on the same lane, has been answered.
    EXPECT_EQ(project.holder.post(logLock(project.email, false)).member("Lock"), "1");
    std::this_thread::sleep_for(milliseconds(300));
    const auto begin = Steady::now();
    server.signal(SIGTERM);
    waiting.join();
    EXPECT_LT(Steady::now() - begin, milliseconds(4000)) << "not only when its time was over";
    EXPECT_TRUE(held.statusCode() == 103 || held.member("Lock") == "2") << held.body << held.error;
    EXPECT_EQ(server.waitForEnd(), 0);
}

TEST(ServerStop, AnUploadOnItsWayIsLetIn)
{
    ServerProcess server;
    HttpClient client(server.url());
    ASSERT_EQ(client.login(server.adminEmail(), server.adminPassword()).statusCode(), 1);
    RawConnection upload(server.host(), server.port());
    const std::string head = "--b\r\nContent-Disposition: form-data; name=\"jsonPart\"\r\n\r\n"
                             R"({"service":"upload","FileName":"late.bin"})"
                             "\r\n--b\r\nContent-Disposition: form-data; name=\"dataPart\"\r\n\r\n";
    const std::string tail = "the end\r\n--b--\r\n";
    upload.send("POST /kvx/service HTTP/1.1\r\nHost: a\r\nCookie: kvxsid=" + client.cookie()
        + "\r\nContent-Type: multipart/form-data; boundary=b\r\nContent-Length: "
        + std::to_string(head.size() + tail.size()) + "\r\n\r\n" + head);
    const auto temporary = [&server] {
        std::error_code error;
        std::filesystem::directory_iterator entries(server.dataFolder() + "/tmp", error);
        return !error && entries != std::filesystem::directory_iterator();
    };
    ASSERT_TRUE(waitFor(temporary));
    server.signal(SIGTERM);
    ASSERT_TRUE(
        waitFor([&] { return server.logText().find("info stopping") != std::string::npos; }));
    upload.send(tail);
    EXPECT_NE(upload.readAll().find("\"statuscode\":1"), std::string::npos);
    EXPECT_EQ(server.waitForEnd(), 0);
    server.start();
    EXPECT_EQ(client.post(R"({"service":"hasupload","FileName":"late.bin"})").statusCode(), 1);
}

TEST(ServerHeldReplies, ComeAsSoonAsTheLockIsFree)
{
    ServerProcess server;
    LockedProject project(server);
    HttpReply held;
    std::thread waiting([&] { held = project.waiter.post(logLock(project.email, false)); });
    std::this_thread::sleep_for(milliseconds(300));
    const auto begin = Steady::now();
    EXPECT_EQ(project.holder.post(logLock(project.email, true)).member("Lock"), "0");
    waiting.join();
    EXPECT_EQ(held.member("Lock"), "1") << held.body;
    EXPECT_LT(Steady::now() - begin, milliseconds(2000));
}

TEST(ServerHeldReplies, ComeWhenTheHolderLogsOut)
{
    ServerProcess server;
    LockedProject project(server);
    HttpReply held;
    std::thread waiting([&] { held = project.waiter.post(logLock(project.email, false)); });
    std::this_thread::sleep_for(milliseconds(300));
    EXPECT_EQ(project.holder
                  .post(jsonObject(
                      { { "service", "\"logout\"" }, { "Email", jsonQuoted(project.email) } }))
                  .statusCode(),
        1);
    waiting.join();
    EXPECT_EQ(held.member("Lock"), "1") << held.body;
}

TEST(ServerHeldReplies, TakeNoLockForAClientThatHasGone)
{
    ServerProcess server;
    LockedProject project(server);
    {
        RawConnection gone(server.host(), server.port());
        const std::string body = logLock(project.email, false);
        gone.send("POST /kvx/service HTTP/1.1\r\nHost: a\r\nCookie: kvxsid="
            + project.waiter.cookie() + "\r\nContent-Type: application/json\r\nContent-Length: "
            + std::to_string(body.size()) + "\r\n\r\n" + body);
        std::this_thread::sleep_for(milliseconds(300));
    }
    std::this_thread::sleep_for(milliseconds(200));
    EXPECT_EQ(project.holder.post(logLock(project.email, true)).member("Lock"), "0");
    EXPECT_EQ(project.holder.post(logLock(project.email, false)).member("Lock"), "1")
        << "nobody else has it";
}

TEST(ServerHeldReplies, HoldManyAtATimeWhileOthersAreServed)
{
    ServerProcess::Options options;
    options.settings = { { "session.perUser", "100" }, { "lock.hold", "3s" } };
    ServerProcess server(options);
    LockedProject project(server);
    const std::string body = logLock(project.email, false);
    std::vector<std::unique_ptr<RawConnection>> held;
    for (int i = 0; i < 200; ++i) {
        held.push_back(std::make_unique<RawConnection>(server.host(), server.port()));
        held.back()->send("POST /kvx/service HTTP/1.1\r\nHost: a\r\nCookie: kvxsid="
            + project.waiter.cookie() + "\r\nContent-Type: application/json\r\nContent-Length: "
            + std::to_string(body.size()) + "\r\n\r\n" + body);
    }
    const auto begin = Steady::now();
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(project.holder.post("{\"service\":\"getroles\"}").statusCode(), 1);
    EXPECT_LT(Steady::now() - begin, milliseconds(2500)) << "held requests take no thread";
    for (const auto &one : held)
        EXPECT_NE(one->readUntil("}").find("\"statuscode\":1"), std::string::npos);
}

TEST(ServerStart, ASecondServerOnTheSameDataIsRefused)
{
    ServerProcess server;
    const CommandResult second = ServerProcess::run({ "serve", "--data", server.dataFolder(),
        "--listen", "127.0.0.1:0", "--admin.listen", "127.0.0.1:0" });
    EXPECT_EQ(second.exitCode, 3);
    EXPECT_NE(second.err.find("another server runs on"), std::string::npos) << second.err;
    HttpClient client(server.url());
    EXPECT_EQ(client.post("{\"service\":\"getroles\"}").statusCode(), 2);
}

TEST(ServerStart, AnAddressInUseIsNamed)
{
    ServerProcess server;
    ServerProcess::Options options;
    options.start = false;
    ServerProcess other(options);
    const std::string address = "127.0.0.1:" + std::to_string(server.port());
    const CommandResult result
        = ServerProcess::run({ "serve", "--data", other.dataFolder(), "--listen", address,
            "--admin.listen", "127.0.0.1:0", "--broker.url", "tcp://127.0.0.1:1" });
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find(address), std::string::npos) << result.err;
}

TEST(ServerStart, TemporariesOfTheLastRunAreSwept)
{
    ServerProcess server;
    server.kill();
    const std::string left = server.dataFolder() + "/tmp/left-behind";
    std::ofstream(left) << "x";
    server.start();
    EXPECT_FALSE(std::filesystem::exists(left));
}

TEST(ServerStart, ALockSurvivesAKillWithAFullLease)
{
    ServerProcess server;
    server.set("lock.hold", "300ms");
    server.restart();
    LockedProject project(server);
    server.kill();
    server.start();
    EXPECT_EQ(project.waiter.post(logLock(project.email, false)).member("Lock"), "2");
    EXPECT_EQ(project.holder.post(logLock(project.email, false)).member("Lock"), "1");
}

/// A database of its own for the cases that look at the schema.
class ServerSchema : public testing::Test {
protected:
    ServerSchema()
    {
        ServerProcess::Options options;
        options.start = false;
        server = std::make_unique<ServerProcess>(options);
        file = server->folder() + "/x.sqlite";
    }
    std::unique_ptr<ServerProcess> server;
    std::string file;
};

TEST_F(ServerSchema, AFreshDatabaseIsRaisedOnce)
{
    Db db(file, Db::Mode::Create);
    const int steps = static_cast<int>(kvx::server::knownMigrations().size());
    EXPECT_EQ(kvx::server::migrate(db, 1), steps);
    EXPECT_EQ(kvx::server::migrate(db, 2), 0);
    EXPECT_TRUE(kvx::server::pendingMigrations(db).empty());
}

TEST_F(ServerSchema, AnOlderSchemaIsRaisedStepByStep)
{
    const std::vector<Migration> first { { 1, "one", "CREATE TABLE a (x INTEGER);\n" } };
    std::vector<Migration> both = first;
    both.push_back({ 2, "two",
        "-- why; with a semicolon\nCREATE TABLE b (\n    x INTEGER\n);\nINSERT INTO a (x)\nVALUES "
        "(7);\n" });
    Db db(file, Db::Mode::Create);
    EXPECT_EQ(kvx::server::migrate(db, 1, first), 1);
    EXPECT_EQ(kvx::server::migrate(db, 1, both), 1);
    EXPECT_EQ(db.value<int>("SELECT x FROM a"), 7);
}

TEST_F(ServerSchema, AStepThatFailsLeavesTheSchemaBeforeIt)
{
    std::vector<Migration> steps { { 1, "one", "CREATE TABLE a (x INTEGER);\n" },
        { 2, "two", "CREATE TABLE b (x INTEGER);\nCREATE TABLE a (x INTEGER);\n" } };
    Db db(file, Db::Mode::Create);
    EXPECT_THROW(kvx::server::migrate(db, 1, steps), kvx::server::DbError);
    EXPECT_EQ(kvx::server::pendingMigrations(db, steps).size(), 1U);
    EXPECT_THROW(db.run("SELECT x FROM b"), kvx::server::DbError);
    steps[1].sql = "CREATE TABLE b (x INTEGER);\n";
    EXPECT_EQ(kvx::server::migrate(db, 1, steps), 1);
}

TEST_F(ServerSchema, ANewerSchemaStopsTheStart)
{
    ASSERT_EQ(server->command({ "init" }).exitCode, 0);
    {
        Db db(server->dataFolder() + "/db/kvx.sqlite");
        db.run("INSERT INTO migration (number, name, digest, at) VALUES (999, 'later', 'x', 0)");
    }
    const CommandResult serve = server->command({ "serve" });
    EXPECT_EQ(serve.exitCode, 3);
    EXPECT_NE(
        serve.err.find("the schema of a newer program (step 999 \"later\")"), std::string::npos)
        << serve.err;
    EXPECT_EQ(server->command({ "user", "list" }).exitCode, 3);
}

TEST_F(ServerSchema, AStepWithAnotherTextStopsTheStart)
{
    ASSERT_EQ(server->command({ "init" }).exitCode, 0);
    {
        Db db(server->dataFolder() + "/db/kvx.sqlite");
        db.run("UPDATE migration SET digest = 'x' WHERE number = 1");
    }
    const CommandResult serve = server->command({ "serve" });
    EXPECT_EQ(serve.exitCode, 3);
    EXPECT_NE(serve.err.find("step 1 \"schema\" of the database's schema is not the one"),
        std::string::npos)
        << serve.err;
}

TEST_F(ServerSchema, MigrateSaysWhatItWouldDoAndDoesIt)
{
    ASSERT_EQ(server->command({ "init" }).exitCode, 0);
    EXPECT_NE(
        server->command({ "migrate", "--dry-run" }).out.find("up to date"), std::string::npos);
    EXPECT_EQ(server->command({ "migrate", "--json" }).out, "{\"ok\":true,\"steps\":[]}\n");
}

} // namespace
