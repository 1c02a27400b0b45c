#include "MessagingFixture.h"

#include "support/Watchdog.h"

#include <QCoreApplication>
#include <algorithm>
#include <cstdio>

// The messager is closed at each step that a notification takes, in each way there is, again and
// again: nothing may wait for what waits for it.

namespace kvx::test {

namespace {

enum class Phase {
    Started, ///< nothing has come yet
    Arriving, ///< the broker has it
    Waiting, ///< it waits for the host thread
    InSlot, ///< the host thread is handling it
    Delivered, ///< it is being acknowledged
    Restarted ///< it came over a connection that has just been replaced
};
constexpr Phase phases[] = { Phase::Started, Phase::Arriving, Phase::Waiting, Phase::InSlot,
    Phase::Delivered, Phase::Restarted };
const char *const phaseNames[]
    = { "started", "arriving", "waiting", "in the slot", "delivered", "restarted" };

enum class Way { Stop, Start, Destroy };

class CloseInFlight : public MessagingFixture {
protected:
    void makeMessager()
    {
        messager = std::make_unique<KVXCWMessageImpl>();
        messager->setBrokerURI(QString::fromStdString(broker().uri()));
        messager->setTopic(topic);
    }

    int close(Way way)
    {
        return elapsedMs([&] {
            if (way == Way::Stop) {
                EXPECT_TRUE(messager->stop());
            } else if (way == Way::Start) {
                EXPECT_TRUE(start()) << messager->errorString().toStdString();
            } else {
                messager.reset();
            }
        });
    }

    /// How long the close took, in milliseconds.
    int round(Phase phase, Way way)
    {
        if (!messager)
            makeMessager();
        // A connection before may still be on its way out.
        EXPECT_TRUE(waitUntil([this] { return start(); })) << messager->errorString().toStdString();
        Recorder arrivals(messager.get());
        std::atomic<int> handled { 0 };
        int took = -1;
        const auto handle = [&](const QJsonObject &) {
            if (++handled == 1 && phase == Phase::InSlot)
                took = close(way);
        };
        Receiver first(messager.get(), Qt::BlockingQueuedConnection, handle);
        Receiver second(messager.get(), Qt::BlockingQueuedConnection, handle);
        if (phase == Phase::Started)
            return close(way);
        publisher.send(message(1));
        switch (phase) {
        case Phase::Started:
        case Phase::Arriving:
            break;
        case Phase::Restarted:
            EXPECT_TRUE(arrivals.waitFor(1));
            EXPECT_TRUE(start()) << messager->errorString().toStdString();
            publisher.post(message(2));
            break;
        case Phase::Waiting:
            EXPECT_TRUE(arrivals.waitFor(1));
            break;
        case Phase::InSlot:
            EXPECT_TRUE(waitUntil([&] { return took >= 0; }));
            return took;
        case Phase::Delivered:
            EXPECT_TRUE(waitUntil([&] { return handled == 2; }));
            break;
        }
        return close(way);
    }

    Publisher publisher { topic.toStdString() };
};

} // namespace

TEST_F(CloseInFlight, ReturnsInTimeInEachPhaseOfANotification)
{
    for (const Phase phase : phases) {
        // Inside the slot the delivery cannot end, and the second is waited out each time.
        const int shortRounds = phase == Phase::InSlot ? 3 : 30;
        const int rounds = longRun() ? (phase == Phase::InSlot ? 200 : 2000) : shortRounds;
        int worst = 0;
        for (int i = 0; i < rounds; ++i) {
            Watchdog::allow(10); // a round that hangs shows where
            worst = std::max(worst, round(phase, static_cast<Way>(i % 3)));
        }
        std::printf("%d times %s: %d ms at most\n", rounds, phaseNames[int(phase)], worst);
        EXPECT_LT(worst, SecondMs) << phaseNames[int(phase)];
    }
}

} // namespace kvx::test
