#include "client/DatabaseMemory.h"
#include "content/BillStore.h"
#include "content/Schema.h"

#include <KVXSQLite/KVXProjectDatabase.h>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sqlite3.h>

using namespace kvx;

namespace {

class DatabaseMemory : public testing::Test {
protected:
    ~DatabaseMemory() override { sqlite3_hard_heap_limit64(0); }

    /// Items with a mebibyte of text each.
    bool append(std::size_t items)
    {
        content::Bill bill;
        bill.items.resize(items);
        for (content::Bill::Item &item : bill.items)
            item.longText = QString(1 << 20, QLatin1Char('a'));
        return database->edit([&](sqlite3 *connection) {
            return content::BillStore(connection).append(bill, [this] { return next++; });
        });
    }

    const QTemporaryDir folder;
    QString error;
    std::unique_ptr<KVXProjectDatabase> database = KVXProjectDatabase::create(
        folder.filePath(QStringLiteral("project.kvx")),
        QStringLiteral("{11111111-2222-3333-4444-555555555555}"), content::projectSchema(), &error);
    int next = 1;
};

} // namespace

TEST_F(DatabaseMemory, IsLimitedForTheProcess)
{
    ASSERT_TRUE(database) << error.toStdString();
    ASSERT_TRUE(host::limitDatabaseMemory());
    ASSERT_GT(sqlite3_memory_used(), 0) << "the limit needs the count";
    void *within = sqlite3_malloc64(host::databaseMemory / 2);
    EXPECT_TRUE(within);
    EXPECT_FALSE(sqlite3_malloc64(host::databaseMemory / 2));
    sqlite3_free(within);
}

TEST_F(DatabaseMemory, BeyondItAnEditFailsInWordsAndNothingIsLost)
{
    ASSERT_TRUE(database) << error.toStdString();
    ASSERT_TRUE(database->sealBase());
    ASSERT_TRUE(append(1));
    const QByteArray before = database->contentDigest();
    sqlite3_hard_heap_limit64(sqlite3_memory_used() + (8 << 20));
    EXPECT_FALSE(append(16));
    EXPECT_NE(database->errorText().indexOf(QLatin1String("out of memory")), -1)
        << database->errorText().toStdString();
    EXPECT_EQ(database->contentDigest(), before);
    EXPECT_EQ(database->pendingCount(), 1);
    sqlite3_hard_heap_limit64(0);
    EXPECT_TRUE(append(16));
    EXPECT_EQ(database->pendingCount(), 2);
}
