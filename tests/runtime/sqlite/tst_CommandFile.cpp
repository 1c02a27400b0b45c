#include "Fixture.h"

#include "KVXSQLite/Schema.h"

#include <QFile>
#include <QRegularExpression>

using namespace kvx::test;
using kvx::sqlite::CommandFile;
using kvx::sqlite::CommandHeader;
using kvx::sqlite::Schema;
using testing::HasSubstr;

namespace {

const char *const documentedSchema
    = "CREATE TABLE items(id INTEGER PRIMARY KEY, text TEXT NOT NULL, rate REAL)";

/// The worked example of docs/change-logs.md.
Bytes example()
{
    Schema schema;
    EXPECT_TRUE(Schema::fromSql(documentedSchema, &schema).ok());
    CommandHeader header;
    header.version = 7;
    header.time = 1767225600;
    header.projectGuid = testGuid.toStdString();
    header.author = "ann@example.org";
    header.schema = schema.fingerprint();
    for (std::size_t i = 0; i < header.publishId.size(); ++i)
        header.publishId[i] = static_cast<unsigned char>(i);
    return CommandFile::encode(header,
        changesetOf(std::string(documentedSchema) + "; INSERT INTO items VALUES (1, 'Excavate', 8)",
            "UPDATE items SET rate = 9.5 WHERE id = 1; INSERT INTO items VALUES (2, 'Backfill', "
            "6.25)"));
}

std::string hexLines(const Bytes &bytes)
{
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += 16) {
        char part[32];
        std::snprintf(part, sizeof part, "%08zx ", at);
        text += part;
        for (std::size_t i = at; i < std::min(at + 16, bytes.size()); ++i) {
            std::snprintf(part, sizeof part, " %02x", bytes[i]);
            text += part;
        }
        text += "\n";
    }
    return text;
}

class CommandFiles : public ProjectFiles { };

TEST_F(CommandFiles, AreExactlyAsDocumented)
{
    const Bytes document = readFile(QStringLiteral(KVX_SOURCE_DIR "/docs/change-logs.md"));
    const std::string text(document.begin(), document.end());
    EXPECT_THAT(text, HasSubstr(hexLines(example())));
    EXPECT_THAT(text, HasSubstr(documentedSchema));
    EXPECT_THAT(text, HasSubstr("T5:itemsC2:id7:INTEGER0:1;C4:text4:TEXT1:0;C4:rate4:REAL0:0;"));
}

TEST_F(CommandFiles, CarryTheirHeader)
{
    const Bytes bytes = example();
    CommandFile log;
    ASSERT_TRUE(log.decode(bytes.data(), bytes.size()).ok());
    EXPECT_TRUE(log.isLoaded());
    EXPECT_EQ(log.header().version, 7);
    EXPECT_EQ(log.header().time, 1767225600);
    EXPECT_EQ(log.header().author, "ann@example.org");
    EXPECT_EQ(log.header().projectGuid, testGuid.toStdString());
    EXPECT_EQ(log.header().publishId[15], 15);
    EXPECT_EQ(CommandFile::encode(log.header(), log.changeset()), bytes);
}

TEST_F(CommandFiles, AreRefusedWhenCutOrLengthenedAnywhere)
{
    const Bytes good = example();
    for (std::size_t size = 0; size < good.size(); ++size) {
        CommandFile log;
        EXPECT_FALSE(log.decode(good.data(), size).ok()) << size;
        EXPECT_FALSE(log.isLoaded());
    }
    Bytes longer = good;
    longer.push_back(0);
    CommandFile log;
    EXPECT_FALSE(log.decode(longer.data(), longer.size()).ok());
}

TEST_F(CommandFiles, AreRefusedWithAnyBitChanged)
{
    const Bytes good = example();
    for (std::size_t at = 0; at < good.size(); ++at) {
        for (int bit = 0; bit < 8; ++bit) {
            Bytes bad = good;
            bad[at] = static_cast<unsigned char>(bad[at] ^ (1 << bit));
            CommandFile log;
            EXPECT_FALSE(log.decode(bad.data(), bad.size()).ok()) << at << "." << bit;
        }
    }
}

TEST_F(CommandFiles, NameWhyTheyCannotBeLoaded)
{
    CommandFile log;
    EXPECT_FALSE(log.loadFromFile(file("missing")));
    EXPECT_THAT(log.errorText(), HasSubstr("cannot be read"));
    EXPECT_FALSE(log.loadFromFile(QStringLiteral("/dev/zero")));
    writeFile(file("text"), Bytes(2000, 'x'));
    EXPECT_FALSE(log.loadFromFile(file("text")));
    EXPECT_THAT(log.errorText(), HasSubstr("it is no change log"));
    Bytes newer = example();
    newer[9] = 2;
    writeFile(file("newer"), newer);
    EXPECT_FALSE(log.loadFromFile(file("newer")));
    EXPECT_THAT(log.errorText(), HasSubstr("it has format 2, this release reads format 1"));
    QFile large(file("large"));
    ASSERT_TRUE(large.open(QIODevice::WriteOnly) && large.resize(300LL * 1024 * 1024));
    EXPECT_FALSE(log.loadFromFile(file("large")));
    EXPECT_THAT(log.errorText(), HasSubstr("larger than 256 MiB"));

    writeFile(file("good"), example());
    EXPECT_TRUE(log.loadFromFile(file("good")));
    EXPECT_TRUE(log.errorText().empty());
    EXPECT_FALSE(log.loadFromFile(file("text"))) << "a failed load empties the object";
    EXPECT_FALSE(log.isLoaded());
}

TEST_F(CommandFiles, WithASoundDigestAreStillValidated)
{
    const Database ann = project("ann");
    // Each of these hangs or crashes SQLite's own reader.
    const Bytes hangs { 'T', 5, 1 };
    const Bytes crashes { 'T', 2, 1, 0, 't', 0, 23, 0, 0, 5, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1 };
    for (const Bytes &payload : { hangs, crashes }) {
        CommandFile log;
        EXPECT_FALSE(log.loadFromFile(forge(ann, 0, payload)));
        EXPECT_EQ(ann->model()->execute(&log, 0), 0);
        EXPECT_EQ(ann->errorText(), QStringLiteral("the change log was not loaded"));
    }
    EXPECT_EQ(ann->model()->execute(nullptr, 0), 0);
    EXPECT_EQ(ann->errorText(), QStringLiteral("no change log was given"));
}

TEST_F(CommandFiles, RefuseAnAuthorThatDoesNotFit)
{
    const Database ann = project("ann");
    EXPECT_FALSE(ann->prepareSave(file("log"), QString(255, QLatin1Char('a'))));
    EXPECT_TRUE(ann->prepareSave(file("log"), QString(254, QLatin1Char('a'))));
    CommandFile log;
    ASSERT_TRUE(log.loadFromFile(file("log")));
    EXPECT_EQ(log.header().author.size(), 254U);
}

TEST_F(CommandFiles, ThatCannotBeWrittenFailTheSaveAndLeaveNothingNoted)
{
    const Database ann = project("ann");
    EXPECT_FALSE(ann->prepareSave(file("no/such/folder"), QString()));
    EXPECT_THAT(ann->errorText().toStdString(), HasSubstr("writing "));
    EXPECT_FALSE(ann->published(0));
    EXPECT_THAT(ann->errorText().toStdString(), HasSubstr("version 0 was not prepared"));
}

} // namespace
