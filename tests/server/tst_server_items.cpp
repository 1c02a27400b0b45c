#include "ServiceHarness.h"
#include "services/ItemIds.h"
#include "store/Db.h"
#include "store/ItemStore.h"
#include "support/Watchdog.h"

#include <algorithm>
#include <chrono>
#include <set>
#include <sstream>
#include <thread>

using namespace kvx::test;
using namespace kvx::server;

namespace {

const std::string guid = guidOf(1);

struct Items : testing::Test {
    ServiceHarness harness;
    Session admin = harness.join("root@example.com", "Administrator");
    Session anna = harness.join("anna@example.com");
    Session ben = harness.join("ben@example.com");
    Session rita = harness.join("rita@example.com", "Reviewer");

    void SetUp() override
    {
        ASSERT_EQ(anna.ask(newProject(anna, guid, "School")).status(), 1);
        ASSERT_EQ(permit(anna, guid, { { "ben@example.com", "1,1,1,1" } }).status(), 1);
        harness.takeSent();
    }
    Answer checkOut(
        const Session &session, const std::string &ids, bool notify = false, int module = 3)
    {
        return session.ask(Message("checkout")
                               .set("ProjectGUID", guid)
                               .set("ModuleType", module)
                               .set("NotifyOther", notify)
                               .set("IDs", ids));
    }
    Answer checkIn(const Session &session, const std::string &ids, int module = 3)
    {
        return session.ask(
            Message("checkin").set("ProjectGUID", guid).set("ModuleType", module).set("IDs", ids));
    }
    Answer checkInAll(const Session &session, int project = 1)
    {
        return session.ask(Message("checkinall").set("ProjectGUID", guidOf(project)));
    }
    /// "5 anna 1, 6 ben 0": the entries in order.
    static std::string infoOf(const Answer &answer)
    {
        std::string all;
        for (const auto &item : answer["CheckoutInfo"].GetArray()) {
            EXPECT_EQ(item.MemberCount(), 4u);
            const std::string email = item["Email"].GetString();
            std::string name = item["Name"].GetString();
            if (!name.empty())
                name[0] = static_cast<char>(std::tolower(name[0]));
            EXPECT_EQ(email.substr(0, email.find('@')), name);
            all += (all.empty() ? "" : ", ") + std::to_string(item["ID"].GetInt()) + ' ' + name
                + ' ' + std::to_string(item["State"].GetInt());
        }
        return all;
    }
    std::string picture(const Session &session, int module = 3)
    {
        const Answer answer = checkOut(session, "", false, module);
        EXPECT_EQ(answer.status(), 1) << answer.json();
        return infoOf(answer);
    }
    std::string sent()
    {
        std::string all;
        for (const auto &message : harness.takeSent()) {
            EXPECT_EQ(message.type, "notifymsg_checkout");
            rapidjson::Document content;
            content.Parse(message.content.c_str());
            EXPECT_EQ(content.MemberCount(), 3u);
            EXPECT_EQ(content["Command"].GetString(), message.command);
            all += (all.empty() ? "" : " ") + message.command
                + std::to_string(content["ModuleType"].GetInt());
        }
        return all;
    }
    std::int64_t number(const char *sql) { return harness.db().value<std::int64_t>(sql).value(); }
};

} // namespace

TEST(ItemsBehindAProxy, ARequestCountsOnceHoweverManyStepsItsAnswerTakes)
{
    // Nobody knows there what was told, so each picture is a whole one, made in a second step.
    ServiceHarness harness([](Config &config) { config.trustedProxies = { "127.0.0.1" }; });
    const Session anna = harness.join("anna@example.com");
    ASSERT_EQ(anna.ask(newProject(anna, guid, "School")).status(), 1);
    const Session fresh = harness.login("anna@example.com", "laptop");
    harness.stopClock();
    int taken = 0;
    Message picture("checkout");
    picture.set("ProjectGUID", guid).set("ModuleType", 3).set("NotifyOther", false).set("IDs", "");
    while (taken < 6000 && fresh.ask(picture).status() == 1)
        ++taken;
    EXPECT_EQ(taken, 5000) << "the burst of a session";
}

TEST(ItemIds, AreReadFromText)
{
    using Ids = std::vector<std::int64_t>;
    EXPECT_EQ(parseItemIds(""), Ids {});
    EXPECT_EQ(parseItemIds("5"), Ids { 5 });
    EXPECT_EQ(parseItemIds("5;"), Ids { 5 });
    EXPECT_EQ(parseItemIds("7;0;2147483647;7;"), (Ids { 0, 7, 2147483647 }));
    EXPECT_EQ(parseItemIds("007;"), Ids { 7 });
    for (const char *bad : { ";", ";;", "5;;", "-1;", "-0;", "+1;", " 1;", "1 ;", "1,2", "a;",
             "1a;", "2147483648;", "99999999999999999999;", "1.0;", "0x1;", "1;\n", "5; 6;" })
        EXPECT_THROW(parseItemIds(bad), BadRequest) << bad;
    std::string many;
    for (int i = 0; i < 500'000; ++i)
        many += "1;";
    EXPECT_EQ(parseItemIds(many), Ids { 1 });
    EXPECT_THROW(parseItemIds(many + "1"), BadRequest);
}

TEST_F(Items, ACheckOutAnswersOneEntryForEachId)
{
    const Answer answer = checkOut(anna, "7;5;7;6");
    EXPECT_EQ(answer.json(),
        R"({"statuscode":1,"CheckoutInfo":[)"
        R"({"ID":5,"Email":"anna@example.com","Name":"Anna","State":1},)"
        R"({"ID":6,"Email":"anna@example.com","Name":"Anna","State":1},)"
        R"({"ID":7,"Email":"anna@example.com","Name":"Anna","State":1}]})");
    EXPECT_EQ(checkOut(anna, "5;6;").status(), 1) << "a repeat";
    EXPECT_EQ(sent(), "") << "without NotifyOther nobody is told";
    EXPECT_EQ(picture(ben), "5 anna 1, 6 anna 1, 7 anna 1");
    EXPECT_EQ(picture(ben, 4), "") << "modules do not know of each other";
}

TEST_F(Items, ACheckOutIsAllOrNothing)
{
    ASSERT_EQ(checkOut(anna, "5;").status(), 1);
    ASSERT_EQ(checkOut(ben, "3;").status(), 1);
    ASSERT_EQ(checkOut(ben, "4;").status(), 1);
    ASSERT_EQ(checkIn(ben, "4;").status(), 1);
    harness.takeSent();
    const Answer refused = checkOut(ben, "3;4;5;6;", true);
    EXPECT_EQ(refused.status(), 620);
    EXPECT_EQ(refused.text("message"), "1 of the items are checked out by others.");
    EXPECT_EQ(infoOf(refused), "5 anna 1, 3 ben 1, 4 ben 0, 6  0")
        << "others' first, each in its true state";
    EXPECT_EQ(sent(), "") << "a refused check-out announces nothing";
    EXPECT_EQ(number("SELECT count(*) FROM item WHERE state = 1"), 2);
    EXPECT_EQ(checkOut(ben, "4;6;").status(), 1);
}

TEST_F(Items, ARefusedCheckOutShowsTenThousandItemsAtMostOthersFirst)
{
    std::string mine, all;
    for (int i = 1; i <= 12'000; ++i) {
        all += std::to_string(i) + ';';
        if (i > 11'000)
            mine += std::to_string(i) + ';';
    }
    ASSERT_EQ(checkOut(anna, mine).status(), 1);
    const Answer refused = checkOut(ben, all);
    EXPECT_EQ(refused.status(), 620);
    EXPECT_EQ(refused.text("message"), "1000 of the items are checked out by others.");
    const auto &info = refused["CheckoutInfo"];
    ASSERT_EQ(info.Size(), 10'000u);
    for (unsigned i = 0; i < 1000; ++i)
        ASSERT_EQ(info[i]["ID"].GetUint(), 11'001 + i);
    EXPECT_EQ(info[1000]["ID"].GetInt(), 1);
    EXPECT_EQ(info[1000]["State"].GetInt(), 0);
}

TEST_F(Items, OthersAreToldWhereThatIsAskedFor)
{
    EXPECT_EQ(checkOut(anna, "5;", true).status(), 1);
    EXPECT_EQ(sent(), "CheckOut3");
    EXPECT_EQ(checkOut(anna, "5;", true).status(), 1);
    EXPECT_EQ(sent(), "CheckOut3") << "after a retry again";
    EXPECT_EQ(checkOut(anna, "", true, -7).status(), 1);
    EXPECT_EQ(sent(), "CheckOut-7") << "for an empty list too";
    EXPECT_EQ(checkOut(rita, "", true).status(), 1);
    EXPECT_EQ(sent(), "") << "a reader has nothing to say";
}

TEST_F(Items, RefusalsComeWithAnEmptyList)
{
    EXPECT_EQ(checkOut(rita, "5;").json().find(R"({"statuscode":300)"), 0u);
    EXPECT_EQ(infoOf(checkOut(rita, "5;")), "");
    ASSERT_EQ(admin.ask(Message("projectlock").set("ProjectGUID", guid).set("ReleaseLock", false))
                  .status(),
        1);
    const Answer locked = checkOut(anna, "5;");
    EXPECT_EQ(locked.status(), 314);
    EXPECT_EQ(infoOf(locked), "");
    EXPECT_EQ(picture(anna), "") << "reading is allowed";
    EXPECT_EQ(infoOf(checkOut(admin, "5,6")), "");
    EXPECT_EQ(checkOut(admin, "5,6").status(), 100);
    const Session stranger = harness.join("sam@example.com");
    EXPECT_EQ(checkOut(stranger, "").status(), 310);
    EXPECT_EQ(infoOf(checkOut(stranger, "")), "");
}

TEST_F(Items, InMaintenanceOneReadsAndChecksIn)
{
    ASSERT_EQ(checkOut(anna, "5;").status(), 1);
    harness.db().execute("INSERT INTO meta (name, value) VALUES ('read_only', '1')");
    EXPECT_EQ(checkOut(anna, "6;").status(), 104);
    EXPECT_EQ(picture(ben), "5 anna 1");
    EXPECT_EQ(checkOut(ben, "", true).status(), 1);
    EXPECT_EQ(sent(), "");
    EXPECT_EQ(checkIn(anna, "5;").status(), 1);
    EXPECT_EQ(checkInAll(anna).status(), 1);
    EXPECT_EQ(anna.ask(Message("allocateidrange").set("ProjectGUID", guid).set("NewRange", true))
                  .status(),
        104);
}

TEST_F(Items, CheckInFreesOnesOwnItemsOnly)
{
    ASSERT_EQ(checkOut(anna, "5;6;").status(), 1);
    ASSERT_EQ(checkOut(ben, "7;").status(), 1);
    const Answer refused = checkIn(ben, "6;7;8;");
    EXPECT_EQ(refused.status(), 621);
    EXPECT_EQ(refused.text("message"), "1 of the items are checked out by somebody else.");
    EXPECT_EQ(infoOf(refused), "6 anna 1, 7 ben 1, 8  0");
    EXPECT_EQ(number("SELECT count(*) FROM item WHERE state = 1"), 3);
    EXPECT_EQ(sent(), "");
    EXPECT_EQ(checkIn(ben, "7;8;").json(), R"({"statuscode":1})");
    EXPECT_EQ(sent(), "CheckIn3");
    EXPECT_EQ(checkIn(ben, "7;8;").status(), 1) << "a repeat";
    EXPECT_EQ(checkIn(admin, "5;").status(), 1) << "an administrator frees anybody's";
    EXPECT_EQ(picture(admin), "6 anna 1, 5 anna 0, 7 ben 0");
    EXPECT_EQ(checkIn(rita, "5;").status(), 300);
    EXPECT_EQ(checkOut(ben, "5;").status(), 1);
}

TEST_F(Items, ThePictureTellsOnceWhatWasFreedOnEachConnection)
{
    ASSERT_EQ(checkOut(anna, "1;2;3;").status(), 1);
    EXPECT_EQ(picture(ben), "1 anna 1, 2 anna 1, 3 anna 1");
    ASSERT_EQ(checkIn(anna, "2;").status(), 1);
    EXPECT_EQ(picture(ben), "1 anna 1, 3 anna 1, 2 anna 0");
    EXPECT_EQ(picture(ben), "1 anna 1, 3 anna 1")
        << "the second request proves that the first reply came";
    Session again = ben;
    again.connection = 1000;
    EXPECT_EQ(picture(again), "1 anna 1, 3 anna 1, 2 anna 0")
        << "on another connection nothing is proven";
    ASSERT_EQ(checkIn(anna, "1;").status(), 1);
    ASSERT_EQ(checkOut(anna, "2;").status(), 1);
    EXPECT_EQ(picture(ben), "2 anna 1, 3 anna 1, 1 anna 0");
    EXPECT_EQ(picture(again), "2 anna 1, 3 anna 1, 1 anna 0");
    harness.db().run(
        "UPDATE item SET at = at - :days WHERE state = 0", { { "days", 8 * 86'400'000LL } });
    again.connection = 1001;
    EXPECT_EQ(picture(again), "2 anna 1, 3 anna 1") << "what was freed long ago is told no more";
}

TEST_F(Items, APictureThatCouldNotBeGivenWasNotTold)
{
    ASSERT_EQ(checkOut(anna, "1;2;").status(), 1);
    EXPECT_EQ(picture(ben), "1 anna 1, 2 anna 1");
    ASSERT_EQ(checkIn(anna, "2;").status(), 1);
    harness.db().execute("CREATE TRIGGER full BEFORE INSERT ON outbox"
                         " BEGIN SELECT RAISE(ABORT, 'the disk is full'); END");
    EXPECT_EQ(checkOut(ben, "", true).status(), 0);
    harness.db().execute("DROP TRIGGER full");
    EXPECT_EQ(picture(ben), "1 anna 1, 2 anna 0") << "the refusal proves nothing";
    EXPECT_EQ(picture(ben), "1 anna 1");
}

TEST_F(Items, AnyNumberOfItemsIsCheckedOutAndIn)
{
    int module = 10;
    for (const int count : { 1, 2, 19, 20, 21, 199, 200, 201, 220, 221, 399, 401 }) {
        ++module;
        std::string ids;
        std::string held;
        std::string freed;
        for (int i = 1; i <= count; ++i) {
            const std::string id = std::to_string(i * (count % 2 ? 1 : 1000)); // dense, sparse
            ids += id + ';';
            held += (held.empty() ? "" : ", ") + id + " anna 1";
            freed += (freed.empty() ? "" : ", ") + id + " anna 0";
        }
        for (int round = 0; round < 2; ++round) { // new rows, then rows that are there
            EXPECT_EQ(infoOf(checkOut(anna, ids, false, module)), held) << count;
            EXPECT_EQ(picture(ben, module), held) << count;
            EXPECT_EQ(checkIn(anna, ids, module).status(), 1) << count;
            EXPECT_EQ(picture(ben, module), freed) << count;
        }
    }
    EXPECT_EQ(number("SELECT count(*) FROM item WHERE state = 1"), 0);
}

TEST_F(Items, NoItemsAreNoRows)
{
    Transaction transaction(harness.db(), Transaction::Kind::Write);
    ItemStore store(harness.db());
    store.checkOut({ 1, 3 }, {}, 1, 1);
    store.checkIn({ 1, 3 }, {}, 1);
    EXPECT_EQ(number("SELECT count(*) FROM item"), 0);
}

TEST_F(Items, BehindAProxyAConnectionProvesNothing)
{
    harness.config().trustedProxies = { "10.0.0.1" };
    ASSERT_EQ(checkOut(anna, "1;").status(), 1);
    ASSERT_EQ(checkIn(anna, "1;").status(), 1);
    EXPECT_EQ(picture(ben), "1 anna 0");
    EXPECT_EQ(picture(ben), "1 anna 0");
}

TEST_F(Items, CheckInAllFreesEveryModuleAndTellsForEach)
{
    ASSERT_EQ(checkOut(anna, "1;2;", false, 3).status(), 1);
    ASSERT_EQ(checkOut(anna, "1;", false, -4).status(), 1);
    ASSERT_EQ(checkOut(ben, "9;", false, 3).status(), 1);
    EXPECT_EQ(checkInAll(anna).json(), R"({"statuscode":1})");
    EXPECT_EQ(sent(), "CheckIn-4 CheckIn3");
    EXPECT_EQ(checkInAll(anna).status(), 1);
    EXPECT_EQ(sent(), "") << "nothing was freed";
    EXPECT_EQ(number("SELECT count(*) FROM item WHERE state = 1"), 1);
    ASSERT_EQ(permit(anna, guid, {}).status(), 1);
    harness.takeSent();
    EXPECT_EQ(checkInAll(ben).status(), 1) << "a former holder without access";
    const Session stranger = harness.join("sam@example.com");
    EXPECT_EQ(checkInAll(stranger).status(), 310);
    EXPECT_EQ(checkInAll(ben, 77).status(), 310);
}

TEST_F(Items, CheckOutsSurviveALogout)
{
    ASSERT_EQ(checkOut(anna, "1;").status(), 1);
    ASSERT_EQ(anna.ask(Message("logout")).status(), 1);
    EXPECT_EQ(checkOut(ben, "1;").status(), 620);
    EXPECT_EQ(checkOut(harness.login("anna@example.com"), "1;").status(), 1);
}

TEST_F(Items, CheckStatesAreCopiedToWhoMayWriteThere)
{
    ASSERT_EQ(anna.ask(newProject(anna, guidOf(2), "Copy")).status(), 1);
    ASSERT_EQ(checkOut(anna, "1;2;").status(), 1);
    ASSERT_EQ(checkOut(ben, "3;4;").status(), 1);
    ASSERT_EQ(checkOut(admin, "5;", false, 6).status(), 1);
    ASSERT_EQ(admin
                  .ask(Message("checkout")
                           .set("ProjectGUID", guidOf(2))
                           .set("ModuleType", 3)
                           .set("NotifyOther", false)
                           .set("IDs", "2;"))
                  .status(),
        1);
    harness.takeSent();
    const auto copy = [](const Session &who, int from, int to) {
        return who.askAs(Message("copycheckstate")
                             .set("oldProjectGuid", guidOf(from))
                             .set("newProjectGuid", guidOf(to)));
    };
    EXPECT_EQ(copy(ben, 1, 2).status(), 310);
    EXPECT_EQ(copy(anna, 7, 2).status(), 310);
    EXPECT_EQ(copy(rita, 1, 2).status(), 300);
    EXPECT_EQ(copy(anna, 1, 2).json(), R"({"statuscode":1})");
    EXPECT_EQ(sent(), "CheckOut3 CheckOut6");
    const Answer state = rita.ask(Message("checkout")
                                      .set("ProjectGUID", guidOf(2))
                                      .set("ModuleType", 3)
                                      .set("NotifyOther", false)
                                      .set("IDs", ""));
    EXPECT_EQ(infoOf(state), "1 anna 1, 2 root 1") << "Ben may not write there";
    EXPECT_EQ(copy(anna, 1, 2).status(), 1);
    EXPECT_EQ(sent(), "") << "a repeat changes nothing";
    EXPECT_EQ(copy(admin, 1, 2).status(), 1);
}

TEST_F(Items, ARepeatedCopyOfManyItemsIsQuickerThanTheFirst)
{
    ASSERT_EQ(anna.ask(newProject(anna, guidOf(2), "Copy")).status(), 1);
    std::string ids;
    for (int i = 1; i <= 100'000; ++i)
        ids += std::to_string(i) + ';';
    ASSERT_EQ(checkOut(anna, ids).status(), 1);
    const auto copy = [&] {
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(anna.askAs(Message("copycheckstate")
                                 .set("oldProjectGuid", guidOf(1))
                                 .set("newProjectGuid", guidOf(2)))
                      .status(),
            1);
        return std::chrono::steady_clock::now() - begin;
    };
    const auto first = copy();
    const auto repeated = copy();
    EXPECT_EQ(number("SELECT count(*) FROM item WHERE state = 1"), 200'000);
    EXPECT_LT(repeated, 3 * first) << "it only reads";
}

TEST_F(Items, SparseAndDenseListsGiveTheSameResult)
{
    ASSERT_EQ(checkOut(anna, "10;20;2000000000;").status(), 1);
    EXPECT_EQ(infoOf(checkOut(ben, "5;10;2147483647;")), "10 anna 1, 5  0, 2147483647  0");
    EXPECT_EQ(infoOf(checkOut(ben, "9;10;11;")), "10 anna 1, 9  0, 11  0");
    EXPECT_EQ(checkIn(anna, "20;2000000000;").status(), 1);
    EXPECT_EQ(picture(ben), "10 anna 1, 20 anna 0, 2000000000 anna 0");
}

namespace {

struct Blocks : Items {
    Answer allocate(const Session &session, bool fresh)
    {
        return session.ask(
            Message("allocateidrange").set("ProjectGUID", guid).set("NewRange", fresh));
    }
    static std::string range(const Answer &answer)
    {
        EXPECT_EQ(answer.keys(), "statuscode MinID MaxID") << answer.json();
        return std::to_string(answer.integer("MinID")) + '-'
            + std::to_string(answer.integer("MaxID"));
    }
};

} // namespace

TEST_F(Blocks, GrowWhenTheSameUserAsksAgainSoon)
{
    EXPECT_EQ(range(allocate(anna, true)), "1-1000");
    EXPECT_EQ(range(allocate(anna, true)), "1001-3000");
    EXPECT_EQ(range(allocate(ben, true)), "3001-4000");
    EXPECT_EQ(range(allocate(anna, true)), "4001-8000");
    for (int i = 0; i < 10; ++i)
        allocate(anna, true);
    const Answer largest = allocate(anna, true);
    EXPECT_EQ(largest.integer("MaxID") - largest.integer("MinID") + 1, 65536);
    harness.db().run("UPDATE item_block SET at = at - 600001");
    const Answer small = allocate(anna, true);
    EXPECT_EQ(small.integer("MaxID") - small.integer("MinID") + 1, 1000);
    EXPECT_EQ(allocate(rita, true).status(), 300);
}

TEST_F(Blocks, AreGivenAgainToTheSameUserAndDevice)
{
    const std::string first = range(allocate(anna, false));
    EXPECT_EQ(range(allocate(anna, false)), first);
    const Session laptop = harness.login("anna@example.com", "laptop");
    EXPECT_NE(range(allocate(laptop, false)), first) << "another device";
    const Session second = harness.login("anna@example.com", anna.device);
    const std::string other = range(allocate(second, false));
    EXPECT_NE(other, first) << "another present session works with it";
    ASSERT_EQ(second.ask(Message("logout")).status(), 1);
    EXPECT_EQ(range(allocate(anna, false)), other) << "the newest block of the device";
    EXPECT_NE(range(allocate(ben, false)), first);
}

TEST_F(Blocks, EndWithTheNumbers)
{
    harness.db().run("UPDATE project SET next_item = 2147483547");
    EXPECT_EQ(range(allocate(anna, true)), "2147483547-2147483647");
    const Answer none = allocate(anna, true);
    EXPECT_EQ(none.status(), 622);
    EXPECT_EQ(none.text("message"), "The project has no item numbers left.");
    harness.db().run("UPDATE project SET next_item = 2147483647");
    EXPECT_EQ(allocate(anna, true).status(), 622) << "a block has two numbers at least";
    harness.db().run("UPDATE project SET next_item = 2147483646");
    EXPECT_EQ(range(allocate(anna, true)), "2147483646-2147483647");
}

TEST_F(Blocks, AreDisjointOverTenThousandRangesOfEightClients)
{
    Watchdog::allow(600); // a commit for each range, on a slow disk too
    harness.config().idBlockMax = 1000;
    constexpr int clients = 8;
    constexpr int each = 1250;
    std::vector<Session> sessions;
    for (int i = 0; i < clients; ++i)
        sessions.push_back(harness.login(
            i % 2 ? "anna@example.com" : "ben@example.com", "device " + std::to_string(i)));
    std::vector<std::vector<std::pair<std::int64_t, std::int64_t>>> given(clients);
    std::vector<std::thread> threads;
    for (int i = 0; i < clients; ++i) {
        threads.emplace_back([&, i] {
            for (int n = 0; n < each; ++n) {
                const Answer answer = allocate(sessions[static_cast<std::size_t>(i)], true);
                if (answer.status() == 103) { // asked too fast
                    --n;
                    continue;
                }
                given[static_cast<std::size_t>(i)].emplace_back(
                    answer.integer("MinID"), answer.integer("MaxID"));
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    std::vector<std::pair<std::int64_t, std::int64_t>> all;
    for (const auto &ranges : given)
        all.insert(all.end(), ranges.begin(), ranges.end());
    ASSERT_EQ(all.size(), 10'000u);
    std::sort(all.begin(), all.end());
    for (std::size_t i = 1; i < all.size(); ++i)
        ASSERT_LT(all[i - 1].second, all[i].first);
}
