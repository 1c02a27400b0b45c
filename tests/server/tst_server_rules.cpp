#include "store/Db.h"
#include "store/MetaStore.h"
#include "support/HttpClient.h"
#include "support/ServerProcess.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <memory>
#include <sstream>
#include <thread>

using kvx::server::Db;
using kvx::test::HttpClient;
using kvx::test::HttpReply;
using kvx::test::jsonObject;
using kvx::test::jsonQuoted;
using kvx::test::ServerProcess;

namespace {

std::string databaseOf(const ServerProcess &server)
{
    return server.dataFolder() + "/db/kvx.sqlite";
}

std::string guid(int n)
{
    return "{11111111-2222-3333-4444-55555555555" + std::to_string(n) + "}";
}

std::string newProject(const std::string &email, int n)
{
    return jsonObject({ { "service", "\"newproject\"" }, { "Type", "\"Tender\"" },
        { "Name", jsonQuoted("Project " + std::to_string(n)) },
        { "ProjectGUID", jsonQuoted(guid(n)) }, { "CreatorName", "\"x\"" },
        { "CreatorEmail", jsonQuoted(email) }, { "Email", jsonQuoted(email) }, { "Amount", "\"\"" },
        { "ProjectState", "0" } });
}

std::string logLock(const std::string &email, int n)
{
    return jsonObject({ { "service", "\"loglock\"" }, { "Email", jsonQuoted(email) },
        { "ProjectGUID", jsonQuoted(guid(n)) }, { "LogVersion", "-1" },
        { "ReleaseLock", "false" } });
}

std::string productVersion(const std::string &email, int version)
{
    return jsonObject({ { "service", "\"updateuserproductversion\"" },
        { "Email", jsonQuoted(email) }, { "UserProductVersion", std::to_string(version) } });
}

TEST(ServerRules, InMaintenanceReadingWorksAndChangingDoesNot)
{
    ServerProcess server;
    HttpClient client(server.url());
    ASSERT_EQ(client.login(server.adminEmail(), server.adminPassword()).statusCode(), 1);
    {
        Db db(databaseOf(server));
        kvx::server::setMetaValue(db, "read_only", "1");
    }
    EXPECT_EQ(client.post(productVersion(server.adminEmail(), 1)).statusCode(), 104);
    EXPECT_EQ(client.post(newProject(server.adminEmail(), 1)).statusCode(), 104);
    EXPECT_EQ(client.post("{\"service\":\"getroles\"}").statusCode(), 1);
    EXPECT_EQ(client
                  .post(jsonObject({ { "service", "\"logout\"" },
                      { "Email", jsonQuoted(server.adminEmail()) } }))
                  .statusCode(),
        1);
    EXPECT_EQ(client.login(server.adminEmail(), server.adminPassword()).statusCode(), 1);
}

TEST(ServerRules, SessionsThatAllHoldALockLeaveNoRoom)
{
    ServerProcess server;
    std::vector<std::unique_ptr<HttpClient>> clients;
    for (int i = 0; i < 3; ++i) {
        clients.push_back(std::make_unique<HttpClient>(server.url()));
        ASSERT_EQ(
            clients.back()->login(server.adminEmail(), server.adminPassword()).statusCode(), 1);
        ASSERT_EQ(clients.back()->post(newProject(server.adminEmail(), i)).statusCode(), 1);
        ASSERT_EQ(clients.back()->post(logLock(server.adminEmail(), i)).member("Lock"), "1");
    }
    HttpClient fourth(server.url());
    EXPECT_EQ(fourth.login(server.adminEmail(), server.adminPassword()).statusCode(), 202);
    EXPECT_EQ(fourth.cookie(), "");
    for (const auto &client : clients)
        EXPECT_EQ(client->post("{\"service\":\"getroles\"}").statusCode(), 1);
}

TEST(ServerRules, NameQuestionsAreLimitedAndOthersAreNot)
{
    ServerProcess server;
    HttpClient client(server.url());
    ASSERT_EQ(client.login(server.adminEmail(), server.adminPassword()).statusCode(), 1);
    int refused = 0;
    for (int i = 0; i < 100; ++i) {
        const HttpReply reply = client.post(R"({"service":"existsproject","Name":"x"})");
        refused += reply.status == 429 && reply.statusCode() == 103;
    }
    EXPECT_GT(refused, 20);
    EXPECT_EQ(client.post("{\"service\":\"getroles\"}").statusCode(), 1);
}

TEST(ServerRules, AnAddressIsBelievedOnlyFromATrustedProxy)
{
    ServerProcess::Options options;
    options.settings = { { "trusted.proxies", "127.0.0.1" } };
    ServerProcess trusting(options);
    ServerProcess other;
    const auto left = [](ServerProcess &server, const std::string &forwarded) {
        HttpClient client(server.url());
        return client
            .postTo("/kvx/service",
                jsonObject({ { "service", "\"login\"" }, { "Email", "\"ghost@b\"" },
                    { "Password", "\"x\"" }, { "Version", "\"\"" }, { "FingerPrint", "\"\"" },
                    { "serverApiVersion", "\"\"" }, { "productType", "\"\"" } }),
                "application/json", { "X-Forwarded-For: " + forwarded })
            .member("leftcount");
    };
    EXPECT_EQ(left(trusting, "10.0.0.1"), "4");
    EXPECT_EQ(left(trusting, "10.0.0.2"), "4");
    EXPECT_EQ(left(trusting, "10.0.0.1"), "3");
    EXPECT_EQ(left(trusting, "6.6.6.6, 10.0.0.1"), "2") << "the hop that the proxy itself saw";
    EXPECT_EQ(left(other, "10.0.0.1"), "4");
    EXPECT_EQ(left(other, "10.0.0.2"), "3") << "anybody can write that header";
}

TEST(ServerRules, BelowTheReserveNothingIsUploaded)
{
    ServerProcess::Options options;
    options.settings = { { "disk.reserve", "8000000GiB" } };
    ServerProcess server(options);
    HttpClient client(server.url());
    ASSERT_EQ(client.login(server.adminEmail(), server.adminPassword()).statusCode(), 1);
    const HttpReply reply = client.upload(R"({"service":"upload","FileName":"a.bin"})", "abc");
    EXPECT_EQ(reply.statusCode(), 105) << reply.body;
    HttpClient health(server.adminUrl());
    const HttpReply ready = health.get("/readyz");
    EXPECT_EQ(ready.status, 503);
    EXPECT_NE(ready.body.find("store: below the reserve"), std::string::npos) << ready.body;
}

TEST(ServerRules, HealthSays503AndWhyWhenDatabaseStoreOrSchemaFail)
{
    ServerProcess server;
    HttpClient health(server.adminUrl());
    const auto expect = [&](int status, const std::string &line) {
        const HttpReply ready = health.get("/readyz");
        EXPECT_EQ(ready.status, status) << ready.body;
        EXPECT_NE(ready.body.find(line), std::string::npos) << ready.body;
    };
    const auto change = [&](const std::string &sql) { Db(databaseOf(server)).execute(sql); };
    struct Row {
        const char *spoil, *mend, *line;
    };
    for (const Row &row : {
             Row { "UPDATE meta SET value = 'x' || value WHERE name = 'epoch'",
                 "UPDATE meta SET value = substr(value, 2) WHERE name = 'epoch'",
                 "database: not the one this server was started with\n" },
             Row { "ALTER TABLE meta RENAME TO meta_hidden",
                 "ALTER TABLE meta_hidden RENAME TO meta", "no such table: meta" },
             Row { "INSERT INTO migration (number, name, digest, at) VALUES (99, 'later', '', 0)",
                 "DELETE FROM migration WHERE number = 99",
                 "schema: the database has the schema of a newer program (step 99 \"later\")" },
             Row { "UPDATE migration SET digest = 'x' || digest",
                 "UPDATE migration SET digest = substr(digest, 2)",
                 "of the database's schema is not the one this program was built with\n" },
             Row { "ALTER TABLE migration RENAME TO migration_hidden",
                 "DROP TABLE IF EXISTS migration; ALTER TABLE migration_hidden RENAME TO migration",
                 "schema: older than this program\n" },
         }) {
        change(row.spoil);
        expect(503, row.line);
        std::istringstream statements(row.mend);
        for (std::string statement; std::getline(statements, statement, ';');)
            change(statement);
        expect(200, "database: ok\nstore: ok\nschema: ok\n");
    }
    const std::string blobs = server.dataFolder() + "/blobs";
    std::filesystem::rename(blobs, blobs + ".away");
    expect(503, "store: not writable\n");
    std::filesystem::rename(blobs + ".away", blobs);
    expect(200, "store: ok\n");
}

TEST(ServerRules, TheJanitorClearsWhatIsOver)
{
    ServerProcess::Options options;
    options.settings = { { "session.idle", "400ms" } };
    ServerProcess server(options);
    HttpClient client(server.url());
    ASSERT_EQ(client.login(server.adminEmail(), server.adminPassword()).statusCode(), 1);
    Db db(databaseOf(server));
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (db.value<int>("SELECT count(*) FROM session") != 0
        && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(db.value<int>("SELECT count(*) FROM session"), 0);
    EXPECT_GT(std::stoll(kvx::server::metaValue(db, "clock").value_or("0")), 1'600'000'000'000);
}

TEST(ServerRules, JsonLogLinesAreObjects)
{
    ServerProcess::Options options;
    options.settings = { { "log.format", "json" } };
    ServerProcess server(options);
    HttpClient client(server.url());
    client.login("o\"dd@b", "secret");
    std::istringstream lines(server.logText());
    int requests = 0;
    for (std::string line; std::getline(lines, line);) {
        rapidjson::Document document;
        document.Parse(line.c_str());
        ASSERT_TRUE(document.IsObject()) << line;
        EXPECT_TRUE(document.HasMember("time") && document.HasMember("level")) << line;
        requests += std::string(document["event"].GetString()) == "request";
    }
    EXPECT_EQ(requests, 1);
}

TEST(ServerRules, ALogFileThatCannotBeWrittenStopsTheStart)
{
    ServerProcess::Options options;
    options.start = false;
    const ServerProcess server(options);
    const auto result = server.command({ "serve", "--check", "--log.file",
        server.folder() + "/none/own.log", "--admin-password-file", server.folder() + "/pw" });
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_NE(result.err.find("log.file: "), std::string::npos) << result.err;
}

TEST(ServerRules, FailuresInTheDatabaseAreFaultsWithoutDetails)
{
    ServerProcess server;
    HttpClient client(server.url());
    ASSERT_EQ(client.login(server.adminEmail(), server.adminPassword()).statusCode(), 1);
    {
        Db db(databaseOf(server));
        db.execute("ALTER TABLE role RENAME TO role_hidden");
    }
    const HttpReply reply = client.post("{\"service\":\"getroles\"}");
    EXPECT_EQ(reply.status, 500);
    EXPECT_EQ(reply.statusCode(), 0);
    EXPECT_EQ(reply.body.find("role"), std::string::npos) << reply.body;
    EXPECT_NE(reply.member("message").find(reply.header("kvx-request")), std::string::npos);
    EXPECT_NE(
        server.logText().find("id=" + reply.header("kvx-request") + " service=getroles cause="),
        std::string::npos);
    {
        Db db(databaseOf(server));
        db.execute("ALTER TABLE role_hidden RENAME TO role");
    }
    EXPECT_EQ(client.post("{\"service\":\"getroles\"}").statusCode(), 1) << "the server goes on";
}

TEST(ServerRules, LoginsInALoadAreAllAnswered)
{
    ServerProcess server;
    for (int i = 0; i < 8; ++i)
        server.addUser("user" + std::to_string(i) + "@b", "U", "pw");
    std::atomic<int> done { 0 };
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&, i] {
            for (int round = 0; round < 4; ++round) {
                HttpClient client(server.url());
                done += client.login("user" + std::to_string(i) + "@b", "pw").statusCode() == 1;
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(done, 32);
}

} // namespace
