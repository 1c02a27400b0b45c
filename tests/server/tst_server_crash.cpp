#include "ServiceHarness.h"
#include "support/HttpClient.h"
#include "support/ServerProcess.h"
#include "support/Watchdog.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <thread>

using namespace kvx::test;
using namespace std::chrono_literals;

namespace {

const std::string guid = guidOf(1);

struct Crash : testing::Test {
    ServerProcess server;
    HttpClient anna { server.url() };
    HttpClient ben { server.url() };

    void SetUp() override
    {
        Watchdog::allow(110);
        for (const auto &[client, name] : { std::pair(&anna, "anna"), { &ben, "ben" } }) {
            server.addUser(std::string(name) + "@example.com", name, "correct horse battery");
            ASSERT_EQ(
                client->login(std::string(name) + "@example.com", "correct horse battery", name)
                    .statusCode(),
                1);
        }
        const std::string email = R"("anna@example.com")";
        ASSERT_EQ(
            anna.post(jsonObject({ { "service", "\"newproject\"" }, { "Type", "\"Tender\"" },
                          { "Name", "\"School\"" }, { "ProjectGUID", jsonQuoted(guid) },
                          { "CreatorName", "\"\"" }, { "CreatorEmail", email }, { "Email", email },
                          { "Amount", "\"\"" }, { "ProjectState", "0" } }))
                .statusCode(),
            1);
        ASSERT_EQ(ask(anna, "anna", "projectpermission",
                      { { "userperms", R"([{"Email":"ben@example.com","ProjectRW":1}])" } })
                      .statusCode(),
            1);
    }
    void TearDown() override
    {
        const CommandResult judged = server.command({ "verify", "--deep" });
        EXPECT_EQ(judged.exitCode, 0) << judged.out << judged.err;
    }
    HttpReply ask(HttpClient &client, const std::string &name, const std::string &service,
        std::vector<std::pair<std::string, std::string>> keys = {})
    {
        keys.insert(keys.begin(),
            { { "service", jsonQuoted(service) }, { "ProjectGUID", jsonQuoted(guid) },
                { "Email", jsonQuoted(name + "@example.com") } });
        return client.post(jsonObject(keys));
    }
    std::string lock(HttpClient &client, const std::string &name, int version, bool release = false)
    {
        return ask(client, name, "loglock",
            { { "LogVersion", std::to_string(version) },
                { "ReleaseLock", release ? "true" : "false" } })
            .member("Lock");
    }
    HttpReply merge(int version)
    {
        return ask(anna, "anna", "sendservertomerge",
            { { "LogVersion", std::to_string(version) },
                { "LogFilename", jsonQuoted(guid + "_log" + std::to_string(version + 1)) },
                { "Amount", "\"1\"" } });
    }
    HttpReply upload(const std::string &name, const std::string &bytes)
    {
        return anna.upload(
            jsonObject({ { "service", "\"upload\"" }, { "FileName", jsonQuoted(name) } }), bytes);
    }
    std::string logBytes(int version)
    {
        return logArchive(
            guid + "_log" + std::to_string(version), "changes " + std::to_string(version));
    }
    std::string fileBytes(int version) { return "project file " + std::to_string(version); }
    void stage(int version)
    {
        ASSERT_EQ(
            upload(guid + "_log" + std::to_string(version), logBytes(version)).statusCode(), 1);
        ASSERT_EQ(upload(guid + ".KVX", fileBytes(version)).statusCode(), 1);
    }
    HttpReply download(const std::string &name)
    {
        return ben.download(
            jsonObject({ { "service", "\"download\"" }, { "FileName", jsonQuoted(name) } }));
    }
    int version() { return std::stoi(ask(ben, "ben", "getlogversion").member("LogVersion")); }
    void crash()
    {
        server.kill();
        server.start();
    }
    /// What the server shows is version `v` whole: its file, the logs from `first`, nothing behind.
    void expectWhole(int v, int first = 0)
    {
        if (v >= 0) {
            const HttpReply file = download(guid + ".KVX");
            EXPECT_EQ(file.body, fileBytes(v));
            EXPECT_EQ(file.member("LogVersion"), std::to_string(v));
        }
        for (int i = std::max(first, 0); i <= v; ++i)
            EXPECT_EQ(download(guid + "_log" + std::to_string(i)).body, logBytes(i));
        EXPECT_EQ(download(guid + "_log" + std::to_string(v + 1)).statusCode(), 606);
    }
};

} // namespace

TEST_F(Crash, AroundTheMergeLeavesTheVersionBeforeOrAfterAndNothingBetween)
{
    std::mt19937 random(7);
    int known = -1;
    int committed = 0;
    const int rounds = std::getenv("KVX_TEST_LONG") ? 600 : 25;
    Watchdog::allow(110 + 2 * rounds);
    for (int round = 0; round < rounds; ++round) {
        ASSERT_EQ(lock(anna, "anna", known), "1");
        stage(known + 1);
        std::atomic<bool> asked { false };
        std::thread merging([&] {
            asked = true;
            merge(known);
        });
        while (!asked)
            std::this_thread::yield();
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 8000));
        server.kill();
        merging.join();
        server.start();
        const int now = version();
        ASSERT_TRUE(now == known || now == known + 1) << now << " after " << known;
        expectWhole(now, now - 20);
        committed += now - known;
        if (now == known) {
            // The lock, the session and the stage are where they were: the same request goes
            // through.
            ASSERT_EQ(merge(known).statusCode(), 1);
        } else {
            ASSERT_EQ(merge(known).statusCode(), 1) << "the repeat of a merge whose reply was lost";
        }
        ++known;
        ASSERT_EQ(version(), known);
        expectWhole(known, known);
    }
    expectWhole(known);
    std::printf("%d kills, %d after the merge\n", rounds, committed);
}

TEST_F(Crash, DuringUploadsLeavesNothingPublishedAndTheSaveGoesOn)
{
    ASSERT_EQ(lock(anna, "anna", -1), "1");
    std::mt19937 random(9);
    for (int round = 0; round < 10; ++round) {
        std::atomic<bool> asked { false };
        std::thread uploading([&] {
            asked = true;
            upload(guid + ".KVX", std::string(4 << 20, 'x'));
        });
        while (!asked)
            std::this_thread::yield();
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 60'000));
        server.kill();
        uploading.join();
        server.start();
        expectWhole(-1);
        EXPECT_EQ(download(guid + ".KVX").statusCode(), 606);
        EXPECT_TRUE(std::filesystem::is_empty(server.dataFolder() + "/tmp"))
            << "swept at the start";
    }
    stage(0);
    EXPECT_EQ(merge(-1).statusCode(), 1);
    expectWhole(0);
}

TEST_F(Crash, KeepsTheLockForItsHolder)
{
    ASSERT_EQ(lock(anna, "anna", -1), "1");
    crash();
    EXPECT_EQ(lock(anna, "anna", -1), "1");
    EXPECT_EQ(lock(ben, "ben", -1), "2") << "its lease got a full term";
    lock(anna, "anna", -1, true);
    EXPECT_EQ(lock(ben, "ben", -1), "1");
}

TEST_F(Crash, DropsWhatWasStagedForALockThatIsGone)
{
    ASSERT_EQ(lock(anna, "anna", -1), "1");
    stage(0);
    server.set("lock.lease", "1s");
    crash();
    ASSERT_EQ(lock(ben, "ben", -1), "1") << "the lease ran out, waiting took over";
    EXPECT_EQ(merge(-1).statusCode(), 600);
    crash();
    EXPECT_EQ(version(), -1);
}

TEST_F(Crash, NeverGivesANumberTwice)
{
    std::vector<std::pair<long long, long long>> given;
    std::mutex mutex;
    std::atomic<bool> ending { false };
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&, i] {
            const std::string name = i % 2 ? "anna" : "ben";
            HttpClient client(server.url());
            client.setCookie((i % 2 ? anna : ben).cookie());
            while (!ending) {
                const HttpReply reply
                    = ask(client, name, "allocateidrange", { { "NewRange", "true" } });
                if (reply.statusCode() != 1)
                    continue;
                const std::lock_guard<std::mutex> lock(mutex);
                given.emplace_back(
                    std::stoll(reply.member("MinID")), std::stoll(reply.member("MaxID")));
            }
        });
    }
    for (int kill = 0; kill < 8; ++kill) {
        const auto enough = [&] {
            const std::lock_guard<std::mutex> lock(mutex);
            return given.size() >= static_cast<std::size_t>(50 * (kill + 1));
        };
        for (int i = 0; i < 2000 && !enough(); ++i)
            std::this_thread::sleep_for(5ms);
        crash();
    }
    ending = true;
    for (std::thread &thread : threads)
        thread.join();
    ASSERT_GE(given.size(), 400u);
    std::sort(given.begin(), given.end());
    for (std::size_t i = 1; i < given.size(); ++i)
        ASSERT_LT(given[i - 1].second, given[i].first);
}

TEST_F(Crash, KeepsCheckOutsThatWereAnswered)
{
    const auto checkOut = [&](HttpClient &client, const std::string &name, const std::string &ids) {
        return ask(client, name, "checkout",
            { { "ModuleType", "1" }, { "NotifyOther", "false" }, { "IDs", jsonQuoted(ids) } });
    };
    ASSERT_EQ(checkOut(anna, "anna", "1;2;").statusCode(), 1);
    crash();
    EXPECT_EQ(checkOut(ben, "ben", "2;3;").statusCode(), 620);
    EXPECT_EQ(checkOut(anna, "anna", "1;2;").statusCode(), 1) << "the holder repeats";
    EXPECT_EQ(checkOut(ben, "ben", "3;").statusCode(), 1);
}
