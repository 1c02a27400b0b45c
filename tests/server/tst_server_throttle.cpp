#include "ServiceHarness.h"

#include <FailPoint.h>

#include "services/Password.h"
#include "store/ThrottleStore.h"
#include "store/UserStore.h"

#include <cstdlib>
#include <set>

using namespace kvx::test;
using namespace kvx::server;

namespace {

constexpr Time second = 1000;
constexpr Time minute = 60 * second;

struct Throttle : testing::Test {
    ServiceHarness harness;

    void SetUp() override { addAccount("anna@example.com"); }
    void addAccount(const std::string &email)
    {
        const std::int64_t id = harness.addUser(email, "Somebody");
        Transaction transaction(harness.db(), Transaction::Kind::Write);
        setPassword(harness.db(), id, m_hash);
        transaction.commit();
    }
    std::future<Answer> loginLater(const std::string &email, const std::string &password,
        const std::string &address = "10.0.0.1")
    {
        const auto exchange = std::make_shared<Exchange>();
        exchange->endpoint = &allEndpoints().front();
        exchange->body = Message("login")
                             .set("Email", email)
                             .set("Password", password)
                             .set("Version", "")
                             .set("FingerPrint", "")
                             .set("serverApiVersion", "")
                             .set("productType", "")
                             .json();
        exchange->address = address;
        const auto promise = std::make_shared<std::promise<Answer>>();
        harness.dispatcher().dispatch(
            exchange, [promise](Reply reply) { promise->set_value(Answer(reply)); });
        return promise->get_future();
    }
    Answer login(const std::string &email, const std::string &password,
        const std::string &address = "10.0.0.1")
    {
        return loginLater(email, password, address).get();
    }
    /// The tries that are left after a wrong password.
    std::int64_t wrong(const std::string &email, const std::string &address = "10.0.0.1")
    {
        const Answer answer = login(email, "wrong", address);
        EXPECT_EQ(answer.status(), 235);
        return answer.integer("leftcount");
    }
    /// How many passwords were hashed since the last call: what a guess costs, and what its time
    /// tells.
    std::uint64_t hashed()
    {
        const std::uint64_t before = m_hashed;
        m_hashed = verifiedPasswords();
        return m_hashed - before;
    }
    /// Failures of that account, without hashing anything.
    void countFailures(const std::string &email, const std::string &address, int number)
    {
        Transaction transaction(harness.db(), Transaction::Kind::Write);
        for (int i = 0; i < number; ++i) {
            const auto counted
                = beginLoginTry(harness.db(), harness.environment().clock.now(), email, address);
            ASSERT_TRUE(counted && !counted->mustWait);
            judgeWrong(harness.db(), counted->row);
        }
        transaction.commit();
    }

private:
    const std::string m_hash = hashPassword("right");
    std::uint64_t m_hashed = verifiedPasswords();
};

} // namespace

TEST_F(Throttle, FiveTriesAreHashedAndNoMore)
{
    for (const int left : { 4, 3, 2, 1, 0 })
        EXPECT_EQ(wrong("anna@example.com"), left);
    EXPECT_EQ(hashed(), 5u);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(wrong("anna@example.com"), 0);
    EXPECT_EQ(login("anna@example.com", "right").status(), 235) << "not even the right one";
    EXPECT_EQ(hashed(), 0u);
}

TEST_F(Throttle, AnUnknownAccountAnswersAndCostsTheSame)
{
    const auto without = [](std::string json) {
        const auto at = json.find("\"requestId\":\"") + 13;
        return json.erase(at, json.find('"', at) - at);
    };
    for (int i = 0; i < 8; ++i) {
        hashed();
        const Answer known = login("anna@example.com", "wrong", "10.0.0.1");
        const std::uint64_t costOfKnown = hashed();
        const Answer unknown = login("ghost@example.com", "wrong", "10.0.0.2");
        EXPECT_EQ(hashed(), costOfKnown) << i;
        EXPECT_EQ(costOfKnown, i < 5 ? 1u : 0u) << i;
        EXPECT_EQ(without(known.json()), without(unknown.json())) << i;
    }
}

TEST_F(Throttle, ADisabledAccountAnswersAndCostsTheSame)
{
    addAccount("gone@example.com");
    setDisabled(harness.db(), findUser(harness.db(), "gone@example.com")->id, true);
    hashed();
    EXPECT_EQ(wrong("gone@example.com"), 4);
    EXPECT_EQ(hashed(), 1u);
    EXPECT_EQ(login("gone@example.com", "right").status(), 201);
    EXPECT_EQ(hashed(), 1u);
    EXPECT_EQ(wrong("gone@example.com"), 4) << "the right password cleared the count";
}

TEST_F(Throttle, TriesComeBackAfterTenMinutes)
{
    for (int i = 0; i < 5; ++i)
        wrong("anna@example.com");
    harness.pass(9 * minute + 50 * second);
    EXPECT_EQ(wrong("anna@example.com"), 0);
    harness.pass(minute);
    EXPECT_EQ(login("anna@example.com", "right").status(), 1);
}

TEST_F(Throttle, AnotherAddressHasItsOwnFive)
{
    for (int i = 0; i < 5; ++i)
        wrong("anna@example.com");
    EXPECT_EQ(wrong("anna@example.com", "10.0.0.2"), 4);
    EXPECT_EQ(login("anna@example.com", "right", "10.0.0.2").status(), 1);
    EXPECT_EQ(wrong("anna@example.com"), 0) << "a success clears its own address alone";
    EXPECT_EQ(wrong("anna@example.com", "10.0.0.2"), 4);
}

TEST_F(Throttle, AnAccountHasFiftyTriesAnHour)
{
    for (int i = 0; i < 9; ++i)
        countFailures("anna@example.com", "10.0.1." + std::to_string(i), 5);
    countFailures("anna@example.com", "10.0.2.1", 3);
    EXPECT_EQ(wrong("anna@example.com", "10.0.3.1"), 1) << "49 by now";
    EXPECT_EQ(wrong("anna@example.com", "10.0.3.2"), 0);
    hashed();
    EXPECT_EQ(login("anna@example.com", "right", "10.0.3.3").status(), 235);
    EXPECT_EQ(hashed(), 0u);
    harness.pass(59 * minute);
    EXPECT_EQ(wrong("anna@example.com", "10.0.3.4"), 0);
    harness.pass(2 * minute);
    EXPECT_EQ(login("anna@example.com", "right", "10.0.3.4").status(), 1);
}

TEST_F(Throttle, AnAddressHasThirtyTriesInTenMinutes)
{
    for (int i = 0; i < 28; ++i)
        countFailures("somebody" + std::to_string(i) + "@example.com", "10.0.0.1", 1);
    EXPECT_EQ(wrong("ghost@example.com"), 1);
    EXPECT_EQ(wrong("anna@example.com"), 0);
    hashed();
    EXPECT_EQ(login("anna@example.com", "right").status(), 235);
    EXPECT_EQ(hashed(), 0u);
    EXPECT_EQ(login("anna@example.com", "right", "10.0.0.2").status(), 1);
    harness.pass(10 * minute + second);
    EXPECT_EQ(login("anna@example.com", "right").status(), 1);
}

TEST_F(Throttle, TheLetterCaseOfAnAccountDoesNotCount)
{
    EXPECT_EQ(wrong("anna@example.com"), 4);
    EXPECT_EQ(wrong("  ANNA@Example.COM "), 3);
}

TEST_F(Throttle, HoweverManyGuessesCostFiveHashes)
{
    const int guesses = std::getenv("KVX_TEST_LONG") ? 10'000 : 1'000;
    addAccount("target@example.com");
    hashed();
    std::set<std::string> kinds;
    for (int i = 0; i < guesses; ++i) {
        const bool known = i % 2 == 0;
        const Answer answer
            = login(known ? "target@example.com" : "ghost@example.com", std::to_string(i));
        kinds.insert(answer.keys());
        ASSERT_EQ(answer.status(), 235);
    }
    EXPECT_EQ(hashed(), 10u) << "five for each of the two";
    EXPECT_EQ(kinds.size(), 1u) << "and both look alike";
}

#ifdef KVX_FAIL_POINTS
TEST_F(Throttle, WhoComesWhenTheQueueIsFullIsToldAndLosesNoTry)
{
    // So slow that the queue fills however long it takes to count a try.
    kvx::failpoint::arm("login/password looked at=delay:2000@*");
    std::vector<std::future<Answer>> answers;
    for (int i = 0; i < 260; ++i) {
        const std::string number = std::to_string(i);
        answers.push_back(
            loginLater("guest" + number + "@example.com", "x", "10.1." + number + ".1"));
    }
    std::vector<std::future<Answer>> annas;
    for (int i = 0; i < 3; ++i) // no more than may be under way for one account
        annas.push_back(loginLater("anna@example.com", "wrong"));
    for (auto &anna : annas)
        EXPECT_EQ(anna.get().status(), 103) << "the queue was not full";
    kvx::failpoint::arm("");
    int busy = 0;
    int refused = 0;
    for (auto &answer : answers) {
        const int status = answer.get().status();
        busy += status == 103;
        refused += status == 235;
    }
    EXPECT_EQ(busy + refused, 260);
    EXPECT_GT(busy, 0);
    EXPECT_GE(refused, 200);
    EXPECT_EQ(wrong("anna@example.com"), 4);
}

TEST_F(Throttle, ATryWhosePasswordCouldNotBeLookedAtIsAnsweredAndCountsForAMinute)
{
    kvx::failpoint::arm("login/password looked at=error");
    EXPECT_EQ(login("anna@example.com", "right").status(), 0);
    EXPECT_EQ(wrong("anna@example.com"), 3);
    harness.pass(minute + second);
    EXPECT_EQ(wrong("anna@example.com"), 3) << "only what was judged counts";
}
#endif

TEST_F(Throttle, ACompanyThatLogsInAtOneMomentFromOneAddressIsLetInOneAfterTheOther)
{
    constexpr int people = 90;
    harness.config().lockHold = minute; // so many hashes take long on a slow machine
    for (int i = 0; i < people; ++i)
        addAccount("p" + std::to_string(i) + "@example.com");
    std::vector<std::future<Answer>> answers;
    for (int i = 0; i < people; ++i) {
        const bool knows = i % 10 != 0; // some mistype
        answers.push_back(
            loginLater("p" + std::to_string(i) + "@example.com", knows ? "right" : "wrong"));
    }
    for (int i = 0; i < people; ++i)
        EXPECT_EQ(answers[i].get().status(), i % 10 != 0 ? 1 : 235) << i;
}

TEST_F(Throttle, WhoWaitsForOthersOfHisAddressIsToldInTheEnd)
{
    harness.config().lockHold = 150;
    Transaction transaction(harness.db(), Transaction::Kind::Write);
    for (int i = 0; i < 30; ++i) { // as a server leaves them that was killed while it hashed
        const std::string email = "somebody" + std::to_string(i) + "@example.com";
        ASSERT_FALSE(
            beginLoginTry(harness.db(), harness.environment().clock.now(), email, "10.0.0.1")
                ->mustWait);
    }
    transaction.commit();
    hashed();
    EXPECT_EQ(login("anna@example.com", "right").status(), 103);
    EXPECT_EQ(hashed(), 0u);
    EXPECT_EQ(login("anna@example.com", "right", "10.0.0.2").status(), 1);
    harness.pass(minute + second);
    EXPECT_EQ(login("anna@example.com", "right").status(), 1);
}
