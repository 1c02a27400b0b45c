#include "client/TemporaryFolder.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;
using kvx::host::TemporaryFolder;

namespace {

constexpr std::uint64_t noRoom = ~std::uint64_t { 0 };
const std::string memory = "/dev/shm";

class TemporaryFolders : public testing::Test {
protected:
    TemporaryFolders()
    {
        if (const char *value = getenv("TMPDIR"))
            m_before = value;
        unsetenv("TMPDIR");
        disk = fs::temp_directory_path().string();
    }
    ~TemporaryFolders() override
    {
        if (m_before)
            setenv("TMPDIR", m_before->c_str(), 1);
        else
            unsetenv("TMPDIR");
    }
    static std::string rootOf(const TemporaryFolder &folder)
    {
        return fs::path(folder.path()).parent_path().string();
    }
    std::string disk;

private:
    std::optional<std::string> m_before;
};

/// The number of a process that has ended.
pid_t deadProcess()
{
    const pid_t child = fork();
    if (child == 0)
        _exit(0);
    waitpid(child, nullptr, 0);
    return child;
}

std::string folderOf(const std::string &root, pid_t process)
{
    return root + "/kvx-" + std::to_string(geteuid()) + '-' + std::to_string(process) + "-left";
}

} // namespace

TEST_F(TemporaryFolders, IsOwnAndGoesWithItsContents)
{
    std::string path;
    {
        const TemporaryFolder folder;
        path = folder.path();
        ASSERT_TRUE(fs::is_directory(path));
        EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_all);
        EXPECT_EQ(getenv("TMPDIR"), path);
        std::ofstream(path + "/log") << "x";
    }
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(TemporaryFolders, LiesInMemoryWhereThereIsRoom)
{
    EXPECT_EQ(rootOf(TemporaryFolder({ { memory }, 1 })), memory);
}

TEST_F(TemporaryFolders, TakesTheFirstMemoryThatServes)
{
    EXPECT_EQ(rootOf(TemporaryFolder({ { "", "/dev/shm/missing", "/proc", memory }, 1 })), memory);
}

TEST_F(TemporaryFolders, LiesOnTheDiskWhereMemoryIsTooSmall)
{
    EXPECT_EQ(rootOf(TemporaryFolder({ { memory }, noRoom })), disk);
}

TEST_F(TemporaryFolders, LiesOnTheDiskWhereTheFolderIsNoMemory)
{
    for (const char *other : { "/proc", "/dev/shm/missing", "" }) {
        unsetenv("TMPDIR"); // the folder before has left it
        EXPECT_EQ(rootOf(TemporaryFolder({ { other }, 1 })), disk) << other;
    }
}

TEST_F(TemporaryFolders, KeepsToATmpdirThatIsSet)
{
    std::string mine = disk + "/kvx-chosen-XXXXXX";
    ASSERT_NE(mkdtemp(mine.data()), nullptr);
    setenv("TMPDIR", mine.c_str(), 1);
    EXPECT_EQ(rootOf(TemporaryFolder({ { memory }, 1 })), mine);
    fs::remove(mine);
}

TEST_F(TemporaryFolders, SweepsWhatTheDeadLeftInEveryPlace)
{
    const pid_t dead = deadProcess();
    for (const std::string &root : { memory, disk }) {
        fs::create_directory(folderOf(root, dead));
        std::ofstream(folderOf(root, dead) + "/log") << "x";
        fs::create_directory(folderOf(root, getpid()));
    }
    const TemporaryFolder folder({ { memory }, noRoom });
    for (const std::string &root : { memory, disk }) {
        EXPECT_FALSE(fs::exists(folderOf(root, dead))) << root;
        EXPECT_TRUE(fs::exists(folderOf(root, getpid()))) << root << ": its process lives";
        fs::remove(folderOf(root, getpid()));
    }
}
