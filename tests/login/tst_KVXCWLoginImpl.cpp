#include "LoginFixture.h"

#include "frame/KVXServerInfo.h"

#include <KVXCollaboration/KVXRole.h>
#include <KVXCollaboration/KVXUser.h>
#include <KVXCommon/KVXLog.h>

namespace kvx::test {

class KVXCWLoginImplTest : public LoginFixture { };

TEST_F(KVXCWLoginImplTest, beginsWithoutAUser)
{
    EXPECT_EQ(manager->currentUser(), nullptr);
    EXPECT_EQ(manager->leftCount(), 0);
    EXPECT_EQ(manager->companyAccount(), QString());
}

TEST_F(KVXCWLoginImplTest, loginSetsTheUserBeforeTheMessagerStarts)
{
    class Messager : public FakeMessage {
    public:
        bool start() override
        {
            const KVXUser *user = KVXCollaborator::getInstance()->loginManager()->currentUser();
            emailAtStart = user ? user->email() : QString();
            return true;
        }
        QString emailAtStart;
    };
    auto *messager = new Messager;
    KVXCollaborator::getInstance()->setMessager(messager);

    EXPECT_EQ(login(), KVXOk);
    EXPECT_EQ(messager->emailAtStart, QStringLiteral("anna@example.com"));
}

TEST_F(KVXCWLoginImplTest, aLoginIsLogged)
{
    EXPECT_EQ(login(), KVXOk);
    expectLog({ { Info, QStringLiteral("KVX server login successed.") } });
}

TEST_F(KVXCWLoginImplTest, serverLoginLogsNothingOfItsOwn)
{
    const auto serverLogin = [this] {
        return manager->serverLogin(QStringLiteral("anna@example.com"), QStringLiteral("p"),
            QStringLiteral("Pro"), QStringLiteral("4.2"), QStringLiteral("2"));
    };
    EXPECT_EQ(serverLogin(), KVXOk);
    host.network.answer(QStringLiteral("login"), json(R"({"statuscode": 300})"));
    EXPECT_EQ(serverLogin(), KVXNotAllowed);
    host.unconfigure();
    EXPECT_EQ(serverLogin(), KVXFailed);
    expectLog({});
}

TEST_F(KVXCWLoginImplTest, aLoginWithoutServerFails)
{
    host.unconfigure();
    EXPECT_EQ(login(), KVXFailed);
    expectLog({ { Error,
        QStringLiteral("[login]server login failed!code:0, msg:")
            + ErrorCodeToString(KVXFailed) } });
    EXPECT_FALSE(manager->logout(QStringLiteral("Anna@example.com")));
    expectLog({ { Warn, QStringLiteral("User logout failed: username=Anna@example.com") } });
}

TEST_F(KVXCWLoginImplTest, aRefusalIsPassedOn)
{
    ASSERT_EQ(login(), KVXOk);
    const KVXUser *before = manager->currentUser();
    host.takeLog();

    host.network.answer(QStringLiteral("login"),
        json(R"({"statuscode": 203, "Name": "X", "companyAccount": "x", "leftcount": 9})"));
    EXPECT_EQ(login(), KVXClientTooOld);

    expectLog({ { Error,
        QStringLiteral("[login]server login failed!code:203, msg:")
            + ErrorCodeToString(KVXClientTooOld) } });
    EXPECT_EQ(manager->currentUser(), before);
    EXPECT_EQ(manager->companyAccount(), QStringLiteral("weiss-bau"));
    EXPECT_EQ(manager->leftCount(), 0);
    EXPECT_EQ(host.messager->starts, 1);
}

TEST_F(KVXCWLoginImplTest, aWrongPasswordTellsTheTriesLeft)
{
    host.network.answer(QStringLiteral("login"), json(R"({"statuscode": 235, "leftcount": 3.9})"));
    EXPECT_EQ(login(), KVXLoginRefused);

    EXPECT_EQ(manager->leftCount(), 3);
    EXPECT_EQ(manager->currentUser(), nullptr);
    EXPECT_EQ(host.messager->starts, 0);
    expectLog({ { Error,
        QStringLiteral("[login]server login failed!code:235, msg:")
            + ErrorCodeToString(KVXLoginRefused) } });
}

TEST_F(KVXCWLoginImplTest, theTriesLeftStayUntilTheNextWrongPassword)
{
    host.network.answer(QStringLiteral("login"), json(R"({"statuscode": 235, "leftcount": 2})"));
    login();
    host.network.answer(QStringLiteral("login"), accepted());
    login();
    EXPECT_EQ(manager->leftCount(), 2);

    host.network.answer(QStringLiteral("login"), json(R"({"statuscode": 235})"));
    login();
    EXPECT_EQ(manager->leftCount(), 0);
}

TEST_F(KVXCWLoginImplTest, aMessagerAlreadyConnectedGives204WithTheUserSet)
{
    host.messager->startResult = false;
    host.messager->error = QStringLiteral(
        "Broker: localhost - Client: anna%1@example.com already connected from tcp://10.0.0.7:4");
    EXPECT_EQ(login(), KVXAlreadyConnected);

    ASSERT_NE(manager->currentUser(), nullptr);
    EXPECT_EQ(manager->currentUser()->name(), QStringLiteral("Anna Weiss"));
    expectLog(
        { { Error,
              QStringLiteral("[login]start messager failed! message:") + host.messager->error },
            { Error,
                QStringLiteral("[login]server login failed!code:204, msg:")
                    + ErrorCodeToString(KVXAlreadyConnected) } });
}

TEST_F(KVXCWLoginImplTest, aMessagerThatCannotStartGives0WithTheUserSet)
{
    host.messager->startResult = false;
    for (const char *error : { "Connection refused", "Already Connected", "" }) {
        host.messager->error = QLatin1String(error);
        EXPECT_EQ(login(), KVXFailed);

        ASSERT_NE(manager->currentUser(), nullptr);
        EXPECT_EQ(manager->companyAccount(), QStringLiteral("weiss-bau"));
        expectLog(
            { { Error,
                  QStringLiteral("[login]start messager failed! message:") + host.messager->error },
                { Error,
                    QStringLiteral("[login]server login failed!code:0, msg:")
                        + ErrorCodeToString(KVXFailed) } });
    }
}

TEST_F(KVXCWLoginImplTest, withoutAMessagerTheLoginFails)
{
    KVXCollaborator::getInstance()->setMessager(nullptr);
    host.messager = nullptr;

    EXPECT_EQ(login(), KVXFailed);
    EXPECT_NE(manager->currentUser(), nullptr);
    EXPECT_TRUE(manager->logout(QStringLiteral("anna@example.com")));
}

TEST_F(KVXCWLoginImplTest, logoutStopsTheMessager)
{
    ASSERT_EQ(login(), KVXOk);
    host.takeLog();
    const KVXUser *user = manager->currentUser();

    EXPECT_TRUE(manager->logout(QStringLiteral("anna@example.com")));

    EXPECT_EQ(host.messager->stops, 1);
    expectLog({ { Info, QStringLiteral("User logout successed: username=anna@example.com") } });
    EXPECT_EQ(manager->currentUser(), user);
    EXPECT_EQ(manager->companyAccount(), QStringLiteral("weiss-bau"));
    EXPECT_TRUE(KVXServerInfo::getInstance()->isConfigured());
}

TEST_F(KVXCWLoginImplTest, aRefusedLogoutLeavesTheMessagerRunning)
{
    host.network.answer(QStringLiteral("logout"), json(R"({"statuscode": 2})"));

    EXPECT_FALSE(manager->logout(QStringLiteral("anna@example.com")));

    EXPECT_EQ(host.messager->stops, 0);
    expectLog({ { Warn, QStringLiteral("User logout failed: username=anna@example.com") } });
}

TEST_F(KVXCWLoginImplTest, aPlaceholderInANameIsLoggedAsItIs)
{
    EXPECT_TRUE(manager->logout(QStringLiteral("%1%2@example.com")));
    expectLog({ { Info, QStringLiteral("User logout successed: username=%1%2@example.com") } });
}

TEST_F(KVXCWLoginImplTest, nothingIsLoggedWhileTheLogIsOff)
{
    KVXLog::shutdown();
    EXPECT_EQ(login(), KVXOk);
    expectLog({});
}

TEST_F(KVXCWLoginImplTest, usersOfEarlierLoginsStayAlive)
{
    ASSERT_EQ(login(), KVXOk);
    const KVXUser *first = manager->currentUser();
    QJsonObject second = accepted();
    second.insert(QStringLiteral("Name"), QStringLiteral("Bernd Kern"));
    host.network.answer(QStringLiteral("login"), second);
    ASSERT_EQ(login(), KVXOk);

    EXPECT_NE(manager->currentUser(), first);
    EXPECT_EQ(first->name(), QStringLiteral("Anna Weiss"));
    EXPECT_TRUE(first->role()->isAdministrator());
    EXPECT_EQ(manager->currentUser()->name(), QStringLiteral("Bernd Kern"));
}

TEST_F(KVXCWLoginImplTest, theServerSearchIsReportedAsASignal)
{
    QStringList reports;
    QObject::connect(
        manager, &KVXCWLogin::searchServerProgress, [&](const QString &text, int done, int total) {
            reports.append(QStringLiteral("%1 %2/%3").arg(text).arg(done).arg(total));
        });
    manager->searchServer({ QStringLiteral("a"), QStringLiteral("b") }, 8090);

    EXPECT_EQ(host.network.calls, QStringList { QStringLiteral("searchServer") });
    EXPECT_EQ(
        reports, (QStringList { QStringLiteral("a:8090 1/2"), QStringLiteral("b:8090 2/2") }));
}

TEST_F(KVXCWLoginImplTest, thePassThroughsReachTheTransport)
{
    host.network.serverVersionResult = QStringLiteral("1,2");
    host.network.pingResult = true;

    EXPECT_EQ(manager->serverVersion(QStringLiteral("h"), 1), QStringLiteral("1,2"));
    EXPECT_TRUE(manager->ping(QStringLiteral("i"), 2));
    manager->cancelSearch();

    EXPECT_EQ(host.network.calls,
        (QStringList { QStringLiteral("serverVersion h 1"), QStringLiteral("ping i 2"),
            QStringLiteral("cancelSearch") }));
}

TEST_F(KVXCWLoginImplTest, proxySettingsReachEndpointAndTransport)
{
    manager->setProxy(1, QStringLiteral("proxy"), 3128, QStringLiteral("u"), QStringLiteral("p"));

    const KVXNetworkProxy &stored = KVXServerInfo::getInstance()->proxy();
    EXPECT_EQ(stored.type, 1);
    EXPECT_EQ(stored.host, QStringLiteral("proxy"));
    EXPECT_EQ(stored.port, 3128);
    EXPECT_EQ(stored.user, QStringLiteral("u"));
    EXPECT_EQ(stored.password, QStringLiteral("p"));
    ASSERT_EQ(host.network.proxies.size(), 1);
    EXPECT_EQ(host.network.proxies[0].port, 3128);
}

TEST_F(KVXCWLoginImplTest, setServerWithProxySetsBoth)
{
    manager->setServer(QStringLiteral("h"), QStringLiteral("80"), 2, QStringLiteral("socks"), 1080,
        QStringLiteral("u"), QStringLiteral("p"));

    EXPECT_EQ(KVXServerInfo::getInstance()->host(), QStringLiteral("h"));
    EXPECT_EQ(KVXServerInfo::getInstance()->port(), QStringLiteral("80"));
    EXPECT_EQ(KVXServerInfo::getInstance()->proxy().type, 2);
    EXPECT_EQ(KVXServerInfo::getInstance()->proxy().host, QStringLiteral("socks"));
}

} // namespace kvx::test
