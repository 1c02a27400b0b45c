#include "client/TemporaryFolder.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace kvx::host {

namespace fs = std::filesystem;

namespace {

bool isOwnFolder(const fs::path &path)
{
    struct stat info = {};
    return lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == geteuid();
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
{
    std::error_code error;
    const fs::path root = fs::temp_directory_path(error);
    const std::string prefix = "kvx-" + std::to_string(geteuid()) + "-";
    sweep(root, prefix);
    std::string path = (root / (prefix + std::to_string(getpid()) + "-XXXXXX")).string();
    if (!mkdtemp(path.data()))
        return;
    m_path = path;
    setenv("TMPDIR", m_path.c_str(), 1);
}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code error;
    if (!m_path.empty())
        fs::remove_all(m_path, error);
}

} // namespace kvx::host
