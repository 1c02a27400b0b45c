#include "CraftedZip.h"

#include <KVXCommon/KVXZipFile.h>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <zip.h>

namespace kvx::test {

class Zip : public testing::Test {
protected:
    QString path(const QString &name) const { return m_folder.filePath(name); }
    QString writeFile(const QString &name, const QByteArray &bytes) const
    {
        QFile file(path(name));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        EXPECT_EQ(file.write(bytes), bytes.size());
        return file.fileName();
    }
    static QByteArray readFile(const QString &path)
    {
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
        return file.readAll();
    }
    QStringList entriesOf(const QString &name) const
    {
        return QDir(path(name))
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }
    bool extract(const QString &password = QString())
    {
        return KVXZipFile::extractFiles(path("a.zip"), path("out"), files, password);
    }
    int encryptionOf(const QString &archive) const
    {
        zip_t *zip = zip_open(archive.toLocal8Bit().constData(), ZIP_RDONLY, nullptr);
        zip_stat_t stat {};
        EXPECT_EQ(zip_stat_index(zip, 0, 0, &stat), 0);
        zip_discard(zip);
        return stat.encryption_method;
    }
    static QMap<QString, int> methodsOf(const QString &archive)
    {
        QMap<QString, int> methods;
        zip_t *zip = zip_open(archive.toLocal8Bit().constData(), ZIP_RDONLY, nullptr);
        zip_stat_t stat {};
        for (zip_uint64_t i = 0; zip_stat_index(zip, i, 0, &stat) == 0; ++i)
            methods.insert(QString::fromUtf8(stat.name), stat.comp_method);
        zip_discard(zip);
        return methods;
    }
    QMap<QString, QString> files;

private:
    QTemporaryDir m_folder;
};

const char LogName[] = "{4b1d0b52-9d4e-4b5c-8a67-0d2b6a3f1c11}_log7";

TEST_F(Zip, WhatIsPackedIsUnpacked)
{
    QByteArray mixed;
    for (unsigned i = 0; i < 200'000; ++i)
        mixed.append(static_cast<char>(i * i >> 7));
    EXPECT_TRUE(KVXZipFile::compressFiles(path("a.zip"),
        { { LogName, writeFile("log", mixed) },
            { QString::fromUtf8("Höhe ü.txt"), writeFile("n", "text") },
            { "empty", writeFile("e", "") } },
        QString()));
    ASSERT_TRUE(extract());
    EXPECT_EQ(files.keys(), (QStringList { QString::fromUtf8("Höhe ü.txt"), "empty", LogName }));
    EXPECT_EQ(files[LogName], path("out/") + LogName);
    EXPECT_EQ(readFile(files[LogName]), mixed);
    EXPECT_EQ(readFile(files["empty"]), "");
    EXPECT_EQ(QFile::permissions(path("out")) & 0x7777,
        QFile::Permissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadUser
            | QFile::WriteUser | QFile::ExeUser));
}

TEST_F(Zip, WhatShrinksTooFarIsStoredAndUnpacked)
{
    const QByteArray zeros(4 * 1024 * 1024, '\0');
    const QByteArray text = QByteArray(300'000, 'a') + "end";
    const QByteArray usual("a log that shrinks as usual, as usual, as usual, as usual");
    const QMap<QString, QString> packed { { LogName, writeFile("log", zeros) },
        { QString::fromUtf8("Höhe"), writeFile("t", text) }, { "usual", writeFile("u", usual) } };
    for (const QString &password : { QString(), QStringLiteral("word") }) {
        SCOPED_TRACE(password.toStdString());
        ASSERT_TRUE(KVXZipFile::compressFiles(path("a.zip"), packed, password));
        ASSERT_TRUE(extract(password));
        EXPECT_EQ(files.keys(), packed.keys());
        EXPECT_TRUE(readFile(files[LogName]) == zeros);
        EXPECT_TRUE(readFile(files[QString::fromUtf8("Höhe")]) == text);
        EXPECT_EQ(readFile(files["usual"]), usual);
        ASSERT_TRUE(QDir(path("out")).removeRecursively());
        EXPECT_EQ(methodsOf(path("a.zip")),
            (QMap<QString, int> { { LogName, ZIP_CM_STORE },
                { QString::fromUtf8("Höhe"), ZIP_CM_STORE }, { "usual", ZIP_CM_DEFLATE } }));
    }
}

TEST_F(Zip, EveryLengthOfARepeatedByteIsUnpacked)
{
    for (int length = 1; length < 300'000; length += 1 + length / 3) {
        ASSERT_TRUE(KVXZipFile::compressFiles(
            path("a.zip"), { { "f", writeFile("f", QByteArray(length, 'a')) } }, QString()));
        ASSERT_TRUE(extract()) << length;
        EXPECT_EQ(readFile(files["f"]).size(), length);
        ASSERT_TRUE(QDir(path("out")).removeRecursively());
    }
}

TEST_F(Zip, AnArchiveWithoutEntriesGivesAnEmptyMap)
{
    EXPECT_TRUE(KVXZipFile::compressFiles(path("a.zip"), {}, QString()));
    files = { { "old", "old" } };
    EXPECT_TRUE(extract());
    EXPECT_TRUE(files.isEmpty());
}

TEST_F(Zip, APasswordEncryptsWithAes)
{
    EXPECT_TRUE(KVXZipFile::compressFiles(
        path("a.zip"), { { "f", writeFile("f", "secret text") } }, QString::fromUtf8("pässword")));
    EXPECT_EQ(encryptionOf(path("a.zip")), ZIP_EM_AES_256);
    EXPECT_FALSE(readFile(path("a.zip")).contains("secret"));
    EXPECT_FALSE(extract());
    EXPECT_FALSE(extract("wrong"));
    EXPECT_FALSE(QFile::exists(path("out")));
    ASSERT_TRUE(extract(QString::fromUtf8("pässword")));
    EXPECT_EQ(readFile(files["f"]), "secret text");
}

TEST_F(Zip, TraditionalEncryptionIsRead)
{
    zip_t *zip = zip_open(path("a.zip").toLocal8Bit().constData(), ZIP_CREATE, nullptr);
    zip_source_t *source = zip_source_buffer(zip, "old secret", 10, 0);
    ASSERT_EQ(zip_file_add(zip, "f", source, 0), 0);
    ASSERT_EQ(zip_file_set_encryption(zip, 0, ZIP_EM_TRAD_PKWARE, "word"), 0);
    ASSERT_EQ(zip_close(zip), 0);
    EXPECT_FALSE(extract());
    for (int i = 0; i < 300; ++i) // one wrong password in 256 passes the first check
        ASSERT_FALSE(extract(QString::number(i))) << i;
    EXPECT_FALSE(QFile::exists(path("out")));
    ASSERT_TRUE(extract("word"));
    EXPECT_EQ(readFile(files["f"]), "old secret");
}

TEST_F(Zip, AnEarlierArchiveIsReplaced)
{
    writeFile("a.zip", "something else");
    EXPECT_TRUE(
        KVXZipFile::compressFiles(path("a.zip"), { { "f", writeFile("f", "x") } }, QString()));
    ASSERT_TRUE(extract());
    EXPECT_EQ(files.size(), 1);
}

TEST_F(Zip, AFailedPackingLeavesNoArchive)
{
    const QString good = writeFile("good", "x");
    const QVector<QMap<QString, QString>> refused { { { "f", path("missing") } },
        { { "f", path(".") } }, { { "a", good }, { "b", QString() } }, { { "", good } },
        { { "../f", good } }, { { "a/b", good } }, { { "NUL", good } },
        { { "a", good }, { "A", good } } };
    for (const auto &map : refused) {
        writeFile("a.zip", "earlier");
        EXPECT_FALSE(KVXZipFile::compressFiles(path("a.zip"), map, QString()));
        EXPECT_EQ(entriesOf("."), QStringList("good"));
    }
    EXPECT_FALSE(KVXZipFile::compressFiles(path("no/folder/a.zip"), { { "f", good } }, QString()));
    EXPECT_FALSE(KVXZipFile::compressFiles(path("no/folder/a.zip"), {}, QString()));
}

TEST_F(Zip, AFullDiskLeavesNoArchiveAndNoFiles)
{
    QByteArray bytes;
    for (unsigned i = 0, x = 1; i < 400'000; ++i, x = x * 1664525 + 1013904223)
        bytes.append(static_cast<char>(x >> 24));
    const QString file = writeFile("f", bytes);
    rlimit old {};
    getrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, SIG_IGN);
    const auto limited = [&old](rlim_t limit, const auto &work) {
        const rlimit small { limit, old.rlim_max };
        setrlimit(RLIMIT_FSIZE, &small);
        const bool done = work();
        setrlimit(RLIMIT_FSIZE, &old);
        return done;
    };
    const auto pack = [&] {
        return KVXZipFile::compressFiles(path("a.zip"), { { "f", file } }, QString());
    };
    for (rlim_t limit = 0; limit < 400'000; limit += 80'000) {
        EXPECT_FALSE(limited(limit, pack)) << limit;
        EXPECT_EQ(entriesOf("."), QStringList("f")) << limit;
    }
    ASSERT_TRUE(pack());
    for (rlim_t limit = 0; limit < 400'000; limit += 80'000) {
        EXPECT_FALSE(limited(limit, [&] { return extract(); })) << limit;
        EXPECT_FALSE(QFile::exists(path("out"))) << limit;
    }
    EXPECT_TRUE(extract());
}

TEST_F(Zip, SixteenEntriesAreAccepted)
{
    CraftedZip zip;
    for (int i = 0; i < 16; ++i)
        zip.entries.append({ "f" + QByteArray::number(i), "content", i % 2 == 0 });
    writeFile("a.zip", zip.bytes());
    EXPECT_TRUE(extract());
    EXPECT_EQ(files.size(), 16);
}

TEST_F(Zip, UnusualButHarmlessArchivesAreAccepted)
{
    CraftedEntry plain { "f" };
    CraftedEntry fat = plain;
    fat.madeBy = 0;
    fat.attributes = 0x20;
    CraftedEntry oldName = plain;
    oldName.name = "H\x94he"; // code page 437
    oldName.flags = 0;
    CraftedEntry noType = plain;
    noType.attributes = 0644U << 16;
    for (const CraftedEntry &entry : { plain, fat, oldName, noType }) {
        writeFile("a.zip", CraftedZip { { entry }, "self-extracting", "a comment" }.bytes());
        EXPECT_TRUE(extract());
        ASSERT_EQ(files.size(), 1);
        EXPECT_EQ(readFile(files.first()), "content");
        if (entry.flags == 0) {
            EXPECT_EQ(files.firstKey(), QString::fromUtf8("Höhe"));
        }
        ASSERT_TRUE(QDir(path("out")).removeRecursively());
    }
}

TEST_F(Zip, ARatioOfTwoHundredIsAccepted)
{
    CraftedEntry entry { "f", QByteArray(20'000, 'a') };
    while (deflated(entry.content).size() * 200 < entry.content.size())
        entry.content.append("x" + QByteArray::number(qHash(entry.content)));
    entry.deflated = true;
    writeFile("a.zip", CraftedZip { { entry } }.bytes());
    EXPECT_TRUE(extract());
}

TEST_F(Zip, FilesBesideTheExtractedOnesStay)
{
    ASSERT_TRUE(QDir(path(".")).mkdir("out"));
    writeFile("out/mine", "mine");
    writeFile("a.zip", CraftedZip { { { "f" }, { "g" } } }.bytes());
    EXPECT_TRUE(extract());
    EXPECT_EQ(entriesOf("out"), (QStringList { "f", "g", "mine" }));
    EXPECT_FALSE(extract()) << "an existing file is never written over";
    EXPECT_TRUE(files.isEmpty());
    EXPECT_EQ(entriesOf("out"), (QStringList { "f", "g", "mine" })) << "and never removed";
}

TEST_F(Zip, MissingParentFoldersAreMadeAndRemovedAgain)
{
    writeFile("a.zip", CraftedZip { { { "f" }, { "bad/" } } }.bytes());
    EXPECT_FALSE(KVXZipFile::extractFiles(path("a.zip"), path("x/y/z"), files, QString()));
    EXPECT_FALSE(QFile::exists(path("x")));
    CraftedEntry damaged { "g" };
    damaged.crc = 1;
    writeFile("a.zip", CraftedZip { { { "f" }, damaged } }.bytes());
    EXPECT_FALSE(KVXZipFile::extractFiles(path("a.zip"), path("x/y/z"), files, QString()));
    EXPECT_FALSE(QFile::exists(path("x")));
    writeFile("a.zip", CraftedZip { { { "f" } } }.bytes());
    EXPECT_TRUE(KVXZipFile::extractFiles(path("a.zip"), path("x/y/z"), files, QString()));
    EXPECT_EQ(readFile(path("x/y/z/f")), "content");
}

TEST_F(Zip, LinksInTheWayAreNotFollowed)
{
    writeFile("a.zip", CraftedZip { { { "f" } } }.bytes());
    ASSERT_TRUE(QDir(path(".")).mkdir("elsewhere"));
    ASSERT_TRUE(QFile::link(path("elsewhere"), path("out")));
    EXPECT_FALSE(extract());
    ASSERT_TRUE(QFile::remove(path("out")) && QDir(path(".")).mkdir("out"));
    ASSERT_TRUE(QFile::link(path("elsewhere/f"), path("out/f")));
    EXPECT_FALSE(extract());
    EXPECT_TRUE(entriesOf("elsewhere").isEmpty());
    ASSERT_TRUE(QFile::exists(path("out")));
}

TEST_F(Zip, NoArchiveAndNoFolderFail)
{
    EXPECT_FALSE(extract());
    writeFile("a.zip", CraftedZip { { { "f" } } }.bytes());
    EXPECT_FALSE(KVXZipFile::extractFiles(path("a.zip"), QString(), files, QString()));
    EXPECT_FALSE(KVXZipFile::extractFiles(path("."), path("out"), files, QString()));
    writeFile("file", "x");
    EXPECT_FALSE(KVXZipFile::extractFiles(path("a.zip"), path("file"), files, QString()));
    EXPECT_FALSE(KVXZipFile::extractFiles(path("a.zip"), path("file/out"), files, QString()));
    EXPECT_EQ(readFile(path("file")), "x");
}

} // namespace kvx::test
