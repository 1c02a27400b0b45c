#include "Sweep.h"

#include <KVXCommon/KVXZipFile.h>
#include <QDir>
#include <QFile>
#include <gtest/gtest.h>

using namespace kvx::test;

namespace {

/// Of the kind that packs to a third.
QByteArray content(int bytes)
{
    QByteArray text;
    for (int i = 0; text.size() < bytes; ++i)
        text += "01." + QByteArray::number(i * 7919 % 104729) + ";Concrete C25/30;m3;";
    return text;
}

class ZipUnderFire : public testing::Test {
protected:
    ZipUnderFire()
    {
        write(QStringLiteral("log"), content(150000));
        write(QStringLiteral("project"), content(300000));
    }

    void write(const QString &name, const QByteArray &content)
    {
        QFile file(path(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_EQ(file.write(content), content.size());
    }

    QString path(const QString &name) const { return folder.filePath(name); }
    QStringList entries() const
    {
        return QDir(folder.path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries);
    }

    bool pack(const QString &archive)
    {
        return KVXZipFile::compressFiles(path(archive),
            { { QStringLiteral("log"), path(QStringLiteral("log")) },
                { QStringLiteral("project"), path(QStringLiteral("project")) } },
            QStringLiteral("secret"));
    }

    bool unpack(const QString &archive, QMap<QString, QString> &files)
    {
        return KVXZipFile::extractFiles(
            path(archive), path(QStringLiteral("out")), files, QStringLiteral("secret"));
    }

    void expectContent(const QMap<QString, QString> &files)
    {
        ASSERT_EQ(files.size(), 2);
        for (const QString &name : files.keys()) {
            QFile packed(path(name));
            QFile unpacked(files.value(name));
            ASSERT_TRUE(packed.open(QIODevice::ReadOnly));
            ASSERT_TRUE(unpacked.open(QIODevice::ReadOnly));
            EXPECT_TRUE(packed.readAll() == unpacked.readAll()) << name.toStdString();
        }
    }

    QTemporaryDir folder;
};

} // namespace

TEST_F(ZipUnderFire, PackingLeavesAWholeArchiveOrNone)
{
    const QStringList before = entries();
    Sweep::over(ownCallCounter(), QStringLiteral("pack"), CallCounter::MainThread, 1,
        [&](const Sweep::Run &run) {
            run.begin();
            const bool packed = pack(QStringLiteral("archive"));
            const bool struck = run.end();
            EXPECT_TRUE(packed || struck);
            if (packed) {
                QMap<QString, QString> files;
                EXPECT_TRUE(unpack(QStringLiteral("archive"), files));
                expectContent(files);
                QDir(path(QStringLiteral("out"))).removeRecursively();
                QFile::remove(path(QStringLiteral("archive")));
            }
            EXPECT_EQ(entries(), before);
        });
}

TEST_F(ZipUnderFire, UnpackingGivesAllFilesOrNone)
{
    ASSERT_TRUE(pack(QStringLiteral("archive")));
    const QStringList before = entries();
    Sweep::over(ownCallCounter(), QStringLiteral("unpack"), CallCounter::MainThread, 1,
        [&](const Sweep::Run &run) {
            QMap<QString, QString> files;
            run.begin();
            const bool unpacked = unpack(QStringLiteral("archive"), files);
            const bool struck = run.end();
            EXPECT_TRUE(unpacked || struck);
            if (unpacked)
                expectContent(files);
            else
                EXPECT_TRUE(files.isEmpty());
            EXPECT_TRUE(unpacked || QDir(path(QStringLiteral("out"))).isEmpty());
            QDir(path(QStringLiteral("out"))).removeRecursively();
            EXPECT_EQ(entries(), before);
        });
}
