#include "base/Config.h"
#include "services/HeldRequests.h"
#include "services/WorkPool.h"
#include "store/AuditStore.h"
#include "store/Db.h"
#include "store/DbPool.h"
#include "store/Migrations.h"
#include "store/OutboxStore.h"
#include "store/RoleStore.h"
#include "store/SessionStore.h"
#include "store/ThrottleStore.h"
#include "store/UserStore.h"

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <gtest/gtest.h>

using namespace kvx::server;

namespace {

constexpr Time second = 1000;
constexpr Time minute = 60 * second;

class ServerStore : public testing::Test {
protected:
    ServerStore()
    {
        const char *base = std::getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : P_tmpdir) + "/kvx-store-XXXXXX";
        folder = mkdtemp(pattern.data());
        db = std::make_unique<Db>(folder + "/x.sqlite", Db::Mode::Create);
        migrate(*db, 1);
    }
    ~ServerStore() override
    {
        db.reset();
        std::filesystem::remove_all(folder);
    }
    std::string file() const { return folder + "/x.sqlite"; }
    std::int64_t project(std::int64_t id, std::int64_t creator)
    {
        db->run("INSERT INTO project (id, guid, guid_key, name, name_key, live_name_key, kind, "
                "creator_id, created, "
                "editor_id, modified) VALUES (:id, :guid, :key, 'n', 'n', :live, 'Tender', "
                ":creator, 0, :editor, 0)",
            { { "id", id }, { "guid", std::to_string(id) }, { "key", std::to_string(id) },
                { "live", std::to_string(id) }, { "creator", creator }, { "editor", creator } });
        return id;
    }

    std::string folder;
    Config config;
    std::unique_ptr<Db> db;
};

TEST_F(ServerStore, RunsWithTheSafeSettings)
{
    EXPECT_EQ(db->value<std::string>("PRAGMA journal_mode"), "wal");
    EXPECT_EQ(db->value<int>("PRAGMA synchronous"), 2) << "FULL";
    EXPECT_EQ(db->value<int>("PRAGMA foreign_keys"), 1);
}

TEST_F(ServerStore, AMissingFileIsNotMadeByLookingAtIt)
{
    EXPECT_THROW(Db(folder + "/none.sqlite"), DbError);
    EXPECT_FALSE(std::filesystem::exists(folder + "/none.sqlite"));
}

TEST_F(ServerStore, ReadsAndWritesEveryType)
{
    db->execute("CREATE TABLE t (a BIGINT, b TEXT, c SMALLINT)");
    const std::int64_t large = 9'007'199'254'740'993;
    const std::string text = "q'\"; DROP TABLE t; --\xC3\xA4";
    EXPECT_EQ(db->run("INSERT INTO t (a, b, c) VALUES (:a, :b, :c)",
                  { { "a", large }, { "b", text }, { "c", true } }),
        1);
    db->run("INSERT INTO t (a, b, c) VALUES (:a, :b, :c)",
        { { "a", std::optional<std::int64_t>() }, { "b", std::optional<std::string>() },
            { "c", false } });
    const auto rows = db->rows<std::optional<std::int64_t>, std::optional<std::string>, bool>(
        "SELECT a, b, c FROM t");
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_EQ(std::get<0>(rows[0]), large);
    EXPECT_EQ(std::get<1>(rows[0]), text);
    EXPECT_TRUE(std::get<2>(rows[0]));
    EXPECT_FALSE(std::get<0>(rows[1]));
    EXPECT_FALSE(std::get<1>(rows[1]));
    EXPECT_THROW(db->rows<std::int64_t>("SELECT a FROM t"), DbError)
        << "null where none was expected";
    EXPECT_EQ(db->value<std::int64_t>("SELECT count(*) FROM t"), 2);
    EXPECT_EQ(db->value<std::string>("SELECT count(*) FROM t"), "2")
        << "the same text asked in another type";
}

TEST_F(ServerStore, AStatementMayRunWithinItself)
{
    db->execute("CREATE TABLE t (a BIGINT)");
    for (int i = 0; i < 3; ++i)
        db->run("INSERT INTO t (a) VALUES (:a)", { { "a", i } });
    int inner = 0;
    db->each<int>("SELECT a FROM t", {},
        [&](int) { db->each<int>("SELECT a FROM t", {}, [&](int) { ++inner; }); });
    EXPECT_EQ(inner, 9);
}

TEST_F(ServerStore, ErrorsSayWhatKindTheyAre)
{
    db->execute("CREATE TABLE t (a BIGINT PRIMARY KEY, b BIGINT NOT NULL UNIQUE)");
    db->run("INSERT INTO t (a, b) VALUES (1, 1)");
    for (const char *sql :
        { "INSERT INTO t (a, b) VALUES (1, 2)", "INSERT INTO t (a, b) VALUES (2, 1)" }) {
        try {
            db->run(sql);
            FAIL();
        } catch (const DbError &error) {
            EXPECT_TRUE(error.isUnique()) << error.what();
        }
    }
    try {
        db->run("INSERT INTO t (a, b) VALUES (3, NULL)");
        FAIL();
    } catch (const DbError &error) {
        EXPECT_EQ(error.kind(), DbError::Kind::Constraint);
    }
    EXPECT_EQ(db->run("INSERT INTO t (a, b) VALUES (4, 4)"), 1) << "the connection goes on";
}

TEST_F(ServerStore, WhatIsNotCommittedIsGone)
{
    db->execute("CREATE TABLE t (a BIGINT)");
    {
        Transaction transaction(*db, Transaction::Kind::Write);
        db->run("INSERT INTO t (a) VALUES (1)");
    }
    EXPECT_EQ(db->value<int>("SELECT count(*) FROM t"), 0);
    Transaction transaction(*db, Transaction::Kind::Write);
    db->run("INSERT INTO t (a) VALUES (1)");
    {
        Savepoint part(*db);
        db->run("INSERT INTO t (a) VALUES (2)");
    }
    {
        Savepoint part(*db);
        db->run("INSERT INTO t (a) VALUES (3)");
        part.keep();
    }
    transaction.commit();
    EXPECT_EQ(db->value<int>("SELECT sum(a) FROM t"), 4);
}

TEST_F(ServerStore, AReaderSeesOneSnapshot)
{
    db->execute("CREATE TABLE t (a BIGINT)");
    Db reader(file());
    Transaction reading(reader, Transaction::Kind::Read);
    EXPECT_EQ(reader.value<int>("SELECT count(*) FROM t"), 0);
    db->run("INSERT INTO t (a) VALUES (1)");
    EXPECT_EQ(reader.value<int>("SELECT count(*) FROM t"), 0);
    reading.commit();
    EXPECT_EQ(reader.value<int>("SELECT count(*) FROM t"), 1);
}

TEST_F(ServerStore, KeysAreDisjointAcrossConnections)
{
    Db other(file());
    EXPECT_EQ(nextKey(*db, "x"), 1);
    EXPECT_EQ(nextKey(other, "x", 10), 2);
    EXPECT_EQ(nextKey(*db, "x"), 12);
    EXPECT_EQ(nextKey(*db, "y"), 1);
}

TEST_F(ServerStore, ThePoolWritesInOrderAndPutsWokenJobsFirst)
{
    std::vector<int> order;
    {
        DbPool pool(file(), 1);
        std::promise<void> gate;
        auto opened = gate.get_future().share();
        pool.write([&, opened](Db &) { opened.wait(); });
        pool.write([&](Db &) { order.push_back(3); });
        pool.writeNext({ [&](Db &) { order.push_back(1); }, [&](Db &) { order.push_back(2); } });
        gate.set_value();
    }
    EXPECT_EQ(order, (std::vector<int> { 1, 2, 3 }));
}

/// A try with a wrong password: the tries left, nothing when there was none.
std::optional<int> fail(Db &db, Time now, const std::string &email, const std::string &address)
{
    const auto counted = beginLoginTry(db, now, email, address);
    if (!counted)
        return std::nullopt;
    EXPECT_FALSE(counted->mustWait);
    judgeWrong(db, counted->row);
    return counted->left;
}

TEST_F(ServerStore, FailuresAreCountedForAccountAndAddress)
{
    for (int left = 4; left >= 0; --left)
        EXPECT_EQ(fail(*db, 1, "a", "1.1.1.1"), left);
    EXPECT_FALSE(beginLoginTry(*db, 2, "a", "1.1.1.1"));
    EXPECT_EQ(beginLoginTry(*db, 2, "a", "2.2.2.2")->left, 4) << "from another address";
    EXPECT_EQ(beginLoginTry(*db, 2, "b", "1.1.1.1")->left, 4) << "another account";
    EXPECT_FALSE(beginLoginTry(*db, 10 * minute, "a", "1.1.1.1"));
    EXPECT_EQ(beginLoginTry(*db, 10 * minute + 2, "a", "1.1.1.1")->left, 4) << "after ten minutes";
}

TEST_F(ServerStore, FiftyFailuresAnHourLockAnAccountFromEverywhere)
{
    for (int i = 0; i < 50; ++i)
        ASSERT_TRUE(fail(*db, 1000 + i, "a", "10.0.0." + std::to_string(i)));
    EXPECT_FALSE(beginLoginTry(*db, 2000, "a", "10.0.1.1"));
    EXPECT_TRUE(beginLoginTry(*db, 2000, "b", "10.0.1.1"));
    EXPECT_FALSE(beginLoginTry(*db, 59 * minute, "a", "10.0.1.1"));
    EXPECT_TRUE(beginLoginTry(*db, 61 * minute, "a", "10.0.1.1"));
}

TEST_F(ServerStore, ThirtyFailuresInTenMinutesLockAnAddress)
{
    for (int i = 0; i < 30; ++i) {
        const auto counted = beginLoginTry(*db, 1000 + i, "user" + std::to_string(i), "10.0.0.1");
        ASSERT_TRUE(counted && !counted->mustWait);
        judgeWrong(*db, counted->row);
    }
    EXPECT_FALSE(beginLoginTry(*db, 2000, "another", "10.0.0.1"));
    EXPECT_TRUE(beginLoginTry(*db, 2000, "another", "10.0.0.2"));
}

TEST_F(ServerStore, TriesUnderWayLetOthersFromTheirAddressWaitAndLockNobody)
{
    std::vector<std::int64_t> rows;
    for (int i = 0; i < 30; ++i)
        rows.push_back(beginLoginTry(*db, 1000, "user" + std::to_string(i), "10.0.0.1")->row);
    EXPECT_TRUE(beginLoginTry(*db, 1000, "next", "10.0.0.1")->mustWait);
    EXPECT_FALSE(beginLoginTry(*db, 1000, "next", "10.0.0.2")->mustWait);
    takeBackTry(*db, rows[0]);
    forgetFailures(*db, "user1", "10.0.0.1");
    EXPECT_FALSE(beginLoginTry(*db, 1000, "next", "10.0.0.1")->mustWait);
    EXPECT_FALSE(beginLoginTry(*db, 1000, "last", "10.0.0.1")->mustWait);
    judgeWrong(*db, rows[2]);
    EXPECT_TRUE(beginLoginTry(*db, 1000, "more", "10.0.0.1")->mustWait) << "a failure stands";
    EXPECT_FALSE(beginLoginTry(*db, 62'000, "more", "10.0.0.1")->mustWait)
        << "what was never answered";
}

TEST_F(ServerStore, TheEndOfASessionFreesWhatWasBoundToIt)
{
    const std::int64_t user = addUser(*db, 1, "a@b", "A", "x");
    const std::int64_t first = addSession(*db, config, 1, { user, "t1", "d", "a", "v", "p" });
    const std::int64_t other = addSession(*db, config, 1, { user, "t2", "d", "a", "v", "p" });
    for (const auto &[id, session] :
        { std::pair(project(1, user), first), { project(2, user), other } }) {
        db->run("UPDATE project SET lock_session = :s, lock_user = :u, lock_until = 99, lock_gen = "
                "5, plock_session = :s2, "
                "plock_user = :u2 WHERE id = :id",
            { { "s", session }, { "u", user }, { "s2", session }, { "u2", user }, { "id", id } });
        db->run("INSERT INTO project_open (project_id, user_id, session_id, since) VALUES (:p, :u, "
                ":s, 0)",
            { { "p", id }, { "u", user }, { "s", session } });
        db->run("INSERT INTO blob (sha256, size, created) VALUES (:b, 1, 0)",
            { { "b", std::to_string(id) } });
        db->run("INSERT INTO stage (project_id, part, generation, session_id, blob, md5, size, at) "
                "VALUES (:p, 'log', 5, :s, :b, '', 1, 0)",
            { { "p", id }, { "s", session }, { "b", std::to_string(id) } });
    }
    db->run("INSERT INTO global_lock (type, user_id, name, email, session_id, at, until) VALUES "
            "(1, :u, '', '', :s, 0, 9)",
        { { "u", user }, { "s", first } });
    db->run("INSERT INTO global_lock (type, user_id, name, email, session_id, at, until) VALUES "
            "(2, :u, '', '', NULL, 0, 9)",
        { { "u", user } });

    EXPECT_EQ(endSession(*db, first).unlockedProjects, std::vector<std::int64_t> { 1 });
    EXPECT_EQ(db->value<int>("SELECT count(*) FROM session"), 1);
    EXPECT_EQ(db->value<int>("SELECT count(*) FROM project WHERE lock_session IS NOT NULL"), 1);
    EXPECT_EQ(db->value<int>("SELECT count(*) FROM project WHERE plock_session IS NOT NULL"), 1);
    EXPECT_EQ(db->value<int>("SELECT lock_gen FROM project WHERE id = 1"), 5)
        << "the next holder raises it";
    EXPECT_EQ(db->value<int>("SELECT project_id FROM project_open"), 2);
    EXPECT_EQ(db->value<int>("SELECT project_id FROM stage"), 2);
    EXPECT_EQ(db->value<int>("SELECT type FROM global_lock"), 2) << "a lock without the flag stays";
    endSessionsOf(*db, user, other);
    EXPECT_EQ(db->value<int>("SELECT count(*) FROM session"), 1);
    endSessionsOf(*db, user);
    EXPECT_EQ(db->value<int>("SELECT count(*) FROM session"), 0);
}

TEST_F(ServerStore, ASessionThatHoldsALogLockOutlivesItsAbsoluteEnd)
{
    const std::int64_t user = addUser(*db, 1, "a@b", "A", "x");
    const std::int64_t session = addSession(*db, config, 1, { user, "t", "d", "a", "v", "p" });
    project(1, user);
    const Time late = config.sessionAbsolute + 10;
    touchSession(*db, config, late, session);
    EXPECT_FALSE(findSession(*db, config, late, "t"));
    EXPECT_EQ(expiredSessions(*db, config, late, 9).size(), 1U);
    db->run("UPDATE project SET lock_session = :s, lock_until = :t WHERE id = 1",
        { { "s", session }, { "t", late + 1 } });
    EXPECT_TRUE(findSession(*db, config, late, "t"));
    EXPECT_TRUE(expiredSessions(*db, config, late, 9).empty());
    EXPECT_EQ(longestIdleSession(*db, user), std::nullopt) << "nor is it ended to make room";
}

TEST_F(ServerStore, ATouchIsRareAndRenewsLeases)
{
    const std::int64_t user = addUser(*db, 1, "a@b", "A", "x");
    const std::int64_t session = addSession(*db, config, 1000, { user, "t", "d", "a", "v", "p" });
    project(1, user);
    auto row = findSession(*db, config, 1000, "t");
    EXPECT_FALSE(isTouchDue(config, 59 * second, *row));
    EXPECT_TRUE(isTouchDue(config, 61 * second, *row));
    db->run("UPDATE project SET lock_session = :s, lock_until = :t WHERE id = 1",
        { { "s", session }, { "t", 1000 + config.lockLease } });
    row = findSession(*db, config, 1000, "t");
    EXPECT_FALSE(isTouchDue(config, 1000 + 29 * second, *row));
    EXPECT_TRUE(isTouchDue(config, 1000 + 31 * second, *row)) << "less than 90 s are left";
    touchSession(*db, config, 1000 + 31 * second, session);
    EXPECT_EQ(db->value<Time>("SELECT lock_until FROM project WHERE id = 1"),
        1000 + 31 * second + config.lockLease);
}

TEST_F(ServerStore, ATokenIsStoredOnlyAsItsDigest)
{
    const std::int64_t user = addUser(*db, 1, "a@b", "A", "x");
    addSession(*db, config, 1, { user, "the-token", "d", "a", "v", "p" });
    EXPECT_NE(db->value<std::string>("SELECT token FROM session"), "the-token");
    EXPECT_FALSE(findSession(*db, config, 1, *db->value<std::string>("SELECT token FROM session")));
    EXPECT_TRUE(findSession(*db, config, 1, "the-token"));
    setDisabled(*db, user, true);
    EXPECT_FALSE(findSession(*db, config, 1, "the-token"));
}

TEST_F(ServerStore, AnAnnouncementRaisesTheProjectsRevision)
{
    project(7, addUser(*db, 1, "a@b", "A", "x"));
    Announcement announcement { "notifymsg_projectlist", "Save", "{}", 7, {}, "a@b" };
    addAnnouncement(*db, 5, announcement);
    addAnnouncement(*db, 6, announcement);
    addAnnouncement(*db, 6, { "notifymsg_role", "Update", "{}", std::nullopt, "roles", "" });
    const auto rows = unsentRows(*db, 0, 10);
    ASSERT_EQ(rows.size(), 3U);
    EXPECT_EQ(rows[0].seq, 1);
    EXPECT_EQ(rows[1].seq, 2);
    EXPECT_EQ(rows[2].topic, "roles");
    EXPECT_EQ(unsentRows(*db, rows[0].id, 1).front().id, rows[1].id);
    markSent(*db, rows[0].id, 1, 1000);
    EXPECT_EQ(unsentRows(*db, 0, 10).size(), 2U);
    EXPECT_EQ(dropSentRows(*db, 1001), 1);
    EXPECT_EQ(dropSentRows(*db, 1'000'000), 0) << "what was not sent stays for ever";
    announcement.projectId = 99;
    EXPECT_THROW(addAnnouncement(*db, 6, announcement), DbError);
}

TEST_F(ServerStore, TheAuditChainShowsAnAlteredRow)
{
    AuditEntry entry;
    entry.service = "login";
    entry.object = "a\n1:b";
    addAudit(*db, 1, 5, entry);
    addAudit(*db, 1, 5, entry);
    addAudit(*db, 2, 5, entry);
    const auto chains
        = db->rows<std::string>("SELECT chain FROM audit ORDER BY process_id, number");
    ASSERT_EQ(chains.size(), 3U);
    EXPECT_NE(chains[0], chains[1]) << "each link depends on the one before";
    EXPECT_EQ(db->value<int>("SELECT max(number) FROM audit WHERE process_id = 1"), 2);
}

TEST_F(ServerStore, OnlyTheFirstRoleCountsForAdministrators)
{
    RoleRights rights;
    const std::int64_t plain = addRole(*db, "Plain", rights);
    rights.administrator = true;
    const std::int64_t admin = addRole(*db, "Admin", rights);
    const std::int64_t user = addUser(*db, 1, "a@b", "A", "x");
    assignRole(*db, admin, user);
    EXPECT_EQ(countEnabledAdministrators(*db), 1);
    EXPECT_TRUE(assignRole(*db, plain, user));
    EXPECT_FALSE(assignRole(*db, plain, user));
    EXPECT_EQ(countEnabledAdministrators(*db), 0) << "the plain role stands before";
}

TEST(ServerHeld, AreTakenInTheOrderOfTheirNumbersAndEndInTime)
{
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<int> over;
    HeldRequests<int> held([&](std::shared_ptr<int> item) {
        const std::lock_guard<std::mutex> lock(mutex);
        over.push_back(*item);
        changed.notify_all();
    });
    const auto later = std::chrono::steady_clock::now() + std::chrono::hours(1);
    const auto first = held.takeNumber();
    const auto second = held.takeNumber();
    held.hold("a", 0, second, later, std::make_shared<int>(2));
    held.hold("a", 0, first, later, std::make_shared<int>(1));
    held.hold("b", 0, held.takeNumber(),
        std::chrono::steady_clock::now() + std::chrono::milliseconds(20), std::make_shared<int>(3));
    held.hold("c", 0, held.takeNumber(), later, std::make_shared<int>(4));
    const auto taken = held.take("a");
    ASSERT_EQ(taken.size(), 2U);
    EXPECT_EQ(*taken[0], 1);
    EXPECT_EQ(*taken[1], 2);
    EXPECT_TRUE(held.take("a").empty());
    std::unique_lock<std::mutex> lock(mutex);
    EXPECT_TRUE(changed.wait_for(
        lock, std::chrono::seconds(10), [&] { return over == std::vector<int> { 3 }; }));
    lock.unlock();
    held.releaseAll();
    held.hold("d", 0, held.takeNumber(), later, std::make_shared<int>(5));
    lock.lock();
    EXPECT_TRUE(changed.wait_for(lock, std::chrono::seconds(10), [&] { return over.size() == 3; }));
}

TEST(ServerWork, AFullQueueRefusesAndAStoppedPoolTakesNothing)
{
    WorkPool pool(1, 2);
    std::promise<void> gate;
    auto opened = gate.get_future().share();
    std::promise<void> running;
    std::atomic<int> done { 0 };
    ASSERT_TRUE(pool.submit([&] {
        running.set_value();
        opened.wait();
        ++done;
    }));
    running.get_future().wait();
    EXPECT_TRUE(pool.submit([&] { ++done; }));
    EXPECT_TRUE(pool.submit([&] { ++done; }));
    EXPECT_FALSE(pool.submit([&] { ++done; }));
    gate.set_value();
    pool.stop();
    EXPECT_GE(done, 1);
    EXPECT_FALSE(pool.submit([] {}));
}

} // namespace
