#include "Fixture.h"

using namespace kvx::test;

namespace {

class Model : public ProjectFiles { };

TEST_F(Model, ListsTheContentTablesOnly)
{
    const QString schema = QStringLiteral("CREATE TABLE b(id INTEGER PRIMARY KEY AUTOINCREMENT);"
                                          "CREATE TABLE \"a b\"(id INTEGER PRIMARY KEY)");
    const Database database = KVXProjectDatabase::create(file("p"), testGuid, schema, &error);
    ASSERT_TRUE(database) << error.toStdString();
    EXPECT_EQ(
        database->model()->tables(), QStringList({ QStringLiteral("a b"), QStringLiteral("b") }));
}

TEST_F(Model, FindsTheHighestIdWithinTheRange)
{
    const Database database = project("p");
    IKVXSQLiteModel *model = database->model();
    const QString items = QStringLiteral("items");
    EXPECT_EQ(model->highestId(items, 0, 1000), 20);
    EXPECT_EQ(model->highestId(items, 0, 19), 11);
    EXPECT_EQ(model->highestId(items, 0, 11), 11);
    EXPECT_EQ(model->highestId(items, 12, 19), -1);
    EXPECT_EQ(model->highestId(items, 20, 20), 20);
    EXPECT_EQ(model->highestId(items, 30, 10), -1);
    EXPECT_EQ(model->highestId(QStringLiteral("missing"), 0, 1000), -1);
    EXPECT_EQ(model->highestId(QStringLiteral("kvx_pending"), 0, 1000), -1);
    EXPECT_EQ(model->highestId(QStringLiteral("items\" --"), 0, 1000), -1);
}

TEST_F(Model, CountsOnlyTheSingleIntegerKeyColumnAsId)
{
    const QString schema = QStringLiteral(
        "CREATE TABLE plain(id INTEGER PRIMARY KEY, number INTEGER);"
        "CREATE TABLE small(id INT PRIMARY KEY NOT NULL) WITHOUT ROWID;"
        "CREATE TABLE pair(id INTEGER NOT NULL, part INTEGER NOT NULL, PRIMARY KEY(id, part));"
        "CREATE TABLE named(id TEXT PRIMARY KEY NOT NULL);"
        "CREATE TABLE \"quo\"\"ted\"(\"i\"\"d\" INTEGER PRIMARY KEY)");
    const Database database = KVXProjectDatabase::create(file("p"), testGuid, schema, &error);
    ASSERT_TRUE(database) << error.toStdString();
    ASSERT_TRUE(sql(database,
        "INSERT INTO plain VALUES (3, 70); INSERT INTO small VALUES (4), ('text');"
        "INSERT INTO pair VALUES (5, 5); INSERT INTO named VALUES ('6'); INSERT INTO "
        "\"quo\"\"ted\" VALUES (7)"));
    IKVXSQLiteModel *model = database->model();
    EXPECT_EQ(model->highestId(QStringLiteral("plain"), 0, 100), 3);
    EXPECT_EQ(model->highestId(QStringLiteral("small"), 0, 100), 4);
    EXPECT_EQ(model->highestId(QStringLiteral("pair"), 0, 100), -1);
    EXPECT_EQ(model->highestId(QStringLiteral("named"), 0, 100), -1);
    EXPECT_EQ(model->highestId(QStringLiteral("quo\"ted"), 0, 100), 7);
}

TEST_F(Model, SeesTheIdsOfAnOpenEdit)
{
    const Database database = project("p");
    EXPECT_TRUE(database->edit([&](sqlite3 *connection) {
        sqlite3_exec(
            connection, "INSERT INTO items(id, chapter) VALUES (50, 1)", nullptr, nullptr, nullptr);
        EXPECT_EQ(database->model()->highestId(QStringLiteral("items"), 0, 100), 50);
        return true;
    }));
}

} // namespace
