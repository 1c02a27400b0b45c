#include "ServiceHarness.h"

#include "base/Digest.h"
#include "services/CommandFile.h"
#include "services/FileNames.h"

using namespace kvx::test;
using namespace kvx::server;
using namespace std::string_literals;

namespace {

const std::string guid = guidOf(1);

std::string unhex(const std::string &digits)
{
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    return bytes;
}

std::string bigEndian(std::uint64_t value, int bytes)
{
    std::string text;
    for (int i = bytes - 1; i >= 0; --i)
        text += static_cast<char>(value >> (8 * i));
    return text;
}

const std::string table = "T\x03\x01\0\0items\0"s;
const std::string key1 = "\x01"s + bigEndian(1, 8);
const std::string real = "\x02"s + bigEndian(0x4020000000000000, 8);
const std::string update = "\x17\0"s + key1 + "\0"s + real + "\0\0"s + real;
const std::string insert = "\x12\0"s + key1
    + "\x03\x08"
      "Backfill"
    + "\x05";
const std::string removal = "\x09\x01"s + key1 + "\x03\x00"s + real;

/// A command file with that payload; `damage` sees the header before it is signed.
std::string commandFile(const std::string &payload, std::int64_t version = 0,
    const std::function<void(std::string &)> &damage = {}, const std::string &project = guid)
{
    const std::string author = "anna@example.com";
    std::string header = "KVXLOG\x1a\x0a\x00\x01\x02\x00"s
        + bigEndian(static_cast<std::uint64_t>(version), 4) + bigEndian(1'700'000'000, 8) + project
        + bigEndian(author.size(), 2) + std::string(16, 'i') + std::string(32, 's')
        + bigEndian(payload.size(), 8) + unhex(sha256(payload)) + author;
    header.resize(480);
    if (damage)
        damage(header);
    return header + unhex(sha256(header)) + payload;
}

std::string faultOf(const std::string &file, std::int64_t version = 0)
{
    std::size_t at = 0;
    const auto read = [&](char *buffer, std::size_t size) {
        const std::size_t count = std::min(size, file.size() - at);
        file.copy(buffer, count, at);
        at += count;
        return count;
    };
    return faultOfCommandFile(read, guid, version).value_or("");
}

std::string faultOfPayload(const std::string &payload)
{
    return faultOf(commandFile(payload));
}

} // namespace

TEST(CommandFile, IsWholeWithAndWithoutChanges)
{
    EXPECT_EQ(faultOf(commandFile("")), "");
    EXPECT_EQ(faultOf(commandFile(table + update + insert + removal)), "");
    EXPECT_EQ(faultOf(commandFile(table + insert + "T\x01\x01other\0"s + "\x12\0"s + key1)), "");
    EXPECT_EQ(faultOf(commandFile(table + insert, 7), 7), "");
    const std::string value(300'000, 'x'); // more than is read at a time
    EXPECT_EQ(
        faultOf(commandFile(table + "\x12\0"s + key1 + "\x04\x92\xA7\x60" + value + "\x05")), "");
}

TEST(CommandFile, CutAnywhereIsRefused)
{
    const std::string file = commandFile(table + update + insert + removal);
    for (std::size_t size = 0; size < file.size(); ++size)
        EXPECT_NE(faultOf(file.substr(0, size)), "") << size;
    EXPECT_EQ(faultOf(file + 'x'), "its command file has bytes left over");
}

TEST(CommandFile, WithAnyBitTurnedIsRefused)
{
    const std::string file = commandFile(table + update + insert + removal);
    for (std::size_t bit = 0; bit < file.size() * 8; ++bit) {
        std::string damaged = file;
        damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ (1 << (bit % 8)));
        EXPECT_NE(faultOf(damaged), "") << bit;
    }
}

TEST(CommandFile, OfAnotherProjectOrVersionIsRefused)
{
    EXPECT_EQ(
        faultOf(commandFile("", 0, {}, guidOf(2))), "its command file belongs to another project");
    EXPECT_EQ(faultOf(commandFile("", 5)), "its command file publishes version 5 instead of 0");
    std::string folded = guid;
    for (char &letter : folded)
        letter = static_cast<char>(std::tolower(letter));
    EXPECT_EQ(faultOf(commandFile("", 0, {}, folded)), "");
}

TEST(CommandFile, WithABadHeaderIsRefused)
{
    const auto put = [](std::size_t at, const std::string &bytes) {
        return [=](std::string &header) { header.replace(at, bytes.size(), bytes); };
    };
    EXPECT_EQ(faultOf(commandFile("", 0, put(8, bigEndian(2, 2)))),
        "its entry is no command file of format 1");
    EXPECT_EQ(faultOf(commandFile("", 0, put(62, bigEndian(255, 2)))),
        "the author of its command file is not valid");
    EXPECT_EQ(
        faultOf(commandFile("", 0, put(300, "x"))), "the author of its command file is not valid");
    EXPECT_EQ(faultOf(commandFile("", 0, put(152, "\xff"))),
        "the author of its command file is not valid");
    EXPECT_EQ(faultOf(commandFile("", 0, put(112, bigEndian((256u << 20) + 1, 8)))),
        "its changeset is larger than 256 MiB");
    EXPECT_EQ(faultOf(commandFile(table + insert, 0, put(112, bigEndian(9, 8)))),
        "its changeset ends in the middle of a change");
    EXPECT_EQ(faultOf(commandFile(table + insert, 0, put(120, std::string(32, '0')))),
        "the changeset of its command file is damaged");
}

TEST(CommandFile, WithAChangesetThatStopsClientsIsRefused)
{
    const std::string of = "the table \"items\" of its changeset ";
    EXPECT_EQ(faultOfPayload("P" + table.substr(1) + insert),
        "its changeset does not begin with a table");
    EXPECT_EQ(faultOfPayload(insert), "its changeset does not begin with a table");
    EXPECT_EQ(faultOfPayload(table), of + "has no change");
    EXPECT_EQ(faultOfPayload(table + "T\x01\x01x\0"s + "\x12\0"s + key1), of + "has no change");
    EXPECT_EQ(faultOfPayload(table + insert + table + insert), of + "stands there twice");
    EXPECT_EQ(faultOfPayload("T\x03\0\0\0items\0"s + insert), of + "has no key");
    EXPECT_EQ(faultOfPayload("T\x03\x02\0\0items\0"s + insert), of + "has no key");
    EXPECT_EQ(faultOfPayload("T\x03\x01\x01\0items\0"s + insert),
        "a table of its changeset has two columns at one place of its key");
    EXPECT_EQ(faultOfPayload("T\0items\0"s + insert),
        "a table of its changeset has no or more than 200 columns");
    EXPECT_EQ(faultOfPayload("T\x81\x49"s + std::string(201, '\1') + "items\0"s),
        "a table of its changeset has no or more than 200 columns");
    EXPECT_EQ(faultOfPayload("T\x03\x01\0\0\0"s + insert), "a table of its changeset has no name");
    EXPECT_EQ(faultOfPayload("T\x03\x01\0\0"s + std::string(2000, 'n') + '\0' + insert),
        "a table of its changeset has no name");
    for (const char *name : { "sqlite_master", "KVX_pending" })
        EXPECT_EQ(faultOfPayload("T\x03\x01\0\0"s + name + '\0' + insert),
            "the table \"" + std::string(name) + "\" of its changeset is none of a project's own");
    EXPECT_EQ(faultOfPayload(table + "\x13\0"s), of + "has a change of an unknown kind");
    EXPECT_EQ(faultOfPayload(table + "\x12\x02"s),
        of + "has a change that is neither direct nor indirect");
    EXPECT_EQ(faultOfPayload(table + "\x12\0\x05\x05\x05"s), of + "has a row without a key");
    EXPECT_EQ(faultOfPayload(table + "\x12\0"s + key1 + "\0\x05"s),
        of + "has a row without all of its columns");
    EXPECT_EQ(
        faultOfPayload(table + "\x12\0"s + key1 + "\x06"s), of + "has a value of an unknown type");
    EXPECT_EQ(faultOfPayload(table + "\x12\0"s + key1 + "\x03\xA0\x80\x80\x01"s),
        of + "has a value of more than 64 MiB");
    EXPECT_EQ(faultOfPayload(table + "\x12\0"s + key1 + "\x03\x80\x01x\x05"s),
        "a length in its changeset is not valid");
    EXPECT_EQ(faultOfPayload(table + "\x12\0"s + key1 + "\x03\xff\xff\xff\xff\xff\x01"s),
        "a length in its changeset is not valid");
    EXPECT_EQ(faultOfPayload(table + "\x17\0\0\0"s + real + "\0\0"s + real),
        of + "has an update without the row's key");
    EXPECT_EQ(faultOfPayload(table + "\x17\0"s + key1 + "\0"s + real + key1 + "\0"s + real),
        of + "has an update whose two rows do not agree");
    EXPECT_EQ(faultOfPayload(table + "\x17\0"s + key1 + "\0\0\0\0"s + real),
        of + "has an update whose two rows do not agree");
    EXPECT_EQ(faultOfPayload(table + "\x17\0"s + key1 + "\0\0\0\0\0"s),
        of + "has an update that changes nothing");
}

TEST(CommandFile, IsReadOnlyWhereTheSettingAsksForIt)
{
    for (const char *check : { "archive", "changeset", "none" }) {
        ServiceHarness harness([check](Config &config) { config.logsCheck = check; });
        const Session anna = harness.join("anna@example.com");
        ASSERT_EQ(anna.ask(newProject(anna, guid, "School")).status(), 1);
        ASSERT_EQ(anna.ask(Message("loglock")
                               .set("ProjectGUID", guid)
                               .set("LogVersion", -1)
                               .set("ReleaseLock", false))
                      .integer("Lock"),
            1);
        const std::string log = logName(guid, 0);
        const bool reads = check == "changeset"s;
        const Answer refused = anna.upload(log, logArchive(log, commandFile(table)));
        EXPECT_EQ(refused.status(), reads ? 605 : 1) << check;
        if (reads) {
            EXPECT_EQ(refused.text("message"),
                "The change log is not a valid archive: the table \"items\" of its changeset has "
                "no change.");
        }
        EXPECT_EQ(anna.upload(log, logArchive(log, commandFile(table + insert))).status(), 1);
        EXPECT_EQ(anna.upload(log, logArchive("another", "x")).status(), check == "none"s ? 1 : 605)
            << check;
    }
}
