#include "AdminFixture.h"
#include "support/Watchdog.h"

#include <atomic>
#include <future>

using namespace kvx::test;

namespace {

/// Clients that change something without a pause, as long as this object lives.
class Crowd {
public:
    Crowd(const ServerProcess &server, int clients)
    {
        for (int i = 0; i < clients; ++i)
            m_threads.emplace_back([this, &server, i] { work(server, i); });
    }
    ~Crowd()
    {
        m_ending = true;
        for (std::thread &thread : m_threads)
            thread.join();
    }
    int changes() const { return m_changes; }
    int failures() const { return m_failures; }

private:
    void work(const ServerProcess &server, int module)
    {
        AdminClient client(server, module % 2 == 0 ? "anna" : "ben");
        client.login();
        while (!m_ending) {
            const bool done = client.checkOut("1;2;3;4;5;6;7;8;9;", module) == 1
                && client.onProject("checkinall").statusCode() == 1;
            ++(done ? m_changes : m_failures);
        }
    }

    std::atomic<bool> m_ending { false };
    std::atomic<int> m_changes { 0 };
    std::atomic<int> m_failures { 0 };
    std::vector<std::thread> m_threads;
};

using Busy = Administered;

} // namespace

TEST_F(Busy, ACommandInTheMiddleOfHeavyWritesIsCarriedOut)
{
    Watchdog::allow(120);
    server.set("session.perUser", "20");
    server.restart();
    ASSERT_EQ(anna.login(), 1);
    createShared();
    Crowd crowd(server, 6);
    for (int i = 0; i < 20; ++i) {
        const CommandResult result = server.command(
            { "role", i % 2 == 0 ? "assign" : "unassign", "Reviewer", "ben@example.com" });
        ASSERT_EQ(result.exitCode, 0) << result.err;
    }
    EXPECT_GT(crowd.changes(), 100) << "the crowd did work meanwhile";
    EXPECT_EQ(crowd.failures(), 0) << "and was not disturbed";
}

TEST_F(Busy, ACommandOutlastsAWriterThatIsSlow)
{
    Watchdog::allow(60);
    kvx::server::Db db(server.dataFolder() + "/db/kvx.sqlite");
    auto waiting
        = std::make_unique<kvx::server::Transaction>(db, kvx::server::Transaction::Kind::Write);
    auto command = std::async(std::launch::async, [this] {
        return server.command({ "role", "assign", "Reviewer", "ben@example.com" });
    });
    // Longer than the database waits by itself.
    EXPECT_EQ(command.wait_for(std::chrono::seconds(12)), std::future_status::timeout);
    waiting.reset();
    const CommandResult result = command.get();
    EXPECT_EQ(result.exitCode, 0) << result.err;
}
