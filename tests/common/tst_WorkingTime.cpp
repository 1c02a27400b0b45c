#include "common/KVXCWCommonImpl.h"

#include "support/FakeHost.h"

#include <atomic>
#include <condition_variable>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

using namespace kvx::test;

namespace {

/// A transport whose plain post waits until it is let go.
class SlowNetwork : public FakeNetwork {
public:
    int httpPost(const QString &url, const QJsonObject &request) override
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_posting = true;
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return m_released; });
        return FakeNetwork::httpPost(url, request);
    }
    void awaitPost()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_posting; });
    }
    void release()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_released = true;
        m_changed.notify_all();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_posting = false;
    bool m_released = false;
};

class WorkingTime : public testing::Test {
protected:
    void tickAfter(int seconds)
    {
        now = now.addSecs(seconds);
        common.tick();
    }

    /// The minutes of all reports since the last call.
    std::vector<int> takeMinutes()
    {
        std::vector<int> minutes;
        for (const auto &request : host.network.httpRequests)
            minutes.push_back(request.second.value(QLatin1String("workingTime")).toInt());
        host.network.httpRequests.clear();
        return minutes;
    }

    using Minutes = std::vector<int>;

    FakeHost host;
    QTime now { 9, 0, 0 };
    int clockCalls = 0;
    KVXCWCommonImpl common { [this] {
        ++clockCalls;
        return now;
    } };
};

} // namespace

TEST_F(WorkingTime, theFifthTickOfAMinuteEachReportsFiveMinutes)
{
    for (int i = 0; i < 4; ++i)
        tickAfter(60);
    EXPECT_EQ(takeMinutes(), Minutes {});
    tickAfter(60);
    ASSERT_EQ(host.network.httpRequests.size(), 1);
    EXPECT_EQ(host.network.httpRequests[0].first.toStdString(),
        "http://127.0.0.1:8090/kvx/v2/api/workingtime");
    expectJson(host.network.httpRequests[0].second,
        R"({"service":"logworkingtime","email":"anna@example.com","workingTime":5})");
    expectNoRequest(host); // no service request
    takeMinutes();
    for (int i = 0; i < 5; ++i)
        tickAfter(60);
    EXPECT_EQ(takeMinutes(), Minutes { 5 });
}

TEST_F(WorkingTime, beginsWithTheManager)
{
    now = now.addSecs(120);
    tickAfter(120);
    tickAfter(60);
    EXPECT_EQ(takeMinutes(), Minutes { 5 });
}

TEST_F(WorkingTime, aGapOfMoreThanFiveMinutesDiscardsWhatWasPending)
{
    tickAfter(240);
    tickAfter(301);
    EXPECT_EQ(takeMinutes(), Minutes {});
    tickAfter(299);
    EXPECT_EQ(takeMinutes(), Minutes {});
    tickAfter(1);
    EXPECT_EQ(takeMinutes(), Minutes { 5 });
}

TEST_F(WorkingTime, aGapOfExactlyFiveMinutesCounts)
{
    tickAfter(300);
    EXPECT_EQ(takeMinutes(), Minutes { 5 });
}

TEST_F(WorkingTime, wholeMinutesAreReportedAndTheRemainderDropped)
{
    tickAfter(299);
    EXPECT_EQ(takeMinutes(), Minutes {});
    tickAfter(61);
    EXPECT_EQ(takeMinutes(), Minutes { 6 });
    tickAfter(299);
    tickAfter(60); // 359 seconds
    EXPECT_EQ(takeMinutes(), Minutes { 5 });
    tickAfter(299);
    tickAfter(300); // the 59 seconds were not kept
    EXPECT_EQ(takeMinutes(), Minutes { 9 });
}

TEST_F(WorkingTime, partsOfSecondsAreNotLost)
{
    for (int i = 0; i < 1000; ++i) {
        now = now.addMSecs(900);
        common.tick();
    }
    EXPECT_EQ(takeMinutes(), (Minutes { 5, 5, 5 }));
}

TEST_F(WorkingTime, isNegativeAcrossMidnightAndCountedSo)
{
    now = QTime(23, 58, 0);
    common.tick(); // a gap: nothing pending
    tickAfter(60);
    tickAfter(120); // 00:01:00: minus 86,280 seconds
    for (int i = 0; i < 60; ++i)
        tickAfter(60);
    EXPECT_EQ(takeMinutes(), Minutes {});
    tickAfter(301); // the first gap brings it back
    for (int i = 0; i < 5; ++i)
        tickAfter(60);
    EXPECT_EQ(takeMinutes(), Minutes { 5 });
}

TEST_F(WorkingTime, withoutAPauseTheWholeDayAfterMidnightGoesUnreported)
{
    now = QTime(23, 59, 0);
    common.tick();
    for (int i = 0; i < 86400 / 120; ++i)
        tickAfter(120);
    EXPECT_EQ(takeMinutes(), Minutes {});
}

TEST_F(WorkingTime, aClockThatIsSetBackCountsNegative)
{
    tickAfter(240);
    tickAfter(-600);
    for (int i = 0; i < 10; ++i)
        tickAfter(60);
    EXPECT_EQ(takeMinutes(), Minutes {}); // 240 seconds
    tickAfter(60);
    EXPECT_EQ(takeMinutes(), Minutes { 5 });
}

TEST_F(WorkingTime, isSentInLowerCaseEmailOnly)
{
    tickAfter(300);
    ASSERT_EQ(host.network.httpRequests.size(), 1);
    EXPECT_FALSE(host.network.httpRequests[0].second.contains(QLatin1String("Email")));
}

TEST_F(WorkingTime, minutesThatWereNotDeliveredAreNotKept)
{
    for (const int status : { 0, 401, 500 }) {
        host.network.httpStatus = status;
        tickAfter(300);
    }
    EXPECT_EQ(takeMinutes(), (Minutes { 5, 5, 5 }));
    host.network.httpStatus = 200;
    tickAfter(299);
    EXPECT_EQ(takeMinutes(), Minutes {});
    tickAfter(1);
    EXPECT_EQ(takeMinutes(), Minutes { 5 });
    EXPECT_TRUE(host.takeLog().isEmpty());
}

TEST_F(WorkingTime, withoutAServerOrAUserItIsCountedButNotReported)
{
    host.removeUser();
    tickAfter(300);
    host.setUser(QStringLiteral("Ben"), QStringLiteral("ben@example.com"));
    tickAfter(240);
    EXPECT_EQ(takeMinutes(), Minutes {}); // the five minutes are gone
    host.unconfigure();
    tickAfter(60);
    EXPECT_EQ(takeMinutes(), Minutes {});
}

TEST_F(WorkingTime, aTickDuringAReportDoesNotWaitAndDoesNotCount)
{
    SlowNetwork slow;
    KVXNetwork::setInstance(&slow);
    now = now.addSecs(300);
    std::thread first([this] { common.tick(); });
    slow.awaitPost();
    const int calls = clockCalls;
    common.tick(); // returns although the report hangs
    EXPECT_EQ(clockCalls, calls);
    slow.release();
    first.join();
    EXPECT_EQ(slow.httpRequests.size(), 1);

    now = now.addSecs(300); // counted from the tick that reported
    common.tick();
    EXPECT_EQ(slow.httpRequests.size(), 2);
    KVXNetwork::setInstance(&host.network);
}

TEST_F(WorkingTime, ticksFromSeveralThreadsCountEachSecondOnce)
{
    int calls = 0; // only ever used by the tick under way
    KVXCWCommonImpl shared([this, &calls] {
        ++calls;
        return now = now.addSecs(1);
    });
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&shared] {
            for (int n = 0; n < 5000; ++n)
                shared.tick();
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    const int ticks = calls - 1; // one at the beginning
    EXPECT_GE(ticks, 5000);
    EXPECT_EQ(takeMinutes(), Minutes(std::size_t(ticks / 300), 5));
}
