#include "NetworkFiles.h"

#include <QDir>

#include <cerrno>
#include <dlfcn.h>
#include <optional>

namespace {

int syncs = 0;
bool syncFails = false;

} // namespace

/// Stands in for the system's own: no test can pull the plug.
extern "C" int fsync(int descriptor)
{
    static const auto real = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "fsync"));
    ++syncs;
    if (!syncFails)
        return real(descriptor);
    errno = EIO;
    return -1;
}

namespace kvx::test {

class Durability : public NetworkFiles {
protected:
    Durability()
    {
        if (qEnvironmentVariableIsSet("TMPDIR"))
            m_before = qgetenv("TMPDIR");
        setTemporaryFolder(m_elsewhere.path());
        serveFile("received");
        syncs = 0;
        syncFails = false;
    }
    ~Durability() override
    {
        syncFails = false;
        if (m_before)
            qputenv("TMPDIR", *m_before);
        else
            qunsetenv("TMPDIR");
    }
    static void setTemporaryFolder(const QString &path) { qputenv("TMPDIR", path.toLocal8Bit()); }

private:
    QTemporaryDir m_elsewhere;
    std::optional<QByteArray> m_before;
};

TEST_F(Durability, AFileToKeepIsSyncedOnce)
{
    EXPECT_TRUE(download());
    EXPECT_EQ(readFile(path("target")), "received");
    EXPECT_EQ(syncs, 1);
}

TEST_F(Durability, ATemporaryFileWaitsForNoDisk)
{
    setTemporaryFolder(path("."));
    EXPECT_TRUE(download());
    EXPECT_EQ(readFile(path("target")), "received");
    EXPECT_EQ(syncs, 0);
}

TEST_F(Durability, AFolderWhoseNameBeginsLikeTheTemporaryOneIsNotIt)
{
    QDir().mkdir(path("tar"));
    setTemporaryFolder(path("tar"));
    EXPECT_TRUE(download());
    EXPECT_EQ(syncs, 1);
}

TEST_F(Durability, WithoutATemporaryFolderEveryFileIsSynced)
{
    setTemporaryFolder(path("missing"));
    EXPECT_TRUE(download());
    EXPECT_EQ(syncs, 1);
}

TEST_F(Durability, AFileThatCannotBeSyncedDoesNotTakeTheName)
{
    writeFile("target", "before");
    syncFails = true;
    EXPECT_FALSE(download());
    EXPECT_TRUE(error().contains("cannot be written: Input/output error")) << error().toStdString();
    EXPECT_EQ(readFile(path("target")), "before");
    EXPECT_EQ(filesInFolder(), QStringList("target"));
}

TEST_F(Durability, ARenameThatIsRefusedLeavesNothing)
{
    // A folder takes the name while the bytes come.
    server.handle("/kvx/service", [this](const Request &, Connection &connection) {
        QDir().mkpath(path("target/inner"));
        connection.send("HTTP/1.1 200 OK\r\nKvx-Reply: {\"statuscode\":1}\r\n"
                        "Content-Length: 1\r\n\r\nx");
    });
    EXPECT_FALSE(download());
    EXPECT_TRUE(error().contains("cannot be written: Is a directory")) << error().toStdString();
    EXPECT_EQ(
        QDir(path(".")).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList("target"));
}

TEST_F(Durability, ReplacingAFileKeepsItsPermissions)
{
    writeFile("target", "before");
    QFile::setPermissions(path("target"), QFile::ReadOwner | QFile::WriteOwner);
    EXPECT_TRUE(download());
    EXPECT_EQ(readFile(path("target")), "received");
    const auto others = QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther;
    EXPECT_FALSE(QFile::permissions(path("target")) & others);
}

} // namespace kvx::test
