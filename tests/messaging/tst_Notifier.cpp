#include "messaging/Notifier.h"

#include "messaging/BlockingReceivers.h"
#include "support/FakeHost.h"

#include <QCoreApplication>
#include <QThread>
#include <atomic>
#include <gtest/gtest.h>

namespace kvx::test {

namespace {

QJsonObject numbered(int number)
{
    return { { QStringLiteral("n"), number } };
}

LinkCloser::Deadline inASecond()
{
    return std::chrono::steady_clock::now() + std::chrono::seconds(1);
}

} // namespace

TEST(Notifier, emitsInOrderFromAThreadOfItsOwn)
{
    FakeMessage messager;
    QList<int> received;
    QObject context;
    std::atomic<bool> foreign { true };
    QObject::connect(&messager, &KVXCWMessage::notify, [&](const QJsonObject &) {
        foreign = foreign && QThread::currentThread() != context.thread();
    });
    QObject::connect(
        &messager, &KVXCWMessage::notify, &context,
        [&](const QJsonObject &message) {
            received.append(message.value(QStringLiteral("n")).toInt());
        },
        Qt::BlockingQueuedConnection);
    Notifier notifier(&messager);
    for (int i = 0; i < 100; ++i)
        notifier.post(numbered(i));

    ASSERT_TRUE(waitUntil([&] { return received.size() == 100; }));
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(received[i], i);
    EXPECT_TRUE(foreign);
    EXPECT_TRUE(notifier.leave(inASecond()));
}

TEST(Notifier, withoutAnythingToEmitItLeavesAtOnce)
{
    FakeMessage messager;
    Notifier notifier(&messager);
    EXPECT_TRUE(notifier.leave(inASecond()));
}

TEST(Notifier, leavingDropsWhatWaits)
{
    FakeMessage messager;
    QObject receiver;
    addBlockingReceiver(&receiver);
    std::atomic<bool> entered { false };
    int received = 0;
    QObject::connect(
        &messager, &KVXCWMessage::notify, [&](const QJsonObject &) { entered = true; });
    QObject::connect(
        &messager, &KVXCWMessage::notify, &receiver, [&](const QJsonObject &) { ++received; },
        Qt::BlockingQueuedConnection);
    {
        Notifier notifier(&messager);
        notifier.post(numbered(1));
        notifier.post(numbered(2));
        while (!entered)
            QThread::yieldCurrentThread();
        EXPECT_TRUE(notifier.leave(inASecond()));
        notifier.post(numbered(3));
    }
    QCoreApplication::processEvents();
    EXPECT_EQ(received, 0);
    removeBlockingReceiver(&receiver);
}

TEST(Notifier, anEmissionThatWaitsForAnotherReceiverIsLeftBehind)
{
    auto messager = std::make_unique<FakeMessage>();
    QObject receiver; // not entered in the list
    std::atomic<bool> entered { false };
    int received = 0;
    QObject::connect(
        messager.get(), &KVXCWMessage::notify, [&](const QJsonObject &) { entered = true; });
    QObject::connect(
        messager.get(), &KVXCWMessage::notify, &receiver, [&](const QJsonObject &) { ++received; },
        Qt::BlockingQueuedConnection);
    {
        Notifier notifier(messager.get());
        notifier.post(numbered(1));
        while (!entered)
            QThread::yieldCurrentThread();
        EXPECT_FALSE(
            notifier.leave(std::chrono::steady_clock::now() + std::chrono::milliseconds(50)));
    }
    messager.reset();
    EXPECT_TRUE(waitUntil([&] { return received == 1; }));
}

} // namespace kvx::test
