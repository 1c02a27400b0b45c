#include "Fixture.h"

#include "KVXSQLite/ApplyLog.h"

#include <QElapsedTimer>
#include <QFile>
#include <csignal>
#include <sys/resource.h>

using namespace kvx::test;
using testing::HasSubstr;

namespace {

class ApplyLog : public ProjectFiles {
protected:
    void SetUp() override
    {
        ann = project("ann");
        ben = download(ann, "ben");
        ASSERT_TRUE(ben) << error.toStdString();
    }
    void expectFails(const QString &log, Failure why, const char *text)
    {
        const QByteArray before = ben->contentDigest();
        const int version = ben->logVersion();
        const int pending = ben->pendingCount();
        EXPECT_EQ(execute(ben, log), 0);
        EXPECT_EQ(static_cast<int>(ben->failure()), static_cast<int>(why))
            << ben->errorText().toStdString();
        EXPECT_THAT(ben->errorText().toStdString(), HasSubstr(text));
        EXPECT_EQ(ben->contentDigest(), before);
        EXPECT_EQ(ben->logVersion(), version);
        EXPECT_EQ(ben->pendingCount(), pending);
    }
    QString bigLog()
    {
        EXPECT_TRUE(sql(ann,
            "WITH RECURSIVE n(i) AS (SELECT 1000 UNION ALL SELECT i + 1 FROM n WHERE i < 6000)"
            " INSERT INTO items(id, chapter, text, note) SELECT i, 1, 'long text ' || i, "
            "randomblob(300) FROM n"));
        return publish(ann);
    }

    Database ann;
    Database ben;
};

TEST_F(ApplyLog, RaisesTheVersionWithTheChanges)
{
    ASSERT_TRUE(sql(ann, "UPDATE items SET rate = 5 WHERE id = 10"));
    EXPECT_EQ(execute(ben, publish(ann)), 1);
    EXPECT_EQ(ben->logVersion(), 0);
    EXPECT_EQ(ben->contentDigest(), ann->contentDigest());
    EXPECT_EQ(ben->pendingCount(), 0) << "a colleague's changes are no edits of this user";
}

TEST_F(ApplyLog, SkipsWhatTheFileAlreadyHolds)
{
    const QString zero = publish(ann);
    ASSERT_TRUE(sql(ann, "UPDATE items SET rate = 5 WHERE id = 10"));
    const QString one = publish(ann);
    ASSERT_EQ(execute(ben, zero), 1);
    ASSERT_EQ(execute(ben, one), 1);
    ASSERT_TRUE(sql(ben, "UPDATE items SET rate = 6 WHERE id = 10"));
    const QByteArray before = ben->contentDigest();
    EXPECT_EQ(execute(ben, one), 1);
    EXPECT_EQ(execute(ben, zero), 1);
    EXPECT_EQ(ben->logVersion(), 1);
    EXPECT_EQ(ben->contentDigest(), before);
    EXPECT_EQ(ben->pendingCount(), 1);
}

TEST_F(ApplyLog, RefusesAGap)
{
    publish(ann);
    expectFails(
        publish(ann), Failure::Gap, "change log 1 does not follow the project's version -1");
}

TEST_F(ApplyLog, RefusesAnotherProjectAndAnUnknownMode)
{
    const Database other = KVXProjectDatabase::create(file("other"),
        QStringLiteral("{00000000-0000-0000-0000-000000000001}"), testSchema, &error);
    ASSERT_TRUE(other->sealBase());
    const QString log = publish(other);
    expectFails(log, Failure::OtherProject, "belongs to project {00000000");
    kvx::sqlite::CommandFile loaded;
    ASSERT_TRUE(loaded.loadFromFile(publish(ann)));
    EXPECT_EQ(ben->model()->execute(&loaded, 3), 0);
    EXPECT_EQ(ben->errorText(), QStringLiteral("execution mode 3 is not known"));
}

TEST_F(ApplyLog, RefusesALogForOtherTables)
{
    const QString schema
        = testSchema + QStringLiteral("; CREATE TABLE more(id INTEGER PRIMARY KEY)");
    const Database other = KVXProjectDatabase::create(file("other"), testGuid, schema, &error);
    ASSERT_TRUE(other->sealBase());
    ASSERT_TRUE(sql(other, "INSERT INTO chapters VALUES (5, 'x')"));
    expectFails(publish(other), Failure::BadSchema, "change log 0 was written for other tables");
}

TEST_F(ApplyLog, RefusesAForgedLogWhoseTablesDoNotMatch)
{
    const std::string key = "CREATE TABLE items(id INTEGER PRIMARY KEY, a, b, c, d); INSERT INTO "
                            "items VALUES (10,1,1,1,1)";
    expectFails(forge(ben, 0, changesetOf(key, "DELETE FROM items")), Failure::BadLog,
        "table \"items\" has other columns in this project");
    expectFails(forge(ben, 0,
                    changesetOf("CREATE TABLE secret(id INTEGER PRIMARY KEY)",
                        "INSERT INTO secret VALUES (1)")),
        Failure::BadLog, "table \"secret\" is not in this project");
    expectFails(forge(ben, 0,
                    changesetOf("CREATE TABLE chapters(id, title PRIMARY KEY NOT NULL)",
                        "INSERT INTO chapters VALUES (1, 2)")),
        Failure::BadLog, "table \"chapters\" has another key in this project");
    EXPECT_EQ(
        execute(ben,
            forge(ben, 0,
                changesetOf(testSchema.toStdString(), "INSERT INTO chapters VALUES (9, 'ok')"))),
        1);
}

TEST_F(ApplyLog, FailsWhenTheContentIsNotWhatTheLogChanges)
{
    const std::string changed = testSchema.toStdString()
        + "; INSERT INTO chapters VALUES (1, 'elsewhere'), (7, 'elsewhere')";
    expectFails(forge(ben, 0, changesetOf(changed, "UPDATE chapters SET title = 'x' WHERE id = 1")),
        Failure::Damaged,
        "change log 0 does not fit the project's content (table \"chapters\", row 1: changed on "
        "both sides)");
    expectFails(forge(ben, 0, changesetOf(changed, "UPDATE chapters SET title = 'x' WHERE id = 7")),
        Failure::Damaged, "row 7: changed there, deleted here");
    expectFails(forge(ben, 0, changesetOf(changed, "DELETE FROM chapters WHERE id = 1")),
        Failure::Damaged, "row 1: deleted there, changed here");
    expectFails(forge(ben, 0,
                    changesetOf(testSchema.toStdString(), "INSERT INTO chapters VALUES (1, 'x')")),
        Failure::Damaged, "row 1: inserted on both sides");
}

TEST_F(ApplyLog, FailsOnViolatedConstraints)
{
    const std::string loose = "CREATE TABLE chapters(id INTEGER PRIMARY KEY, title)";
    expectFails(forge(ben, 0, changesetOf(loose, "INSERT INTO chapters VALUES (9, NULL)")),
        Failure::Damaged, "a constraint of the table is violated");
    expectFails(
        forge(ben, 0,
            changesetOf(testSchema.toStdString(), "INSERT INTO items(id, chapter) VALUES (9, 44)")),
        Failure::Damaged, "a reference to a row that would be missing");
    expectFails(
        forge(ben, 0, changesetOf(loose, "INSERT INTO chapters VALUES (8, 'good'), (9, NULL)")),
        Failure::Damaged, "row 9");
}

TEST_F(ApplyLog, OfChangesAlreadyThereSucceedsAsOftenAsNeeded)
{
    const std::string base = testSchema.toStdString()
        + "; INSERT INTO chapters VALUES (1,'Earthworks'); INSERT INTO buildups VALUES "
          "(10,'labour',3)";
    const Bytes changes = changesetOf(base,
        "UPDATE chapters SET title = 'Soil' WHERE id = 1; INSERT INTO chapters VALUES (3, 'Steel');"
        "DELETE FROM buildups");
    for (int version = 0; version < 3; ++version) {
        EXPECT_EQ(execute(ben, forge(ben, version, changes)), 1) << ben->errorText().toStdString();
        EXPECT_EQ(ben->logVersion(), version);
    }
    outside(file("ben"), "UPDATE chapters SET title = 'Mud' WHERE id = 1");
    expectFails(forge(ben, 3, changes), Failure::Damaged, "row 1: changed on both sides");
}

TEST_F(ApplyLog, WaitsFiveSecondsForAnotherWriterThenFailsAndSucceedsLater)
{
    ASSERT_TRUE(sql(ann, "UPDATE items SET rate = 5 WHERE id = 10"));
    const QString log = publish(ann);
    sqlite3 *other = nullptr;
    ASSERT_EQ(sqlite3_open(file("ben").toUtf8().constData(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    QElapsedTimer timer;
    timer.start();
    expectFails(log, Failure::Busy, "change log 0: starting a transaction: database is locked");
    EXPECT_GE(timer.elapsed(), 4500);
    sqlite3_close(other);
    EXPECT_EQ(execute(ben, log), 1);
}

TEST_F(ApplyLog, OnAFullDiskKeepsVersionAndDataTogether)
{
    const QString log = bigLog();
    int failed = 0;
    for (rlim_t limit = 16 * 1024; limit < 16 * 1024 * 1024; limit += limit / 2) {
        const QByteArray before = ben->contentDigest();
        int result = 0;
        {
            const FileSizeLimit limited(limit);
            result = execute(ben, log);
        }
        if (result == 1)
            break;
        ++failed;
        EXPECT_TRUE(ben->failure() == Failure::Io || ben->failure() == Failure::DiskFull)
            << ben->errorText().toStdString();
        EXPECT_EQ(ben->logVersion(), -1);
        EXPECT_EQ(ben->contentDigest(), before);
    }
    EXPECT_GT(failed, 3);
    EXPECT_EQ(ben->logVersion(), 0);
    EXPECT_EQ(ben->contentDigest(), ann->contentDigest());
}

TEST_F(ApplyLog, AnEditOnAFullDiskIsLostWholeAndTheNextOneWorks)
{
    const QByteArray before = ben->contentDigest();
    {
        const FileSizeLimit limited(64 * 1024);
        EXPECT_FALSE(sql(ben, "UPDATE items SET note = randomblob(500000) WHERE id = 10"));
        EXPECT_TRUE(ben->failure() == Failure::Io || ben->failure() == Failure::DiskFull)
            << ben->errorText().toStdString();
    }
    EXPECT_EQ(ben->contentDigest(), before);
    EXPECT_EQ(ben->pendingCount(), 0);
    EXPECT_TRUE(sql(ben, "UPDATE items SET note = randomblob(500000) WHERE id = 10"));
    EXPECT_EQ(ben->pendingCount(), 1);
}

TEST_F(ApplyLog, IsCutOffAfterItsTimeLimit)
{
    const QString path = bigLog();
    kvx::sqlite::CommandFile log;
    ASSERT_TRUE(log.loadFromFile(path));
    {
        kvx::sqlite::Connection connection;
        ASSERT_TRUE(
            connection.open(file("ben").toStdString(), kvx::sqlite::Connection::Role::Apply).ok());
        kvx::sqlite::ApplyLog slow(connection);
        slow.setTimeLimit(-1);
        QString conflicts;
        const kvx::sqlite::Status status
            = slow.execute(log, file("ben"), kvx::sqlite::Rebase::Winner::Nobody, &conflicts);
        EXPECT_EQ(status.failure, Failure::Interrupted);
        EXPECT_THAT(status.text, HasSubstr("change log 0 took longer than"));
    }
    EXPECT_EQ(ben->logVersion(), -1);
    EXPECT_EQ(ben->model()->execute(&log, 0), 1);
}

TEST_F(ApplyLog, WorksOnWideTables)
{
    std::string columns;
    std::string update;
    for (int i = 0; i < 190; ++i) {
        columns += ", c" + std::to_string(i) + " INTEGER DEFAULT 0";
        update += (i ? ", c" : "c") + std::to_string(i) + " = 1";
    }
    const QString schema
        = QString::fromStdString("CREATE TABLE wide(id INTEGER PRIMARY KEY" + columns + ")");
    const Database wide = KVXProjectDatabase::create(file("wide"), testGuid, schema, &error);
    ASSERT_TRUE(sql(wide, "INSERT INTO wide(id) VALUES (1), (2), (3)"));
    ASSERT_TRUE(wide->sealBase());
    const Database copy = KVXProjectDatabase::open(copyOf(wide->path(), "copy"), testGuid,
        KVXProjectDatabase::Origin::Downloaded, schema, &error);
    ASSERT_TRUE(copy) << error.toStdString();
    ASSERT_TRUE(sql(wide,
        "UPDATE wide SET " + update
            + " WHERE id = 1; DELETE FROM wide WHERE id = 2; INSERT INTO wide(id) VALUES (9)"));
    ASSERT_EQ(execute(copy, publish(wide)), 1) << copy->errorText().toStdString();
    EXPECT_EQ(copy->contentDigest(), wide->contentDigest());
}

TEST_F(ApplyLog, LetsAnotherReaderGoOnAndCompletesTheFileAfterIt)
{
    sqlite3 *reader = nullptr;
    ASSERT_EQ(sqlite3_open(file("ben").toUtf8().constData(), &reader), SQLITE_OK);
    ASSERT_EQ(
        sqlite3_exec(reader, "BEGIN; SELECT * FROM items", nullptr, nullptr, nullptr), SQLITE_OK);
    ASSERT_TRUE(sql(ann, "UPDATE items SET rate = 5 WHERE id = 10"));
    EXPECT_EQ(execute(ben, publish(ann)), 1);
    EXPECT_FALSE(ben->checkpoint());
    EXPECT_EQ(ben->failure(), Failure::Busy);
    sqlite3_close(reader);
    EXPECT_TRUE(ben->checkpoint());
    // The file alone is what a save uploads.
    ASSERT_TRUE(QFile::copy(file("ben"), file("alone")));
    const Database alone = open(file("alone"));
    ASSERT_TRUE(alone) << error.toStdString();
    EXPECT_EQ(alone->logVersion(), ben->logVersion());
    EXPECT_EQ(alone->contentDigest(), ann->contentDigest());
}

} // namespace
