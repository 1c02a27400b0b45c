#include "ChildProcess.h"
#include "Client.h"
#include "support/Broker.h"
#include "support/Watchdog.h"

#include <cms/CMSSecurityException.h>
#include <cms/IllegalStateException.h>
#include <cms/InvalidClientIdException.h>

#include <gmock/gmock.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <typeinfo>

using namespace kvx::test;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

// Every case runs on the plain connector and on the one that finds out the protocol by itself.
class Login : public testing::TestWithParam<bool> {
protected:
    static void SetUpTestSuite() { s_broker = std::make_unique<Broker>(); }
    static void TearDownTestSuite() { s_broker.reset(); }
    void TearDown() override
    {
        if (HasFailure())
            std::cerr << s_broker->logText();
    }
    static std::string uri() { return GetParam() ? s_broker->autoUri() : s_broker->uri(); }
    /// "" as soon as the client ID is let in, else the refusal after that time.
    static std::string refusalAfter(const std::string &id, std::chrono::seconds limit)
    {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        std::string refusal;
        do {
            refusal = failureOf([&] { Client again(uri(), id); });
        } while (!refusal.empty() && std::chrono::steady_clock::now() < deadline);
        return refusal;
    }
    const bool everything = std::getenv("KVX_TEST_LONG") != nullptr;
    static std::unique_ptr<Broker> s_broker;
};

std::unique_ptr<Broker> Login::s_broker;

INSTANTIATE_TEST_SUITE_P(Connectors, Login, testing::Bool(),
    [](const auto &info) { return info.param ? "automatic" : "plain"; });

const char clientId[] = "anna@example.org";

} // namespace

TEST_P(Login, secondConnectionUnderAClientIdIsRefusedInTheBrokersWords)
{
    Client first(uri(), clientId);
    const std::unique_ptr<cms::Connection> second(first.factory->createConnection());
    try {
        second->setClientID(clientId);
        FAIL() << "two connections under one client ID";
    } catch (const cms::CMSException &ex) {
        EXPECT_EQ(typeid(ex), typeid(cms::CMSException));
        EXPECT_THAT(ex.getMessage(),
            StartsWith(
                "Broker: localhost - Client: anna@example.org already connected from tcp://"));
    }
    first.open("login.first");
    first.publish("still there");
    EXPECT_EQ(first.receiveText(), "still there");
}

TEST_P(Login, refusedConnectionStaysRefusedAndClosesAtOnce)
{
    Client first(uri(), clientId);
    const std::unique_ptr<cms::Connection> second(first.factory->createConnection());
    const std::string refusal = failureOf([&] { second->setClientID(clientId); });
    EXPECT_EQ(failureOf([&] { second->createSession(); }), refusal);
    EXPECT_EQ(failureOf([&] { second->start(); }), refusal);
    EXPECT_LT(timeOf([&] { second->close(); }).count(), 1000);
}

TEST_P(Login, refusalIsNotReportedToTheExceptionListenerToo)
{
    Client first(uri(), clientId);
    Failures failures;
    const std::unique_ptr<cms::Connection> second(first.factory->createConnection());
    second->setExceptionListener(&failures);
    EXPECT_NE(failureOf([&] { second->setClientID(clientId); }), "");
    second->close();
    EXPECT_THAT(failures.texts(), testing::IsEmpty());
}

TEST_P(Login, clientIdGivenWithCreateConnectionIsRefusedThere)
{
    Client first(uri(), clientId);
    EXPECT_THAT(failureOf([&] { first.factory->createConnection("", "", clientId); }),
        HasSubstr("already connected from"));
}

TEST_P(Login, anotherProcessUnderTheClientIdIsRefused)
{
    Client first(uri(), clientId);
    ChildProcess other({ KVX_CLIENT_PROCESS, uri(), clientId });
    EXPECT_THAT(other.line(), HasSubstr("already connected from tcp://"));
}

TEST_P(Login, clientIdIsFreeAgainAtOnceAfterClose)
{
    for (int round = 0; round < 20; ++round) {
        Client client(uri(), clientId);
        client.connection->close();
    }
}

TEST_P(Login, clientIdIsFreeAgainAfterTheOtherProcessWasKilled)
{
    Watchdog::allow(150);
    for (int round = 0; round < (everything ? 50 : 1); ++round) {
        ChildProcess other({ KVX_CLIENT_PROCESS, uri(), clientId });
        ASSERT_EQ(other.line(), "in");
        other.kill();
        // The broker notices the closed socket a few milliseconds later.
        ASSERT_EQ(refusalAfter(clientId, std::chrono::seconds(5)), "") << "round " << round;
    }
}

TEST_P(Login, clientIdsOfProcessesThatStandStillAreHeldUntilTheBrokersLimitAndThenFree)
{
    Watchdog::allow(150);
    const std::string quick
        = "?wireFormat.MaxInactivityDuration=1500&wireFormat.MaxInactivityDurationInitalDelay=100";
    std::vector<std::unique_ptr<ChildProcess>> others;
    const auto idOf = [](int number) { return "still" + std::to_string(number); };
    for (int i = 0; i < (everything ? 50 : 2); ++i) {
        others.push_back(std::make_unique<ChildProcess>(
            std::vector<std::string> { KVX_CLIENT_PROCESS, uri() + quick, idOf(i) }));
        ASSERT_EQ(others.back()->line(), "in");
        others.back()->freeze();
        ASSERT_THAT(
            failureOf([&] { Client again(uri(), idOf(i)); }), HasSubstr("already connected from"));
    }
    for (std::size_t i = 0; i < others.size(); ++i)
        ASSERT_EQ(refusalAfter(idOf(static_cast<int>(i)), std::chrono::seconds(15)), "") << i;
}

TEST_P(Login, clientIdsDifferInCaseAndMayHoldAnyCharacter)
{
    Client lower(uri(), "berta@example.org");
    Client upper(uri(), "Berta@example.org");
    Client umlaut(uri(), "j\xc3\xb6rg \xf0\x9f\x98\x80%s@example.org");
    EXPECT_THAT(failureOf([] {
        Client again(uri(), "j\xc3\xb6rg \xed\xa0\xbd\xed\xb8\x80%s@example.org");
    }),
        HasSubstr("j\xc3\xb6rg \xed\xa0\xbd\xed\xb8\x80%s@example.org already connected"));
}

TEST_P(Login, clientIdOf65535BytesWorksAndALongerOneIsRefusedHere)
{
    Client client(uri(), std::string(65535, 'x'));
    EXPECT_EQ(failureOf([] { Client longer(uri(), std::string(65536, 'x')); }),
        "A header text is longer than 65535 bytes.");
}

TEST_P(Login, clientIdMustComeFirstAndMustNotBeEmpty)
{
    Client client(uri());
    EXPECT_THROW(client.connection->setClientID(""), cms::InvalidClientIdException);
    client.open("login.order");
    EXPECT_THROW(client.connection->setClientID("late"), cms::IllegalStateException);
    EXPECT_EQ(failureOf([&] { client.connection->setClientID("late"); }),
        "Cannot set client Id on a Connection already in use.");
    client.connection->close();
    EXPECT_THROW(client.connection->setClientID("later"), cms::IllegalStateException);
}

TEST_P(Login, connectionsWithoutClientIdDoNotDisturbEachOther)
{
    Client first(uri());
    Client second(uri());
    first.open("login.nameless");
    second.open("login.nameless");
    first.publish("to both");
    EXPECT_EQ(first.receiveText(), "to both");
    EXPECT_EQ(second.receiveText(), "to both");
}

TEST(LoginByName, everyAddressOfTheHostIsTried)
{
    Broker broker;
    Client client("tcp://localhost:" + std::to_string(broker.port()), clientId); // ::1 comes first
    client.open("login.name");
}

TEST(LoginRefusal, nobodyListening)
{
    int freePort = 0;
    {
        Broker broker;
        freePort = broker.port();
    }
    EXPECT_EQ(failureOf([&] { Client client("tcp://127.0.0.1:" + std::to_string(freePort)); }),
        "Connection refused");
}

TEST(LoginRefusal, addressesThatCannotBeUsed)
{
    EXPECT_EQ(
        failureOf([] { Client client(""); }), "No Matching Factory Registered for format := ");
    EXPECT_EQ(failureOf([] { Client client("foo://h:1"); }),
        "No Matching Factory Registered for format := foo");
    EXPECT_EQ(failureOf([] { Client client("tcp://a b:1"); }), "Invalid Connection Uri detected.");
    EXPECT_THAT(failureOf([] { Client client("tcp://127.0.0.1"); }), HasSubstr("no port"));
    EXPECT_THAT(
        failureOf([] { Client client("tcp://no-such-host.invalid:61616?soConnectTimeout=5000"); }),
        HasSubstr("no-such-host.invalid"));
}

TEST(LoginRefusal, brokerThatIsFullClosesTheConnection)
{
    Broker::Options options;
    options.maxConnections = 1;
    Broker broker(options);
    Client first(broker.uri(), "one");
    EXPECT_THAT(
        failureOf([&] { Client second(broker.uri(), "two"); }), HasSubstr("closed the connection"));
}

class Authentication : public testing::TestWithParam<bool> {
protected:
    static void SetUpTestSuite()
    {
        Broker::Options options;
        options.users = { { "estimator", "s3cret \"<&>'" }, { "server", "other" } };
        s_open = std::make_unique<Broker>(options);
        options.anonymous = false;
        s_closed = std::make_unique<Broker>(options);
    }
    static void TearDownTestSuite()
    {
        s_open.reset();
        s_closed.reset();
    }
    static std::string uri(const Broker &broker)
    {
        return GetParam() ? broker.autoUri() : broker.uri();
    }
    static std::unique_ptr<Broker> s_open;
    static std::unique_ptr<Broker> s_closed;
};

std::unique_ptr<Broker> Authentication::s_open;
std::unique_ptr<Broker> Authentication::s_closed;

INSTANTIATE_TEST_SUITE_P(Connectors, Authentication, testing::Bool(),
    [](const auto &info) { return info.param ? "automatic" : "plain"; });

TEST_P(Authentication, rightPasswordIsLetIn)
{
    Client client(uri(*s_closed), clientId, "estimator", "s3cret \"<&>'");
    client.open("login.user");
    client.publish("in");
    EXPECT_EQ(client.receiveText(), "in");
}

TEST_P(Authentication, wrongPasswordAndUnknownUserAreSecurityExceptions)
{
    // The broker now and then closes a refused connection before its answer is out.
    const auto refusal = [this](auto &broker, const char *user, const char *password) {
        for (int attempt = 0; attempt < 8; ++attempt) {
            try {
                Client client(uri(broker), clientId, user, password);
                return std::string("let in");
            } catch (const cms::CMSSecurityException &error) {
                return error.getMessage();
            } catch (const cms::CMSException &) {
            }
        }
        return std::string("no answer");
    };
    EXPECT_EQ(
        refusal(*s_closed, "estimator", "wrong"), "User name [estimator] or password is invalid.");
    EXPECT_EQ(refusal(*s_open, "nobody", "x"), "User name [nobody] or password is invalid.");
    Client right(uri(*s_closed), clientId, "server", "other"); // the refused ones hold no client ID
}

TEST_P(Authentication, withoutCredentialsOnlyWhereTheBrokerAllowsIt)
{
    Client client(uri(*s_open), clientId);
    EXPECT_THROW(Client(uri(*s_closed), clientId), cms::CMSSecurityException);
}

TEST_P(Authentication, credentialsStayInTheFactory)
{
    Client client(uri(*s_closed), "first", "estimator", "s3cret \"<&>'");
    const std::unique_ptr<cms::Connection> second(client.factory->createConnection());
    second->setClientID("second");
}
