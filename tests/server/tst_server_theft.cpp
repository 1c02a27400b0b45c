#include "ContractFile.h"

#include "support/HttpClient.h"
#include "support/ServerProcess.h"
#include "support/WaitFor.h"
#include "support/Watchdog.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <set>

// A session's cookie in the hands of somebody else: what it still opens after the session's end, by
// whatever cause, and whether a cookie can be chosen for somebody before he logs in.

using namespace kvx::test;

namespace {

constexpr char anna[] = "anna@example.com";
constexpr char ben[] = "ben@example.com";
constexpr char password[] = "stolen 1";
const std::vector<std::string> elsewhere { "X-Forwarded-For: 10.9.8.7" };

class SessionTheft : public testing::Test {
protected:
    explicit SessionTheft(std::map<std::string, std::string> settings = {})
        : server(withProxy(std::move(settings)))
    {
        server.addUser(anna, "Anna Weiss", password);
        server.addUser(ben, "Ben Ito", password);
        EXPECT_EQ(victim.login(anna, password).statusCode(), 1);
        cookie = victim.cookie();
    }

    static ServerProcess::Options withProxy(std::map<std::string, std::string> settings)
    {
        ServerProcess::Options options;
        options.settings = std::move(settings);
        options.settings.emplace("trusted.proxies", "127.0.0.1");
        return options;
    }

    static std::string request(const std::string &service, const std::string &email)
    {
        return jsonObject({ { "service", jsonQuoted(service) }, { "Email", jsonQuoted(email) } });
    }

    /// The answer of that service to whoever shows the cookie, from another machine.
    int steal(const std::string &service = "keepactive", const std::string &email = anna)
    {
        HttpClient thief(server.url());
        thief.setCookie(cookie);
        return thief.postTo("/kvx/service", request(service, email), "application/json", elsewhere)
            .statusCode();
    }

    /// With the stolen cookie, every service that is on record; how many were asked.
    int expectNothingOpens()
    {
        static const std::set<std::string> open { "login", "logout", "comresource/version",
            "submit" };
        HttpClient thief(server.url());
        int asked = 0;
        for (const std::string &service : contractServices()) {
            if (open.count(service) > 0)
                continue;
            const Exchange exchange = exchangesOf(service).front();
            thief.setCookie(cookie);
            const std::string json = filledJson(exchange["request"]);
            const HttpReply reply = service == "upload"
                ? thief.upload(json, "bytes")
                : thief.postTo(exchange.path(), json, "application/json", elsewhere);
            EXPECT_EQ(reply.statusCode(), 2) << service << ' ' << reply.json();
            ++asked;
        }
        return asked;
    }

    ServerProcess server;
    HttpClient victim { server.url() };
    std::string cookie;
};

TEST_F(SessionTheft, ACookieIsTheSessionAndNobodyElses)
{
    EXPECT_EQ(steal(), 1) << "whoever has a live cookie has the session";
    EXPECT_EQ(steal("keepactive", ben), 301) << "and is its user, whatever he says";
    EXPECT_EQ(steal("projectlistsynctolocal", "admin@localhost"), 301);
    EXPECT_EQ(steal("updateroles"), 300);
}

TEST_F(SessionTheft, NothingOpensAfterTheEndWhateverEndedIt)
{
    Watchdog::allow(120);
    const std::pair<const char *, std::function<void()>> ends[] {
        { "logout", [&] { EXPECT_EQ(victim.post(request("logout", anna)).statusCode(), 1); } },
        { "a login in its place",
            [&] { EXPECT_EQ(victim.login(anna, password).statusCode(), 1); } },
        { "a fourth session",
            [&] {
                std::vector<std::unique_ptr<HttpClient>> others;
                for (int i = 0; i < 3; ++i) {
                    others.push_back(std::make_unique<HttpClient>(server.url()));
                    others.back()->login(anna, password, "device " + std::to_string(i));
                }
            } },
        { "a new password",
            [&] {
                EXPECT_EQ(server.command({ "user", "password", anna }, std::string(password) + '\n')
                              .exitCode,
                    0);
            } },
        { "the account's disabling",
            [&] {
                EXPECT_EQ(server.command({ "user", "disable", anna }).exitCode, 0);
                EXPECT_EQ(steal(), 2);
                EXPECT_EQ(server.command({ "user", "enable", anna }).exitCode, 0);
            } },
        { "the server's restart after a logout",
            [&] {
                EXPECT_EQ(victim.post(request("logout", anna)).statusCode(), 1);
                server.kill();
                server.start();
            } },
    };
    int asked = 0;
    for (const auto &[what, end] : ends) {
        SCOPED_TRACE(what);
        ASSERT_EQ(victim.login(anna, password).statusCode(), 1);
        cookie = victim.cookie();
        ASSERT_EQ(steal(), 1);
        end();
        asked += expectNothingOpens();
        HttpClient back(server.url());
        ASSERT_EQ(back.login(anna, password, "desk").statusCode(), 1);
        EXPECT_EQ(steal(), 2) << "her next session does not bring the last one back";
        EXPECT_EQ(steal("logout", ben), 1) << "and the thief ends nobody's";
        EXPECT_EQ(back.post(request("keepactive", anna)).statusCode(), 1);
    }
    std::printf("%d requests with a dead cookie\n", asked);
    EXPECT_GT(asked, 250);
}

TEST_F(SessionTheft, ACookieChosenBeforeTheLoginIsNeverTheSessions)
{
    const std::string plausible(43, 'A');
    for (const std::string &chosen : { plausible, std::string("kvx"), cookie }) {
        cookie = chosen;
        HttpClient lured(server.url());
        lured.setCookie(chosen);
        ASSERT_EQ(lured.login(ben, password).statusCode(), 1);
        EXPECT_NE(lured.cookie(), chosen);
        EXPECT_EQ(lured.cookie().size(), plausible.size());
        EXPECT_EQ(steal("keepactive", ben), 2);
        EXPECT_EQ(steal("keepactive", anna), 2) << "what was presented is over, whose ever";
        EXPECT_EQ(lured.post(request("keepactive", ben)).statusCode(), 1);
    }
}

TEST_F(SessionTheft, ARefusedLoginNeitherMakesNorEndsASession)
{
    HttpClient guesser(server.url());
    guesser.setCookie(cookie);
    const HttpReply reply = guesser.login(ben, "a guess");
    EXPECT_EQ(reply.statusCode(), 235);
    EXPECT_EQ(reply.header("set-cookie"), "");
    EXPECT_EQ(victim.post(request("keepactive", anna)).statusCode(), 1);
}

TEST_F(SessionTheft, OfSeveralCookiesOnlyTheServersOwnCounts)
{
    HttpClient mixed(server.url());
    const auto ask = [&](const std::string &cookies) {
        return mixed
            .postTo("/kvx/service", request("keepactive", anna), "application/json",
                { "Cookie: " + cookies })
            .statusCode();
    };
    EXPECT_EQ(ask("other=1; kvxsid=" + cookie + "; more=2"), 1);
    EXPECT_EQ(ask("KVXSID=" + cookie), 2) << "names of cookies are exact";
    EXPECT_EQ(ask("xkvxsid=" + cookie), 2);
    EXPECT_EQ(ask("kvxsid=" + cookie + "x"), 2);
    EXPECT_EQ(ask("kvxsid=" + cookie.substr(1)), 2);
    EXPECT_EQ(ask("x=\"kvxsid=" + cookie + "\""), 2);
}

class SessionTheftIdle : public SessionTheft {
protected:
    SessionTheftIdle()
        : SessionTheft({ { "session.idle", "1500ms" } })
    {
    }
};

TEST_F(SessionTheftIdle, NothingOpensOnceItHasRunOut)
{
    HttpClient health(server.adminUrl());
    // Whoever asks keeps it alive, so nobody may ask meanwhile.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    ASSERT_TRUE(waitFor([&] { return std::chrono::steady_clock::now() > end; }));
    EXPECT_GT(expectNothingOpens(), 40);
    EXPECT_EQ(health.get("/livez").status, 200);
}

class SessionTheftAbsolute : public SessionTheft {
protected:
    SessionTheftAbsolute()
        : SessionTheft({ { "session.absolute", "2s" } })
    {
    }
};

TEST_F(SessionTheftAbsolute, NothingOpensOnceItsTimeIsOverHoweverBusyTheThief)
{
    EXPECT_TRUE(waitFor([&] { return steal() == 2; }, std::chrono::seconds(15)));
    EXPECT_GT(expectNothingOpens(), 40);
}

} // namespace
