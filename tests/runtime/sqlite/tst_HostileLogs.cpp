#include "Fixture.h"

#include <chrono>
#include <cstring>
#include <functional>

// Change logs whose frame is right (digest, length, project, version) and whose changes are not
// what another copy of the project would write.

using namespace kvx::test;

namespace {

struct HostileLog {
    const char *name;
    std::function<Bytes()> changes;
};

void PrintTo(const HostileLog &log, std::ostream *out)
{
    *out << log.name;
}

Bytes changes(const std::string &statements, bool patchset = false)
{
    return changesetOf(testSchema.toStdString()
            + "; INSERT INTO chapters VALUES (1,'Earthworks'),(2,'Concrete');"
              "INSERT INTO buildups VALUES (10,'labour',3),(10,'plant',5)",
        statements, patchset);
}

/// Of other tables than the project's.
Bytes foreign(const std::string &schema, const std::string &statements)
{
    return changesetOf(schema, statements);
}

Bytes good()
{
    return changes("INSERT INTO chapters VALUES (7, 'Walls'); UPDATE chapters SET title = 'Rock' "
                   "WHERE id = 1; DELETE FROM buildups WHERE part = 'plant'");
}

Bytes cut(std::size_t size)
{
    Bytes bytes = good();
    bytes.resize(size);
    return bytes;
}

/// "chapters": key column id, column title.
Bytes table(
    const Bytes &records, const Bytes &columns = { 2, 1, 0 }, const std::string &name = "chapters")
{
    Bytes bytes { 'T' };
    bytes.insert(bytes.end(), columns.begin(), columns.end());
    bytes.insert(bytes.end(), name.c_str(), name.c_str() + name.size() + 1);
    bytes.insert(bytes.end(), records.begin(), records.end());
    return bytes;
}

constexpr unsigned char Integer = 1;
const Bytes seven { Integer, 0, 0, 0, 0, 0, 0, 0, 7 };

Bytes joined(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

Bytes manyTables()
{
    Bytes all;
    for (int i = 0; i < 2000; ++i)
        all = joined({ std::move(all),
            table(joined({ { 18, 0 }, seven, { 5 } }), { 2, 1, 0 }, "t" + std::to_string(i)) });
    return all;
}

const std::vector<HostileLog> hostileLogs {
    { "cutInTheTableMark", [] { return cut(1); } },
    { "cutInTheColumnCount", [] { return cut(2); } },
    { "cutInTheKeyColumns", [] { return cut(4); } },
    { "cutInTheTableName", [] { return cut(6); } },
    { "cutBehindTheTableName", [] { return cut(13); } },
    { "cutInAValue", [] { return cut(good().size() - 2); } },
    { "updateWithoutItsKey",
        [] {
            return table(joined({ { 23, 0, 0, 5, 0 }, seven }));
        } },
    { "updateOfItsKey",
        [] {
            return table(joined({ { 23, 0 }, seven, { 5 }, seven, { 5 } }));
        } },
    { "noKeyColumn",
        [] {
            return table(joined({ { 18, 0 }, seven, seven }), { 2, 0, 0 });
        } },
    { "anotherKeyColumn",
        [] {
            return table(joined({ { 18, 0 }, seven, seven }), { 2, 0, 1 });
        } },
    { "valueOfFourGibibytes",
        [] {
            return table(joined({ { 18, 0 }, seven, { 3, 0x8f, 0xff, 0xff, 0xff, 0x7f, 'x' } }));
        } },
    { "countlessColumns",
        [] {
            return table({ 18, 0 }, { 0xff, 0xff, 0xff, 0x7f, 1 });
        } },
    { "unknownOperation",
        [] {
            return table(joined({ { 99, 0 }, seven, { 5 } }));
        } },
    { "unknownValueType",
        [] {
            return table(joined({ { 18, 0 }, seven, { 9 } }));
        } },
    { "indirectChange",
        [] {
            return table(joined({ { 18, 7 }, seven, { 5 } }));
        } },
    { "patchset", [] { return changes("DELETE FROM chapters WHERE id = 2", true); } },
    { "tableThatIsMissing",
        [] {
            return foreign(
                "CREATE TABLE secret(id INTEGER PRIMARY KEY)", "INSERT INTO secret VALUES (1)");
        } },
    { "goodChangesThenATableThatIsMissing",
        [] {
            return joined({ good(),
                foreign("CREATE TABLE secret(id INTEGER PRIMARY KEY)",
                    "INSERT INTO secret VALUES (1)") });
        } },
    { "fewerColumns",
        [] {
            return foreign(
                "CREATE TABLE chapters(id INTEGER PRIMARY KEY)", "INSERT INTO chapters VALUES (9)");
        } },
    { "moreColumns",
        [] {
            return foreign("CREATE TABLE chapters(id INTEGER PRIMARY KEY, title, more)",
                "INSERT INTO chapters VALUES (9, 'x', 1)");
        } },
    { "theSchemaItself",
        [] {
            return table(joined({ { 18, 0, 3, 1, 'x', 3, 1, 'x', 3, 1, 'x' }, seven, { 5 } }),
                { 5, 1, 0, 0, 0, 0 }, "sqlite_master");
        } },
    { "theOwnBookkeeping",
        [] {
            return foreign("CREATE TABLE kvx_meta(key TEXT NOT NULL PRIMARY KEY, value)",
                "INSERT INTO kvx_meta VALUES ('version', 99)");
        } },
    { "statementInATableName",
        [] {
            return table(joined({ { 18, 0 }, seven, { 5 } }), { 2, 1, 0 },
                "chapters\"; DROP TABLE chapters; --");
        } },
    { "tableOfAnotherCase",
        [] {
            return table(joined({ { 18, 0 }, seven, { 3, 1, 'x' } }), { 2, 1, 0 }, "CHAPTERS");
        } },
    { "sameTableTwice",
        [] {
            return joined({ good(), good() });
        } },
    { "twoThousandTables", manyTables },
    { "rowThatIsAlreadyThereWithOtherContent",
        [] {
            return table(joined({ { 18, 0, Integer, 0, 0, 0, 0, 0, 0, 0, 1, 3, 1, 'x' } }));
        } },
    { "nullWhereNoneMayBe",
        [] {
            return table(joined({ { 18, 0 }, seven, { 5 } }));
        } },
    { "referenceToNoRow",
        [] { return changes("INSERT INTO items(id, chapter) VALUES (50, 12345)"); } },
    { "goodChangesThenAConflict",
        [] {
            return changesetOf(
                testSchema.toStdString() + "; INSERT INTO buildups VALUES (10,'labour',99)",
                "INSERT INTO chapters VALUES (7, 'Walls'); UPDATE buildups SET amount = 100");
        } },
};

class HostileLogs : public ProjectFiles, public testing::WithParamInterface<HostileLog> { };

} // namespace

TEST_P(HostileLogs, ChangeNothing)
{
    const Database ben = project("ben");
    const QByteArray before = ben->contentDigest();
    const QString log = forge(ben, 0, GetParam().changes());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(execute(ben, log), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    EXPECT_EQ(ben->contentDigest(), before);
    EXPECT_EQ(ben->logVersion(), -1);
    EXPECT_EQ(value(ben, "PRAGMA integrity_check"), "ok");

    // The honest log of that version is still taken.
    EXPECT_EQ(execute(ben, forge(ben, 0, good())), 1) << ben->errorText().toStdString();
    EXPECT_EQ(ben->logVersion(), 0);
    EXPECT_EQ(value(ben, "SELECT title FROM chapters WHERE id = 7"), "Walls");
}

INSTANTIATE_TEST_SUITE_P(Changes, HostileLogs, testing::ValuesIn(hostileLogs),
    [](const auto &info) { return std::string(info.param.name); });

// What SQLite itself passes over or never returns from.
TEST_F(ProjectFiles, ALogCutAtAnyByteIsAppliedWholeUpToAChangeOrNotAtAll)
{
    const Bytes whole = good();
    int taken = 0;
    for (std::size_t size = 1; size < whole.size(); ++size) {
        const Database ben = project(("cut" + std::to_string(size)).c_str());
        const QByteArray before = ben->contentDigest();
        const bool applied = execute(ben, forge(ben, 0, cut(size))) != 0;
        EXPECT_EQ(ben->logVersion(), applied ? 0 : -1) << size;
        EXPECT_EQ(ben->contentDigest() == before, !applied) << size;
        taken += applied ? 1 : 0;
    }
    EXPECT_EQ(taken, 2) << "the cuts between its three changes";
}
