#include "MessagingFixture.h"

#include "login/KVXCWLoginImpl.h"

#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCollaboration/KVXUser.h>
#include <QProcess>

namespace kvx::test {

/// The real login manager and messager in the registry; the server is scripted, the broker real.
class LoginWithBroker : public MessagingFixture {
protected:
    LoginWithBroker()
    {
        messager.reset();
        registry->setMessager(connection);
        registry->setLoginManager(manager);
        host.messager = nullptr;
        host.login = nullptr;
        host.network.answer(QStringLiteral("login"),
            { { QStringLiteral("statuscode"), 1 }, { QStringLiteral("Email"), email },
                { QStringLiteral("BrokerPort"), QString::number(broker().port()) } });
    }

    KVXErrorCode login()
    {
        return manager->login(email, QStringLiteral("p"), QStringLiteral("Pro"),
            QStringLiteral("1"), QStringLiteral("1"));
    }

    void publish(int number) { Publisher("com.orvane.kvx").send(message(number)); }

    KVXCollaborator *registry = KVXCollaborator::getInstance();
    KVXCWMessageImpl *connection = new KVXCWMessageImpl;
    KVXCWLoginImpl *manager = new KVXCWLoginImpl;
};

TEST_F(LoginWithBroker, aLoginListensOnTheTopic)
{
    ASSERT_EQ(login(), KVXOk) << connection->errorString().toStdString();
    Recorder recorder(connection);
    publish(1);
    ASSERT_TRUE(recorder.waitFor(1));
    EXPECT_TRUE(manager->logout(email));
    publish(2);
    EXPECT_EQ(recorder.count(), 1);
}

TEST_F(LoginWithBroker, aSecondLoginInTheSameProcessReplacesTheConnection)
{
    ASSERT_EQ(login(), KVXOk);
    ASSERT_EQ(login(), KVXOk) << connection->errorString().toStdString();
    Recorder recorder(connection);
    publish(1);
    publish(2);
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_TRUE(manager->logout(email));
    EXPECT_EQ(recorder.count(), 2);
}

TEST_F(LoginWithBroker, aUserConnectedInAnotherProcessGives204)
{
    QProcess other;
    other.start(QStringLiteral(KVX_MESSAGING_CLIENT),
        { QStringLiteral("hold"), QString::number(broker().port()), email });
    ASSERT_TRUE(other.waitForReadyRead(20000)) << other.errorString().toStdString();
    ASSERT_EQ(other.readLine(), "ready\n");
    host.takeLog();

    EXPECT_EQ(login(), KVXAlreadyConnected);
    ASSERT_NE(manager->currentUser(), nullptr);
    EXPECT_EQ(manager->currentUser()->email(), email);
    EXPECT_TRUE(host.logged(40000,
        QStringLiteral("[login]start messager failed! message:") + connection->errorString()));
    EXPECT_TRUE(host.logged(40000,
        QStringLiteral("[login]server login failed!code:204, msg:")
            + ErrorCodeToString(KVXAlreadyConnected)));

    other.kill(); // its sockets are closed by the system
    ASSERT_TRUE(other.waitForFinished(10000));
    EXPECT_TRUE(waitUntil([this] { return login() == KVXOk; }, 2000))
        << connection->errorString().toStdString();
}

TEST_F(LoginWithBroker, aBrokerAwayGives0WithTheUserSet)
{
    host.network.answer(QStringLiteral("login"),
        { { QStringLiteral("statuscode"), 1 }, { QStringLiteral("Email"), email },
            { QStringLiteral("BrokerPort"), QStringLiteral("1") } });
    Recorder recorder(connection);
    EXPECT_EQ(login(), KVXFailed);
    EXPECT_NE(manager->currentUser(), nullptr);
    EXPECT_TRUE(recorder.waitFor(1));
}

TEST_F(LoginWithBroker, logoutDuringADeliveryReturns)
{
    ASSERT_EQ(login(), KVXOk);
    Recorder arrivals(connection);
    int handled = 0;
    Receiver blocking(
        connection, Qt::BlockingQueuedConnection, [&](const QJsonObject &) { ++handled; });
    publish(1);
    ASSERT_TRUE(arrivals.waitFor(1));
    EXPECT_LT(elapsedMs([this] { EXPECT_TRUE(manager->logout(email)); }), SecondMs);
    EXPECT_EQ(handled, 0);
}

TEST_F(LoginWithBroker, loginAndLogoutFromInsideAReceiverReturn)
{
    for (const Qt::ConnectionType type : { Qt::BlockingQueuedConnection, Qt::QueuedConnection }) {
        ASSERT_EQ(login(), KVXOk) << connection->errorString().toStdString();
        int loginTook = -1;
        int logoutTook = -1;
        Receiver receiver(connection, type, [&](const QJsonObject &) {
            if (loginTook >= 0)
                return;
            loginTook = elapsedMs(
                [this] { EXPECT_EQ(login(), KVXOk) << connection->errorString().toStdString(); });
            logoutTook = elapsedMs([this] { EXPECT_TRUE(manager->logout(email)); });
        });
        publish(1);
        ASSERT_TRUE(waitUntil([&] { return logoutTook >= 0; }));
        EXPECT_LT(loginTook, SecondMs);
        EXPECT_LT(logoutTook, SecondMs);
    }
    EXPECT_EQ(login(), KVXOk) << connection->errorString().toStdString();
}

TEST_F(LoginWithBroker, theRegistryMayDropTheMessagerDuringADelivery)
{
    ASSERT_EQ(login(), KVXOk);
    Recorder arrivals(connection);
    Receiver blocking(connection, Qt::BlockingQueuedConnection, [](const QJsonObject &) {});
    publish(1);
    ASSERT_TRUE(arrivals.waitFor(1));
    EXPECT_LT(elapsedMs([this] { registry->setMessager(nullptr); }), SecondMs);
}

} // namespace kvx::test
