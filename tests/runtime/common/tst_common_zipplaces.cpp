#include "CraftedZip.h"

#include <KVXCommon/KVXZipFile.h>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <array>
#include <cstring>
#include <gmock/gmock.h>
#include <sys/inotify.h>
#include <unistd.h>

// Where an extraction writes, seen from outside while it happens, and what an entry's content is
// not taken for.

namespace kvx::test {

namespace {

/// Everything that happens to the entries of some folders, as "folder/name".
class FolderWatch {
public:
    FolderWatch()
        : m_handle(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
    {
    }
    ~FolderWatch() { close(m_handle); }
    FolderWatch(const FolderWatch &) = delete;
    FolderWatch &operator=(const FolderWatch &) = delete;

    void add(const QString &folder)
    {
        const int watch = inotify_add_watch(m_handle, QFile::encodeName(folder).constData(),
            IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_MODIFY);
        ASSERT_GE(watch, 0);
        m_folders[watch] = QDir(folder).dirName();
    }

    QStringList taken()
    {
        QStringList seen;
        alignas(inotify_event) std::array<char, 64 * 1024> buffer {};
        for (;;) {
            const ssize_t size = read(m_handle, buffer.data(), buffer.size());
            if (size <= 0)
                break;
            for (ssize_t at = 0; at < size;) {
                inotify_event event {};
                std::memcpy(&event, buffer.data() + at, sizeof event);
                const QString name = event.len > 0
                    ? QFile::decodeName(buffer.data() + at + sizeof event)
                    : QString();
                seen.append(m_folders.value(event.wd) + QLatin1Char('/') + name);
                at += static_cast<ssize_t>(sizeof event + event.len);
            }
        }
        return seen;
    }

private:
    const int m_handle;
    QMap<int, QString> m_folders;
};

class ZipPlaces : public testing::Test {
protected:
    ZipPlaces()
    {
        EXPECT_TRUE(QDir(m_folder.path()).mkpath(QStringLiteral("outer/inner/target")));
        watch.add(m_folder.path());
        watch.add(path("outer"));
        watch.add(path("outer/inner"));
    }

    bool extract(const QByteArray &archive)
    {
        QFile file(m_archives.filePath(QStringLiteral("a.zip")));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(archive);
        file.close();
        files.clear();
        return KVXZipFile::extractFiles(
            file.fileName(), path("outer/inner/target"), files, QString());
    }
    QString path(const char *name) const { return m_folder.filePath(QString::fromLatin1(name)); }
    QByteArray content(const char *entry) const
    {
        QFile file(files.value(QString::fromLatin1(entry)));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("none");
    }

    FolderWatch watch;
    QMap<QString, QString> files;

private:
    QTemporaryDir m_folder;
    QTemporaryDir m_archives;
};

} // namespace

TEST_F(ZipPlaces, NothingIsEvenTouchedOutsideTheTarget)
{
    const QList<QByteArray> names { "../x", "../../x", "../../../x", "/x", "a/../../x", "..\\x",
        "..\\..\\x", "./../x", "target/../../x", "%2e%2e/x", "..", ".", "../target", "../inner" };
    for (const QByteArray &name : names) {
        EXPECT_FALSE(extract(CraftedZip { { { "good" }, { name } } }.bytes())) << name.constData();
        EXPECT_FALSE(extract(CraftedZip { { { name }, { "good" } } }.bytes())) << name.constData();
        CraftedEntry other { "good" };
        other.localName = name;
        EXPECT_FALSE(extract(CraftedZip { { other } }.bytes())) << name.constData();
    }
    EXPECT_THAT(watch.taken(), testing::IsEmpty());
    EXPECT_TRUE(QDir(path("outer/inner/target")).isEmpty());
    EXPECT_TRUE(extract(CraftedZip { { { "good" } } }.bytes())) << "the folder is a good one";
}

TEST_F(ZipPlaces, AnArchiveInAnArchiveIsAFileLikeAnyOther)
{
    QByteArray nested = CraftedZip { { { "../x", "deepest" } } }.bytes();
    for (int depth = 0; depth < 20; ++depth)
        nested = CraftedZip { { { "a.zip", nested } } }.bytes();
    ASSERT_TRUE(extract(CraftedZip { { { "log", nested } } }.bytes()));
    EXPECT_EQ(content("log"), nested);
    EXPECT_EQ(files.size(), 1);
}

TEST_F(ZipPlaces, AnArchiveThatHoldsItselfIsAFileLikeAnyOther)
{
    // The stored content begins with the bytes of an archive whose end record lies further on.
    QByteArray bytes = CraftedZip { { { "log", QByteArray(200, 'x') } } }.bytes();
    const QByteArray whole = CraftedZip { { { "log", bytes } } }.bytes();
    ASSERT_TRUE(extract(whole));
    EXPECT_EQ(content("log"), bytes);
}

TEST_F(ZipPlaces, AHardLinkIsOnlyItsContent)
{
    // The field in which some programs name what an entry is a link to.
    CraftedEntry link { "link", "content" };
    const QByteArray target = "/etc/passwd";
    const auto size = static_cast<char>(12 + target.size());
    link.extra = QByteArray("\x0d\0", 2) + size + '\0' + QByteArray(12, '\0') + target;
    ASSERT_TRUE(extract(CraftedZip { { link } }.bytes()));
    EXPECT_EQ(content("link"), "content");
    EXPECT_FALSE(QFileInfo(files.value(QStringLiteral("link"))).isSymLink());
}

TEST_F(ZipPlaces, AFieldWithAnotherNameDoesNotRename)
{
    // Another name in UTF-8, with the right checksum of the first one ("f": 0x76d32be0).
    CraftedEntry renamed { "f", "content" };
    const QByteArray other = "../../x";
    const auto size = static_cast<char>(5 + other.size());
    renamed.extra
        = QByteArray("\x75\x70", 2) + size + '\0' + QByteArray("\x01\xe0\x2b\xd3\x76", 5) + other;
    if (extract(CraftedZip { { renamed } }.bytes())) {
        EXPECT_EQ(files.keys(), QStringList(QStringLiteral("f")));
    }
    EXPECT_THAT(watch.taken(), testing::IsEmpty());
}

} // namespace kvx::test
