#include "support/HttpClient.h"
#include "support/ServerProcess.h"

#include <chrono>
#include <gtest/gtest.h>
#include <thread>

using kvx::test::HttpClient;
using kvx::test::HttpReply;
using kvx::test::jsonObject;
using kvx::test::jsonQuoted;
using kvx::test::ServerProcess;

namespace {

const std::string getRoles = R"({"service":"getroles"})";

std::string request(const std::string &service, const std::string &email)
{
    return jsonObject({ { "service", jsonQuoted(service) }, { "Email", jsonQuoted(email) } });
}

class ServerLogin : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        server = new ServerProcess;
        server->addUser("Anna@Example.com", "Anna Weiss", "anna's password");
        server->addUser("ben@example.com", "Ben Ito", "ben's password");
        server->addUser("nobody@example.com", "No Role", "secret", {});
    }
    static void TearDownTestSuite()
    {
        delete server;
        server = nullptr;
    }
    static ServerProcess *server;
};

ServerProcess *ServerLogin::server = nullptr;

TEST_F(ServerLogin, TheReplyHasEverythingAClientNeeds)
{
    HttpClient client(server->url());
    const HttpReply reply = client.login("  ANNA@example.COM ", "anna's password");
    EXPECT_EQ(reply.statusCode(), 1) << reply.body;
    EXPECT_EQ(reply.member("Name"), "Anna Weiss");
    EXPECT_EQ(reply.member("Email"), "anna@example.com") << "canonical, whatever was typed";
    EXPECT_EQ(reply.member("UserProductVersion"), "0");
    EXPECT_EQ(reply.member("BrokerPort"), "61616");
    EXPECT_NE(reply.body.find("\"BrokerPort\":\"61616\""), std::string::npos) << "a text";
    EXPECT_EQ(reply.member("KeepActive"), "60");
    EXPECT_NE(reply.member("Role").find("\"Name\":\"Estimator\""), std::string::npos);
    EXPECT_EQ(reply.member("Role").find("\"users\""), std::string::npos);
    EXPECT_NE(reply.body.find("\"companyAccount\":\"\""), std::string::npos);
    const std::string cookie = reply.header("set-cookie");
    EXPECT_EQ(cookie.rfind("kvxsid=", 0), 0U);
    EXPECT_NE(cookie.find("; Path=/kvx; HttpOnly; SameSite=Strict"), std::string::npos);
    EXPECT_EQ(cookie.find("Secure"), std::string::npos) << "it would not come back over plain HTTP";
    EXPECT_EQ(client.cookie().size(), 43U);
}

TEST_F(ServerLogin, AUserWithoutRoleHasAnEmptyOne)
{
    HttpClient client(server->url());
    const HttpReply reply = client.login("nobody@example.com", "secret");
    EXPECT_EQ(reply.statusCode(), 1);
    EXPECT_EQ(reply.member("Role"), "{}");
}

TEST_F(ServerLogin, BeforeLoginAndAfterLogoutTheAnswerIsNotLoggedIn)
{
    HttpClient client(server->url());
    EXPECT_EQ(client.post(getRoles).statusCode(), 2);
    client.login("ben@example.com", "ben's password");
    EXPECT_EQ(client.post(getRoles).statusCode(), 1);
    const std::string token = client.cookie();
    EXPECT_EQ(client.post(request("logout", "Ben@Example.com")).statusCode(), 1);
    EXPECT_EQ(client.cookie(), "") << "the cookie is taken back";
    EXPECT_EQ(client.post(getRoles).statusCode(), 2);
    client.setCookie(token);
    EXPECT_EQ(client.post(getRoles).statusCode(), 2) << "a token kept by somebody is dead";
    EXPECT_EQ(client.post(request("logout", "ben@example.com")).statusCode(), 1) << "again";
}

TEST_F(ServerLogin, LogoutOfAnotherUserIsRefused)
{
    HttpClient client(server->url());
    client.login("ben@example.com", "ben's password");
    EXPECT_EQ(client.post(request("logout", "anna@example.com")).statusCode(), 301);
    EXPECT_EQ(client.post(getRoles).statusCode(), 1);
}

TEST_F(ServerLogin, AnotherUsersEmailIsRefusedForAdministratorsToo)
{
    HttpClient client(server->url());
    client.login(server->adminEmail(), server->adminPassword());
    EXPECT_EQ(client.post(request("keepactive", "ben@example.com")).statusCode(), 301);
    EXPECT_EQ(client.post(request("keepactive", " ADMIN@localhost")).statusCode(), 1);
    EXPECT_EQ(client.post(R"({"service":"keepactive"})").statusCode(), 100);
}

TEST_F(ServerLogin, KeepActiveTellsTheEpoch)
{
    HttpClient client(server->url());
    client.login("ben@example.com", "ben's password");
    const HttpReply reply = client.post(request("keepactive", "ben@example.com"));
    EXPECT_EQ(reply.member("Epoch"), reply.header("kvx-epoch"));
}

TEST_F(ServerLogin, EveryLoginMakesANewTokenAndEndsTheOnePresented)
{
    HttpClient client(server->url());
    client.login("ben@example.com", "ben's password");
    const std::string first = client.cookie();
    client.login("ben@example.com", "ben's password");
    EXPECT_NE(client.cookie(), first);
    HttpClient thief(server->url());
    thief.setCookie(first);
    EXPECT_EQ(thief.post(getRoles).statusCode(), 2);
}

TEST_F(ServerLogin, ATokenMadeUpOpensNothing)
{
    HttpClient client(server->url());
    for (const std::string &token : { std::string("x"), std::string(43, 'A'),
             std::string(5000, 'A'), std::string("' OR 1=1 --"), std::string("%00") }) {
        client.setCookie(token);
        EXPECT_EQ(client.post(getRoles).statusCode(), 2) << token.substr(0, 20);
    }
}

TEST_F(ServerLogin, TheLongestIdleSessionMakesRoom)
{
    server->addUser("many@example.com", "Many", "pw");
    std::vector<std::unique_ptr<HttpClient>> clients;
    for (int i = 0; i < 4; ++i) {
        clients.push_back(std::make_unique<HttpClient>(server->url()));
        ASSERT_EQ(clients.back()
                      ->login("many@example.com", "pw", "device-" + std::to_string(i))
                      .statusCode(),
            1);
    }
    EXPECT_EQ(clients[0]->post(getRoles).statusCode(), 2);
    for (std::size_t i = 1; i < 4; ++i)
        EXPECT_EQ(clients[i]->post(getRoles).statusCode(), 1) << i;
}

TEST_F(ServerLogin, WrongPasswordsCountDownAndThenNoneIsLookedAt)
{
    server->addUser("throttled@example.com", "Throttled", "right");
    HttpClient client(server->url());
    for (const char *left : { "4", "3", "2", "1", "0" }) {
        const HttpReply reply = client.login("throttled@example.com", "wrong");
        EXPECT_EQ(reply.statusCode(), 235);
        EXPECT_EQ(reply.member("leftcount"), left);
        EXPECT_EQ(reply.member("message"),
            std::string("E-mail or password is wrong. Tries left: ") + left + ".");
    }
    const HttpReply locked = client.login("throttled@example.com", "right");
    EXPECT_EQ(locked.statusCode(), 235) << "the right one does not help any more";
    EXPECT_EQ(locked.member("leftcount"), "0");
    server->kill();
    server->start();
    HttpClient later(server->url());
    EXPECT_EQ(later.login("throttled@example.com", "right").statusCode(), 235)
        << "the count survives";
    EXPECT_EQ(later.login("ben@example.com", "ben's password").statusCode(), 1)
        << "others are not hindered";
}

TEST_F(ServerLogin, UnknownAccountsCountAlike)
{
    HttpClient client(server->url());
    for (const char *left : { "4", "3", "2", "1", "0", "0" }) {
        const HttpReply reply = client.login("ghost@example.com", "x");
        EXPECT_EQ(reply.statusCode(), 235);
        EXPECT_EQ(reply.member("leftcount"), left);
    }
}

TEST_F(ServerLogin, TheRightPasswordClearsTheCount)
{
    server->addUser("forgetful@example.com", "Forgetful", "right");
    HttpClient client(server->url());
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(client.login("forgetful@example.com", "wrong").member("leftcount"), "4");
        EXPECT_EQ(client.login("forgetful@example.com", "wrong").member("leftcount"), "3");
        EXPECT_EQ(client.login("forgetful@example.com", "right").statusCode(), 1);
    }
}

TEST_F(ServerLogin, TriesMadeAtTheSameTimeAreAllCounted)
{
    server->addUser("parallel@example.com", "Parallel", "right");
    std::atomic<int> looked { 0 };
    std::vector<std::thread> threads;
    for (int i = 0; i < 12; ++i) {
        threads.emplace_back([&looked] {
            HttpClient client(server->url());
            const HttpReply reply = client.login("parallel@example.com", "wrong");
            looked += reply.statusCode() == 235 && reply.member("leftcount") != "0";
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(looked, 4) << "five tries: 4, 3, 2, 1 and one of the zeros";
}

TEST_F(ServerLogin, ADisabledAccountIsToldOnlyAfterTheRightPassword)
{
    server->addUser("gone@example.com", "Gone", "right");
    HttpClient before(server->url());
    ASSERT_EQ(before.login("gone@example.com", "right").statusCode(), 1);
    ASSERT_EQ(server->command({ "user", "disable", "gone@example.com" }).exitCode, 0);
    EXPECT_EQ(before.post(getRoles).statusCode(), 2) << "his session has ended";
    HttpClient client(server->url());
    EXPECT_EQ(client.login("gone@example.com", "wrong").statusCode(), 235);
    EXPECT_EQ(client.login("gone@example.com", "right").statusCode(), 201);
    ASSERT_EQ(server->command({ "user", "enable", "gone@example.com" }).exitCode, 0);
    EXPECT_EQ(client.login("gone@example.com", "right").statusCode(), 1);
}

TEST_F(ServerLogin, ANewPasswordEndsTheSessions)
{
    server->addUser("changer@example.com", "Changer", "old");
    HttpClient client(server->url());
    ASSERT_EQ(client.login("changer@example.com", "old").statusCode(), 1);
    ASSERT_EQ(server->command({ "user", "password", "changer@example.com" }, "new\n").exitCode, 0);
    EXPECT_EQ(client.post(getRoles).statusCode(), 2);
    EXPECT_EQ(client.login("changer@example.com", "old").statusCode(), 235);
    EXPECT_EQ(client.login("changer@example.com", "new").statusCode(), 1);
}

TEST_F(ServerLogin, AnApiOfAnotherMajorNumberIsTooOld)
{
    HttpClient client(server->url());
    const auto login = [&client](const std::string &api) {
        return client.post(jsonObject({ { "service", "\"login\"" },
            { "Email", "\"ben@example.com\"" }, { "Password", "\"ben's password\"" },
            { "Version", "\"\"" }, { "FingerPrint", "\"\"" },
            { "serverApiVersion", jsonQuoted(api) }, { "productType", "\"\"" } }));
    };
    EXPECT_EQ(login("").statusCode(), 1);
    EXPECT_EQ(login("1").statusCode(), 1);
    EXPECT_EQ(login("1.7").statusCode(), 1);
    EXPECT_EQ(login("0.9").statusCode(), 203);
    EXPECT_EQ(login("2").statusCode(), 203);
    EXPECT_EQ(login("x").statusCode(), 203);
}

TEST_F(ServerLogin, TheProductVersionIsOnesOwnToSetOrAnAdministrators)
{
    const auto set = [](const std::string &email, const std::string &version) {
        return jsonObject({ { "service", "\"updateuserproductversion\"" },
            { "Email", jsonQuoted(email) }, { "UserProductVersion", version } });
    };
    HttpClient ben(server->url());
    ben.login("ben@example.com", "ben's password");
    EXPECT_EQ(ben.post(set("Ben@example.com", "2")).statusCode(), 1);
    EXPECT_EQ(ben.post(set("ben@example.com", "2")).statusCode(), 1) << "again";
    EXPECT_EQ(ben.post(set("anna@example.com", "2")).statusCode(), 300);
    EXPECT_EQ(ben.post(set("ben@example.com", "4")).statusCode(), 100);
    EXPECT_EQ(ben.post(set("ben@example.com", "1.5")).statusCode(), 100);
    EXPECT_EQ(ben.post(set("ben@example.com", "\"1\"")).statusCode(), 100);
    EXPECT_EQ(ben.login("ben@example.com", "ben's password").member("UserProductVersion"), "2");
    HttpClient admin(server->url());
    admin.login(server->adminEmail(), server->adminPassword());
    EXPECT_EQ(admin.post(set("ben@example.com", "3.0")).statusCode(), 1);
    EXPECT_EQ(admin.post(set("ghost@example.com", "1")).statusCode(), 302);
    EXPECT_EQ(ben.login("ben@example.com", "ben's password").member("UserProductVersion"), "3");
}

TEST_F(ServerLogin, RolesComeInOrderWithTheirUsersAndWithoutSecrets)
{
    HttpClient client(server->url());
    client.login("ben@example.com", "ben's password");
    const HttpReply reply = client.post(getRoles);
    std::size_t last = 0;
    for (const char *name : { "Administrator", "Chief estimator", "Estimator", "Reviewer" }) {
        const std::size_t at
            = reply.body.find("\"Name\":" + jsonQuoted(name) + ",\"AllProjectReadWrite\":");
        ASSERT_NE(at, std::string::npos) << name;
        EXPECT_GT(at, last);
        last = at;
    }
    EXPECT_NE(reply.body.find(
                  R"({"Name":"Anna Weiss","Email":"anna@example.com","UserProductVersion":0})"),
        std::string::npos);
    EXPECT_EQ(reply.body.find("argon2"), std::string::npos);
}

TEST(ServerSessions, AnIdleSessionEnds)
{
    ServerProcess::Options options;
    options.settings = { { "session.idle", "1200ms" } };
    ServerProcess server(options);
    HttpClient client(server.url());
    ASSERT_EQ(client.login(server.adminEmail(), server.adminPassword()).statusCode(), 1);
    const auto begin = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() - begin < std::chrono::milliseconds(2500)) {
        ASSERT_EQ(client.post(getRoles).statusCode(), 1) << "requests keep it alive";
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    EXPECT_EQ(client.post(getRoles).statusCode(), 2);
    EXPECT_EQ(client.post(request("logout", server.adminEmail())).statusCode(), 1);
}

TEST(ServerSessions, ASessionEndsAtItsAbsoluteEndHoweverBusy)
{
    ServerProcess::Options options;
    options.settings = { { "session.absolute", "1500ms" } };
    ServerProcess server(options);
    HttpClient client(server.url());
    ASSERT_EQ(client.login(server.adminEmail(), server.adminPassword()).statusCode(), 1);
    const auto begin = std::chrono::steady_clock::now();
    int status = 1;
    while (status == 1 && std::chrono::steady_clock::now() - begin < std::chrono::seconds(10)) {
        status = client.post(getRoles).statusCode();
        std::this_thread::sleep_for(std::chrono::milliseconds(5)); // below the rate of a session
    }
    EXPECT_EQ(status, 2);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1000));
}

TEST(ServerSessions, SurviveAKillAndAnOrderlyStop)
{
    ServerProcess server;
    HttpClient client(server.url());
    ASSERT_EQ(client.login(server.adminEmail(), server.adminPassword()).statusCode(), 1);
    server.kill();
    server.start();
    EXPECT_EQ(client.post(getRoles).statusCode(), 1);
    EXPECT_EQ(server.stop(), 0);
    server.start();
    EXPECT_EQ(client.post(getRoles).statusCode(), 1);
}

TEST(ServerSessions, ForeignProductsAreNotServed)
{
    ServerProcess::Options options;
    options.settings = { { "login.products", "Estimating, Tendering" } };
    ServerProcess server(options);
    HttpClient client(server.url());
    const auto login = [&](const std::string &product) {
        return client.post(
            jsonObject({ { "service", "\"login\"" }, { "Email", jsonQuoted(server.adminEmail()) },
                { "Password", jsonQuoted(server.adminPassword()) }, { "Version", "\"\"" },
                { "FingerPrint", "\"\"" }, { "serverApiVersion", "\"\"" },
                { "productType", jsonQuoted(product) } }));
    };
    EXPECT_EQ(login("Tendering").statusCode(), 1);
    const HttpReply refused = login("Other");
    EXPECT_EQ(refused.statusCode(), 205);
    EXPECT_EQ(refused.member("message"), "This server does not serve the product \"Other\".");
}

} // namespace
