#include "projectdata/ProjectFixture.h"

#include <QSet>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace kvx::test {

namespace {

class Numbers : public ProjectFixture {
protected:
    Numbers() { open(0); }

    QJsonObject block(const QJsonValue &min, const QJsonValue &max, double code = 1) const
    {
        return { { QStringLiteral("statuscode"), code }, { QStringLiteral("MinID"), min },
            { QStringLiteral("MaxID"), max } };
    }
    void answerOnce(int min, int max)
    {
        host.network.answerOnce(QStringLiteral("allocateidrange"), block(min, max));
    }
    void answer(const QJsonValue &min, const QJsonValue &max, double code = 1)
    {
        host.network.answer(QStringLiteral("allocateidrange"), block(min, max, code));
    }
    int next() { return items->newItemId(&database); }
    /// "false" or "true" of the "NewRange" keys since the last call.
    QList<bool> asked()
    {
        QList<bool> newRanges;
        for (const QJsonObject &request : takeRequests("allocateidrange"))
            newRanges.append(request.value(QLatin1String("NewRange")).toBool());
        return newRanges;
    }
};

} // namespace

TEST_F(Numbers, theRequestNamesProjectAndUser)
{
    EXPECT_TRUE(items->attachDatabase(&database));
    QJsonObject request = json(R"({"service": "allocateidrange", "Email": "anna@example.com",
        "NewRange": false})");
    request.insert(QStringLiteral("ProjectGUID"), guid);
    EXPECT_EQ(host.network.takeRequest(), request);
    expectNoRequest(host);
}

TEST_F(Numbers, anEmptyRangeStartsAfterItsFirstNumber)
{
    answer(100, 199);
    EXPECT_TRUE(items->attachDatabase(&database));
    EXPECT_EQ(next(), 101);
    EXPECT_EQ(next(), 102);
    EXPECT_EQ(asked(), QList<bool> { false });
}

TEST_F(Numbers, theyContinueAfterTheHighestInUse)
{
    answer(100, 199);
    database.highest = { { QStringLiteral("item"), 150 }, { QStringLiteral("chapter"), 120 },
        { QStringLiteral("SQLite_Sequence"), 190 }, { QStringLiteral("rate"), -1 } };
    EXPECT_TRUE(items->attachDatabase(&database));
    EXPECT_EQ(next(), 151);
    EXPECT_EQ(database.scanned,
        (QStringList { QStringLiteral("chapter 100 199"), QStringLiteral("item 100 199"),
            QStringLiteral("rate 100 199") }));
}

TEST_F(Numbers, aDatabaseThatAnswersOutsideTheRangeIsNotBelieved)
{
    answer(100, 199);
    database.highest = { { QStringLiteral("item"), 500 }, { QStringLiteral("rate"), 99 },
        { QStringLiteral("chapter"), 150 } };
    EXPECT_TRUE(items->attachDatabase(&database));
    EXPECT_EQ(next(), 151);
}

TEST_F(Numbers, attachingNeedsARangeAndAPlace)
{
    answer(100, 199, 622);
    EXPECT_FALSE(items->attachDatabase(&database));
    answer(100, 199);
    EXPECT_FALSE(items->attachDatabase(nullptr)); // no place without a database
    EXPECT_TRUE(items->attachDatabase(&database));
    EXPECT_TRUE(items->attachDatabase(&database));
    EXPECT_EQ(asked(), (QList<bool> { false, false })); // the range is kept
    EXPECT_EQ(database.scanned.size(), 0);
}

TEST_F(Numbers, attachingAgainKeepsThePlace)
{
    answer(100, 199);
    EXPECT_TRUE(items->attachDatabase(&database));
    EXPECT_EQ(next(), 101);
    EXPECT_TRUE(items->attachDatabase(&database));
    EXPECT_EQ(next(), 102);
}

TEST_F(Numbers, theFirstNumberAsksForRangeAndPlaceItself)
{
    answer(100, 199);
    database.highest = { { QStringLiteral("item"), 110 } };
    EXPECT_EQ(next(), 111);
    EXPECT_EQ(next(), 112);
    EXPECT_EQ(asked(), QList<bool> { false });
    EXPECT_EQ(database.scanned.size(), 1);
}

TEST_F(Numbers, aRangeOfOneNumberOrBelowZeroIsNone)
{
    for (const auto &range : { qMakePair(100, 100), qMakePair(-5, 100), qMakePair(-1, -1),
             qMakePair(200, 100), qMakePair(0, 0) }) {
        answer(range.first, range.second);
        EXPECT_FALSE(items->attachDatabase(&database)) << range.first;
        EXPECT_EQ(next(), -1) << range.first;
    }
}

TEST_F(Numbers, missingOrIllTypedEndsAreNoRange)
{
    const QList<QJsonObject> replies { status(1), block(QStringLiteral("100"), 199),
        block(100, QStringLiteral("199")), block(100, 1e12), block(-1e300, 199),
        block(QJsonValue(), 199), json(R"({"statuscode": 1, "MaxID": 199})") };
    for (const QJsonObject &reply : replies) {
        host.network.answer(QStringLiteral("allocateidrange"), reply);
        EXPECT_FALSE(items->attachDatabase(&database));
        EXPECT_EQ(next(), -1);
    }
}

TEST_F(Numbers, theEndsAreTruncated)
{
    answer(100.9, 102.9);
    EXPECT_EQ(next(), 101);
    EXPECT_EQ(next(), 102);
}

TEST_F(Numbers, withoutAnyRangeANewOneIsAskedForAsWell)
{
    answer(0, 0, 622);
    EXPECT_EQ(next(), -1);
    EXPECT_EQ(asked(), (QList<bool> { false, true }));
    answerOnce(0, 0); // refused once more, the new block is granted
    answerOnce(300, 399);
    EXPECT_EQ(next(), 300);
}

TEST_F(Numbers, aUsedUpBlockIsFollowedByTheNext)
{
    answerOnce(100, 102);
    answerOnce(103, 105);
    QList<int> numbers;
    for (int i = 0; i < 5; ++i)
        numbers.append(next());
    EXPECT_EQ(numbers, (QList<int> { 101, 102, 103, 104, 105 }));
    EXPECT_EQ(asked(), (QList<bool> { false, true }));
}

TEST_F(Numbers, aDistantBlockStartsWithItsFirstNumber)
{
    answerOnce(100, 102);
    answerOnce(5000, 5002);
    answerOnce(9000, 9001);
    QList<int> numbers;
    for (int i = 0; i < 7; ++i)
        numbers.append(next());
    EXPECT_EQ(numbers, (QList<int> { 101, 102, 5000, 5001, 5002, 9000, 9001 }));
}

TEST_F(Numbers, aRefusedNewBlockGivesNone)
{
    answerOnce(100, 101);
    EXPECT_EQ(next(), 101);
    answer(0, 0, 622);
    EXPECT_EQ(next(), -1);
    EXPECT_EQ(next(), -1);
    answerOnce(200, 299);
    EXPECT_EQ(next(), 200); // asked again as soon as the server can
}

TEST_F(Numbers, aServerThatRepeatsItsBlockHasNone)
{
    answer(100, 101);
    EXPECT_EQ(next(), 101);
    EXPECT_EQ(next(), -1);
    EXPECT_EQ(asked(), (QList<bool> { false, true }));
    EXPECT_EQ(next(), -1);
    EXPECT_EQ(asked(), QList<bool> { true });
}

TEST_F(Numbers, blocksBelowTheNumbersInUseArePassedOver)
{
    answerOnce(1000, 1001);
    EXPECT_EQ(next(), 1001);
    answerOnce(1, 10);
    answerOnce(500, 1001); // overlaps what is in use
    answerOnce(2000, 2999);
    EXPECT_EQ(next(), 2000);
    EXPECT_EQ(asked().size(), 4);
}

TEST_F(Numbers, anOldBlockThatIsRepeatedIsNotAskedForAgain)
{
    answerOnce(1000, 1001);
    EXPECT_EQ(next(), 1001);
    answer(1, 10);
    EXPECT_EQ(next(), -1);
    EXPECT_EQ(asked(), (QList<bool> { false, true, true }));
}

TEST_F(Numbers, aServerThatAlternatesBetweenOldBlocksIsGivenUp)
{
    answerOnce(1000, 1001);
    EXPECT_EQ(next(), 1001);
    bool odd = false;
    host.network.handle(
        QStringLiteral("allocateidrange"), [&](const QJsonObject &, QJsonObject &reply) {
            odd = !odd;
            reply = odd ? block(1, 10) : block(11, 20);
            return true;
        });
    host.network.takeRequests();
    EXPECT_EQ(next(), -1);
    EXPECT_EQ(asked().size(), 100);
    answer(3000, 3999);
    EXPECT_EQ(next(), 3000); // and the refused blocks were not taken
}

TEST_F(Numbers, theHighestPossibleNumberIsHandedOut)
{
    answer(2147483645, 2147483647);
    EXPECT_EQ(next(), 2147483646);
    EXPECT_EQ(next(), 2147483647);
    EXPECT_EQ(next(), -1);
}

TEST_F(Numbers, aFullRangeInTheDatabaseAsksForTheNext)
{
    answerOnce(100, 199);
    answerOnce(200, 299);
    database.highest = { { QStringLiteral("item"), 199 } };
    EXPECT_EQ(next(), 200);
}

TEST_F(Numbers, registeredNumbersBringOnAScan)
{
    answer(100, 199);
    EXPECT_TRUE(items->attachDatabase(&database));
    database.highest = { { QStringLiteral("item"), 140 } };
    items->registerCreatedItems(4, { 140 });
    EXPECT_EQ(next(), 141);
    EXPECT_EQ(database.scanned.size(), 1);
    items->registerCreatedItems(4, { 160 });
    EXPECT_EQ(next(), 142); // scanned once
    EXPECT_EQ(database.scanned.size(), 1);
}

TEST_F(Numbers, aRegisteredNumberIsNotHandedOutAgain)
{
    answer(100, 199);
    items->registerCreatedItems(4, { 101, 102, 104 });
    EXPECT_EQ(next(), 103); // the database has not stored them yet
    EXPECT_EQ(next(), 105);
}

TEST_F(Numbers, aRescanReadsTheDatabaseAgain)
{
    answer(100, 199);
    items->setProjectDatabase(&database);
    EXPECT_TRUE(items->attachDatabase(&database));
    EXPECT_EQ(next(), 101);
    database.highest = { { QStringLiteral("item"), 180 } };
    items->rescan();
    EXPECT_EQ(next(), 181);
}

TEST_F(Numbers, aRescanRepeatsNoNumberThatIsNotStoredYet)
{
    answer(100, 199);
    items->setProjectDatabase(&database);
    EXPECT_EQ(next(), 101);
    EXPECT_EQ(next(), 102);
    items->rescan(); // nothing is in use as far as the database knows
    EXPECT_EQ(next(), 103);
}

TEST_F(Numbers, aRescanNeedsRangeAndDatabase)
{
    items->setProjectDatabase(&database);
    items->rescan();
    EXPECT_EQ(database.scanned.size(), 0);
    answer(100, 199);
    EXPECT_TRUE(items->attachDatabase(&database));
    EXPECT_EQ(next(), 101);
    items->setProjectDatabase(nullptr);
    items->rescan();
    EXPECT_EQ(next(), 102);
}

TEST_F(Numbers, withoutADatabaseNoneIsHandedOut)
{
    answer(100, 199);
    EXPECT_EQ(items->newItemId(nullptr), -1);
    EXPECT_EQ(asked(), QList<bool> { false });
    EXPECT_EQ(next(), 101);
}

TEST_F(Numbers, registeringWithoutARangeAsksForOneOnce)
{
    answer(0, 0, 622);
    EXPECT_TRUE(items->registerCreatedItems(4, { 1, 2, 3 }));
    EXPECT_EQ(asked(), QList<bool> { false });
    EXPECT_TRUE(items->registerCreatedItems(4, {}));
    EXPECT_EQ(asked(), QList<bool>());
}

TEST_F(Numbers, bothEndsBelongToTheRange)
{
    answer(100, 199);
    EXPECT_TRUE(items->registerCreatedItems(4, { 99, 100, 199, 200 }));
    items->checkOutNewItems();
    EXPECT_EQ(takeRequests("checkout").first().value(QLatin1String("IDs")).toString(),
        QStringLiteral("100;199;"));
}

TEST_F(Numbers, severalThreadsGetDifferentNumbers)
{
    constexpr int perThread = 3000;
    EXPECT_TRUE(items->attachDatabase(&database)); // blocks of a thousand from 1001 on
    std::atomic<int> asking { 0 };
    std::atomic<int> overlaps { 0 };
    host.network.handle(
        QStringLiteral("allocateidrange"), [&](const QJsonObject &, QJsonObject &reply) {
            overlaps += ++asking > 1 ? 1 : 0;
            std::this_thread::sleep_for(std::chrono::milliseconds(2)); // as a server takes
            reply = block(server.nextNumber, server.nextNumber + 999);
            server.nextNumber += 1000;
            --asking;
            return true;
        });
    std::vector<std::vector<int>> taken(4);
    std::vector<std::thread> threads;
    for (std::vector<int> &mine : taken) {
        threads.emplace_back([&mine, this] {
            for (int i = 0; i < perThread; ++i)
                mine.push_back(items->newItemId(&database));
        });
    }
    KVXItemCheckState holder;
    for (int i = 0; i < 200; ++i) { // the host thread goes on meanwhile
        items->registerCreatedItems(4, { 5, 6 });
        items->checkState(4, 1002, holder);
        items->checkOutNewItems();
    }
    for (std::thread &thread : threads)
        thread.join();

    QSet<int> all;
    for (const std::vector<int> &mine : taken) {
        EXPECT_TRUE(std::is_sorted(mine.begin(), mine.end()));
        for (const int number : mine)
            all.insert(number);
    }
    EXPECT_EQ(all.size(), 4 * perThread);
    EXPECT_FALSE(all.contains(-1));
    EXPECT_EQ(overlaps, 0);
    EXPECT_EQ(host.network.postCount(QStringLiteral("allocateidrange")), 13);
}

TEST_F(Numbers, changedMayAskForNumbersWhileAnotherThreadDoes)
{
    EXPECT_TRUE(items->attachDatabase(&database));
    items->registerCreatedItems(4, { 1500 });
    int mine = 0;
    QObject::connect(items, &KVXCWIDManager::changed, [&] {
        std::thread other([&] { mine = items->newItemId(&database); });
        other.join(); // would hang if a lock were held over the signal
    });
    items->checkOutNewItems();
    EXPECT_EQ(mine, 1002);
}

} // namespace kvx::test
