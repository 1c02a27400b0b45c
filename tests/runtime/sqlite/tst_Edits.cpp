#include "Fixture.h"

#include <QFile>
#include <random>

using namespace kvx::test;
using testing::HasSubstr;

namespace {

class Edits : public ProjectFiles { };

std::string randomEdit(std::minstd_rand &random, int firstId)
{
    const auto pick = [&](int limit) {
        return std::to_string(
            static_cast<int>(random() % static_cast<std::minstd_rand::result_type>(limit)));
    };
    const std::string id = std::to_string(firstId + static_cast<int>(random() % 40));
    switch (random() % 9) {
    case 0:
        return "INSERT OR IGNORE INTO items(id, chapter, text, quantity) VALUES (" + id
            + ", 1, 'text " + pick(99) + "', " + pick(50) + ".5)";
    case 1:
        return "INSERT OR REPLACE INTO items(id, chapter, text) VALUES (" + id + ", 2, 'again "
            + pick(9) + "')";
    case 2:
        return "UPDATE items SET rate = " + pick(1000) + " WHERE id = " + id;
    case 3:
        return "UPDATE items SET text = text || 'x', note = randomblob(" + pick(60)
            + ") WHERE id % 5 = " + pick(5);
    case 4:
        return "DELETE FROM items WHERE id = " + id;
    case 5:
        return "INSERT OR REPLACE INTO buildups VALUES (" + id + ", 'part " + pick(4) + "', "
            + pick(100) + ")";
    case 6:
        return "UPDATE OR IGNORE items SET id = id + 3 WHERE id = " + id;
    case 7:
        return "DELETE FROM buildups";
    default:
        return "SAVEPOINT s; UPDATE items SET rate = 0; ROLLBACK TO s; RELEASE s; UPDATE buildups "
               "SET amount = NULL WHERE item = "
            + id;
    }
}

TEST_F(Edits, TravelToTheOtherProjectAndMakeItEqual)
{
    for (unsigned seed = 1; seed <= 6; ++seed) {
        std::minstd_rand random(seed);
        const Database ann = project(("ann" + std::to_string(seed)).c_str());
        const Database ben = download(ann, ("ben" + std::to_string(seed)).c_str());
        ASSERT_TRUE(ben) << error.toStdString();
        for (int session = 0; session < 25; ++session) {
            const Database &writer = random() % 2 ? ann : ben;
            const Database &reader = &writer == &ann ? ben : ann;
            for (auto edits = random() % 6; edits > 0; --edits)
                ASSERT_TRUE(sql(writer, randomEdit(random, 100)))
                    << writer->errorText().toStdString();
            ASSERT_EQ(execute(reader, publish(writer)), 1) << reader->errorText().toStdString();
            ASSERT_EQ(writer->contentDigest(), reader->contentDigest()) << "seed " << seed;
            ASSERT_EQ(reader->logVersion(), session);
        }
    }
}

TEST_F(Edits, OfManyTransactionsBecomeOneLogOfTheirNetEffect)
{
    const Database ann = project("ann");
    const Database ben = download(ann, "ben");
    ASSERT_TRUE(sql(ann, "INSERT INTO items(id, chapter) VALUES (30, 1)"));
    ASSERT_TRUE(sql(ann, "UPDATE items SET rate = 1 WHERE id = 30"));
    ASSERT_TRUE(sql(ann, "DELETE FROM items WHERE id = 30"));
    EXPECT_EQ(ann->pendingCount(), 3);
    kvx::sqlite::CommandFile log;
    ASSERT_TRUE(log.loadFromFile(publish(ann)));
    EXPECT_TRUE(log.changeset().empty());
    EXPECT_EQ(ann->pendingCount(), 0);
    EXPECT_EQ(ben->model()->execute(&log, 0), 1);
    EXPECT_EQ(ben->logVersion(), 0);
}

TEST_F(Edits, ThatChangeNothingAreNotRecorded)
{
    const Database ann = project("ann");
    EXPECT_TRUE(sql(ann, "UPDATE items SET rate = rate"));
    EXPECT_EQ(ann->pendingCount(), 0);
}

TEST_F(Edits, AreWrittenWithTheirRecordOrNotAtAll)
{
    const Database ann = project("ann");
    const QByteArray before = ann->contentDigest();
    EXPECT_FALSE(sql(ann, "DELETE FROM items; INSERT INTO items(id) VALUES (NULL, 3, 4)"));
    EXPECT_EQ(ann->failure(), Failure::EditGivenUp);
    EXPECT_THAT(ann->errorText().toStdString(), HasSubstr("the edit was given up: "));
    EXPECT_EQ(ann->contentDigest(), before);
    EXPECT_EQ(ann->pendingCount(), 0);

    EXPECT_THROW(ann->edit([](sqlite3 *connection) -> bool {
        sqlite3_exec(connection, "DELETE FROM items", nullptr, nullptr, nullptr);
        throw std::runtime_error("host");
    }),
        std::runtime_error);
    EXPECT_EQ(ann->contentDigest(), before);
    EXPECT_TRUE(sql(ann, "UPDATE items SET rate = 2")) << "the connection is usable again";
}

TEST_F(Edits, WithAMissingReferenceAreRefusedWhole)
{
    const Database ann = project("ann");
    const QByteArray before = ann->contentDigest();
    EXPECT_FALSE(sql(ann, "INSERT INTO items(id, chapter) VALUES (90, 77)"));
    EXPECT_THAT(ann->errorText().toStdString(), HasSubstr("FOREIGN KEY constraint failed"));
    EXPECT_EQ(ann->contentDigest(), before);
    EXPECT_EQ(ann->pendingCount(), 0);
}

TEST_F(Edits, RefuseWhatWouldNotBeRecorded)
{
    const Database ann = project("ann");
    const QByteArray before = ann->contentDigest();
    const std::pair<const char *, const char *> refused[] = {
        { "COMMIT", "may not use COMMIT" },
        { "ROLLBACK", "may not use ROLLBACK" },
        { "CREATE TABLE x(id INTEGER PRIMARY KEY)", "may not change the schema" },
        { "CREATE TEMP TABLE x(id INTEGER PRIMARY KEY)", "may not change the schema" },
        { "ALTER TABLE items ADD COLUMN x", "may not change the schema" },
        { "DROP TABLE buildups", "may not" },
        { "ATTACH ':memory:' AS x", "may not change the schema or attach databases" },
        { "DELETE FROM kvx_pending", "may not write to kvx_pending" },
        { "UPDATE kvx_meta SET value = 7", "may not write to kvx_meta" },
        { "PRAGMA foreign_keys=OFF", "may not set PRAGMA foreign_keys" },
        { "PRAGMA writable_schema=ON", "may not set PRAGMA writable_schema" },
    };
    for (const auto &[statement, reason] : refused) {
        EXPECT_FALSE(sql(ann, std::string("UPDATE items SET rate = 77; ") + statement))
            << statement;
        EXPECT_THAT(ann->errorText().toStdString(), HasSubstr(reason)) << statement;
    }
    EXPECT_FALSE(sql(ann, "INSERT OR ROLLBACK INTO items(id, chapter) VALUES (10, 1)"));
    EXPECT_EQ(ann->contentDigest(), before);
    EXPECT_EQ(ann->pendingCount(), 0);
    EXPECT_TRUE(sql(ann, "PRAGMA user_version; PRAGMA table_info(items); SAVEPOINT a; RELEASE a"));
}

TEST_F(Edits, ThatSwallowARollbackAreReported)
{
    const Database ann = project("ann");
    EXPECT_FALSE(ann->edit([](sqlite3 *connection) {
        sqlite3_exec(connection, "INSERT OR ROLLBACK INTO items(id, chapter) VALUES (10, 1)",
            nullptr, nullptr, nullptr);
        return true;
    }));
    EXPECT_EQ(
        ann->errorText(), QStringLiteral("the edit was rolled back by one of its statements"));
    EXPECT_TRUE(sql(ann, "UPDATE items SET rate = 2"));
}

TEST_F(Edits, AreTheOnlyWayToWrite)
{
    const Database ann = project("ann");
    EXPECT_EQ(sqlite3_exec(ann->connection(), "DELETE FROM items", nullptr, nullptr, nullptr),
        SQLITE_AUTH);
    EXPECT_EQ(sqlite3_exec(ann->connection(), "BEGIN", nullptr, nullptr, nullptr), SQLITE_AUTH);

    sqlite3_stmt *kept = nullptr;
    ASSERT_TRUE(ann->edit([&](sqlite3 *connection) {
        return sqlite3_prepare_v2(connection, "DELETE FROM buildups", -1, &kept, nullptr)
            == SQLITE_OK;
    }));
    EXPECT_NE(sqlite3_step(kept), SQLITE_DONE) << "stepped after its edit";
    sqlite3_reset(kept);
    EXPECT_EQ(value(ann, "SELECT count(*) FROM buildups"), "2");
    EXPECT_EQ(ann->pendingCount(), 0);

    EXPECT_TRUE(ann->edit([&](sqlite3 *) { return sqlite3_step(kept) == SQLITE_DONE; }));
    sqlite3_finalize(kept);
    EXPECT_EQ(ann->pendingCount(), 1) << "emptying a table by a statement of an earlier edit";
}

TEST_F(Edits, DoNotNestAndHoldOffLogs)
{
    const Database ann = project("ann");
    const Database ben = download(ann, "ben");
    ASSERT_TRUE(sql(ann, "UPDATE items SET rate = 5 WHERE id = 10"));
    const QString log = publish(ann);
    ASSERT_TRUE(ben->edit([&](sqlite3 *) {
        EXPECT_FALSE(sql(ben, "DELETE FROM items"));
        EXPECT_EQ(ben->errorText(), QStringLiteral("an edit transaction is already open"));
        EXPECT_EQ(execute(ben, log), 0);
        EXPECT_EQ(ben->errorText(),
            QStringLiteral("a change log cannot be executed while an edit transaction is open"));
        EXPECT_FALSE(ben->prepareSave(file("x"), QString()));
        EXPECT_FALSE(ben->checkpoint());
        EXPECT_FALSE(ben->close());
        return true;
    }));
    EXPECT_EQ(execute(ben, log), 1);
}

TEST_F(Edits, OfANewProjectFillItsBaseUntilItIsSealed)
{
    const Database ann = KVXProjectDatabase::create(file("ann"), testGuid, testSchema, &error);
    ASSERT_TRUE(ann);
    EXPECT_EQ(ann->logVersion(), -1);
    ASSERT_TRUE(sql(ann, "INSERT INTO chapters VALUES (1, 'x')"));
    EXPECT_EQ(ann->pendingCount(), 0);
    EXPECT_FALSE(ann->prepareSave(file("log"), QString()));
    EXPECT_THAT(ann->errorText().toStdString(), HasSubstr("seal its base first"));
    const Database early = download(ann, "early");
    EXPECT_FALSE(early);
    EXPECT_THAT(error.toStdString(), HasSubstr("uploaded before it was complete"));

    EXPECT_TRUE(ann->sealBase());
    EXPECT_TRUE(ann->sealBase());
    EXPECT_TRUE(ann->isSealed());
    ASSERT_TRUE(sql(ann, "INSERT INTO chapters VALUES (2, 'y')"));
    EXPECT_EQ(ann->pendingCount(), 1);
}

TEST_F(Edits, SurviveClosingAndOpening)
{
    QByteArray digest;
    {
        const Database ann = project("ann");
        ASSERT_TRUE(sql(ann, "UPDATE items SET rate = 5 WHERE id = 10"));
        digest = ann->contentDigest();
        ASSERT_TRUE(ann->close());
        EXPECT_FALSE(sql(ann, "DELETE FROM items"));
        EXPECT_EQ(ann->errorText(), QStringLiteral("the project is closed"));
        EXPECT_EQ(ann->model()->highestId(QStringLiteral("items"), 0, 99), -1);
        EXPECT_FALSE(QFile::exists(file("ann-wal"))) << "closing completes the main file";
    }
    const Database ann = open(file("ann"));
    ASSERT_TRUE(ann);
    EXPECT_EQ(ann->pendingCount(), 1);
    EXPECT_EQ(ann->contentDigest(), digest);
}

TEST_F(Edits, ClosingNamesAForgottenStatement)
{
    const Database ann = project("ann");
    sqlite3_stmt *statement = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(ann->connection(), "SELECT * FROM items", -1, &statement, nullptr),
        SQLITE_OK);
    EXPECT_FALSE(ann->close());
    EXPECT_THAT(
        ann->errorText().toStdString(), HasSubstr("a statement of the host is still in use"));
    EXPECT_TRUE(sql(ann, "UPDATE items SET rate = 1")) << "still open";
    EXPECT_EQ(ann->pendingCount(), 1) << "and still recording";
    sqlite3_step(statement);
    EXPECT_FALSE(ann->checkpoint());
    EXPECT_THAT(ann->errorText().toStdString(), HasSubstr("a query of the host is still running"));
    sqlite3_finalize(statement);
    EXPECT_TRUE(ann->close());
}

TEST_F(Edits, NameAQueryThatStillLooksAtAnOlderState)
{
    const Database ann = project("ann");
    const Database ben = download(ann, "ben");
    ASSERT_TRUE(sql(ann, "UPDATE items SET rate = 5 WHERE id = 10"));
    sqlite3_stmt *query = nullptr;
    sqlite3_prepare_v2(ben->connection(), "SELECT * FROM items", -1, &query, nullptr);
    ASSERT_EQ(sqlite3_step(query), SQLITE_ROW);
    ASSERT_EQ(execute(ben, publish(ann)), 1) << "a log does not wait for a reader";
    EXPECT_FALSE(sql(ben, "UPDATE items SET rate = 6 WHERE id = 10"));
    EXPECT_EQ(ben->errorText(),
        QStringLiteral("a query of the host is still running on the project's connection"));
    sqlite3_finalize(query);
    EXPECT_TRUE(sql(ben, "UPDATE items SET rate = 6 WHERE id = 10"));
}

TEST_F(Edits, DigestTellsTypesAndRowsApart)
{
    const Database ann = project("ann");
    QStringList seen;
    for (const char *change :
        { "UPDATE items SET text = NULL WHERE id = 10", "UPDATE items SET text = '' WHERE id = 10",
            "UPDATE items SET text = x'' WHERE id = 10", "UPDATE items SET note = 1 WHERE id = 10",
            "UPDATE items SET note = '1' WHERE id = 10",
            "UPDATE items SET note = 1.5 WHERE id = 10",
            "DELETE FROM buildups WHERE part = 'plant'" }) {
        ASSERT_TRUE(sql(ann, change));
        seen.append(QString::fromLatin1(ann->contentDigest().toHex()));
    }
    EXPECT_EQ(seen.removeDuplicates(), 0);
}

} // namespace
