#include <KVXCollaboration/KVXCWFileService.h>
#include <KVXCollaboration/KVXCWFileServiceProgress.h>

#include <QCryptographicHash>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

QString fileWith(const QTemporaryDir &folder, const QByteArray &content)
{
    const QString path = folder.filePath(QStringLiteral("file"));
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    EXPECT_EQ(file.write(content), content.size());
    return path;
}

} // namespace

TEST(FileServiceMd5, KnownDigests)
{
    const QTemporaryDir folder;
    EXPECT_EQ(KVXCWFileService::md5(fileWith(folder, "")),
        QStringLiteral("d41d8cd98f00b204e9800998ecf8427e"));
    EXPECT_EQ(KVXCWFileService::md5(fileWith(folder, "abc")),
        QStringLiteral("900150983cd24fb0d6963f7d28e17f72"));
}

TEST(FileServiceMd5, ContentAroundTheBlockSize)
{
    const QTemporaryDir folder;
    for (const int size : { 1024 * 1024 - 1, 1024 * 1024, 1024 * 1024 + 1, 3 * 1024 * 1024 + 7 }) {
        QByteArray content(size, 'x');
        content[size - 1] = 'y';
        const QByteArray expected
            = QCryptographicHash::hash(content, QCryptographicHash::Md5).toHex();
        EXPECT_EQ(KVXCWFileService::md5(fileWith(folder, content)), QString::fromLatin1(expected))
            << size;
    }
}

TEST(FileServiceMd5, WhatCannotBeReadHasNone)
{
    const QTemporaryDir folder;
    EXPECT_TRUE(KVXCWFileService::md5(folder.filePath(QStringLiteral("absent"))).isEmpty());
    EXPECT_TRUE(KVXCWFileService::md5(folder.path()).isEmpty());
    EXPECT_TRUE(KVXCWFileService::md5(QString()).isEmpty());
}

TEST(FileServiceProgress, TheCallbackReachesItsReceiver)
{
    struct Receiver : KVXCWFileServiceProgress {
        qint64 done = -1;
        qint64 total = -1;
        void setProgress(qint64 newDone, qint64 newTotal) override
        {
            done = newDone;
            total = newTotal;
        }
    } receiver;
    KVXCWFileServiceProgress *opaque = &receiver;
    KVXCWFileServiceProgress::progress(opaque, 5'000'000'000, 7'000'000'000);
    EXPECT_EQ(receiver.done, 5'000'000'000);
    EXPECT_EQ(receiver.total, 7'000'000'000);
    KVXCWFileServiceProgress::progress(nullptr, 1, 2);
}
