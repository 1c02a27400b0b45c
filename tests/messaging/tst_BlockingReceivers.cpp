#include "messaging/BlockingReceivers.h"

#include <QCoreApplication>
#include <QEvent>
#include <QObject>
#include <QThread>
#include <atomic>
#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

class Counter : public QObject {
public:
    int events = 0;

protected:
    bool event(QEvent *event) override
    {
        if (event->type() == QEvent::User)
            ++events;
        return QObject::event(event);
    }
};

} // namespace

TEST(BlockingReceivers, onlyTheirCallsAreDropped)
{
    Counter ours;
    QObject other;
    kvx::addBlockingReceiver(&ours);
    int oursCalled = 0;
    int otherCalled = 0;
    QMetaObject::invokeMethod(
        &ours, [&] { ++oursCalled; }, Qt::QueuedConnection);
    QMetaObject::invokeMethod(
        &other, [&] { ++otherCalled; }, Qt::QueuedConnection);
    QCoreApplication::postEvent(&ours, new QEvent(QEvent::User));

    kvx::dropCallsToBlockingReceivers();
    QCoreApplication::processEvents();

    EXPECT_EQ(oursCalled, 0);
    EXPECT_EQ(ours.events, 1);
    EXPECT_EQ(otherCalled, 1);
    kvx::removeBlockingReceiver(&ours);
}

TEST(BlockingReceivers, callsOfAnotherThreadsReceiversAreLeftAlone)
{
    QThread thread;
    QObject receiver;
    kvx::addBlockingReceiver(&receiver);
    receiver.moveToThread(&thread);
    std::atomic<int> called { 0 };
    QMetaObject::invokeMethod(
        &receiver, [&] { ++called; }, Qt::QueuedConnection);

    kvx::dropCallsToBlockingReceivers();
    thread.start();
    QMetaObject::invokeMethod(
        &receiver, [&] { ++called; }, Qt::BlockingQueuedConnection);
    thread.quit();
    thread.wait();

    EXPECT_EQ(called, 2);
    kvx::removeBlockingReceiver(&receiver);
}

TEST(BlockingReceivers, oneThatLeftIsForgotten)
{
    int called = 0;
    {
        QObject gone;
        kvx::addBlockingReceiver(&gone);
        kvx::removeBlockingReceiver(&gone);
        kvx::removeBlockingReceiver(&gone);
    }
    QObject kept;
    QMetaObject::invokeMethod(
        &kept, [&] { ++called; }, Qt::QueuedConnection);
    kvx::dropCallsToBlockingReceivers();
    QCoreApplication::processEvents();
    EXPECT_EQ(called, 1);
}

TEST(BlockingReceivers, droppingGoesOnUntilTheWaitEnds)
{
    QObject receiver;
    kvx::addBlockingReceiver(&receiver);
    int called = 0;
    int rounds = 0;
    const auto later = std::chrono::steady_clock::now() + 30s;
    EXPECT_TRUE(kvx::dropCallsUntil(later, [&](std::chrono::milliseconds limit) {
        EXPECT_LE(limit, 5ms);
        QMetaObject::invokeMethod(
            &receiver, [&] { ++called; }, Qt::QueuedConnection);
        return ++rounds == 5;
    }));
    kvx::dropCallsToBlockingReceivers();
    QCoreApplication::processEvents();
    EXPECT_EQ(rounds, 5);
    EXPECT_EQ(called, 0);
    kvx::removeBlockingReceiver(&receiver);
}

TEST(BlockingReceivers, theWaitIsAskedOnceEvenAfterTheDeadline)
{
    int asked = 0;
    EXPECT_FALSE(kvx::dropCallsUntil(std::chrono::steady_clock::time_point::min(),
        [&](std::chrono::milliseconds) { return ++asked > 1; }));
    EXPECT_EQ(asked, 1);
}
