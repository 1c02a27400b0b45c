#include "client/TemporaryFolder.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace kvx::host {

namespace fs = std::filesystem;

namespace {

// All the logs that a project is behind lie there at once; a thousand large ones have 50 MB.
constexpr std::uint64_t roomNeeded = std::uint64_t { 1 } << 30;

std::string environment(const char *name)
{
    const char *value = std::getenv(name);
    return value ? value : "";
}

bool isOwnFolder(const fs::path &path)
{
    struct stat info = {};
    return lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == geteuid();
}

bool hasRoomInMemory(const std::string &folder, std::uint64_t room)
{
    struct statfs info = {};
    return !folder.empty() && statfs(folder.c_str(), &info) == 0 && info.f_type == TMPFS_MAGIC
        && static_cast<std::uint64_t>(info.f_bavail) * static_cast<std::uint64_t>(info.f_bsize)
        >= room;
}

/// Folders are named <prefix><pid>-<random>.
void sweep(const fs::path &root, const std::string &prefix)
{
    std::error_code error;
    for (const fs::directory_entry &entry : fs::directory_iterator(root, error)) {
        const std::string name = entry.path().filename().string();
        if (name.compare(0, prefix.size(), prefix) != 0 || !isOwnFolder(entry.path()))
            continue;
        const long pid = std::strtol(name.c_str() + prefix.size(), nullptr, 10);
        if (pid > 0 && kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH)
            fs::remove_all(entry.path(), error);
    }
}

} // namespace

TemporaryFolder::TemporaryFolder()
    : TemporaryFolder({ { environment("XDG_RUNTIME_DIR"), "/dev/shm" }, roomNeeded })
{
}

TemporaryFolder::TemporaryFolder(const Memory &memory)
{
    const std::string prefix = "kvx-" + std::to_string(geteuid()) + "-";
    const auto make = [&](const std::string &root) {
        std::string path = fs::path(root) / (prefix + std::to_string(getpid()) + "-XXXXXX");
        if (m_path.empty() && mkdtemp(path.data()))
            m_path = path;
    };
    // First of all: what lies there takes up the room.
    for (const std::string &folder : memory.folders)
        sweep(folder, prefix);
    if (environment("TMPDIR").empty()) {
        for (const std::string &folder : memory.folders) {
            if (hasRoomInMemory(folder, memory.room))
                make(folder);
        }
    }
    std::error_code error;
    const fs::path disk = fs::temp_directory_path(error);
    sweep(disk, prefix);
    make(disk.string());
    if (!m_path.empty())
        setenv("TMPDIR", m_path.c_str(), 1);
}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code error;
    if (!m_path.empty())
        fs::remove_all(m_path, error);
}

} // namespace kvx::host
