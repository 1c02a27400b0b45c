#include "CraftedZip.h"

#include <KVXCommon/KVXZipFile.h>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <functional>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace kvx::test {

namespace {

struct HostileCase {
    std::string name;
    QByteArray archive;
};

void PrintTo(const HostileCase &hostile, std::ostream *out)
{
    *out << hostile.name;
}

HostileCase named(const char *title, const QByteArray &entryName)
{
    return { title, CraftedZip { { { entryName } } }.bytes() };
}

HostileCase entry(const char *title, const std::function<void(CraftedEntry &)> &change)
{
    CraftedEntry made { "f" };
    change(made);
    // A harmless entry in front: it must not be left behind either.
    return { title, CraftedZip { { { "good" }, made } }.bytes() };
}

HostileCase archive(const char *title, const std::function<void(CraftedZip &)> &change)
{
    CraftedZip made { { { "f" } } };
    change(made);
    return { title, made.bytes() };
}

std::vector<HostileCase> badNames()
{
    return { named("parent", "../x"), named("parentAtTheEnd", "x/.."), named("parentAlone", ".."),
        named("dotAlone", "."), named("absolute", "/etc/x"), named("folder", "a/b"),
        named("folderEntry", "a/"), named("drive", "C:\\x"), named("driveRelative", "C:x"),
        named("driveSlash", "C:/x"), named("share", "\\\\srv\\x"), named("backslash", "a\\b"),
        named("backslashParent", "..\\x"), named("device", "\\\\.\\NUL"), named("stream", "x:y"),
        named("empty", ""), named("nulInside", QByteArray("a\0b", 3)),
        named("nulAtTheEnd", QByteArray("a\0", 2)),
        named("nulBeforeParent", QByteArray("a\0/../b", 7)), named("lineBreak", "a\nb"),
        named("escape", "a\x1b[2Jb"), named("delete", "a\x7f"), named("wildcard", "a*"),
        named("question", "a?"), named("pipe", "a|b"), named("quote", "a\"b"), named("less", "a<b"),
        named("trailingDot", "a."), named("trailingBlank", "a "), named("con", "CON"),
        named("nulDevice", "nul"), named("aux", "AuX.txt"), named("prn", "prn.a.b"),
        named("com1", "COM1"), named("com0", "com0"), named("lpt9", "lpt9.log"),
        named("superscriptPort", "COM\xc2\xb9"), named("conin", "CONIN$"),
        named("blankDevice", "con .txt"), named("tooLong", QByteArray(256, 'n')),
        named("farTooLong", QByteArray(65535, 'n')), named("notUtf8", "a\xff\xfe") };
}

std::vector<HostileCase> badEntries()
{
    return {
        entry("symbolicLink", [](CraftedEntry &e) { e.attributes = 0120777U << 16; }),
        entry("directory", [](CraftedEntry &e) { e.attributes = 0040755U << 16; }),
        entry("fifo", [](CraftedEntry &e) { e.attributes = 0010644U << 16; }),
        entry("socket", [](CraftedEntry &e) { e.attributes = 0140644U << 16; }),
        entry("blockDevice", [](CraftedEntry &e) { e.attributes = 0060644U << 16; }),
        entry("characterDevice", [](CraftedEntry &e) { e.attributes = 0020644U << 16; }),
        entry("dosFolder",
            [](CraftedEntry &e) {
                e.madeBy = 0;
                e.attributes = 0x10;
            }),
        entry("linkSaidToBeDos",
            [](CraftedEntry &e) {
                e.madeBy = 0;
                e.attributes = 0120777U << 16;
            }),
        entry("duplicate", [](CraftedEntry &e) { e.name = "good"; }),
        entry("duplicateByCase", [](CraftedEntry &e) { e.name = "GOOD"; }),
        entry("ratio",
            [](CraftedEntry &e) {
                e.content = QByteArray(1'000'000, 'a');
                e.deflated = true;
            }),
        entry("sizeTooSmall", [](CraftedEntry &e) { e.size = 3; }),
        entry("sizeTooLarge", [](CraftedEntry &e) { e.size = 100; }),
        entry("deflatedSizeTooSmall",
            [](CraftedEntry &e) {
                e.deflated = true;
                e.size = 3;
            }),
        entry("deflatedSizeTooLarge",
            [](CraftedEntry &e) {
                e.deflated = true;
                e.size = 100;
            }),
        entry("deflatedSizeZero",
            [](CraftedEntry &e) {
                e.deflated = true;
                e.size = 0;
            }),
        entry("packedSizeTooLarge", [](CraftedEntry &e) { e.packedSize = 1'000'000; }),
        entry("packedSizeIntoTheDirectory", [](CraftedEntry &e) { e.packedSize = 20; }),
        entry("packedSizeTooSmall",
            [](CraftedEntry &e) {
                e.deflated = true;
                e.packedSize = 2;
            }),
        entry("hugeSize", [](CraftedEntry &e) { e.size = 0xfffffffe; }),
        entry("zip64Sizes",
            [](CraftedEntry &e) {
                e.size = e.packedSize = 0xffffffff;
                e.extra = QByteArray::fromHex("0100100007000000000000000700000000000000");
            }),
        entry("zip64Offset",
            [](CraftedEntry &e) {
                e.offset = 0xffffffff;
                e.extra = QByteArray::fromHex("010008002300000000000000");
            }),
        entry("wrongChecksum", [](CraftedEntry &e) { e.crc = 12345; }),
        entry("brokenDeflate", [](CraftedEntry &e) { e.method = 8; }),
        entry("unknownMethod", [](CraftedEntry &e) { e.method = 77; }),
        entry("bzip2", [](CraftedEntry &e) { e.method = 12; }),
        entry("encryptedWithoutPassword",
            [](CraftedEntry &e) {
                e.flags = 0x801;
                e.content = "0123456789abcdef";
                e.size = 4;
            }),
        entry("strongEncryption", [](CraftedEntry &e) { e.flags = 0x841; }),
        entry("otherLocalName", [](CraftedEntry &e) { e.localName = "../../x"; }),
        entry("otherLocalNameSameLength", [](CraftedEntry &e) { e.localName = "g"; }),
        entry("otherLocalMethod", [](CraftedEntry &e) { e.localMethod = 8; }),
        entry("otherLocalFlags", [](CraftedEntry &e) { e.localFlags = 1; }),
        entry("overlapping",
            [](CraftedEntry &e) {
                e.name = "good";
                e.name = "food";
                e.offset = 0;
                e.localName = "food";
            }),
        entry("offsetIntoTheDirectory", [](CraftedEntry &e) { e.offset = 100; }),
        entry("offsetBehindTheEnd", [](CraftedEntry &e) { e.offset = 1'000'000; }),
        entry("anotherVolume", [](CraftedEntry &e) { e.disk = 1; }),
    };
}

QVector<CraftedEntry> manyEntries(int count)
{
    QVector<CraftedEntry> entries;
    for (int i = 0; i < count; ++i)
        entries.append({ "f" + QByteArray::number(i), "x" });
    return entries;
}

std::vector<HostileCase> badArchives()
{
    std::vector<HostileCase> cases {
        { "nothing", "" },
        { "text", "this is no archive" },
        { "onlyASignature", "PK\x05\x06" },
        archive("seventeenEntries", [](CraftedZip &z) { z.entries = manyEntries(17); }),
        archive("manyEntries", [](CraftedZip &z) { z.entries = manyEntries(60'000); }),
        archive("moreEntriesThanTold",
            [](CraftedZip &z) {
                z.entries = manyEntries(3);
                z.entryCount = 2;
            }),
        archive("fewerEntriesThanTold", [](CraftedZip &z) { z.entryCount = 2; }),
        archive("noEntriesTold", [](CraftedZip &z) { z.entryCount = 0; }),
        archive("zip64Count", [](CraftedZip &z) { z.entryCount = 0xffff; }),
        archive("countsDiffer", [](CraftedZip &z) { z.entryCountOnDisk = 0; }),
        archive("severalVolumes", [](CraftedZip &z) { z.disk = 1; }),
        archive("directorySizeTooSmall", [](CraftedZip &z) { z.directorySize = 10; }),
        archive("directorySizeTooLarge", [](CraftedZip &z) { z.directorySize = 10'000; }),
        archive("zip64Directory",
            [](CraftedZip &z) { z.directorySize = z.directoryOffset = 0xffffffff; }),
        archive("directoryElsewhere", [](CraftedZip &z) { z.directoryOffset = 0; }),
        archive("gapBehindTheDirectory", [](CraftedZip &z) { z.beforeEnd = "gap"; }),
        archive("bytesBehindTheEnd", [](CraftedZip &z) { z.trailing = "x"; }),
        archive("anotherEndInTheComment",
            [](CraftedZip &z) { z.comment = "PK\x05\x06" + QByteArray(18, '\0') + "tail"; }),
        archive("halfEndInTheComment", [](CraftedZip &z) { z.comment = "PK\x05\x06"; }),
        archive("totalTooLarge",
            [](CraftedZip &z) {
                z.entries = manyEntries(16);
                for (CraftedEntry &e : z.entries) {
                    e.content = QByteArray(100'000, 'c');
                    e.size = 20'000'000;
                }
            }),
    };
    CraftedZip sameFile { { { "a", QByteArray(1000, 'x') } } };
    CraftedEntry second { "a", QByteArray(1000, 'x') };
    second.offset = 0;
    sameFile.entries.append(second);
    cases.push_back({ "oneEntryListedTwice", sameFile.bytes() });
    const QByteArray whole = CraftedZip { { { "f" } } }.bytes();
    cases.push_back({ "prefixNotCounted", "junk" + whole });
    cases.push_back({ "twoArchivesInOne", whole + whole });
    return cases;
}

} // namespace

class HostileZip : public testing::TestWithParam<HostileCase> {
protected:
    HostileZip()
    {
        EXPECT_TRUE(QDir(m_folder.path()).mkpath("inner/target"));
        QFile file(m_folder.filePath("inner/a.zip"));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(GetParam().archive);
    }
    // Every path under the test's folder, with the sizes of files.
    QStringList everything() const
    {
        QStringList found;
        QStringList open { m_folder.path() };
        while (!open.isEmpty()) {
            const QString folder = open.takeFirst();
            for (const QFileInfo &info : QDir(folder).entryInfoList(
                     QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)) {
                found.append(info.filePath() + QString::number(info.isFile() ? info.size() : 0));
                if (info.isDir() && !info.isSymLink())
                    open.append(info.filePath());
            }
        }
        return found;
    }
    QString path(const char *name) const { return m_folder.filePath(name); }

private:
    QTemporaryDir m_folder;
};

TEST_P(HostileZip, IsRefusedAndLeavesNothing)
{
    const QStringList before = everything();
    QMap<QString, QString> files { { "old", "old" } };
    EXPECT_FALSE(
        KVXZipFile::extractFiles(path("inner/a.zip"), path("inner/new"), files, QString()));
    EXPECT_TRUE(files.isEmpty());
    EXPECT_EQ(everything(), before);
    EXPECT_FALSE(
        KVXZipFile::extractFiles(path("inner/a.zip"), path("inner/target"), files, "word"));
    EXPECT_TRUE(QDir(path("inner/target")).isEmpty());
}

const auto hostileName
    = [](const testing::TestParamInfo<HostileCase> &info) { return info.param.name; };
INSTANTIATE_TEST_SUITE_P(Names, HostileZip, testing::ValuesIn(badNames()), hostileName);
INSTANTIATE_TEST_SUITE_P(Entries, HostileZip, testing::ValuesIn(badEntries()), hostileName);
INSTANTIATE_TEST_SUITE_P(Archives, HostileZip, testing::ValuesIn(badArchives()), hostileName);

// Every archive cut at any byte, and every single bit turned, either unpacks to what was packed or
// leaves nothing.
TEST(DamagedZip, CutOrTurnedBitsNeverYieldOtherContent)
{
    const QTemporaryDir folder;
    const QByteArray content
        = "the content of a change log, long enough to be packed, packed, packed";
    CraftedEntry made { "f", content };
    made.deflated = true;
    const QByteArray whole = CraftedZip { { made } }.bytes();
    const auto check = [&](const QByteArray &bytes) {
        QFile file(folder.filePath("a.zip"));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
        file.close();
        QMap<QString, QString> files;
        if (KVXZipFile::extractFiles(file.fileName(), folder.filePath("out"), files, QString())) {
            EXPECT_LE(files.size(), 1);
            for (const QString &path : qAsConst(files)) {
                QFile extracted(path);
                EXPECT_TRUE(extracted.open(QIODevice::ReadOnly));
                EXPECT_EQ(extracted.readAll(), content);
            }
            EXPECT_TRUE(QDir(folder.filePath("out")).removeRecursively());
        }
        EXPECT_FALSE(QFile::exists(folder.filePath("out")));
    };
    for (int size = 0; size < whole.size(); ++size)
        check(whole.left(size));
    for (int bit = 0; bit < whole.size() * 8; ++bit) {
        QByteArray turned = whole;
        turned[bit / 8] = static_cast<char>(turned[bit / 8] ^ 1 << (bit % 8));
        check(turned);
    }
}

} // namespace kvx::test
