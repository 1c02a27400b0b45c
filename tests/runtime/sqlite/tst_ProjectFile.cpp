#include "Fixture.h"

#include <QFile>
#include <QFileInfo>

using namespace kvx::test;
using testing::HasSubstr;

namespace {

class ProjectFile : public ProjectFiles {
protected:
    /// Closes a good project and hands out its path for tampering.
    QString closedProject()
    {
        EXPECT_TRUE(project("p")->close());
        return file("p");
    }
    void expectRefused(const QString &path, Failure why, const char *text,
        KVXProjectDatabase::Origin origin = KVXProjectDatabase::Origin::Local)
    {
        EXPECT_FALSE(open(path, origin));
        EXPECT_EQ(static_cast<int>(failure), static_cast<int>(why)) << error.toStdString();
        EXPECT_THAT(error.toStdString(), HasSubstr(text));
    }
    QString createdWith(const char *schema)
    {
        error.clear();
        EXPECT_FALSE(
            KVXProjectDatabase::create(file("x"), testGuid, QString::fromLatin1(schema), &error));
        EXPECT_FALSE(QFile::exists(file("x"))) << "nothing is left of a project that failed";
        return error;
    }
};

TEST_F(ProjectFile, IsRefusedWhenItIsNone)
{
    expectRefused(file("missing"), Failure::NotAProject, "it does not exist");
    writeFile(file("empty"), {});
    expectRefused(file("empty"), Failure::NotAProject, "it is empty");
    writeFile(file("text"), Bytes(5000, 'x'));
    expectRefused(file("text"), Failure::NotAProject, "it is not a database");
    writeFile(file("short"), { 'S', 'Q', 'L' });
    expectRefused(file("short"), Failure::NotAProject, "it is not a database");
    expectRefused(QFileInfo(file("x")).path(), Failure::NotAProject, "it is not a regular file");
    const QString path = closedProject();
    ASSERT_TRUE(QFile::link(path, file("link")));
    expectRefused(file("link"), Failure::NotAProject, "it is not a regular file");
    outside(file("other"), "CREATE TABLE items(id INTEGER PRIMARY KEY)");
    expectRefused(file("other"), Failure::NotAProject, "lacks the project's bookkeeping");
}

TEST_F(ProjectFile, ThatIsDamagedIsRefused)
{
    const Bytes good = readFile(closedProject());
    ASSERT_GT(good.size(), 3 * 4096U);
    int refused = 0;
    for (std::size_t page = 1; page * 4096 < good.size(); ++page) {
        Bytes bad = good;
        std::fill_n(bad.begin() + static_cast<std::ptrdiff_t>(page * 4096), 4096,
            static_cast<unsigned char>(0xa5));
        writeFile(file("bad"), bad);
        const Database database = open(file("bad"));
        refused += database ? 0 : 1;
        EXPECT_FALSE(database) << "page " << page;
        EXPECT_TRUE(failure == Failure::Damaged || failure == Failure::NotAProject)
            << error.toStdString();
    }
    EXPECT_GT(refused, 3);
    for (const std::size_t size : { 100U, 4096U, 8192U, 10'000U }) {
        writeFile(
            file("cut"), Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size)));
        expectRefused(
            file("cut"), Failure::Damaged, "damaged", KVXProjectDatabase::Origin::Downloaded);
        EXPECT_FALSE(open(file("cut")));
    }
}

TEST_F(ProjectFile, OfANewerFormatIsNamed)
{
    const QString path = closedProject();
    outside(path,
        "UPDATE kvx_meta SET value = 2 WHERE key = 'format'; ALTER TABLE kvx_pending ADD COLUMN x");
    expectRefused(path, Failure::NewerFormat,
        "the project file has format 2 and was written by a newer release; this one reads format "
        "1");
}

TEST_F(ProjectFile, OfAnotherProjectIsRefused)
{
    const QString path = closedProject();
    const QString other = QStringLiteral("{00000000-0000-0000-0000-000000000001}");
    EXPECT_FALSE(KVXProjectDatabase::open(
        path, other, KVXProjectDatabase::Origin::Local, testSchema, &error, &failure));
    EXPECT_EQ(failure, Failure::OtherProject);
    EXPECT_THAT(error.toStdString(), HasSubstr(testGuid.toStdString()));
    EXPECT_TRUE(KVXProjectDatabase::open(
        path, testGuid.toUpper(), KVXProjectDatabase::Origin::Local, testSchema, &error))
        << "GUIDs are compared without regard to case";
    const Database any = KVXProjectDatabase::open(
        path, QString(), KVXProjectDatabase::Origin::Local, QString(), &error);
    ASSERT_TRUE(any);
    EXPECT_EQ(any->projectGuid(), testGuid);
}

TEST_F(ProjectFile, WithOtherBookkeepingIsRefused)
{
    const QString path = closedProject();
    const char *const tampered[] = {
        "DROP TABLE kvx_pending",
        "DROP TABLE kvx_pending; CREATE VIEW kvx_pending AS SELECT 1 AS sequence, x'' AS changeset",
        "DROP TABLE kvx_meta; CREATE VIEW kvx_meta AS SELECT 'format' AS key, 1 AS value",
        "DELETE FROM kvx_meta WHERE key = 'version'",
        "UPDATE kvx_meta SET value = 'x' WHERE key = 'version'",
        "UPDATE kvx_meta SET value = 4000000000 WHERE key = 'version'",
        "DELETE FROM kvx_meta WHERE key = 'project'",
        "DELETE FROM kvx_meta WHERE key = 'sealed'",
        "UPDATE kvx_meta SET value = x'00' WHERE key = 'schema'",
    };
    for (const char *change : tampered) {
        outside(copyOf(path, "tampered"), change);
        EXPECT_FALSE(open(file("tampered"))) << change;
        EXPECT_FALSE(error.isEmpty());
    }
}

TEST_F(ProjectFile, WithOtherTablesIsRefused)
{
    const QString path = closedProject();
    outside(path, "ALTER TABLE items ADD COLUMN extra");
    expectRefused(path, Failure::BadSchema, "the project's tables were changed by another program");
    const Database p2 = project("p2");
    EXPECT_FALSE(KVXProjectDatabase::open(file("p2"), testGuid, KVXProjectDatabase::Origin::Local,
        QStringLiteral("CREATE TABLE items(id INTEGER PRIMARY KEY)"), &error));
    EXPECT_THAT(error.toStdString(), HasSubstr("other tables than this application works with"));
}

TEST_F(ProjectFile, RefusesTablesThatCannotBeSharedByName)
{
    EXPECT_EQ(createdWith("CREATE TABLE good(id INTEGER PRIMARY KEY); CREATE TABLE loose(a, b)"),
        QStringLiteral("table \"loose\" cannot be shared: it has no PRIMARY KEY"));
    EXPECT_EQ(createdWith("CREATE TABLE t(a TEXT PRIMARY KEY, b)"),
        QStringLiteral("table \"t\" cannot be shared: column \"a\" of its PRIMARY KEY is not "
                       "declared NOT NULL"));
    EXPECT_THAT(createdWith("CREATE TABLE t(a INTEGER PRIMARY KEY DESC, b)").toStdString(),
        HasSubstr("not declared NOT NULL"));
    EXPECT_THAT(
        createdWith("CREATE TABLE p(id INTEGER PRIMARY KEY);"
                    "CREATE TABLE c(id INTEGER PRIMARY KEY, p REFERENCES p(id) ON DELETE CASCADE)")
            .toStdString(),
        HasSubstr("table \"c\" cannot be shared: its foreign key to \"p\" has an action"));
    EXPECT_THAT(createdWith("CREATE TABLE t(id INTEGER PRIMARY KEY, b AS (id + 1))").toStdString(),
        HasSubstr("column \"b\" is generated"));
    EXPECT_THAT(
        createdWith("CREATE VIRTUAL TABLE t USING fts5(x)").toStdString(), HasSubstr("\"t"));
    EXPECT_THAT(createdWith("").toStdString(), HasSubstr("there is none"));
    EXPECT_THAT(createdWith("CREATE TABLE t(id INTEGER PRIMARY KEY); COMMIT").toStdString(),
        HasSubstr("the statements end the transaction"));
    EXPECT_THAT(
        createdWith("CREATE TABLE t(").toStdString(), HasSubstr("creating the content tables"));

    const QString path = closedProject();
    outside(path, "CREATE TABLE loose(a, b)");
    expectRefused(
        path, Failure::BadSchema, "table \"loose\" cannot be shared: it has no PRIMARY KEY");
}

TEST_F(ProjectFile, IsNotCreatedOverAnotherFileOrUnderABadGuid)
{
    const Database p = project("p");
    EXPECT_FALSE(KVXProjectDatabase::create(file("p"), testGuid, testSchema, &error));
    EXPECT_THAT(error.toStdString(), HasSubstr("creating "));
    EXPECT_EQ(value(p, "SELECT count(*) FROM items"), "3");
    for (const char *guid : { "", "g1", "{8d7c0e6e-5c1f-4d65-9a6b-3f2b1c0d9e8}",
             "8d7c0e6e-5c1f-4d65-9a6b-3f2b1c0d9e8f" })
        EXPECT_FALSE(
            KVXProjectDatabase::create(file("q"), QString::fromLatin1(guid), testSchema, &error))
            << guid;
    EXPECT_FALSE(QFile::exists(file("q")));
}

TEST_F(ProjectFile, RunsNoTriggerAndNoViewOfAHostileFile)
{
    const Database ann = project("ann");
    const Database plain = download(ann, "plain");
    ASSERT_TRUE(plain->close());
    outside(file("plain"),
        "CREATE VIEW spy AS SELECT * FROM items;"
        "CREATE TRIGGER bomb AFTER UPDATE ON items BEGIN"
        " INSERT OR REPLACE INTO chapters SELECT x, 'bomb' FROM"
        " (WITH RECURSIVE n(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM n) SELECT x FROM n); END;"
        "CREATE TRIGGER meta AFTER UPDATE ON kvx_meta BEGIN DELETE FROM items; END;"
        "CREATE TRIGGER meta2 AFTER INSERT ON kvx_meta BEGIN DELETE FROM items; END;"
        "CREATE TRIGGER pending AFTER INSERT ON kvx_pending BEGIN DELETE FROM items; END");
    const Database ben = open(file("plain"), KVXProjectDatabase::Origin::Downloaded);
    ASSERT_TRUE(ben) << error.toStdString();
    ASSERT_TRUE(sql(ann, "UPDATE items SET rate = 99 WHERE id = 10"));
    ASSERT_EQ(execute(ben, publish(ann)), 1) << ben->errorText().toStdString();
    EXPECT_EQ(ann->contentDigest(), ben->contentDigest());
    ASSERT_TRUE(sql(ben, "UPDATE items SET rate = 98 WHERE id = 11"));
    ASSERT_EQ(execute(ann, publish(ben)), 1);
    EXPECT_EQ(ann->contentDigest(), ben->contentDigest());
    EXPECT_EQ(value(ben, "SELECT count(*) FROM spy"), "no row");
    EXPECT_EQ(value(ben, "SELECT count(*) FROM items"), "3");
}

TEST_F(ProjectFile, ThatWasDownloadedDoesNotMeetAnOlderWriteAheadLog)
{
    const Database ann = project("ann");
    const Database ben = download(ann, "ben");
    ASSERT_TRUE(sql(ben, "UPDATE items SET text = 'ben was here'"));
    const Bytes wal = readFile(file("ben-wal"));
    ASSERT_GT(wal.size(), 0U);
    ASSERT_TRUE(ben->close());
    copyOf(ann->path(), "ben");
    writeFile(file("ben-wal"), wal);
    const Database fresh = open(file("ben"), KVXProjectDatabase::Origin::Downloaded);
    ASSERT_TRUE(fresh) << error.toStdString();
    EXPECT_EQ(fresh->contentDigest(), ann->contentDigest());
}

TEST_F(ProjectFile, KeepsTheHistoryOfItsVersionUntilItIsDownloaded)
{
    int version = -7;
    QString chain;
    EXPECT_FALSE(KVXProjectDatabase::history(file("nobody"), &version, &chain));
    const Database ann = project("ann");
    const Database ben = download(ann, "ben");
    EXPECT_FALSE(KVXProjectDatabase::history(file("ben"), &version, &chain));
    ASSERT_TRUE(sql(ann, "UPDATE items SET rate = 5"));
    ASSERT_EQ(execute(ben, publish(ann)), 1);
    EXPECT_FALSE(ben->noteHistory(1, QStringLiteral("later")));
    EXPECT_TRUE(ben->noteHistory(0, QStringLiteral("first")));
    ASSERT_TRUE(ben->checkpoint());
    EXPECT_TRUE(KVXProjectDatabase::history(file("ben"), &version, &chain));
    EXPECT_EQ(version, 0);
    EXPECT_EQ(chain.toStdString(), "first");

    const Database copy = download(ben, "carla");
    EXPECT_FALSE(KVXProjectDatabase::history(file("carla"), &version, &chain))
        << "it may be the file of a project that was copied";
    writeFile(file("torn"), Bytes(5000, 'x'));
    EXPECT_FALSE(KVXProjectDatabase::history(file("torn"), &version, &chain));
}

TEST_F(ProjectFile, WithADamagedPendingEditIsNotAdopted)
{
    const Database ann = project("ann");
    ASSERT_TRUE(sql(ann, "UPDATE items SET rate = 5"));
    ASSERT_TRUE(ann->close());
    // Cut inside the table header: SQLite's own reader would not return.
    outside(file("ann"), "UPDATE kvx_pending SET changeset = substr(changeset, 1, 3)");
    expectRefused(file("ann"), Failure::Damaged, "a pending edit is damaged",
        KVXProjectDatabase::Origin::Downloaded);
    const Database local = open(file("ann"));
    ASSERT_TRUE(local);
    EXPECT_FALSE(local->prepareSave(file("log"), QString()));
    EXPECT_THAT(local->errorText().toStdString(), HasSubstr("a pending edit is damaged"));
}

TEST_F(ProjectFile, SyncsEveryEditButNotEveryLog)
{
    const Database ann = project("ann");
    EXPECT_EQ(value(ann, "PRAGMA synchronous"), "2");
    EXPECT_EQ(value(ann, "PRAGMA journal_mode"), "wal");
    kvx::sqlite::Connection apply;
    ASSERT_TRUE(apply.open(file("ann").toStdString(), kvx::sqlite::Connection::Role::Apply).ok());
    kvx::sqlite::Statement level(apply.handle(), "PRAGMA synchronous");
    ASSERT_EQ(level.step(), SQLITE_ROW);
    EXPECT_EQ(level.integer(0), 1);
}

} // namespace
