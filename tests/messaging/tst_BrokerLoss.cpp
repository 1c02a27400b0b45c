#include "MessagingFixture.h"

#include <QJsonDocument>

namespace kvx::test {

class BrokerLoss : public MessagingFixture {
protected:
    void TearDown() override
    {
        // Whatever a test did: the next one finds the broker running.
        broker().thaw();
        broker().restart();
    }

    static bool isConnectionNotification(const QJsonObject &message)
    {
        return message.value(QStringLiteral("notifymsg_type")).toString()
            == QLatin1String("notifymsg_connection");
    }
};

TEST_F(BrokerLoss, aKilledBrokerIsAnnouncedOnce)
{
    ASSERT_TRUE(start());
    QList<QJsonObject> blocking;
    Receiver receiver(messager.get(), Qt::BlockingQueuedConnection,
        [&](const QJsonObject &message) { blocking.append(message); });
    Recorder recorder(messager.get());
    host.takeLog();

    broker().kill();

    ASSERT_TRUE(waitUntil([&] { return recorder.count() == 1; }));
    ASSERT_TRUE(isConnectionNotification(recorder.at(0)));
    EXPECT_EQ(recorder.at(0).value(QStringLiteral("notifymsg_content")).toString(),
        messager->errorString());
    EXPECT_FALSE(messager->errorString().isEmpty());
    EXPECT_EQ(blocking.size(), 1);
    const QList<LogRecord> records = host.takeLog();
    ASSERT_EQ(records.size(), 1);
    EXPECT_EQ(records[0].level, 40000);
    EXPECT_EQ(records[0].source, QStringLiteral("KVXNetworkLog.cpp"));
    EXPECT_EQ(records[0].text,
        QStringLiteral("ActiveMQ run error: message=")
            + QString::fromUtf8(QJsonDocument(recorder.at(0)).toJson(QJsonDocument::Compact)));

    EXPECT_LT(elapsedMs([this] { messager->stop(); }), SecondMs);
    EXPECT_EQ(recorder.count(), 1);
}

TEST_F(BrokerLoss, theNextStartWorksOnceTheBrokerIsBack)
{
    ASSERT_TRUE(start());
    broker().kill();
    EXPECT_FALSE(start());
    broker().restart();

    ASSERT_TRUE(start()) << messager->errorString().toStdString();
    Recorder recorder(messager.get());
    Publisher(topic.toStdString()).send(message(1));
    ASSERT_TRUE(waitBlocked([&] {
        return recorder.count() > 0
            && recorder.at(recorder.count() - 1).value(QStringLiteral("n")).toInt() == 1;
    }));
}

TEST_F(BrokerLoss, aKilledBrokerDoesNotHoldUpDestruction)
{
    ASSERT_TRUE(start());
    broker().kill();
    EXPECT_LT(elapsedMs([this] { messager.reset(); }), SecondMs);
}

TEST_F(BrokerLoss, aFrozenBrokerDoesNotHoldUpStop)
{
    ASSERT_TRUE(start());
    broker().freeze();
    bool stopped = false;
    EXPECT_LT(elapsedMs([&] { stopped = messager->stop(); }), SecondMs);
    EXPECT_TRUE(stopped);
    // A second one waits for the close under way, and not longer either.
    EXPECT_LT(elapsedMs([&] { messager->stop(); }), SecondMs);

    broker().thaw();
    EXPECT_TRUE(waitUntil([this] { return start(); }, 20000))
        << messager->errorString().toStdString();
}

TEST_F(BrokerLoss, aFrozenBrokerDoesNotHoldUpDestruction)
{
    ASSERT_TRUE(start());
    broker().freeze();
    EXPECT_LT(elapsedMs([this] { messager.reset(); }), SecondMs);
}

TEST_F(BrokerLoss, startAgainstAFrozenBrokerFailsInTime)
{
    // The library's own limit is 15 s.
    const bool whole = longRun();
    if (!whole)
        messager->setBrokerURI(
            messager->brokerURI() + QStringLiteral("?connection.connectResponseTimeout=1000"));
    broker().freeze();
    bool started = true;
    EXPECT_LT(elapsedMs([&] { started = start(); }), whole ? 17000 : 3000);
    EXPECT_FALSE(started);
    EXPECT_FALSE(messager->errorString().isEmpty());
}

TEST_F(BrokerLoss, aBrokerKilledWhileTheHostIsBlockedDoesNotHang)
{
    ASSERT_TRUE(start());
    std::atomic<bool> entered { false };
    Receiver direct(
        messager.get(), Qt::DirectConnection, [&](const QJsonObject &) { entered = true; });
    int handled = 0;
    Receiver blocking(
        messager.get(), Qt::BlockingQueuedConnection, [&](const QJsonObject &) { ++handled; });
    Publisher(topic.toStdString()).send(message(1));
    ASSERT_TRUE(waitBlocked([&] { return entered.load(); }));

    broker().kill();
    EXPECT_LT(elapsedMs([this] { messager->stop(); }), SecondMs);
    EXPECT_EQ(handled, 0);
}

} // namespace kvx::test
