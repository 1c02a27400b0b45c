#include "LoginFixture.h"

#include "frame/KVXServerInfo.h"
#include "login/ComputerName.h"

#include <KVXCollaboration/KVXRole.h>
#include <KVXCollaboration/KVXUser.h>

// What goes over the wire at login and logout, and what is taken from the replies.

namespace kvx::test {

class LoginRequests : public LoginFixture { };

TEST_F(LoginRequests, loginSendsTheEmailLowerCased)
{
    login(QStringLiteral("Anna.WEISS@Example.com"));

    QJsonObject expected = json(R"({"service": "login", "Email": "anna.weiss@example.com",
        "Version": "4.2", "serverApiVersion": "2", "productType": "Pro"})");
    expected.insert(QStringLiteral("Password"), QStringLiteral("pass wörd"));
    expected.insert(QStringLiteral("FingerPrint"), kvx::computerName());
    EXPECT_EQ(host.network.takeRequest(), expected);
    EXPECT_EQ(host.network.lastUrl(), QStringLiteral("http://127.0.0.1:8090/kvx/service"));
    EXPECT_EQ(host.network.lastReceiver(), nullptr);
    EXPECT_TRUE(host.network.lastProgress() == nullptr);
    expectNoRequest(host);
}

TEST_F(LoginRequests, logoutSendsTheEmailUnchanged)
{
    manager->logout(QStringLiteral("Anna.WEISS@Example.com"));

    EXPECT_EQ(host.network.takeRequest(),
        json(R"({"service": "logout", "Email": "Anna.WEISS@Example.com"})"));
}

TEST_F(LoginRequests, theEmailIsKeptAsTyped)
{
    EXPECT_EQ(manager->loginEmail(), QString());
    ASSERT_EQ(login(QStringLiteral("Anna.WEISS@Example.com")), KVXOk);
    EXPECT_EQ(manager->loginEmail(), QStringLiteral("Anna.WEISS@Example.com"));
}

TEST_F(LoginRequests, aRefusedLoginLeavesTheEmailOfTheEarlierOne)
{
    ASSERT_EQ(login(QStringLiteral("Anna@Example.com")), KVXOk);
    host.network.answer(QStringLiteral("login"), json(R"({"statuscode": 235, "leftcount": 2})"));
    ASSERT_EQ(login(QStringLiteral("Ben@Example.com")), KVXLoginRefused);
    host.network.failPost(QStringLiteral("login"));
    ASSERT_EQ(login(QStringLiteral("Eva@Example.com")), KVXFailed);
    EXPECT_EQ(manager->loginEmail(), QStringLiteral("Anna@Example.com"));
}

TEST_F(LoginRequests, logoutBeforeAnyLoginPostsTheRequest)
{
    EXPECT_TRUE(manager->logout(QStringLiteral("anna@example.com")));
    EXPECT_EQ(host.network.takeServices(), QStringList { QStringLiteral("logout") });
}

TEST_F(LoginRequests, theServerAddressIsTakenAnewForEachRequest)
{
    login();
    manager->setServer(QStringLiteral("other"), QStringLiteral("81"));
    login();

    EXPECT_EQ(host.network.lastUrl(), QStringLiteral("http://other:81/kvx/service"));
}

TEST_F(LoginRequests, nothingIsSentWithoutHostOrPort)
{
    for (const auto &[address, port] :
        { std::pair { "127.0.0.1", "" }, std::pair { "", "8090" } }) {
        manager->setServer(QLatin1String(address), QLatin1String(port));
        EXPECT_EQ(login(), KVXFailed);
        EXPECT_FALSE(manager->logout(QStringLiteral("anna@example.com")));
    }
    expectNoRequest(host);
    EXPECT_EQ(host.messager->starts, 0);
    EXPECT_EQ(host.messager->stops, 0);
}

TEST_F(LoginRequests, theUserIsWhatTheServerAnswered)
{
    ASSERT_EQ(login(), KVXOk);

    const KVXUser *user = manager->currentUser();
    ASSERT_NE(user, nullptr);
    EXPECT_EQ(user->name(), QStringLiteral("Anna Weiss"));
    EXPECT_EQ(user->email(), QStringLiteral("anna@example.com"));
    EXPECT_EQ(user->password(), QStringLiteral("pass wörd"));
    EXPECT_EQ(user->version(), KVXUser::Standard);
    ASSERT_NE(user->role(), nullptr);
    EXPECT_EQ(user->role()->name(), QStringLiteral("Estimators"));
    EXPECT_TRUE(user->role()->isAdministrator());
    EXPECT_EQ(manager->companyAccount(), QStringLiteral("weiss-bau"));
}

TEST_F(LoginRequests, aReplyWithoutKeysGivesAnEmptyUserWithoutRights)
{
    host.network.answer(QStringLiteral("login"), json(R"({"statuscode": 1})"));
    ASSERT_EQ(login(), KVXOk);

    const KVXUser *user = manager->currentUser();
    ASSERT_NE(user, nullptr);
    EXPECT_EQ(user->name(), QString());
    EXPECT_EQ(user->email(), QString());
    EXPECT_EQ(user->version(), KVXUser::UnknownVersion);
    ASSERT_NE(user->role(), nullptr);
    EXPECT_FALSE(user->role()->isAdministrator());
    EXPECT_EQ(manager->companyAccount(), QString());
}

TEST_F(LoginRequests, keysOfAnotherTypeReadAsEmpty)
{
    host.network.answer(
        QStringLiteral("login"), json(R"({"statuscode": 1, "Name": 7, "Email": ["anna@example.com"],
            "UserProductVersion": "2", "Role": "Administrator", "companyAccount": {},
            "BrokerPort": 61700})"));
    ASSERT_EQ(login(), KVXOk);

    EXPECT_EQ(manager->currentUser()->name(), QString());
    EXPECT_EQ(manager->currentUser()->email(), QString());
    EXPECT_EQ(manager->currentUser()->version(), KVXUser::UnknownVersion);
    EXPECT_FALSE(manager->currentUser()->role()->isAdministrator());
    EXPECT_EQ(manager->companyAccount(), QString());
    EXPECT_EQ(host.messager->brokerURI(), QStringLiteral("tcp://127.0.0.1:61616"));
}

TEST_F(LoginRequests, aProductVersionOutsideTheEnumerationIsUnknown)
{
    for (const QJsonValue &version : { QJsonValue(-1), QJsonValue(4), QJsonValue(1e300) }) {
        QJsonObject reply = accepted();
        reply.insert(QStringLiteral("UserProductVersion"), version);
        host.network.answer(QStringLiteral("login"), reply);
        ASSERT_EQ(login(), KVXOk);
        EXPECT_EQ(manager->currentUser()->version(), KVXUser::UnknownVersion);
    }
}

TEST_F(LoginRequests, theMessagerGetsTheBrokerPortOfTheReply)
{
    ASSERT_EQ(login(), KVXOk);

    EXPECT_EQ(host.messager->brokerURI(), QStringLiteral("tcp://127.0.0.1:61700"));
    EXPECT_EQ(host.messager->topic(), QStringLiteral("com.orvane.kvx"));
    EXPECT_EQ(host.messager->starts, 1);
}

TEST_F(LoginRequests, aReplyWithoutBrokerPortKeepsTheDefaultOne)
{
    for (const char *reply : { R"({"statuscode": 1})", R"({"statuscode": 1, "BrokerPort": ""})",
             R"({"statuscode": 1, "BrokerPort": null})" }) {
        host.network.answer(QStringLiteral("login"), json(reply));
        ASSERT_EQ(login(), KVXOk);
        EXPECT_EQ(host.messager->brokerURI(), QStringLiteral("tcp://127.0.0.1:61616"));
    }
}

TEST_F(LoginRequests, aReplyWithoutBrokerPortKeepsTheOneOfAnEarlierLogin)
{
    ASSERT_EQ(login(), KVXOk);
    host.network.answer(QStringLiteral("login"), json(R"({"statuscode": 1})"));
    ASSERT_EQ(login(), KVXOk);

    EXPECT_EQ(host.messager->brokerURI(), QStringLiteral("tcp://127.0.0.1:61700"));
}

TEST_F(LoginRequests, theStatusTruncatesAndMissingIsZero)
{
    const struct {
        const char *reply;
        int code;
    } cases[] = {
        { R"({"statuscode": 1.0})", 1 },
        { R"({"statuscode": 1.9})", 1 },
        { R"({"statuscode": 0.5})", 0 },
        { R"({"statuscode": -0.9})", 0 },
        { R"({"statuscode": "1"})", 0 },
        { R"({"statuscode": null})", 0 },
        { R"({"statuscode": true})", 0 },
        { R"({"statuscode": [1]})", 0 },
        { R"({"statuscode": 1e300})", 2147483647 },
        { R"({"statuscode": -1e300})", -2147483647 - 1 },
        { R"({"statuscode": 301})", 301 },
        { R"({})", 0 },
        { R"({"data": {"statuscode": 1}})", 0 },
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.reply);
        host.network.answer(QStringLiteral("login"), json(one.reply));
        host.network.answer(QStringLiteral("logout"), json(one.reply));
        EXPECT_EQ(int(login()), one.code);
        EXPECT_EQ(manager->logout(QStringLiteral("anna@example.com")), one.code == 1);
    }
}

TEST_F(LoginRequests, anEmptyReplyFailsAsARefusedOne)
{
    host.network.answer(QStringLiteral("login"), QJsonObject());
    EXPECT_EQ(login(), KVXFailed);
    host.network.failPost(QStringLiteral("login"));
    EXPECT_EQ(login(), KVXFailed);
    EXPECT_EQ(manager->currentUser(), nullptr);
}

TEST_F(LoginRequests, theStatusCountsAlsoWhenTheTransportReportsAFailure)
{
    host.network.handle(QStringLiteral("login"), [](const QJsonObject &, QJsonObject &reply) {
        reply = accepted();
        return false;
    });
    EXPECT_EQ(login(), KVXOk);
}

} // namespace kvx::test
