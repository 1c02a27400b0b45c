#include "store/Db.h"
#include "support/HttpClient.h"
#include "support/ServerProcess.h"
#include "support/WaitFor.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>

using kvx::server::Db;
using kvx::test::HttpClient;
using kvx::test::jsonObject;
using kvx::test::jsonQuoted;
using kvx::test::RawConnection;
using kvx::test::ServerProcess;
using kvx::test::waitFor;

namespace {

constexpr std::int64_t hour = 3600;
constexpr std::int64_t day = 24 * hour;
constexpr std::int64_t year = 365 * day;
constexpr const char *guid = "{11111111-2222-3333-4444-555555555555}";
constexpr const char *question = "{\"service\":\"getroles\"}";

/// The wall clock of what is started while this exists.
class WallClock {
public:
    WallClock()
    {
        m_path = (std::filesystem::temp_directory_path() / "kvx-clock-XXXXXX").string();
        const int file = mkstemp(m_path.data());
        EXPECT_EQ(ftruncate(file, sizeof(std::int64_t)), 0);
        void *memory
            = mmap(nullptr, sizeof(std::int64_t), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        EXPECT_NE(memory, MAP_FAILED);
        m_seconds = static_cast<std::atomic<std::int64_t> *>(memory);
        close(file);
        setenv("KVX_CLOCK_OFF", m_path.c_str(), 1);
        setenv("LD_PRELOAD", KVX_SHIFTED_CLOCK, 1);
    }
    ~WallClock()
    {
        unsetenv("LD_PRELOAD");
        unsetenv("KVX_CLOCK_OFF");
        munmap(m_seconds, sizeof(std::int64_t));
        unlink(m_path.c_str());
    }
    WallClock(const WallClock &) = delete;
    WallClock &operator=(const WallClock &) = delete;
    void setOff(std::int64_t seconds) { *m_seconds = seconds; }

private:
    std::string m_path;
    std::atomic<std::int64_t> *m_seconds = nullptr;
};

ServerProcess::Options quickOptions()
{
    ServerProcess::Options options;
    // The janitor goes round twice in the time of a session.
    options.settings = { { "session.idle", "4s" }, { "lock.lease", "3s" }, { "lock.hold", "100ms" },
        { "limits.bodyTime", "10min" } };
    return options;
}

/// A running server with a session that works and holds the lock of a project, one that waits for
/// it, an upload under way and a wrong password.
class ServerClock : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(holder.login(email, server.adminPassword(), "one").statusCode(), 1);
        ASSERT_EQ(waiter.login(email, server.adminPassword(), "two").statusCode(), 1);
        const std::string project = jsonObject({ { "service", "\"newproject\"" },
            { "Type", "\"Tender\"" }, { "Name", "\"School\"" }, { "ProjectGUID", jsonQuoted(guid) },
            { "CreatorName", "\"x\"" }, { "CreatorEmail", jsonQuoted(email) },
            { "Email", jsonQuoted(email) }, { "Amount", "\"\"" }, { "ProjectState", "0" } });
        ASSERT_EQ(holder.post(project).statusCode(), 1);
        ASSERT_EQ(lock(holder), "1");
        beginUpload();
        left = wrongPassword();
        m_work = std::thread([this] {
            HttpClient client(server.url());
            client.setCookie(holder.cookie());
            while (works) {
                EXPECT_EQ(client.post(question).statusCode(), 1) << "thrown out";
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
            }
        });
    }
    void TearDown() override
    {
        works = false;
        if (m_work.joinable())
            m_work.join();
    }

    std::string lock(HttpClient &client)
    {
        return client
            .post(jsonObject({ { "service", "\"loglock\"" }, { "Email", jsonQuoted(email) },
                { "ProjectGUID", jsonQuoted(guid) }, { "LogVersion", "-1" },
                { "ReleaseLock", "false" } }))
            .member("Lock");
    }
    int wrongPassword()
    {
        HttpClient client(server.url());
        return std::atoi(client.login("nobody@example.com", "wrong").member("leftcount").c_str());
    }
    void beginUpload()
    {
        const std::string head
            = "--b\r\nContent-Disposition: form-data; name=\"jsonPart\"\r\n\r\n"
              R"({"service":"upload","FileName":"late.bin"})"
              "\r\n--b\r\nContent-Disposition: form-data; name=\"dataPart\"\r\n\r\n";
        upload.send("POST /kvx/service HTTP/1.1\r\nHost: a\r\nCookie: kvxsid=" + holder.cookie()
            + "\r\nContent-Type: multipart/form-data; boundary=b\r\nContent-Length: "
            + std::to_string(head.size() + tail.size()) + "\r\n\r\n" + head);
        ASSERT_TRUE(waitFor([this] { return isUnderWay(); }));
    }
    bool isUnderWay() const
    {
        std::error_code error;
        std::filesystem::directory_iterator files(server.dataFolder() + "/tmp", error);
        return !error && files != std::filesystem::directory_iterator();
    }
    template <typename Value> Value stored(const char *sql)
    {
        return Db(server.dataFolder() + "/db/kvx.sqlite").value<Value>(sql).value();
    }
    /// Two rounds of the janitor: the second began after this.
    void awaitJanitor()
    {
        for (int round = 0; round < 2; ++round) {
            const char *clock = "SELECT value FROM meta WHERE name = 'clock'";
            const auto before = stored<std::string>(clock);
            ASSERT_TRUE(waitFor([&] {
                EXPECT_EQ(waiter.post(question).statusCode(), 1) << "thrown out";
                return stored<std::string>(clock) != before;
            }));
        }
    }
    void expectNothingHappened()
    {
        EXPECT_EQ(lock(waiter), "2") << "the lock is the holder's";
        EXPECT_TRUE(isUnderWay());
        if (left > 1) {
            const int now = wrongPassword();
            EXPECT_EQ(now, left - 1) << "wrong passwords are forgotten, or count for ever";
            left = now;
        }
    }

    WallClock wall;
    ServerProcess server { quickOptions() };
    const std::string email = server.adminEmail();
    const std::string tail = "the end\r\n--b--\r\n";
    HttpClient holder { server.url() };
    HttpClient waiter { server.url() };
    RawConnection upload { server.host(), server.port() };
    std::thread m_work;
    std::atomic<bool> works { true };
    int left = 0;
};

TEST_F(ServerClock, JumpsHarmNobodyAtWork)
{
    const bool isLong = std::getenv("KVX_TEST_LONG") != nullptr;
    for (const std::int64_t jump : { hour, -hour, day, -day, year, -year }) {
        SCOPED_TRACE(jump);
        wall.setOff(jump);
        if (isLong || jump == year)
            awaitJanitor();
        expectNothingHappened();
    }
    upload.send(tail);
    EXPECT_NE(upload.readUntil("}").find("\"statuscode\":1"), std::string::npos);
    // Nor does the lock of a saver who is gone outlast its lease.
    works = false;
    m_work.join();
    const auto gone = std::chrono::steady_clock::now();
    ASSERT_TRUE(waitFor([this] { return lock(waiter) == "1"; }));
    EXPECT_LT(std::chrono::steady_clock::now() - gone, std::chrono::seconds(20));
    const auto since = stored<std::int64_t>("SELECT lock_since FROM project") / 1000;
    EXPECT_NEAR(static_cast<double>(since), static_cast<double>(std::time(nullptr) - year), 60)
        << "the server did not see the jump";
}

} // namespace
