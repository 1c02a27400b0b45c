#include "Fixture.h"

#include <QFile>
#include <chrono>
#include <fstream>
#include <random>

// Project files that come from a server with more in them, or something else, than an application
// puts there. Such a file is refused with a reason, or its content is worked with and nothing of
// the rest runs.

using namespace kvx::test;

namespace {

enum class Taken { No, Yes };

struct HostileFile {
    const char *name;
    Taken taken;
    std::string statements;
};

void PrintTo(const HostileFile &file, std::ostream *out)
{
    *out << file.name;
}

std::string manyTables(int count)
{
    std::string sql = "BEGIN;";
    for (int i = 0; i < count; ++i)
        sql += "CREATE TABLE t" + std::to_string(i) + "(id INTEGER PRIMARY KEY);";
    return sql + "COMMIT";
}

std::string wideTable(int columns)
{
    std::string sql = "CREATE TABLE wide(id INTEGER PRIMARY KEY";
    for (int i = 0; i < columns; ++i)
        sql += ", c" + std::to_string(i);
    return sql + ")";
}

/// Writes the schema's own rows, as a program that minds nothing could.
std::string inSchema(const std::string &change)
{
    return "PRAGMA writable_schema=ON;" + change + ";PRAGMA writable_schema=OFF";
}

const std::string endless
    = "WITH RECURSIVE n(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM n) SELECT x FROM n";

const std::vector<HostileFile> hostileFiles {
    { "triggerOnContent", Taken::Yes,
        "CREATE TRIGGER a AFTER INSERT ON chapters BEGIN DELETE FROM items; END" },
    { "triggerOnEveryTableThatIsKept", Taken::Yes,
        "CREATE TRIGGER a AFTER UPDATE ON kvx_meta BEGIN DELETE FROM items; END;"
        "CREATE TRIGGER b AFTER INSERT ON kvx_pending BEGIN DELETE FROM items; END;"
        "CREATE TRIGGER c AFTER DELETE ON kvx_pending BEGIN DELETE FROM items; END" },
    { "triggerWithoutEnd", Taken::Yes,
        "CREATE TRIGGER a AFTER INSERT ON chapters BEGIN INSERT OR REPLACE INTO buildups SELECT x, "
        "'b', 1 FROM ("
            + endless + "); END" },
    { "triggerThatCallsItself", Taken::Yes,
        "CREATE TRIGGER a AFTER INSERT ON chapters BEGIN INSERT INTO chapters VALUES (new.id + 1, "
        "'x'); END" },
    { "triggerThatRaises", Taken::Yes,
        "CREATE TRIGGER a BEFORE INSERT ON chapters BEGIN SELECT RAISE(ABORT, 'no'); END" },
    { "view", Taken::Yes, "CREATE VIEW spy AS SELECT * FROM items" },
    { "viewWithoutEnd", Taken::Yes, "CREATE VIEW spy AS " + endless },
    { "viewInPlaceOfATable", Taken::No,
        "DROP TABLE buildups; CREATE VIEW buildups AS SELECT 1 AS item, 'x' AS part, 2 AS amount" },
    { "viewInPlaceOfTheBooks", Taken::No,
        "DROP TABLE kvx_pending; CREATE VIEW kvx_pending AS SELECT 1 AS sequence, x'' AS "
        "changeset" },
    { "virtualTable", Taken::No, "CREATE VIRTUAL TABLE search USING fts5(text)" },
    { "virtualTableOfNoModule", Taken::No,
        inSchema("INSERT INTO sqlite_schema VALUES ('table', 'v', 'v', 0, 'CREATE VIRTUAL TABLE v "
                 "USING nothing(x)')") },
    { "virtualTableThatReadsFiles", Taken::No,
        inSchema("INSERT INTO sqlite_schema VALUES ('table', 'v', 'v', 0, 'CREATE VIRTUAL TABLE v "
                 "USING csv(filename=''/etc/passwd'')')") },
    { "generatedColumn", Taken::No,
        "CREATE TABLE g(id INTEGER PRIMARY KEY, b AS (hex(zeroblob(1000000000))))" },
    { "defaultThatLoadsCode", Taken::No,
        "CREATE TABLE d(id INTEGER PRIMARY KEY, b DEFAULT (load_extension('evil')))" },
    { "oneMoreTable", Taken::No, "CREATE TABLE more(id INTEGER PRIMARY KEY)" },
    { "oneTableLess", Taken::No, "DROP TABLE buildups" },
    { "oneMoreColumn", Taken::No, "ALTER TABLE items ADD COLUMN more" },
    { "tableWithoutKey", Taken::No, "CREATE TABLE loose(a, b)" },
    { "tableThatPullsOthersAlong", Taken::No,
        "CREATE TABLE c(id INTEGER PRIMARY KEY, item REFERENCES items(id) ON DELETE CASCADE)" },
    { "fiveThousandTables", Taken::No, manyTables(5000) },
    { "tableOfSixHundredColumns", Taken::No, wideTable(600) },
    { "statementThatIsNone", Taken::No,
        inSchema("UPDATE sqlite_schema SET sql = 'CREATE TABLE items(' WHERE name = 'items'") },
    { "statementOfAMegabyte", Taken::No,
        inSchema("UPDATE sqlite_schema SET sql = replace(sql, 'title', '/*' || "
                 "hex(zeroblob(500000)) || '*/ title') WHERE name = 'chapters'") },
    { "twoTablesInOnePlace", Taken::No,
        inSchema("UPDATE sqlite_schema SET rootpage = (SELECT rootpage FROM sqlite_schema WHERE "
                 "name = 'items') WHERE name = 'chapters'") },
    { "tableBehindTheEnd", Taken::No,
        inSchema("UPDATE sqlite_schema SET rootpage = 1000000 WHERE name = 'items'") },
    { "tableInTheSchemasPlace", Taken::No,
        inSchema("UPDATE sqlite_schema SET rootpage = 1 WHERE name = 'items'") },
    { "versionThatIsText", Taken::No, "UPDATE kvx_meta SET value = 'x' WHERE key = 'version'" },
    { "versionThatIsNoVersion", Taken::No, "UPDATE kvx_meta SET value = -5 WHERE key = 'version'" },
    { "versionOutOfRange", Taken::No,
        "UPDATE kvx_meta SET value = 9223372036854775807 WHERE key = 'version'" },
    { "fingerprintThatIsNone", Taken::No,
        "UPDATE kvx_meta SET value = zeroblob(5) WHERE key = 'schema'" },
    { "bookkeepingWithoutAKey", Taken::No, "DELETE FROM kvx_meta WHERE key = 'project'" },
    { "pendingEditThatIsNone", Taken::No, "INSERT INTO kvx_pending VALUES (1, x'5402')" },
    { "pendingEditWithoutAKey", Taken::No,
        "INSERT INTO kvx_pending VALUES (1, x'5402010063686170746572730017000000050500')" },
    { "textInANumbersPlace", Taken::Yes, "UPDATE items SET quantity = 'a lot', rate = x'00ff'" },
    { "rowThatRefersToNone", Taken::Yes,
        "PRAGMA foreign_keys=OFF; INSERT INTO items(id, chapter) VALUES (77, 999)" },
    { "indexOverEverything", Taken::Yes,
        "CREATE INDEX heavy ON items(hex(text || text), rate, quantity, note)" },
    { "foreignSettings", Taken::Yes, "PRAGMA user_version=99; PRAGMA application_id=7" },
};

class HostileProjectFiles : public ProjectFiles, public testing::WithParamInterface<HostileFile> {
protected:
    /// A closed project file of a server, with those statements run on it.
    QString tampered(const std::string &statements)
    {
        const Database ann = project("ann");
        EXPECT_TRUE(ann->checkpoint());
        copyOf(ann->path(), "hostile");
        outside(file("hostile"), statements);
        return file("hostile");
    }
};

} // namespace

TEST_P(HostileProjectFiles, RunNothingOfTheirOwn)
{
    const QString path = tampered(GetParam().statements);
    const auto start = std::chrono::steady_clock::now();
    const Database ben = open(path, KVXProjectDatabase::Origin::Downloaded);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    ASSERT_EQ(ben != nullptr, GetParam().taken == Taken::Yes) << error.toStdString();
    if (!ben) {
        EXPECT_FALSE(error.isEmpty());
        EXPECT_NE(failure, Failure::Internal) << error.toStdString();
        return;
    }
    const std::string items = value(ben, "SELECT count(*) FROM items");
    const std::string buildups = value(ben, "SELECT count(*) FROM buildups");
    const Bytes log = changesetOf(testSchema.toStdString(), "INSERT INTO chapters VALUES (9, 'x')");
    EXPECT_EQ(execute(ben, forge(ben, 0, log)), 1) << ben->errorText().toStdString();
    EXPECT_TRUE(sql(ben, "INSERT INTO chapters VALUES (100, 'own')")) << "the user's own edit";
    EXPECT_EQ(value(ben, "SELECT count(*) FROM chapters"), "4");
    EXPECT_EQ(value(ben, "SELECT count(*) FROM items"), items);
    EXPECT_EQ(value(ben, "SELECT count(*) FROM buildups"), buildups);
}

INSTANTIATE_TEST_SUITE_P(Schemas, HostileProjectFiles, testing::ValuesIn(hostileFiles),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(ProjectFiles, AFileWithAChangedByteInItsHeadOrSchemaDoesNoHarm)
{
    const Database ann = project("ann");
    ASSERT_TRUE(ann->checkpoint());
    const Bytes whole = readFile(ann->path());
    std::mt19937 random(7);
    int refused = 0;
    for (int i = 0; i < 400; ++i) {
        Bytes bad = whole;
        const std::size_t at = i < 100 ? static_cast<std::size_t>(i) : random() % 4096;
        bad[at] = static_cast<unsigned char>(bad[at] ^ (1 + random() % 255));
        writeFile(file("bad"), bad);
        for (const char *side : { "bad-wal", "bad-shm", "bad-journal" })
            QFile::remove(file(side));
        const Database ben = open(file("bad"), KVXProjectDatabase::Origin::Downloaded);
        refused += ben ? 0 : 1;
        if (ben)
            static_cast<void>(ben->contentDigest());
        else
            EXPECT_FALSE(error.isEmpty()) << at;
    }
    EXPECT_GT(refused, 40);
}

TEST_F(ProjectFiles, AFileThatSaysItIsLargerThanItIsIsRefused)
{
    const Database ann = project("ann");
    ASSERT_TRUE(ann->checkpoint());
    Bytes bad = readFile(ann->path());
    bad[28] = 0x7f; // pages
    writeFile(file("bad"), bad);
    EXPECT_FALSE(open(file("bad"), KVXProjectDatabase::Origin::Downloaded));
    EXPECT_EQ(failure, Failure::Damaged) << error.toStdString();
}
