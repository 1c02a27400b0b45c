#pragma once

#include "ServiceHarness.h"
#include "store/Db.h"
#include "store/GlobalLockStore.h"
#include "store/OutboxStore.h"
#include "store/UserStore.h"
#include "support/Broker.h"
#include "support/HttpClient.h"
#include "support/ServerProcess.h"
#include "support/TopicListener.h"

#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <rapidjson/document.h>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kvx::test {

/// A user's client over HTTP.
class AdminClient {
public:
    using Keys = std::vector<std::pair<std::string, std::string>>;

    AdminClient(const ServerProcess &server, std::string name)
        : email(name + "@example.com")
        , device(std::move(name))
        , http(server.url())
    {
    }
    int login(const std::string &password = "pw")
    {
        return http.login(email, password, device).statusCode();
    }
    HttpReply ask(const std::string &service, Keys keys = {})
    {
        keys.insert(
            keys.begin(), { { "service", jsonQuoted(service) }, { "Email", jsonQuoted(email) } });
        return http.post(jsonObject(keys));
    }
    HttpReply onProject(const std::string &service, Keys keys = {}, int n = 1)
    {
        keys.insert(keys.begin(), { "ProjectGUID", jsonQuoted(guidOf(n)) });
        return ask(service, std::move(keys));
    }
    int create(const std::string &name, int n = 1)
    {
        return onProject("newproject",
            { { "Type", "\"Tender\"" }, { "Name", jsonQuoted(name) },
                { "CreatorName", jsonQuoted(device) }, { "CreatorEmail", jsonQuoted(email) },
                { "Amount", "\"\"" }, { "ProjectState", "0" } },
            n)
            .statusCode();
    }
    int permit(const std::string &userperms)
    {
        return onProject("projectpermission", { { "userperms", userperms } }).statusCode();
    }
    /// 0, 1 or 2, as text.
    std::string lock(int version, bool release = false)
    {
        return onProject("loglock",
            { { "LogVersion", std::to_string(version) },
                { "ReleaseLock", release ? "true" : "false" } })
            .member("Lock");
    }
    void stage(int version)
    {
        const std::string log = guidOf(1) + "_log" + std::to_string(version);
        for (const auto &[name, bytes] : { std::pair(log, logArchive(log, "changes")),
                 { guidOf(1) + ".KVX", "project file " + std::to_string(version) } }) {
            EXPECT_EQ(http.upload(jsonObject({ { "service", "\"upload\"" },
                                      { "FileName", jsonQuoted(name) } }),
                              bytes)
                          .statusCode(),
                1);
        }
    }
    int merge(int version)
    {
        return onProject("sendservertomerge",
            { { "LogVersion", std::to_string(version - 1) },
                { "LogFilename", jsonQuoted(guidOf(1) + "_log" + std::to_string(version)) },
                { "Amount", "\"12.50\"" } })
            .statusCode();
    }
    void save(int version)
    {
        ASSERT_EQ(lock(version - 1), "1");
        stage(version);
        ASSERT_EQ(merge(version), 1);
        lock(version, true);
    }
    int checkOut(const std::string &ids, int module = 3)
    {
        return onProject("checkout",
            { { "ModuleType", std::to_string(module) }, { "NotifyOther", "false" },
                { "IDs", jsonQuoted(ids) } })
            .statusCode();
    }
    int open() { return onProject("openproject").statusCode(); }
    bool isLoggedIn() { return ask("keepactive").statusCode() == 1; }

    const std::string email;
    const std::string device;
    HttpClient http;
};

/// A command's answer with --json.
class AdminAnswer {
public:
    explicit AdminAnswer(const CommandResult &result)
        : exitCode(result.exitCode)
        , text(result.out + result.err)
        , json(std::make_shared<rapidjson::Document>())
    {
        json->Parse(result.out.data(), result.out.size());
        EXPECT_TRUE(!json->HasParseError() && json->IsObject()) << text;
        if (json->IsObject()) {
            EXPECT_EQ((*json)["ok"].GetBool(), exitCode == 0) << text;
        }
    }
    const rapidjson::Value &operator[](const char *key) const
    {
        static const rapidjson::Value nothing;
        return json->IsObject() && json->HasMember(key) ? (*json)[key] : nothing;
    }
    /// The keys of the first object in that array.
    std::string rowKeys(const char *key) const
    {
        std::string keys;
        const rapidjson::Value &rows = (*this)[key];
        if (rows.IsArray() && !rows.Empty()) {
            for (const auto &member : rows[0].GetObject())
                keys += (keys.empty() ? "" : " ") + std::string(member.name.GetString());
        }
        return keys;
    }
    std::size_t count(const char *key) const
    {
        const rapidjson::Value &rows = (*this)[key];
        return rows.IsArray() ? rows.Size() : 0;
    }

    const int exitCode;
    const std::string text;

private:
    const std::shared_ptr<rapidjson::Document> json;
};

/// A running server with an administrator at the command line and two estimators.
struct Administered : testing::Test {
    explicit Administered(const std::string &brokerUrl = {})
        : server(options(brokerUrl))
        , anna(server, "anna")
        , ben(server, "ben")
    {
        for (AdminClient *client : { &anna, &ben }) {
            server.addUser(
                client->email, client->device == "anna" ? "Anna Weiss" : "Ben Ito", "pw");
            EXPECT_EQ(client->login(), 1);
        }
    }
    /// Anna's project, in which Ben may write.
    void createShared()
    {
        ASSERT_EQ(anna.create("School Nordring"), 1);
        ASSERT_EQ(anna.permit(R"([{"Email":"ben@example.com","ProjectRW":1}])"), 1);
    }
    AdminAnswer json(std::vector<std::string> arguments, const std::string &input = {})
    {
        arguments.insert(arguments.begin(), "--json");
        return AdminAnswer(server.command(arguments, input));
    }
    /// Expects the exit code and that the answer's words hold a text.
    void expect(int exitCode, const std::vector<std::string> &arguments, const std::string &words,
        const std::string &input = {})
    {
        const CommandResult result = server.command(arguments, input);
        EXPECT_EQ(result.exitCode, exitCode) << arguments[0] << ' ' << arguments[1];
        const std::string &said = exitCode == 0 ? result.out : result.err;
        EXPECT_NE(said.find(words), std::string::npos) << "no \"" << words << "\" in: " << said;
    }
    /// What the audit log says of a command: "object|detail" of each time it ran.
    std::vector<std::string> audited(const std::string &command)
    {
        std::vector<std::string> rows;
        const AdminAnswer log = json({ "audit", "export", "--service", command });
        for (const auto &row : log["entries"].GetArray()) {
            EXPECT_EQ(std::string(row["address"].GetString()).rfind("system user ", 0), 0U);
            rows.push_back(
                std::string(row["object"].GetString()) + '|' + row["detail"].GetString());
        }
        return rows;
    }
    /// As a client of Ben's would.
    void takeGlobalLock(
        std::int64_t type, kvx::server::Time until = kvx::server::wallTime() + 3'600'000)
    {
        kvx::server::Db db(server.dataFolder() + "/db/kvx.sqlite");
        kvx::server::Transaction transaction(db, kvx::server::Transaction::Kind::Write);
        const auto holder = kvx::server::findUser(db, ben.email);
        kvx::server::GlobalLockStore(db).put(
            { type, holder->id, holder->name, holder->email, std::nullopt, until },
            kvx::server::wallTime());
        transaction.commit();
    }
    static ServerProcess::Options options(const std::string &brokerUrl)
    {
        ServerProcess::Options options;
        options.brokerUrl = brokerUrl;
        options.settings["lock.hold"] = "2s";
        return options;
    }

    ServerProcess server;
    AdminClient anna;
    AdminClient ben;
};

/// The same with a broker and somebody who listens.
struct AdministeredAloud : Administered {
    static Broker &broker()
    {
        static Broker one;
        return one;
    }
    AdministeredAloud()
        : Administered(broker().uri())
    {
        HttpClient health(server.adminUrl());
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (health.get("/readyz").body.find("broker: ok") == std::string::npos
            && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        listenAnew();
    }
    /// Forgets what was announced so far.
    void listenAnew()
    {
        kvx::server::Db db(server.dataFolder() + "/db/kvx.sqlite");
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!kvx::server::unsentRows(db, 0, 1).empty() && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        listener = std::make_unique<TopicListener>(broker().uri());
    }
    /// The first message with that text, or an empty one after 20 seconds.
    std::string heard(const std::string &text)
    {
        for (const std::string &message : listener->awaitText(text)) {
            if (message.find(text) != std::string::npos)
                return message;
        }
        return {};
    }

    std::unique_ptr<TopicListener> listener;
};

inline bool has(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

} // namespace kvx::test
