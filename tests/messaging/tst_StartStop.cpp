#include "MessagingFixture.h"

#include "ThreadLimit.h"

#include <QThread>
#include <cms/ConnectionFactory.h>

namespace kvx::test {

class StartStop : public MessagingFixture {
protected:
    /// The envelope of a connection notification.
    static QJsonObject announced(const QString &text)
    {
        return { { QStringLiteral("notifymsg_type"), QStringLiteral("notifymsg_connection") },
            { QStringLiteral("notifymsg_content"), text } };
    }

    void expectAnnouncedOnce(const Recorder &recorder)
    {
        ASSERT_TRUE(recorder.waitFor(1));
        EXPECT_FALSE(messager->errorString().isEmpty());
        EXPECT_EQ(recorder.at(0), announced(messager->errorString()));
        EXPECT_EQ(recorder.count(), 1);
    }

    Publisher publisher { topic.toStdString() };
};

TEST_F(StartStop, stopBeforeAnyStartDoesNothing)
{
    Recorder recorder(messager.get());
    EXPECT_TRUE(messager->stop());
    EXPECT_EQ(messager->errorString(), QString());
    EXPECT_EQ(recorder.count(), 0);
    EXPECT_TRUE(host.takeLog().isEmpty());
}

TEST_F(StartStop, nothingArrivesAfterStop)
{
    ASSERT_TRUE(start());
    Recorder recorder(messager.get());
    publisher.send(message(1));
    ASSERT_TRUE(recorder.waitFor(1));

    EXPECT_TRUE(messager->stop());
    publisher.send(message(2));
    EXPECT_TRUE(messager->stop());
    EXPECT_EQ(recorder.count(), 1);
    EXPECT_EQ(messager->errorString(), QString());
}

TEST_F(StartStop, theMessagerStartsAgainAfterStop)
{
    Recorder recorder(messager.get());
    for (int round = 1; round <= 3; ++round) {
        ASSERT_TRUE(start()) << messager->errorString().toStdString();
        publisher.send(message(round));
        ASSERT_TRUE(recorder.waitFor(round));
        ASSERT_TRUE(messager->stop());
    }
    EXPECT_EQ(recorder.count(), 3);
}

TEST_F(StartStop, aSecondStartTakesOverUnderTheSameClientId)
{
    ASSERT_TRUE(start());
    ASSERT_TRUE(start()) << messager->errorString().toStdString();
    Recorder recorder(messager.get());
    publisher.send(message(1));
    publisher.send(message(2));
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_TRUE(messager->stop());
    EXPECT_EQ(recorder.count(), 2); // each once: the first connection is gone
}

TEST_F(StartStop, aStartThatDoesNotReachTheBrokerLeavesTheEarlierConnectionAlone)
{
    ASSERT_TRUE(start());
    messager->setBrokerURI(QStringLiteral("tcp://127.0.0.1:1"));
    EXPECT_FALSE(start());

    Recorder recorder(messager.get());
    publisher.send(message(1));
    ASSERT_TRUE(waitBlocked([&] {
        for (int i = 0; i < recorder.count(); ++i) {
            if (recorder.at(i).value(QStringLiteral("n")).toInt() == 1)
                return true;
        }
        return false;
    }));
}

TEST_F(StartStop, anEmptyUriFailsWithAConnectionNotification)
{
    Recorder recorder(messager.get());
    messager->setBrokerURI(QString());
    EXPECT_FALSE(start());
    expectAnnouncedOnce(recorder);
    EXPECT_TRUE(messager->stop());
}

TEST_F(StartStop, anUnreachableBrokerFailsWithAConnectionNotification)
{
    Recorder recorder(messager.get());
    messager->setBrokerURI(QStringLiteral("tcp://127.0.0.1:1"));
    EXPECT_FALSE(start());
    expectAnnouncedOnce(recorder);
    EXPECT_TRUE(messager->errorString().contains(QLatin1String("refused")))
        << messager->errorString().toStdString();
}

TEST_F(StartStop, aFailureIsLoggedOnce)
{
    messager->setBrokerURI(QStringLiteral("tcp://127.0.0.1:1"));
    EXPECT_FALSE(start());

    const QList<LogRecord> records = host.takeLog();
    ASSERT_EQ(records.size(), 1);
    EXPECT_EQ(records[0].level, 40000);
    EXPECT_EQ(records[0].source, QStringLiteral("KVXNetworkLog.cpp"));
    EXPECT_EQ(records[0].text,
        QStringLiteral("ActiveMQ run error: message={\"notifymsg_content\":\"%1\","
                       "\"notifymsg_type\":\"notifymsg_connection\"}")
            .arg(messager->errorString()));
}

TEST_F(StartStop, aFailedStartIsAnnouncedToBothKindsOfBlockingReceivers)
{
    const auto note = [this](QList<QJsonObject> &list) {
        return [this, &list](const QJsonObject &message) {
            EXPECT_EQ(QThread::currentThread(), messager->thread());
            EXPECT_EQ(announced(messager->errorString()), message);
            list.append(message);
        };
    };
    QList<QJsonObject> projectList, idManager, user;
    Receiver first(messager.get(), Qt::BlockingQueuedConnection, note(projectList));
    Receiver second(messager.get(), Qt::BlockingQueuedConnection, note(idManager));
    Receiver third(messager.get(), Qt::AutoConnection, note(user));
    messager->setBrokerURI(QStringLiteral("tcp://127.0.0.1:1"));

    EXPECT_LT(elapsedMs([this] { EXPECT_FALSE(start()); }), SecondMs);

    ASSERT_TRUE(waitUntil([&] { return user.size() == 1; }));
    EXPECT_EQ(projectList.size(), 1);
    EXPECT_EQ(idManager.size(), 1);
}

TEST_F(StartStop, aClientIdInUseElsewhereIsRefused)
{
    const std::unique_ptr<cms::ConnectionFactory> factory(
        cms::ConnectionFactory::createCMSConnectionFactory(broker().uri()));
    const std::unique_ptr<cms::Connection> elsewhere(factory->createConnection());
    elsewhere->setClientID(email.toStdString());

    EXPECT_FALSE(start());
    EXPECT_TRUE(messager->errorString().contains(QLatin1String("already connected")))
        << messager->errorString().toStdString();

    elsewhere->close();
    EXPECT_TRUE(start()) << messager->errorString().toStdString();
}

TEST_F(StartStop, withoutAUserTheBrokerIsNotEntered)
{
    host.removeUser();
    EXPECT_FALSE(start());
    EXPECT_FALSE(messager->errorString().isEmpty());
}

TEST_F(StartStop, theErrorTextStaysAfterASuccess)
{
    messager->setBrokerURI(QString());
    EXPECT_FALSE(start());
    const QString text = messager->errorString();
    messager->setBrokerURI(QString::fromStdString(broker().uri()));
    EXPECT_TRUE(start());
    EXPECT_EQ(messager->errorString(), text);
}

TEST_F(StartStop, startFailureStopAndDestructionInAnyOrder)
{
    messager->setBrokerURI(QString());
    EXPECT_FALSE(start());
    EXPECT_FALSE(start());
    EXPECT_TRUE(messager->stop());
    EXPECT_LT(elapsedMs([this] { messager.reset(); }), SecondMs);
}

TEST_F(StartStop, twoMessagersUseTheLibraryIndependently)
{
    KVXCWMessageImpl other;
    other.setBrokerURI(messager->brokerURI());
    other.setTopic(topic);
    ASSERT_TRUE(start());
    host.setUser(QStringLiteral("Bernd"), QStringLiteral("other.") + email);
    ASSERT_TRUE(other.start());
    messager.reset();

    Recorder recorder(&other);
    publisher.send(message(1));
    EXPECT_TRUE(recorder.waitFor(1));
}

TEST_F(StartStop, aStartFailsAtWhicheverThreadIsRefusedAndTheNextOneWorks)
{
    int allowed = 0;
    bool refused = true;
    for (; refused; ++allowed) {
        ASSERT_LT(allowed, 50);
        bool started = false;
        {
            const ThreadLimit limit(allowed);
            EXPECT_LT(elapsedMs([&] { started = start(); }), 2 * SecondMs);
            refused = ThreadLimit::refused() > 0;
        }
        EXPECT_NE(started, refused) << allowed << " threads";
        if (!refused)
            break;
        EXPECT_TRUE(messager->errorString().contains(QLatin1String("No thread could be started")))
            << messager->errorString().toStdString();
        ASSERT_TRUE(start()) << messager->errorString().toStdString();
        Recorder recorder(messager.get());
        publisher.send(message(allowed));
        EXPECT_TRUE(recorder.waitFor(1));
    }
    EXPECT_GE(allowed, 3) << "reading, writing and failures have a thread each";
}

} // namespace kvx::test
