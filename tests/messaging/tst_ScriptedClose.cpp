#include "ScriptedFixture.h"

#include "Messages.h"

#include <QElapsedTimer>
#include <atomic>
#include <cms/ExceptionListener.h>
#include <cms/MessageListener.h>
#include <thread>

namespace kvx::test {

class ScriptedClose : public ScriptedFixture {
protected:
    ScriptedClose() { EXPECT_TRUE(messager->start()); }

    ~ScriptedClose() override
    {
        released = true;
        messager.reset();
        EXPECT_TRUE(waitUntil([] { return library.count("shutdown") == 1; }));
    }

    /// From now on a close waits until it is released.
    void hangClose()
    {
        library.onStep("close", [this] {
            while (!released)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        });
    }

    template <class Call> static void expectWithinASecond(Call call)
    {
        QElapsedTimer timer;
        timer.start();
        call();
        EXPECT_LT(timer.elapsed(), 1300);
    }

    static openwire::PlainTextMessage text(const char *text)
    {
        openwire::MessageData data;
        data.type = openwire::TextMessageType;
        openwire::PlainTextMessage message(std::move(data));
        message.setText(text);
        return message;
    }

    std::atomic<bool> released { false };
};

TEST_F(ScriptedClose, stopClosesAndKeepsTheObjects)
{
    library.takeSteps();
    EXPECT_TRUE(messager->stop());
    EXPECT_EQ(library.takeSteps(), Steps { "close" });
    EXPECT_TRUE(messager->stop());
    EXPECT_EQ(library.takeSteps(), Steps { "close" });
}

TEST_F(ScriptedClose, destructionClosesReleasesInOrderAndShutsDown)
{
    library.takeSteps();
    messager.reset();
    EXPECT_EQ(library.takeSteps(),
        (Steps { "close", "delete topic", "delete producer", "delete consumer", "delete session",
            "delete connection", "shutdown" }));
}

TEST_F(ScriptedClose, aStopThatFailsIsReported)
{
    library.onStep("close", throwBrokerError);
    host.takeLog();
    EXPECT_FALSE(messager->stop());
    EXPECT_EQ(messager->errorString(), QStringLiteral("broken %1"));
    EXPECT_TRUE(announced("broken %1"));
    const QList<LogRecord> records = host.takeLog();
    ASSERT_EQ(records.size(), 1);
    EXPECT_EQ(records[0].level, 40000);
    EXPECT_EQ(records[0].text,
        QStringLiteral("ActiveMQ run error: message={\"notifymsg_content\":\"broken %1\","
                       "\"notifymsg_type\":\"notifymsg_connection\"}"));
}

TEST_F(ScriptedClose, aLongErrorTextIsLoggedShortenedAndAnnouncedWhole)
{
    const std::string longText(400, 'e');
    library.onStep("close", [longText] { throw cms::CMSException(longText); });
    host.takeLog();
    EXPECT_FALSE(messager->stop());
    EXPECT_TRUE(announced(longText.c_str()));
    EXPECT_EQ(host.takeLog().value(0).text.toStdString(),
        "ActiveMQ run error: message={\"notifymsg_content\":\""
            + std::string(300 - std::string("{\"notifymsg_content\":\"").size(), 'e') + "...");
}

TEST_F(ScriptedClose, aFailureAtDestructionIsNobodysBusiness)
{
    library.onStep("close", throwBrokerError);
    messager.reset();
    EXPECT_EQ(library.count("delete connection"), 1);
    EXPECT_TRUE(received().isEmpty());
}

TEST_F(ScriptedClose, aCloseThatHangsIsLeftBehind)
{
    hangClose();
    expectWithinASecond([this] { EXPECT_TRUE(messager->stop()); });
    EXPECT_TRUE(received().isEmpty());
    EXPECT_EQ(messager->errorString(), QString());
}

TEST_F(ScriptedClose, aSecondStopWaitsForTheCloseUnderWay)
{
    hangClose();
    EXPECT_TRUE(messager->stop());
    expectWithinASecond([this] { EXPECT_TRUE(messager->stop()); });
    EXPECT_EQ(library.count("close"), 1);

    released = true;
    EXPECT_TRUE(messager->stop());
}

TEST_F(ScriptedClose, aStartGoesOnWhileAnEarlierCloseHangs)
{
    hangClose();
    expectWithinASecond([this] { EXPECT_TRUE(messager->start()); });
    EXPECT_EQ(library.count("delete connection"), 0);

    released = true;
    EXPECT_TRUE(waitUntil([] { return library.count("delete connection") == 1; }));
}

TEST_F(ScriptedClose, destructionGoesOnWhileACloseHangs)
{
    hangClose();
    expectWithinASecond([this] { messager.reset(); });
    // The helper keeps what it works on, and the library.
    EXPECT_EQ(library.count("delete connection"), 0);
    EXPECT_EQ(library.count("shutdown"), 0);

    released = true;
    EXPECT_TRUE(waitUntil([] { return library.count("shutdown") == 1; }));
    EXPECT_EQ(library.steps().back(), "shutdown");
}

TEST_F(ScriptedClose, callsThatComeLateReachNobody)
{
    cms::MessageListener *messages = library.messageListener();
    cms::ExceptionListener *exceptions = library.exceptionListener();
    hangClose(); // the library has not let go of the listeners yet
    EXPECT_TRUE(messager->stop());

    const auto message = text("{}");
    messages->onMessage(&message);
    exceptions->onException(cms::CMSException("late"));
    EXPECT_EQ(messager->errorString(), QString());

    messager.reset();
    messages->onMessage(&message);
    exceptions->onException(cms::CMSException("later"));
    EXPECT_TRUE(received().isEmpty());
}

TEST_F(ScriptedClose, theListenersAreTakenAwayBeforeTheObjectsGo)
{
    EXPECT_NE(library.messageListener(), nullptr);
    EXPECT_NE(library.exceptionListener(), nullptr);
    library.onStep("delete", [] {
        EXPECT_EQ(library.messageListener(), nullptr);
        EXPECT_EQ(library.exceptionListener(), nullptr);
    });
    messager.reset();
}

TEST_F(ScriptedClose, aListenerThatIsStillRunningKeepsItsObjects)
{
    std::atomic<bool> inside { false };
    std::atomic<bool> leave { false };
    QObject::connect(messager.get(), &KVXCWMessage::notify, [&](const QJsonObject &) {
        inside = true;
        while (!leave)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    });
    std::thread dispatcher([this] {
        const auto message = text("{}");
        library.messageListener()->onMessage(&message);
    });
    while (!inside)
        std::this_thread::yield();

    expectWithinASecond([this] { EXPECT_TRUE(messager->start()); });
    EXPECT_EQ(library.count("delete connection"), 0);
    leave = true;
    dispatcher.join();
    EXPECT_TRUE(waitUntil([] { return library.count("delete connection") == 1; }));
}

} // namespace kvx::test
