#include "ScriptedFixture.h"

#include "Messages.h"
#include "messaging/BlockingReceivers.h"

#include <QThread>
#include <atomic>
#include <cms/ExceptionListener.h>
#include <cms/MessageListener.h>
#include <stdexcept>
#include <thread>

namespace kvx::test {

namespace {

class UnreadableText : public openwire::PlainTextMessage {
public:
    UnreadableText()
        : PlainTextMessage(textData())
    {
    }
    std::string getText() const override { throw cms::CMSException("cannot be inflated"); }

private:
    static openwire::MessageData textData()
    {
        openwire::MessageData data;
        data.type = openwire::TextMessageType;
        return data;
    }
};

} // namespace

class ScriptedMessages : public ScriptedFixture {
protected:
    ScriptedMessages() { EXPECT_TRUE(messager->start()); }

    void onBrokerThread(const std::function<void()> &call)
    {
        std::atomic<bool> returned { false };
        std::thread broker([&] {
            call();
            returned = true;
        });
        EXPECT_TRUE(waitUntil([&] { return returned.load(); }));
        broker.join();
    }
};

TEST_F(ScriptedMessages, isBothListeners)
{
    EXPECT_NE(dynamic_cast<cms::MessageListener *>(messager.get()), nullptr);
    EXPECT_NE(dynamic_cast<cms::ExceptionListener *>(messager.get()), nullptr);
}

TEST_F(ScriptedMessages, aMessageThatCannotBeReadIsABrokerError)
{
    onBrokerThread([] {
        const UnreadableText message;
        library.messageListener()->onMessage(&message);
    });
    EXPECT_EQ(messager->errorString(), QStringLiteral("cannot be inflated"));
    EXPECT_TRUE(announced("cannot be inflated"));
}

TEST_F(ScriptedMessages, aReceiverThatThrowsIsABrokerError)
{
    const auto connection
        = QObject::connect(messager.get(), &KVXCWMessage::notify, [](const QJsonObject &message) {
              if (message.isEmpty())
                  throw std::runtime_error("receiver failed");
          });
    onBrokerThread([] {
        openwire::MessageData data;
        data.type = openwire::TextMessageType;
        const openwire::PlainTextMessage message(std::move(data));
        library.messageListener()->onMessage(&message);
    });
    EXPECT_EQ(messager->errorString(), QStringLiteral("receiver failed"));
}

TEST_F(ScriptedMessages, aBrokerErrorIsEmittedOnTheLibrarysThread)
{
    std::atomic<QThread *> thread { nullptr };
    std::atomic<bool> textWasSet { false };
    QObject::connect(messager.get(), &KVXCWMessage::notify, [&](const QJsonObject &) {
        thread = QThread::currentThread();
        textWasSet = messager->errorString() == QLatin1String("gone");
    });
    QThread *broker = nullptr;
    host.takeLog();
    onBrokerThread([&] {
        broker = QThread::currentThread();
        library.exceptionListener()->onException(cms::CMSException("gone"));
    });
    EXPECT_TRUE(announced("gone"));
    EXPECT_EQ(thread, broker);
    EXPECT_TRUE(textWasSet);
    const QList<LogRecord> records = host.takeLog();
    ASSERT_EQ(records.size(), 1);
    EXPECT_EQ(records[0].level, 40000);
    EXPECT_EQ(records[0].source, QStringLiteral("KVXNetworkLog.cpp"));
    EXPECT_EQ(records[0].text,
        QStringLiteral("ActiveMQ run error: message={\"notifymsg_content\":\"gone\","
                       "\"notifymsg_type\":\"notifymsg_connection\"}"));
}

TEST_F(ScriptedMessages, aBrokerErrorOnTheHostThreadIsLeftToAnotherThread)
{
    QObject blocking;
    addBlockingReceiver(&blocking);
    std::atomic<int> handled { 0 };
    std::atomic<bool> textWasSet { false };
    QObject::connect(
        messager.get(), &KVXCWMessage::notify, &blocking,
        [&](const QJsonObject &) {
            ++handled;
            textWasSet = messager->errorString() == QLatin1String("gone");
        },
        Qt::BlockingQueuedConnection);

    messager->onException(cms::CMSException("gone"));

    EXPECT_EQ(messager->errorString(), QStringLiteral("gone"));
    EXPECT_EQ(handled, 0);
    EXPECT_TRUE(announced("gone"));
    EXPECT_TRUE(waitUntil([&] { return handled == 1; }));
    EXPECT_TRUE(textWasSet);
    removeBlockingReceiver(&blocking);
}

TEST_F(ScriptedMessages, errorTextsMayBeReadAndWrittenAtOnce)
{
    std::atomic<bool> ending { false };
    std::thread broker([&] {
        while (!ending)
            library.exceptionListener()->onException(cms::CMSException("some broker error"));
    });
    for (int i = 0; i < 2000; ++i) {
        const QString text = messager->errorString();
        EXPECT_TRUE(text.isEmpty() || text == QLatin1String("some broker error"));
    }
    ending = true;
    broker.join();
}

TEST_F(ScriptedMessages, eachKindOfMessageThatIsNoTextIsRefused)
{
    const openwire::PlainMessage plain { openwire::MessageData() };
    host.takeLog();
    testing::internal::CaptureStderr();
    onBrokerThread([&] { library.messageListener()->onMessage(&plain); });
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
        "Unsupported message type received: kvx::openwire::PlainMessage\n");
    const QList<LogRecord> records = host.takeLog();
    ASSERT_EQ(records.size(), 2);
    for (const LogRecord &record : records) {
        EXPECT_EQ(record.level, 40000);
        EXPECT_EQ(record.text,
            QStringLiteral("Recv message from ActiveMQ, But is unsupported message type: "
                           "name=kvx::openwire::PlainMessage"));
    }
    EXPECT_TRUE(received().isEmpty());
    EXPECT_EQ(messager->errorString(), QString());
}

} // namespace kvx::test
