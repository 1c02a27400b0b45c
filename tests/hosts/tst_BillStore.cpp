#include "content/BillStore.h"
#include "content/Schema.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

using namespace kvx::content;

namespace {

class BillStoreTest : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(sqlite3_open(":memory:", &connection), SQLITE_OK);
        ASSERT_EQ(sqlite3_exec(
                      connection, projectSchema().toUtf8().constData(), nullptr, nullptr, nullptr),
            SQLITE_OK);
    }
    void TearDown() override { sqlite3_close(connection); }

    Bill bill() const
    {
        Bill bill;
        bill.chapters = { { -1, QStringLiteral("01"), QStringLiteral("A") },
            { 0, QStringLiteral("01.02"), QStringLiteral("B") },
            { -1, QStringLiteral("010"), QStringLiteral("C") } };
        const auto item = [](int chapter, const char *number, Thousandths quantity,
                              std::optional<Thousandths> rate, const char *kind = "") {
            Bill::Item made;
            made.chapter = chapter;
            made.number = QLatin1String(number);
            made.shortText = QStringLiteral("text");
            made.unit = QStringLiteral("m");
            made.quantity = quantity;
            made.rate = rate;
            made.kind = QLatin1String(kind);
            return made;
        };
        bill.items = { item(1, "01.02.1", 2000, 1500), item(2, "010.1", 3000, std::nullopt),
            item(0, "01.9", 1000, 100000, "optional"), item(-1, "X", 1500, 2000) };
        return bill;
    }

    sqlite3 *connection = nullptr;
    int next = 100;
    std::function<int()> ids = [this] { return next++; };
};

} // namespace

TEST_F(BillStoreTest, KeepsTheBillsOrderAndItsNumbers)
{
    BillStore store(connection);
    std::vector<int> chapters;
    std::vector<int> items;
    ASSERT_TRUE(store.append(bill(), ids, &chapters, &items));
    EXPECT_EQ(chapters, (std::vector<int> { 100, 101, 102 }));
    EXPECT_EQ(items, (std::vector<int> { 103, 104, 105, 106 }));
    const auto stored = store.items();
    ASSERT_EQ(stored.size(), 4u);
    EXPECT_EQ(stored.at(0).number, QStringLiteral("01.02.1"));
    EXPECT_EQ(stored.at(3).number, QStringLiteral("X"));
    EXPECT_FALSE(stored.at(1).rate);
}

TEST_F(BillStoreTest, AChapterHoldsWhatIsBelowItAndNothingOfTheSameBeginning)
{
    BillStore store(connection);
    ASSERT_TRUE(store.append(bill(), ids));
    const auto stored = store.items(QStringLiteral("01"));
    ASSERT_EQ(stored.size(), 2u);
    EXPECT_EQ(stored.at(0).number, QStringLiteral("01.02.1"));
    EXPECT_EQ(stored.at(1).number, QStringLiteral("01.9"));
}

TEST_F(BillStoreTest, TheTotalLeavesOutOptionsAndUnpricedItems)
{
    BillStore store(connection);
    ASSERT_TRUE(store.append(bill(), ids));
    EXPECT_EQ(store.totalInCents(), 300 + 300);
}

TEST_F(BillStoreTest, AChangeSetsOnlyWhatIsGiven)
{
    BillStore store(connection);
    ASSERT_TRUE(store.append(bill(), ids));
    ItemChange change;
    change.rate = 7250;
    ASSERT_TRUE(store.change(104, change));
    const auto item = store.itemByNumber(QStringLiteral("010.1"));
    ASSERT_TRUE(item);
    EXPECT_EQ(item->rate, 7250);
    EXPECT_EQ(item->quantity, 3000);
    EXPECT_FALSE(store.change(9999, change));
}

TEST_F(BillStoreTest, AddsBehindTheLastItemAndRefusesAnUnknownChapter)
{
    BillStore store(connection);
    ASSERT_TRUE(store.append(bill(), ids));
    StoredItem item;
    item.number = QStringLiteral("01.02.2");
    EXPECT_FALSE(store.addItem(300, QStringLiteral("99"), item));
    ASSERT_TRUE(store.addItem(300, QStringLiteral("01.02"), item));
    EXPECT_EQ(store.items().back().id, 300);
    ASSERT_TRUE(store.removeItem(300));
    EXPECT_FALSE(store.item(300));
}

TEST_F(BillStoreTest, ABillIsAppendedInAChapterOfTheProject)
{
    BillStore store(connection);
    ASSERT_TRUE(store.append(bill(), ids));
    EXPECT_FALSE(store.chapterId(QStringLiteral("99")));
    const auto under = store.chapterId(QStringLiteral("01.02"));
    ASSERT_TRUE(under);
    Bill page;
    page.items = { bill().items.at(3) };
    page.items.front().number = QStringLiteral("01.02.7");
    ASSERT_TRUE(store.append(page, ids, nullptr, nullptr, under));
    const auto items = store.items(QStringLiteral("01.02"));
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items.back().number, QStringLiteral("01.02.7"));
}

TEST_F(BillStoreTest, WithoutNumbersNothingIsAppended)
{
    BillStore store(connection);
    EXPECT_FALSE(store.append(bill(), [] { return -1; }));
}
