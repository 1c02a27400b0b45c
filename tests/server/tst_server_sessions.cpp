#include "ServiceHarness.h"

#include "notify/Janitor.h"
#include "services/Password.h"
#include "store/SessionStore.h"
#include "store/UserStore.h"
#include "support/WaitFor.h"

#include <algorithm>
#include <sodium.h>

using namespace kvx::test;
using namespace kvx::server;

namespace {

constexpr Time second = 1000;
constexpr Time minute = 60 * second;
constexpr Time hour = 60 * minute;
const std::string guid = guidOf(1);

struct Sessions : testing::Test {
    ServiceHarness harness;
    Session admin = harness.join("root@example.com", "Administrator");
    Session anna = harness.join("anna@example.com");

    void SetUp() override { ASSERT_EQ(anna.ask(newProject(anna, guid, "School")).status(), 1); }
    Message on(const char *service) { return Message(service).set("ProjectGUID", guid); }
    int alive(const Session &session)
    {
        return heard(session, session.ask(Message("keepactive")).status());
    }
    int roles(const Session &session)
    {
        return heard(session, session.askAs(Message("getroles")).status());
    }
    /// That a session was heard of is written beside a reply that only reads: waits for it, before
    /// the clock moves on. The status.
    int heard(const Session &session, int status)
    {
        if (status != 2) {
            EXPECT_TRUE(waitFor([&] {
                return harness.environment().clock.now() - lastSeen(session) < minute + second;
            }));
        }
        return status;
    }
    Time lastSeen(const Session &session)
    {
        return count("SELECT last_seen FROM session WHERE id = " + std::to_string(session.id));
    }
    Answer lockLog(const Session &session, bool release = false)
    {
        return session.ask(on("loglock").set("LogVersion", -1).set("ReleaseLock", release));
    }
    /// The log lock of a new project, the n-th.
    void lockLogOfOwn(const Session &session, int n)
    {
        ASSERT_EQ(session.ask(newProject(session, guidOf(n), "P" + std::to_string(n))).status(), 1);
        ASSERT_EQ(session
                      .ask(Message("loglock")
                               .set("ProjectGUID", guidOf(n))
                               .set("LogVersion", -1)
                               .set("ReleaseLock", false))
                      .integer("Lock"),
            1);
    }
    std::int64_t count(const std::string &sql)
    {
        return harness.db().value<std::int64_t>(sql).value();
    }
    std::string editors()
    {
        std::string names;
        // A new session each time: the administrator's own runs out as well.
        const Answer answer = harness.login("root@example.com").ask(on("onlineeditors"));
        for (const auto &user : answer["users"].GetArray())
            names += (names.empty() ? "" : " ") + std::string(user["Name"].GetString());
        return names;
    }
    /// A login as a client makes it, with the cookie of an earlier one where there is one. The
    /// session's token, or the refusal's status.
    std::string login(const std::string &email, const std::string &device,
        const std::string &presented = {}, const std::string &password = "right")
    {
        const auto exchange = std::make_shared<Exchange>();
        exchange->endpoint = &allEndpoints().front();
        exchange->body = Message("login")
                             .set("Email", email)
                             .set("Password", password)
                             .set("Version", "")
                             .set("FingerPrint", device)
                             .set("serverApiVersion", "")
                             .set("productType", "")
                             .json();
        exchange->token = presented;
        exchange->address = "127.0.0.1";
        std::promise<Reply> promise;
        harness.dispatcher().dispatch(
            exchange, [&promise](Reply reply) { promise.set_value(std::move(reply)); });
        const Reply reply = promise.get_future().get();
        return reply.cookie() ? *reply.cookie() : std::to_string(static_cast<int>(reply.status()));
    }
    /// A save whose release never arrives.
    void saveWithoutRelease(const Session &session)
    {
        const std::string log = guid + "_log0";
        ASSERT_EQ(lockLog(session).integer("Lock"), 1);
        ASSERT_EQ(session.upload(log, logArchive(log, "x")).status(), 1);
        ASSERT_EQ(session.upload(guid + ".KVX", "file").status(), 1);
        ASSERT_EQ(session
                      .ask(on("sendservertomerge")
                               .set("LogVersion", -1)
                               .set("LogFilename", log)
                               .set("Amount", ""))
                      .status(),
            1);
    }
    void givePassword(const Session &session)
    {
        Transaction transaction(harness.db(), Transaction::Kind::Write);
        setPassword(harness.db(), session.userId, hashPassword("right"));
        transaction.commit();
    }
    Session with(const Session &session, const std::string &token)
    {
        Session other = session;
        other.token = token;
        other.id = count("SELECT max(id) FROM session");
        return other;
    }
};

/// One session that holds everything a session can hold, and one that waits for its log lock.
struct SessionEnd : Sessions {
    Session ben = harness.join("ben@example.com");
    Session other = harness.login("anna@example.com", "laptop");

    void SetUp() override
    {
        Sessions::SetUp();
        ASSERT_EQ(permit(anna, guid, { { "ben@example.com", "1,1,1,1" } }).status(), 1);
        ASSERT_EQ(anna.ask(on("openproject")).status(), 1);
        ASSERT_EQ(anna.ask(on("checkout")
                               .set("ModuleType", 3)
                               .set("NotifyOther", false)
                               .set("IDs", "1;2;"))
                      .status(),
            1);
        ASSERT_EQ(anna.ask(on("allocateidrange").set("NewRange", true)).status(), 1);
        ASSERT_EQ(lockLog(anna).integer("Lock"), 1);
        ASSERT_EQ(anna.upload(guid + ".KVX", "staged").status(), 1);
        for (const auto &[type, bound] : { std::pair(1, true), { 2, false } }) {
            ASSERT_EQ(anna.askAs(Message("GlobalLock")
                                     .set("lockType", type)
                                     .set("lockedAuthorName", "Anna")
                                     .set("lockedAuthorEmail", "anna@example.com")
                                     .set("autoUnlockTime", 0)
                                     .set("logoutUnlock", bound))
                          .status(),
                1);
        }
        ASSERT_EQ(other.ask(newProject(other, guidOf(2), "Elsewhere")).status(), 1);
        ASSERT_EQ(other.ask(Message("openproject").set("ProjectGUID", guidOf(2))).status(), 1);
        waiting = ben.askLater(
            on("loglock").set("LogVersion", -1).set("ReleaseLock", false).set("Email", ben.email));
        ASSERT_EQ(anna.ask(newProject(anna, guidOf(3), "Locked")).status(), 1);
        ASSERT_EQ(
            anna.ask(Message("projectlock").set("ProjectGUID", guidOf(3)).set("ReleaseLock", false))
                .status(),
            1);
    }
    void expectFreed()
    {
        EXPECT_EQ(waiting.get().integer("Lock"), 1) << "who waits is let in";
        EXPECT_EQ(
            count("SELECT count(*) FROM project WHERE lock_session = " + std::to_string(anna.id)),
            0);
        EXPECT_EQ(count("SELECT count(*) FROM project WHERE plock_session IS NOT NULL"), 0);
        EXPECT_EQ(count("SELECT count(*) FROM stage"), 0);
        EXPECT_EQ(count("SELECT count(*) FROM project_open WHERE session_id = "
                      + std::to_string(anna.id)),
            0);
        EXPECT_EQ(count("SELECT count(*) FROM global_lock WHERE type = 1"), 0);
        EXPECT_EQ(count("SELECT count(*) FROM global_lock WHERE type = 2"), 1)
            << "not bound to the session";
        EXPECT_EQ(count("SELECT count(*) FROM item WHERE state = 1"), 2) << "the user's";
        EXPECT_EQ(count("SELECT count(*) FROM item_block"), 1) << "the user's";
        EXPECT_EQ(roles(anna), 2);
    }
    void expectTheOtherSession()
    {
        EXPECT_EQ(roles(other), 1);
        EXPECT_EQ(count("SELECT count(*) FROM project_open WHERE session_id = "
                      + std::to_string(other.id)),
            1);
    }

    std::future<Answer> waiting;
};

} // namespace

TEST_F(Sessions, EndAfterHalfAnHourWithoutARequest)
{
    harness.pass(29 * minute + 59 * second);
    EXPECT_EQ(roles(anna), 1) << "any request counts";
    harness.pass(29 * minute + 59 * second);
    EXPECT_EQ(alive(anna), 1);
    harness.pass(30 * minute);
    EXPECT_EQ(alive(anna), 2);
    harness.pass(-5 * minute);
    EXPECT_EQ(roles(anna), 1) << "judged by the clock, not by a mark";
}

TEST_F(Sessions, RefusedRequestsKeepThemAliveToo)
{
    for (int i = 0; i < 4; ++i) {
        harness.pass(29 * minute);
        const Message foreign = Message("keepactive").set("Email", "root@example.com");
        EXPECT_EQ(heard(anna, anna.askAs(foreign).status()), 301);
    }
    EXPECT_EQ(roles(anna), 1);
}

TEST_F(Sessions, EndAfterTwelveHoursHoweverBusy)
{
    for (Time passed = 0; passed < 12 * hour - minute; passed += minute) {
        ASSERT_EQ(alive(anna), 1) << passed / minute;
        harness.pass(minute);
    }
    EXPECT_EQ(alive(anna), 1);
    harness.pass(minute);
    EXPECT_EQ(alive(anna), 2);
}

TEST_F(Sessions, WithALogLockOutliveTheirTwelveHours)
{
    ASSERT_EQ(anna.ask(on("openproject")).status(), 1);
    ASSERT_EQ(lockLog(anna).integer("Lock"), 1);
    for (Time passed = 0; passed < 13 * hour; passed += 20 * minute) {
        harness.pass(20 * minute);
        ASSERT_EQ(alive(anna), 1) << passed / minute;
    }
    EXPECT_EQ(editors(), "Anna");
    ASSERT_EQ(lockLog(anna, true).integer("Lock"), 0);
    EXPECT_EQ(alive(anna), 2) << "and no longer than the lock";
    EXPECT_EQ(editors(), "") << "who may not ask is not there";
}

TEST_F(Sessions, AreHeardOfAtMostOnceAMinute)
{
    const Time before = lastSeen(anna);
    harness.pass(58 * second);
    ASSERT_EQ(anna.ask(on("openproject")).status(), 1);
    EXPECT_EQ(lastSeen(anna), before);
    harness.pass(3 * second);
    ASSERT_EQ(anna.ask(on("openproject")).status(), 1);
    EXPECT_GT(lastSeen(anna), before);
}

TEST_F(Sessions, AreHeardOfAtMostOnceAMinuteAlsoAfterALostRelease)
{
    saveWithoutRelease(anna);
    harness.pass(3 * minute); // the lease is over, and nobody else has asked for the lock
    ASSERT_EQ(anna.ask(on("openproject")).status(), 1);
    const Time before = lastSeen(anna);
    harness.pass(30 * second);
    ASSERT_EQ(anna.ask(on("openproject")).status(), 1);
    EXPECT_EQ(lastSeen(anna), before);
    harness.pass(31 * second);
    ASSERT_EQ(anna.ask(on("openproject")).status(), 1);
    EXPECT_GT(lastSeen(anna), before);
}

TEST_F(Sessions, EndAfterTwelveHoursAlsoAfterALostRelease)
{
    ASSERT_EQ(anna.ask(on("openproject")).status(), 1);
    ASSERT_EQ(anna.ask(on("projectlock").set("ReleaseLock", false)).status(), 1);
    saveWithoutRelease(anna);
    for (Time passed = 0; passed < 12 * hour - 20 * minute; passed += 20 * minute) {
        harness.pass(20 * minute);
        ASSERT_EQ(alive(anna), 1) << passed / minute;
    }
    EXPECT_EQ(editors(), "Anna");
    harness.pass(20 * minute);
    EXPECT_EQ(editors(), "");
    EXPECT_EQ(alive(anna), 2);
    const Session later = harness.login("root@example.com");
    EXPECT_EQ(later.ask(on("openproject")).status(), 1) << "nor does its project lock hold";
    const auto over
        = expiredSessions(harness.db(), harness.config(), harness.environment().clock.now(), 100);
    EXPECT_NE(std::find(over.begin(), over.end(), anna.id), over.end());
    const auto live
        = liveSessions(harness.db(), harness.config(), harness.environment().clock.now());
    EXPECT_TRUE(std::none_of(live.begin(), live.end(),
        [](const LiveSession &session) { return session.email == "anna@example.com"; }));
}

TEST_F(Sessions, ArePresentForFiveMinutes)
{
    ASSERT_EQ(anna.ask(on("openproject")).status(), 1);
    EXPECT_EQ(editors(), "Anna");
    harness.pass(4 * minute + 59 * second);
    EXPECT_EQ(editors(), "Anna");
    harness.pass(second);
    EXPECT_EQ(editors(), "");
    EXPECT_EQ(alive(anna), 1);
    EXPECT_TRUE(waitFor([this] { return editors() == "Anna"; })) << "one request is enough";
}

TEST_F(Sessions, OnASecondMachineWaitForTheFirstToBeAbsent)
{
    const Session laptop = harness.login("anna@example.com", "laptop");
    ASSERT_EQ(anna.ask(on("openproject")).status(), 1);
    const Answer refused = laptop.ask(on("openproject"));
    EXPECT_EQ(refused.status(), 321);
    EXPECT_NE(refused.text("message").find("desk of Anna"), std::string::npos);
    harness.pass(4 * minute + 58 * second);
    EXPECT_EQ(laptop.ask(on("openproject")).status(), 321);
    harness.pass(2 * second);
    EXPECT_EQ(laptop.ask(on("openproject")).status(), 1);
    EXPECT_EQ(editors(), "Anna") << "once, on one of her machines";
    EXPECT_EQ(anna.ask(on("openproject")).status(), 321) << "now it is the other way round";
    EXPECT_EQ(anna.ask(on("closeproject")).status(), 3);
    EXPECT_EQ(count("SELECT count(*) FROM project_open"), 1);
}

TEST_F(Sessions, PastTheirEndHoldNobodyUpBeforeTheyAreTidied)
{
    ASSERT_EQ(anna.ask(on("openproject")).status(), 1);
    ASSERT_EQ(anna.ask(on("projectlock").set("ReleaseLock", false)).status(), 1);
    for (int i = 0; i < 12 * 3; ++i) {
        harness.pass(20 * minute);
        alive(anna);
    }
    harness.pass(second);
    const Session laptop = harness.login("anna@example.com", "laptop");
    const Session later = harness.login("root@example.com");
    EXPECT_EQ(alive(anna), 2);
    EXPECT_EQ(count("SELECT count(*) FROM session WHERE id = " + std::to_string(anna.id)), 1);
    EXPECT_EQ(laptop.ask(on("openproject")).status(), 1);
    EXPECT_EQ(laptop.ask(on("closeproject")).status(), 1);
    EXPECT_EQ(later.ask(on("openproject")).status(), 1) << "nor does its project lock";
    ASSERT_EQ(later.ask(on("closeproject")).status(), 1);
    EXPECT_EQ(later.ask(on("removeproject")).status(), 1);
}

TEST_F(Sessions, OfOneUserAreThree)
{
    givePassword(anna);
    EXPECT_EQ(alive(anna), 1);
    harness.pass(2 * minute); // seen is noted once a minute
    const Session second = with(anna, login("anna@example.com", "2"));
    harness.pass(2 * minute);
    const Session third = with(anna, login("anna@example.com", "3"));
    ASSERT_EQ(anna.ask(on("openproject")).status(), 1); // the second is idle longest now
    ASSERT_EQ(roles(second), 1);
    harness.pass(2 * minute);
    EXPECT_EQ(alive(anna), 1);
    EXPECT_EQ(alive(third), 1);
    const Session fourth = with(anna, login("anna@example.com", "4"));
    EXPECT_EQ(roles(second), 2);
    EXPECT_EQ(roles(anna), 1);
    EXPECT_EQ(roles(third), 1);
    EXPECT_EQ(roles(fourth), 1);
    EXPECT_EQ(
        count("SELECT count(*) FROM session WHERE user_id = " + std::to_string(anna.userId)), 3);
}

TEST_F(Sessions, WithALogLockDoNotMakeRoom)
{
    givePassword(anna);
    ASSERT_EQ(lockLog(anna).integer("Lock"), 1);
    harness.pass(minute);
    const Session second = with(anna, login("anna@example.com", "2"));
    const Session third = with(anna, login("anna@example.com", "3"));
    ASSERT_EQ(login("anna@example.com", "4").size(), 43u);
    EXPECT_EQ(roles(anna), 1) << "idle longest, but it saves";
    EXPECT_EQ(roles(second), 2);

    for (int i = 2; i <= 3; ++i) {
        const Session holder = with(anna, login("anna@example.com", std::to_string(i)));
        lockLogOfOwn(holder, i);
    }
    EXPECT_EQ(login("anna@example.com", "5"), "202") << "all three of them save";
    EXPECT_EQ(roles(anna), 1);
}

TEST_F(Sessions, AreNotEndedByALoginThatIsRefusedForTheirNumber)
{
    givePassword(anna);
    const Session second = with(anna, login("anna@example.com", "2"));
    const Session idle = with(anna, login("anna@example.com", "3"));
    ASSERT_EQ(lockLog(anna).integer("Lock"), 1);
    lockLogOfOwn(second, 2);
    harness.config().sessionPerUser = 2;
    EXPECT_EQ(login("anna@example.com", "4"), "202");
    EXPECT_EQ(roles(idle), 1) << "the setting was lowered, but its end makes no room";
    EXPECT_EQ(login("anna@example.com", "4", admin.token), "202");
    EXPECT_EQ(roles(admin), 1) << "the cookie that was presented is still good";
    EXPECT_EQ(roles(anna), 1);
    EXPECT_EQ(roles(second), 1);

    ASSERT_EQ(login("anna@example.com", "4", second.token).size(), 43u)
        << "the one presented makes room, although it saves";
    EXPECT_EQ(roles(second), 2);
    EXPECT_EQ(roles(idle), 2);
    EXPECT_EQ(roles(anna), 1);
}

TEST_F(Sessions, ALoginTakesTextsUpToTheirLimits)
{
    givePassword(anna);
    const auto with = [&](const char *key, const std::string &text) {
        Message message("login");
        for (const auto &[name, usual] :
            { std::pair("Email", "anna@example.com"), { "Password", "right" }, { "Version", "" },
                { "FingerPrint", "" }, { "serverApiVersion", "" }, { "productType", "" } })
            message.set(name, std::string(name) == key ? text : usual);
        return anna.askAs(message).status();
    };
    EXPECT_EQ(with("Email", std::string(242, 'x') + "@example.com"), 235);
    EXPECT_EQ(with("Email", std::string(243, 'x') + "@example.com"), 100);
    std::string password;
    for (int i = 0; i < 512; ++i)
        password += "\xc3\xa4";
    EXPECT_EQ(with("Password", password), 235);
    EXPECT_EQ(with("Password", password + 'x'), 100) << "bytes count, not characters";
    for (const char *key : { "Version", "FingerPrint", "productType" }) {
        EXPECT_EQ(with(key, std::string(256, 'x')), 1) << key;
        EXPECT_EQ(with(key, std::string(257, 'x')), 100) << key;
    }
    EXPECT_EQ(with("serverApiVersion", "1." + std::string(254, '0')), 1);
    EXPECT_EQ(with("serverApiVersion", "1." + std::string(255, '0')), 100);
}

TEST_F(Sessions, ALoginRaisesAHashThatIsWeakerThanTheSetting)
{
    char weak[crypto_pwhash_STRBYTES];
    ASSERT_EQ(crypto_pwhash_str_alg(
                  weak, "right", 5, 1, crypto_pwhash_MEMLIMIT_MIN, crypto_pwhash_ALG_ARGON2ID13),
        0);
    Transaction transaction(harness.db(), Transaction::Kind::Write);
    setPassword(harness.db(), anna.userId, weak);
    transaction.commit();
    const auto stored = [&] { return findUser(harness.db(), anna.userId)->password; };
    EXPECT_EQ(login("anna@example.com", "2", {}, "wrong"), "235");
    EXPECT_EQ(stored(), weak);
    EXPECT_EQ(login("anna@example.com", "2").size(), 43u);
    const std::string raised = stored();
    EXPECT_NE(raised, weak);
    EXPECT_FALSE(needsRehash(raised));
    EXPECT_EQ(login("anna@example.com", "3").size(), 43u) << "the password is the same";
    EXPECT_EQ(stored(), raised) << "once is enough";
}

TEST_F(Sessions, WithALostReleaseMakeRoom)
{
    givePassword(anna);
    saveWithoutRelease(anna);
    harness.pass(minute);
    const Session second = with(anna, login("anna@example.com", "2"));
    const Session third = with(anna, login("anna@example.com", "3"));
    ASSERT_EQ(login("anna@example.com", "4").size(), 43u);
    EXPECT_EQ(roles(anna), 2) << "idle longest";
    EXPECT_EQ(roles(second), 1);
    EXPECT_EQ(roles(third), 1);
}

TEST_F(SessionEnd, ByLogoutFreesWhatItHeldOnce)
{
    ASSERT_EQ(anna.ask(Message("logout")).status(), 1);
    expectFreed();
    expectTheOtherSession();
    ASSERT_EQ(anna.ask(Message("logout")).status(), 1) << "again";
    EXPECT_EQ(lockLog(ben).integer("Lock"), 1) << "the new holder's lock is untouched";
    EXPECT_EQ(count("SELECT lock_session FROM project WHERE lock_session IS NOT NULL"), ben.id);
}

TEST_F(SessionEnd, ByALoginThatPresentsItFreesWhatItHeld)
{
    givePassword(anna);
    const Session next = with(anna, login("anna@example.com", "desk of Anna", anna.token));
    expectFreed();
    expectTheOtherSession();
    EXPECT_EQ(roles(next), 1);
    EXPECT_EQ(next.ask(on("openproject")).status(), 1);
}

TEST_F(SessionEnd, OfAnAccountThatIsDisabledFreesWhatItHeld)
{
    EndedSession ended;
    {
        Transaction transaction(harness.db(), Transaction::Kind::Write);
        setDisabled(harness.db(), anna.userId, true);
        ended = endSessionsOf(harness.db(), anna.userId);
        transaction.commit();
    }
    ASSERT_EQ(ended.unlockedProjects.size(), 1u);
    harness.dispatcher().wakeHeld(logLockKey(ended.unlockedProjects[0]));
    expectFreed();
    EXPECT_EQ(roles(other), 2);
    EXPECT_EQ(count("SELECT count(*) FROM project_open"), 0);
}

TEST_F(SessionEnd, ByTimeFreesWhatItHeld)
{
    harness.pass(20 * minute);
    ASSERT_EQ(alive(other), 1);
    waiting.get(); // the lease was over long before
    waiting = ben.askLater(
        on("loglock").set("LogVersion", -1).set("ReleaseLock", false).set("Email", ben.email));
    harness.pass(11 * minute);
    {
        const Janitor janitor(harness.environment(), harness.pool(),
            [this](const std::string &key) { harness.dispatcher().wakeHeld(key); });
        ASSERT_TRUE(waitFor([this] {
            return count("SELECT count(*) FROM session WHERE id = " + std::to_string(anna.id)) == 0;
        }));
    }
    expectFreed();
    expectTheOtherSession();
}

TEST_F(SessionEnd, ThatIsTidiedLateTouchesNothingOfOthers)
{
    harness.pass(3 * minute);
    EXPECT_EQ(waiting.get().integer("Lock"), 1) << "the lease was over";
    ASSERT_EQ(ben.upload(guid + ".KVX", "Ben's").status(), 1);
    harness.pass(28 * minute);
    ASSERT_EQ(alive(ben), 1);
    Transaction transaction(harness.db(), Transaction::Kind::Write);
    for (const auto id :
        expiredSessions(harness.db(), harness.config(), harness.environment().clock.now(), 100))
        EXPECT_TRUE(endSession(harness.db(), id).unlockedProjects.empty());
    transaction.commit();
    EXPECT_EQ(count("SELECT lock_session FROM project WHERE lock_session IS NOT NULL"), ben.id);
    EXPECT_EQ(count("SELECT count(*) FROM stage"), 1);
}
