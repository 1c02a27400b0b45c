#include "MessagingFixture.h"

#include <QElapsedTimer>
#include <fstream>
#include <thread>
#include <unistd.h>

namespace kvx::test {

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool Instrumented = true; // the sanitizer keeps what was freed
#else
constexpr bool Instrumented = false;
#endif

long residentBytes()
{
    std::ifstream file("/proc/self/statm");
    long size = 0;
    long resident = 0;
    file >> size >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

} // namespace

class Storm : public MessagingFixture { };

TEST_F(Storm, tenThousandNotificationsDuringARequestAreAppliedAfterwardsInOrder)
{
    constexpr int Count = 10000;
    const std::string filling(1000, 'x');
    ASSERT_TRUE(start());
    int applied = 0;
    int outOfOrder = 0;
    int longestGap = 0;
    QElapsedTimer gap;
    const auto apply = [&](const QJsonObject &message) {
        if (message.value(QStringLiteral("n")).toInt() != applied)
            ++outOfOrder;
        ++applied;
        longestGap = std::max(longestGap, int(gap.restart()));
    };
    int seen = 0;
    Receiver list(messager.get(), Qt::BlockingQueuedConnection, apply);
    Receiver user(messager.get(), Qt::AutoConnection, [&](const QJsonObject &) { ++seen; });
    const long before = residentBytes();

    // The host thread sits in a request for as long as this takes.
    std::thread server([&] {
        Publisher publisher(topic.toStdString());
        for (int i = 0; i < Count - 1; ++i) {
            publisher.post("{\"n\":" + std::to_string(i) + ",\"f\":\"" + filling + "\"}");
            if (longRun() && i % 10 == 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(10)); // ten seconds in all
        }
        publisher.send("{\"n\":" + std::to_string(Count - 1) + "}"); // the broker has them all
    });
    server.join();
    EXPECT_EQ(applied, 0);

    gap.start();
    EXPECT_TRUE(waitUntil([&] { return seen == Count; }, 40000));
    EXPECT_EQ(applied, Count);
    EXPECT_EQ(outOfOrder, 0);
    EXPECT_LT(longestGap, 1000); // the host answers between two messages
    if (!Instrumented) {
        EXPECT_LT(residentBytes() - before, 64L << 20); // the rest waits at the broker
    }
}

} // namespace kvx::test
