#include "Fixture.h"

#include "KVXSQLite/ChangesetReader.h"
#include "KVXSQLite/ChangesetValidator.h"

#include <cstring>

using namespace kvx::test;
using kvx::sqlite::ChangesetReader;
using kvx::sqlite::ChangesetValidator;
using kvx::sqlite::Schema;
using testing::HasSubstr;

namespace {

const char *const exampleSchema
    = "CREATE TABLE t(a INTEGER NOT NULL, b TEXT NOT NULL, c REAL, d BLOB, PRIMARY KEY(b, a));"
      "CREATE TABLE u(id INTEGER PRIMARY KEY, x);"
      "INSERT INTO u VALUES (1, 'one'), (2, 'two'), (3, 'three')";
const char *const exampleEdits
    = "INSERT INTO t VALUES (1, 'k', 1.5, x'0102'), (-9, '', NULL, zeroblob(300));"
      "UPDATE u SET x = 5 WHERE id = 1; DELETE FROM u WHERE id = 2";

std::string reject(const Bytes &bytes)
{
    ChangesetValidator validator;
    return validator.check(bytes.data(), bytes.size()) ? "accepted" : validator.error();
}

std::string rejectFor(const char *schemaSql, const Bytes &bytes)
{
    Schema schema;
    EXPECT_TRUE(Schema::fromSql(schemaSql, &schema).ok());
    ChangesetValidator validator;
    return validator.check(bytes.data(), bytes.size(), schema) ? "accepted" : validator.error();
}

/// Key column a, column b, table "t".
Bytes table(const Bytes &records)
{
    Bytes bytes { 'T', 2, 1, 0, 't', 0 };
    bytes.insert(bytes.end(), records.begin(), records.end());
    return bytes;
}

constexpr unsigned char I = 1; // an integer of eight bytes follows
#define KVX_SEVEN 0, 0, 0, 0, 0, 0, 0, 7

TEST(ChangesetValidator, AcceptsWhatTheSessionExtensionWrites)
{
    const Bytes good = changesetOf(exampleSchema, exampleEdits);
    EXPECT_EQ(rejectFor(exampleSchema, good), "accepted");
    ChangesetValidator validator;
    EXPECT_TRUE(validator.check(good.data(), good.size()));
    EXPECT_EQ(validator.records(), 4U);
    EXPECT_EQ(reject({}), "accepted");
}

TEST(ChangesetValidator, RejectsEveryTruncationButThoseBetweenRecords)
{
    const Bytes good = changesetOf(exampleSchema, exampleEdits);
    std::vector<std::size_t> ends { 0 };
    ChangesetReader reader(good.data(), good.size());
    while (reader.next() == ChangesetReader::Step::Record)
        ends.push_back(static_cast<std::size_t>(reader.record().data() + reader.record().size()
            - reinterpret_cast<const char *>(good.data())));
    ASSERT_EQ(ends.size(), 5U);
    for (std::size_t size = 0; size <= good.size(); ++size) {
        const bool between = std::find(ends.begin(), ends.end(), size) != ends.end();
        EXPECT_EQ(reject(Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size)))
                == "accepted",
            between)
            << size << " of " << good.size();
    }
}

TEST(ChangesetValidator, RejectsAnUpdateThatDoesNotNameItsRow)
{
    EXPECT_THAT(
        reject(table({ 23, 0, 0, I, KVX_SEVEN, 0, 5 })), HasSubstr("does not name its row"));
    EXPECT_THAT(reject(table({ 23, 0, I, KVX_SEVEN, 5, I, KVX_SEVEN, 5 })),
        HasSubstr("does not name its row"));
    EXPECT_THAT(reject(table({ 23, 0, I, KVX_SEVEN, 5, 0, 0 })),
        HasSubstr("an old value without a new one"));
    EXPECT_THAT(reject(table({ 23, 0, I, KVX_SEVEN, 0, 0, 0 })), HasSubstr("changes nothing"));
    EXPECT_THAT(reject(table({ 23, 0, 5, 5, 0, I, KVX_SEVEN })), HasSubstr("a key value is NULL"));
    EXPECT_EQ(reject(table({ 23, 0, I, KVX_SEVEN, 5, 0, I, KVX_SEVEN })), "accepted");
}

TEST(ChangesetValidator, RejectsIncompleteRows)
{
    EXPECT_THAT(reject(table({ 18, 0, I, KVX_SEVEN, 0 })), HasSubstr("lacks a value"));
    EXPECT_THAT(reject(table({ 9, 0, I, KVX_SEVEN, 0 })), HasSubstr("lacks a value"));
    EXPECT_THAT(reject(table({ 18, 0, 5, 5 })), HasSubstr("a key value is NULL"));
    EXPECT_THAT(reject(table({ 18, 2, I, KVX_SEVEN, 5 })), HasSubstr("an unknown mark"));
    EXPECT_THAT(
        reject(table({ 17, 0, I, KVX_SEVEN, 5 })), HasSubstr("neither insert, update nor delete"));
    EXPECT_THAT(reject(table({ 18, 0, I, KVX_SEVEN, 6 })), HasSubstr("unknown type"));
    EXPECT_THAT(reject(table({ 18, 0, I, 0, 0 })), HasSubstr("a number is cut"));
    EXPECT_THAT(reject(table({ 18, 0, I, KVX_SEVEN, 3, 9, 'x' })), HasSubstr("a value is cut"));
    EXPECT_THAT(reject(table({ 18, 0, I, KVX_SEVEN, 4, 0x8f, 0xff, 0xff, 0xff, 0x7f })),
        HasSubstr("length of a value is malformed"));
    EXPECT_THAT(reject(table({ 18, 0, I, KVX_SEVEN, 4, 0x80, 1, 'x' })),
        HasSubstr("length of a value is malformed"));
    EXPECT_THAT(reject(table({ 18, 0, I, KVX_SEVEN, 4, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff })),
        HasSubstr("length of a value is malformed"));
}

TEST(ChangesetValidator, RejectsMalformedTableHeaders)
{
    EXPECT_THAT(reject({ 'X' }), HasSubstr("a table header is missing"));
    EXPECT_THAT(reject({ 'T', 0, 't', 0 }), HasSubstr("column count is out of range"));
    EXPECT_THAT(reject({ 'T', 0x9f, 0x7f, 1 }), HasSubstr("column count is out of range"));
    EXPECT_THAT(reject({ 'T', 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff }),
        HasSubstr("column count is malformed"));
    EXPECT_THAT(reject({ 'T', 2, 0, 0, 't', 0, 18 }), HasSubstr("no primary key"));
    EXPECT_THAT(reject({ 'T', 1, 1, 't' }), HasSubstr("a table name has no end"));
    EXPECT_THAT(reject({ 'T', 1, 1, 0, 18 }), HasSubstr("a table name is empty"));
    EXPECT_THAT(reject(table({})), HasSubstr("a table has no changes"));
    Bytes twice = table({ 18, 0, I, KVX_SEVEN, 5 });
    const Bytes once = twice;
    twice.insert(twice.end(), once.begin(), once.end());
    EXPECT_THAT(reject(twice), HasSubstr("a table appears twice"));
    EXPECT_THAT(reject({ 'T', 2, 1, 0, 't', 0, 'T' }), HasSubstr("a change is cut"))
        << "never a header right after another";
}

TEST(ChangesetValidator, RejectsPatchsets)
{
    EXPECT_THAT(
        reject(changesetOf(exampleSchema, exampleEdits, true)), HasSubstr("it is a patchset"));
}

TEST(ChangesetValidator, RejectsTablesThatAreNotContent)
{
    for (const char *name : { "sqlite_master", "SQLITE_schema", "sqlite_sequence", "sqlite_stat1",
             "kvx_meta", "KVX_pending" }) {
        Bytes bytes { 'T', 1, 1 };
        bytes.insert(bytes.end(), name, name + std::strlen(name) + 1);
        bytes.insert(bytes.end(), { 18, 0, I, KVX_SEVEN });
        EXPECT_THAT(reject(bytes), HasSubstr("does not belong to the project's content")) << name;
    }
}

TEST(ChangesetValidator, ComparesWithTheLiveTables)
{
    const Bytes bytes
        = changesetOf("CREATE TABLE t(a INTEGER PRIMARY KEY, b)", "INSERT INTO t VALUES (1, 2)");
    EXPECT_THAT(rejectFor("CREATE TABLE s(a INTEGER PRIMARY KEY, b)", bytes),
        HasSubstr("table \"t\" is not in this project"));
    EXPECT_THAT(
        rejectFor("CREATE TABLE t(a INTEGER PRIMARY KEY)", bytes), HasSubstr("has other columns"));
    EXPECT_THAT(rejectFor("CREATE TABLE t(a INTEGER PRIMARY KEY, b, c)", bytes),
        HasSubstr("has other columns"));
    EXPECT_THAT(
        rejectFor("CREATE TABLE t(a, b INTEGER PRIMARY KEY)", bytes), HasSubstr("has another key"));
    EXPECT_THAT(rejectFor("CREATE TABLE t(a NOT NULL, b NOT NULL, PRIMARY KEY(a, b))", bytes),
        HasSubstr("has another key"));
    EXPECT_EQ(rejectFor("CREATE TABLE t(a INTEGER PRIMARY KEY, b)", bytes), "accepted");
}

TEST(ChangesetValidator, SurvivesEveryChangedByte)
{
    const Bytes good = changesetOf(exampleSchema, exampleEdits);
    sqlite3 *connection = nullptr;
    sqlite3_open(":memory:", &connection);
    sqlite3_exec(connection, exampleSchema, nullptr, nullptr, nullptr);
    Schema schema;
    ASSERT_TRUE(Schema::fromSql(exampleSchema, &schema).ok());
    int applied = 0;
    for (std::size_t at = 0; at < good.size(); ++at) {
        for (const int flip : { 1, 2, 4, 8, 16, 32, 64, 128, 255 }) {
            Bytes bad = good;
            bad[at] = static_cast<unsigned char>(bad[at] ^ flip);
            ChangesetValidator validator;
            if (!validator.check(bad.data(), bad.size(), schema))
                continue;
            ++applied; // what passes must be safe for SQLite: the watchdog would report a hang
            sqlite3_exec(connection, "BEGIN", nullptr, nullptr, nullptr);
            sqlite3changeset_apply(
                connection, static_cast<int>(bad.size()), bad.data(), nullptr,
                [](void *, int, sqlite3_changeset_iter *) { return SQLITE_CHANGESET_ABORT; },
                nullptr);
            sqlite3_exec(connection, "ROLLBACK", nullptr, nullptr, nullptr);
        }
    }
    EXPECT_GT(applied, 100);
    sqlite3_close(connection);
}

} // namespace
