#include "ServiceHarness.h"
#include "store/LogStore.h"
#include "store/SessionStore.h"
#include "support/WaitFor.h"
#include "support/Watchdog.h"

#include <algorithm>
#include <chrono>
#include <thread>

using namespace kvx::test;
using namespace kvx::server;
using namespace std::chrono_literals;
using Steady = std::chrono::steady_clock;

namespace {

const std::string guid = guidOf(1);

struct LogLock : testing::Test {
    explicit LogLock(ServiceHarness::Adjust adjust = {})
        : harness(adjust)
    {
    }

    ServiceHarness harness;
    Session anna = harness.join("anna@example.com");
    Session ben = harness.join("ben@example.com");
    Session cora = harness.join("cora@example.com");

    void SetUp() override
    {
        ASSERT_EQ(anna.ask(newProject(anna, guid, "School")).status(), 1);
        ASSERT_EQ(permit(anna, guid,
                      { { "ben@example.com", "1,1,1,1" }, { "cora@example.com", "1,1,1,1" } })
                      .status(),
            1);
    }
    Message on(const char *service) { return Message(service).set("ProjectGUID", guid); }
    Message acquire(std::int64_t version)
    {
        return on("loglock").set("LogVersion", version).set("ReleaseLock", false);
    }
    std::int64_t lock(const Session &session, std::int64_t version)
    {
        const Answer answer = session.ask(acquire(version));
        EXPECT_EQ(answer.status(), 1) << answer.json();
        return answer.integer("Lock");
    }
    std::future<Answer> lockLater(const Session &session, std::int64_t version)
    {
        auto answer = session.askLater(acquire(version).set("Email", session.email));
        settle();
        return answer;
    }
    void release(const Session &session, std::int64_t version)
    {
        const Answer answer
            = session.ask(on("loglock").set("LogVersion", version).set("ReleaseLock", true));
        EXPECT_EQ(answer.json(), R"({"statuscode":1,"Lock":0})");
    }
    /// The writing queue is in order: what was asked before has been judged when this returns.
    void settle() { anna.askAs(Message("genprojectname")); }
    std::int64_t number(const char *sql) { return harness.db().value<std::int64_t>(sql).value(); }
    std::int64_t generation() { return number("SELECT lock_gen FROM project"); }
    bool isTaken()
    {
        return number("SELECT count(*) FROM project WHERE lock_session IS NOT NULL") == 1;
    }
    void stageLog(const Session &session, std::int64_t version)
    {
        const std::string log = guid + "_log" + std::to_string(version);
        ASSERT_EQ(session.upload(log, logArchive(log, "x")).status(), 1);
    }
    /// Anna's save up to the version, whose release never arrives.
    void saveWithoutRelease(std::int64_t version)
    {
        ASSERT_EQ(lock(anna, version - 1), 1);
        stageLog(anna, version);
        ASSERT_EQ(anna.upload(guid + ".KVX", "file").status(), 1);
        ASSERT_EQ(merge(version).status(), 1);
    }
    Answer merge(std::int64_t version)
    {
        return anna.ask(on("sendservertomerge")
                            .set("LogVersion", version - 1)
                            .set("LogFilename", guid + "_log" + std::to_string(version))
                            .set("Amount", ""));
    }
    static bool isReady(std::future<Answer> &answer, Steady::duration limit = 0ms)
    {
        return answer.wait_for(limit) == std::future_status::ready;
    }
};

struct ShortHold : LogLock {
    ShortHold()
        : LogLock([](Config &config) { config.lockHold = 150; })
    {
    }
};

struct ShortLease : LogLock {
    ShortLease()
        : LogLock([](Config &config) {
            config.lockLease = 400;
            config.lockHold = 20'000;
        })
    {
    }
};

struct RenewedLease : LogLock {
    RenewedLease()
        : LogLock([](Config &config) {
            config.lockLease = 3'000;
            config.lockHold = 30'000;
        })
    {
    }
};

} // namespace

TEST_F(LogLock, TheFirstAskerGetsItAndRepeatsItsRequestFreely)
{
    const Answer taken = anna.ask(acquire(-1));
    EXPECT_EQ(taken.json(), R"({"statuscode":1,"Lock":1})");
    EXPECT_EQ(generation(), 1);
    EXPECT_EQ(lock(anna, -1), 1) << "the same session keeps it";
    EXPECT_EQ(generation(), 1);
    release(anna, -1);
    release(anna, -1);
    EXPECT_FALSE(isTaken());
    EXPECT_EQ(lock(ben, -1), 1);
    EXPECT_EQ(generation(), 2);
    release(anna, -1);
    EXPECT_TRUE(isTaken()) << "a release frees one's own lock only";
}

TEST_F(LogLock, ZeroIsAnsweredExactlyWhenTheClientIsBehind)
{
    for (std::int64_t server = -1; server <= 6; ++server) {
        harness.db().run("UPDATE project SET log_version = :v", { { "v", server } });
        for (std::int64_t client = -1; client <= 8; ++client) {
            EXPECT_EQ(lock(anna, client), client < server ? 0 : 1) << client << ' ' << server;
            const std::int64_t merged = anna.ask(on("sendservertomerge")
                                                     .set("LogVersion", client)
                                                     .set("LogFilename", "x")
                                                     .set("Amount", ""))
                                            .status();
            if (client >= server) {
                EXPECT_EQ(merged, client > server ? 602 : 604) << client << ' ' << server;
            }
            EXPECT_EQ(number("SELECT log_version FROM project"), server);
            release(anna, client);
        }
    }
}

TEST_F(LogLock, ZeroComesAtOnceWhoeverHoldsTheLock)
{
    ASSERT_EQ(save(anna, guid, -1).status(), 1);
    ASSERT_EQ(lock(anna, 0), 1);
    EXPECT_EQ(lock(ben, -1), 0);
    EXPECT_EQ(lock(anna, -1), 0);
}

TEST_F(LogLock, WhoMayNotSaveIsAnsweredOneAndHoldsNothing)
{
    const Session reader = harness.join("rita@example.com", "Reviewer");
    EXPECT_EQ(lock(reader, -1), 1);
    EXPECT_FALSE(isTaken());
    EXPECT_EQ(reader.upload(guid + "_log0", logArchive(guid + "_log0", "x")).status(), 300);

    harness.config().diskReserve = std::int64_t { 1 } << 60;
    EXPECT_EQ(lock(anna, -1), 1);
    EXPECT_FALSE(isTaken());
    EXPECT_EQ(anna.upload(guid + "_log0", "x").status(), 105) << "the real reason";
    harness.config().diskReserve = 0;

    ASSERT_EQ(ben.ask(on("projectlock").set("ReleaseLock", false)).status(), 1);
    EXPECT_EQ(lock(anna, -1), 1);
    EXPECT_FALSE(isTaken());
    EXPECT_EQ(anna.upload(guid + "_log0", "x").status(), 314);
    EXPECT_EQ(lock(ben, -1), 1);
    EXPECT_TRUE(isTaken()) << "the holder of the project lock saves";
    release(ben, -1);
    ASSERT_EQ(ben.ask(on("projectlock").set("ReleaseLock", true)).status(), 1);

    ASSERT_EQ(anna.ask(on("openproject")).status(), 1);
    const Session laptop = harness.login("anna@example.com", "laptop");
    EXPECT_EQ(lock(laptop, -1), 1);
    EXPECT_FALSE(isTaken());
    EXPECT_EQ(laptop.upload(guid + "_log0", "x").status(), 321);

    harness.db().execute("INSERT INTO meta (name, value) VALUES ('read_only', '1')");
    EXPECT_EQ(lock(anna, -1), 1);
    EXPECT_FALSE(isTaken());
    EXPECT_EQ(anna.upload(guid + "_log0", "x").status(), 104);
}

TEST_F(LogLock, StrangersSeeNoProject)
{
    const Session stranger = harness.join("sam@example.com");
    EXPECT_EQ(stranger.ask(acquire(-1)).status(), 310);
    EXPECT_EQ(
        anna.ask(on("loglock").set("LogVersion", -2).set("ReleaseLock", false)).status(), 100);
    EXPECT_EQ(anna.ask(on("loglock").set("LogVersion", -1)).status(), 100);
}

TEST_F(ShortHold, ABusyLockIsAnsweredTwoWithItsHolder)
{
    ASSERT_EQ(lock(anna, -1), 1);
    const auto begin = Steady::now();
    const Answer busy = ben.ask(acquire(-1));
    EXPECT_GE(Steady::now() - begin, 140ms) << "held back first";
    EXPECT_EQ(busy.keys(), "statuscode Lock HolderName HolderEmail Since");
    EXPECT_EQ(busy.integer("Lock"), 2);
    EXPECT_EQ(busy.text("HolderName"), "Anna");
    EXPECT_EQ(busy.text("HolderEmail"), "anna@example.com");
    EXPECT_EQ(lock(harness.login("anna@example.com", "laptop"), -1), 2)
        << "another session of the same user";
}

TEST_F(ShortHold, OneWaitingSaveIsHeldBackSixTimesAtMost)
{
    ASSERT_EQ(lock(anna, -1), 1);
    const auto begin = Steady::now();
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(lock(ben, -1), 2);
    EXPECT_GE(Steady::now() - begin, 850ms);
    Steady::duration shortest = 1h;
    for (int i = 0; i < 10; ++i) {
        const auto asked = Steady::now();
        EXPECT_EQ(lock(ben, -1), 2);
        shortest = std::min(shortest, Steady::now() - asked);
    }
    EXPECT_LT(shortest, 140ms) << "from now on the answer comes at once";
}

TEST_F(LogLock, AFreedLockReachesTheWaitingRequestAtOnce)
{
    ASSERT_EQ(lock(anna, -1), 1);
    auto waiting = lockLater(ben, -1);
    EXPECT_FALSE(isReady(waiting));
    const auto begin = Steady::now();
    release(anna, -1);
    ASSERT_TRUE(isReady(waiting, 4s));
    EXPECT_LT(Steady::now() - begin, 2s) << "far below the time it would be held back";
    EXPECT_EQ(waiting.get().integer("Lock"), 1);
    EXPECT_EQ(generation(), 2);
}

TEST_F(LogLock, WaitingRequestsAreServedInTheOrderOfAsking)
{
    ASSERT_EQ(lock(anna, -1), 1);
    auto first = lockLater(ben, -1);
    auto second = lockLater(cora, -1);
    release(anna, -1);
    ASSERT_TRUE(isReady(first, 4s));
    EXPECT_EQ(first.get().integer("Lock"), 1);
    settle();
    EXPECT_FALSE(isReady(second)) << "still waits, for the new holder now";
    release(ben, -1);
    ASSERT_TRUE(isReady(second, 4s));
    EXPECT_EQ(second.get().integer("Lock"), 1);
}

TEST_F(LogLock, APublishedVersionSendsWaitersToSynchroniseAndTheyKeepTheirPlaces)
{
    ASSERT_EQ(lock(anna, -1), 1);
    auto first = lockLater(ben, -1);
    auto second = lockLater(cora, -1);
    stageLog(anna, 0);
    ASSERT_EQ(anna.upload(guid + ".KVX", "file").status(), 1);
    EXPECT_FALSE(isReady(first));
    ASSERT_EQ(anna.ask(on("sendservertomerge")
                           .set("LogVersion", -1)
                           .set("LogFilename", guid + "_log0")
                           .set("Amount", ""))
                  .status(),
        1);
    ASSERT_TRUE(isReady(first, 4s) && isReady(second, 4s));
    EXPECT_EQ(first.get().integer("Lock"), 0);
    EXPECT_EQ(second.get().integer("Lock"), 0);

    auto secondAgain = lockLater(cora, 0); // she synchronised faster
    auto firstAgain = lockLater(ben, 0);
    release(anna, 0);
    ASSERT_TRUE(isReady(firstAgain, 4s));
    EXPECT_EQ(firstAgain.get().integer("Lock"), 1) << "he asked first";
    settle();
    EXPECT_FALSE(isReady(secondAgain));
    release(ben, 0);
    ASSERT_TRUE(isReady(secondAgain, 4s));
    EXPECT_EQ(secondAgain.get().integer("Lock"), 1);
}

TEST_F(LogLock, TheEndOfTheHoldersSessionFreesItForTheNext)
{
    ASSERT_EQ(lock(anna, -1), 1);
    stageLog(anna, 0);
    auto waiting = lockLater(ben, -1);
    ASSERT_EQ(anna.ask(Message("logout")).status(), 1);
    ASSERT_TRUE(isReady(waiting, 4s));
    EXPECT_EQ(waiting.get().integer("Lock"), 1);
    EXPECT_EQ(number("SELECT count(*) FROM stage"), 0);
}

TEST_F(LogLock, LosingAccessEndsTheWait)
{
    ASSERT_EQ(lock(anna, -1), 1);
    auto waiting = lockLater(ben, -1);
    ASSERT_EQ(permit(anna, guid, {}).status(), 1);
    release(anna, -1);
    ASSERT_TRUE(isReady(waiting, 4s));
    EXPECT_EQ(waiting.get().status(), 310);
}

TEST_F(LogLock, AHolderWithoutAccessCanStillReleaseIt)
{
    const Session chief = harness.join("chief@example.com", "Everything");
    ASSERT_EQ(lock(chief, -1), 1);
    harness.db().run("DELETE FROM role_user WHERE user_id = :id", { { "id", chief.userId } });
    EXPECT_EQ(chief.ask(acquire(-1)).status(), 310);
    EXPECT_TRUE(isTaken());
    release(chief, -1);
    EXPECT_FALSE(isTaken());
    EXPECT_EQ(
        chief.ask(on("loglock").set("LogVersion", -1).set("ReleaseLock", true)).status(), 310);
}

TEST_F(LogLock, AStoppingServerAnswersWhoWaits)
{
    ASSERT_EQ(lock(anna, -1), 1);
    auto waiting = lockLater(ben, -1);
    harness.dispatcher().drain();
    ASSERT_TRUE(isReady(waiting, 4s));
    EXPECT_EQ(waiting.get().integer("Lock"), 2);
}

TEST_F(ShortLease, ALeaseThatRanOutGoesToTheWaitingRequest)
{
    ASSERT_EQ(lock(anna, -1), 1);
    const auto begin = Steady::now();
    stageLog(anna, 0); // a new lease
    const Answer taken = ben.ask(acquire(-1));
    EXPECT_EQ(taken.integer("Lock"), 1);
    EXPECT_GE(Steady::now() - begin, 390ms);
    EXPECT_LT(Steady::now() - begin, 10s);
    EXPECT_EQ(generation(), 2);
    EXPECT_EQ(number("SELECT count(*) FROM stage"), 0) << "the former holder's stage is dropped";
}

TEST_F(ShortLease, TheLateSaveOfAFormerHolderIsRefused)
{
    ASSERT_EQ(lock(anna, -1), 1);
    stageLog(anna, 0);
    ASSERT_EQ(anna.upload(guid + ".KVX", "anna's").status(), 1);
    ASSERT_EQ(lock(ben, -1), 1);
    stageLog(ben, 0);
    const Message merge = on("sendservertomerge")
                              .set("LogVersion", -1)
                              .set("LogFilename", guid + "_log0")
                              .set("Amount", "");
    EXPECT_EQ(anna.ask(merge).status(), 600);
    EXPECT_EQ(anna.upload(guid + "_log0", logArchive(guid + "_log0", "late")).status(), 600);
    EXPECT_EQ(ben.ask(merge).status(), 603) << "nothing of the former holder is merged";
    EXPECT_EQ(number("SELECT log_version FROM project"), -1);
}

TEST_F(ShortLease, WhileNobodyTakesItTheHoldersNextRequestRenewsALeaseThatRanOut)
{
    ASSERT_EQ(lock(anna, -1), 1);
    stageLog(anna, 0);
    std::this_thread::sleep_for(600ms); // the host writes its file
    stageLog(anna, 0);
    ASSERT_EQ(anna.upload(guid + ".KVX", "file").status(), 1);
    EXPECT_EQ(generation(), 1);
    EXPECT_EQ(anna.ask(on("sendservertomerge")
                           .set("LogVersion", -1)
                           .set("LogFilename", guid + "_log0")
                           .set("Amount", ""))
                  .status(),
        1);
}

TEST_F(RenewedLease, AnyRequestOfTheHolderRenewsIt)
{
    ASSERT_EQ(lock(anna, -1), 1);
    auto waiting = lockLater(ben, -1);
    const auto begin = Steady::now();
    while (Steady::now() - begin < 4s) {
        std::this_thread::sleep_for(100ms);
        ASSERT_EQ(anna.ask(on("getlogversion")).status(), 1);
    }
    EXPECT_TRUE(isTaken());
    EXPECT_EQ(generation(), 1);
    EXPECT_FALSE(isReady(waiting)) << "four seconds on a lease of three";
    release(anna, -1);
    ASSERT_TRUE(isReady(waiting, 10s));
    EXPECT_EQ(waiting.get().integer("Lock"), 1);
}

TEST_F(LogLock, ALostReleaseOfAPublishedSaveKeepsNobodyOutBeyondTheLease)
{
    saveWithoutRelease(0);
    for (int minute = 0; minute < 3; ++minute) {
        EXPECT_TRUE(isTaken());
        harness.pass(60'000); // she stays at work
        ASSERT_EQ(anna.ask(Message("keepactive")).status(), 1);
    }
    const auto begin = Steady::now();
    EXPECT_EQ(lock(ben, 0), 1);
    EXPECT_LT(Steady::now() - begin, 4s) << "without being held back";
    EXPECT_EQ(generation(), 2);
}

TEST_F(LogLock, ASecondSaveAfterALostReleaseHasALockOfItsOwn)
{
    saveWithoutRelease(0);
    ASSERT_EQ(lock(anna, 0), 1);
    EXPECT_EQ(generation(), 2);
    for (int minute = 0; minute < 3; ++minute) { // her host writes its file
        harness.pass(60'000);
        ASSERT_EQ(anna.ask(Message("keepactive")).status(), 1);
        ASSERT_TRUE(waitFor([this] {
            return number("SELECT lock_until FROM project")
                > harness.environment().clock.now() + 100'000;
        })) << "the lease is renewed as that of any save";
    }
    EXPECT_EQ(lock(anna, 0), 1);
    EXPECT_EQ(generation(), 2) << "a request that is repeated takes it once";
    stageLog(anna, 1);
    ASSERT_EQ(anna.upload(guid + ".KVX", "next").status(), 1);
    EXPECT_EQ(merge(1).status(), 1);
}

TEST_F(LogLock, ASecondSaveUnderTheSameLockKeepsItsLease)
{
    saveWithoutRelease(0);
    stageLog(anna, 1);
    for (int minute = 0; minute < 3; ++minute) {
        harness.pass(60'000);
        ASSERT_EQ(anna.ask(Message("keepactive")).status(), 1);
        ASSERT_TRUE(waitFor([this] {
            return number("SELECT lock_until FROM project")
                > harness.environment().clock.now() + 100'000;
        }));
    }
    ASSERT_EQ(anna.upload(guid + ".KVX", "next").status(), 1);
    EXPECT_EQ(merge(1).status(), 1);
    EXPECT_EQ(generation(), 1);
}

TEST_F(LogLock, ManyWaitersAllGetItOnce)
{
    ASSERT_EQ(lock(anna, -1), 1);
    std::vector<Session> sessions;
    std::vector<std::future<Answer>> answers;
    for (int i = 0; i < 20; ++i) {
        sessions.push_back(harness.login("ben@example.com", "device " + std::to_string(i)));
        answers.push_back(lockLater(sessions.back(), -1));
    }
    release(anna, -1);
    for (std::size_t i = 0; i < sessions.size(); ++i) {
        ASSERT_TRUE(isReady(answers[i], 4s)) << i;
        EXPECT_EQ(answers[i].get().integer("Lock"), 1) << i;
        release(sessions[i], -1);
    }
    EXPECT_EQ(generation(), 21);
}
