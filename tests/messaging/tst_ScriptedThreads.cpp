#include "ScriptedFixture.h"

#include "Messages.h"
#include "ThreadLimit.h"
#include "messaging/BlockingReceivers.h"

#include <QElapsedTimer>
#include <atomic>
#include <cms/MessageListener.h>
#include <cstdlib>
#include <iostream>
#include <thread>

// No thread can be started: nothing throws, nothing hangs, and what can wait for a thread waits.

namespace kvx::test {

namespace {

constexpr char noThread[] = "No thread could be started: Resource temporarily unavailable";

} // namespace

class ScriptedThreads : public ScriptedFixture {
protected:
    static void deliver()
    {
        openwire::MessageData data;
        data.type = openwire::TextMessageType;
        openwire::PlainTextMessage message(std::move(data));
        message.setText(R"({"n":1})");
        if (cms::MessageListener *listener = library.messageListener())
            listener->onMessage(&message);
    }

    int messagesReceived()
    {
        int count = 0;
        for (const QJsonObject &message : received())
            count += message.contains(QStringLiteral("n"));
        return count;
    }
};

TEST_F(ScriptedThreads, aFailedStartIsAnnouncedWithTheNextThread)
{
    library.onStep("session", throwBrokerError);
    {
        const ThreadLimit none(0);
        EXPECT_FALSE(messager->start());
        EXPECT_GT(ThreadLimit::refused(), 0);
    }
    EXPECT_EQ(messager->errorString(), QStringLiteral("broken %1"));
    EXPECT_TRUE(received().isEmpty());

    EXPECT_FALSE(messager->start());
    EXPECT_TRUE(waitUntil([this] { return received().size() == 2; })) << "the first one as well";
}

TEST_F(ScriptedThreads, aStopWithoutAThreadFailsAndLeavesTheConnectionAsItIs)
{
    ASSERT_TRUE(messager->start());
    library.takeSteps();
    host.takeLog();
    {
        const ThreadLimit none(0);
        EXPECT_FALSE(messager->stop());
    }
    EXPECT_EQ(messager->errorString(), QLatin1String(noThread));
    const QList<LogRecord> records = host.takeLog();
    ASSERT_EQ(records.size(), 1);
    EXPECT_EQ(records[0].level, 40000);
    EXPECT_TRUE(records[0].text.contains(QLatin1String(noThread)));
    EXPECT_TRUE(library.takeSteps().empty());
    deliver();
    EXPECT_EQ(messagesReceived(), 1);

    EXPECT_TRUE(messager->stop());
    EXPECT_EQ(library.takeSteps(), Steps { "close" });
    deliver();
    EXPECT_EQ(messagesReceived(), 1);
}

TEST_F(ScriptedThreads, aSecondStopWithoutAThreadFailsToo)
{
    ASSERT_TRUE(messager->start());
    ASSERT_TRUE(messager->stop());
    {
        const ThreadLimit none(0);
        EXPECT_FALSE(messager->stop());
    }
    EXPECT_TRUE(messager->stop());
}

TEST_F(ScriptedThreads, aSecondStartWithoutAThreadFailsAndLeavesTheEarlierConnection)
{
    ASSERT_TRUE(messager->start());
    library.takeSteps();
    {
        const ThreadLimit none(0);
        EXPECT_FALSE(messager->start());
    }
    EXPECT_EQ(messager->errorString(), QLatin1String(noThread));
    EXPECT_EQ(library.count("close"), 0);
    deliver();
    EXPECT_EQ(messagesReceived(), 1);

    EXPECT_TRUE(messager->start());
    EXPECT_EQ(library.count("close"), 1);
}

TEST_F(ScriptedThreads, destructionWithoutAThreadClosesOnTheCallingOne)
{
    ASSERT_TRUE(messager->start());
    library.takeSteps();
    const auto here = std::this_thread::get_id();
    library.onStep("close", [here] { EXPECT_EQ(std::this_thread::get_id(), here); });
    {
        const ThreadLimit none(0);
        messager.reset();
        EXPECT_GT(ThreadLimit::refused(), 0);
    }
    EXPECT_EQ(library.takeSteps(),
        (Steps { "close", "delete topic", "delete producer", "delete consumer", "delete session",
            "delete connection", "shutdown" }));
}

TEST_F(ScriptedThreads, destructionWithoutAThreadDropsWhatABlockingReceiverWouldGet)
{
    ASSERT_TRUE(messager->start());
    QObject receiver;
    addBlockingReceiver(&receiver);
    std::atomic<bool> inside { false };
    int handled = 0;
    QObject::connect(
        messager.get(), &KVXCWMessage::notify, [&](const QJsonObject &) { inside = true; });
    QObject::connect(
        messager.get(), &KVXCWMessage::notify, &receiver, [&](const QJsonObject &) { ++handled; },
        Qt::BlockingQueuedConnection);
    std::thread dispatcher([] { deliver(); });
    while (!inside)
        std::this_thread::yield();
    {
        const ThreadLimit none(0);
        messager.reset();
    }
    dispatcher.join();
    EXPECT_EQ(handled, 0);
    EXPECT_EQ(library.count("close"), 1);
    EXPECT_EQ(library.count("delete connection"), 1);
    removeBlockingReceiver(&receiver);
}

TEST_F(ScriptedThreads, destructionWithoutAThreadLeavesAConnectionBehindWhoseReceiverIsBusy)
{
    // In a process of its own: the connection keeps the library for the rest of the process.
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto outcome = [this] {
        if (!messager->start())
            return "not started";
        std::atomic<bool> inside { false };
        std::atomic<bool> leave { false };
        QObject::connect(messager.get(), &KVXCWMessage::notify, [&](const QJsonObject &) {
            inside = true;
            while (!leave)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        });
        std::thread dispatcher([] { deliver(); });
        while (!inside)
            std::this_thread::yield();
        QElapsedTimer timer;
        timer.start();
        {
            const ThreadLimit none(0);
            messager.reset();
        }
        const bool inTime = timer.elapsed() < 1300;
        leave = true;
        dispatcher.join();
        deliver();
        if (library.count("close") != 0 || library.count("delete connection") != 0)
            return "taken from under its receiver";
        if (messagesReceived() != 1)
            return "entered once more";
        return inTime ? "left behind" : "late";
    };
    EXPECT_EXIT(
        {
            std::cerr << outcome() << std::endl;
            std::_Exit(0);
        },
        testing::ExitedWithCode(0), "left behind");
}

} // namespace kvx::test
