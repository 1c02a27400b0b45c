#include "admin/DataFolder.h"
#include "base/Config.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kvx::server {

void makeDataFolders(const Config &config)
{
    for (const std::string &folder :
        { config.data, config.data + "/db", config.blobFolder(), config.temporaryFolder() }) {
        struct stat status { };
        if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST)
            throw DataFolderError(folder + ": " + std::strerror(errno));
        if (stat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
            throw DataFolderError(folder + ": is not a folder");
        if (access(folder.c_str(), R_OK | W_OK | X_OK) != 0)
            throw DataFolderError(folder + ": " + std::strerror(errno));
    }
}

DataFolderLock::DataFolderLock(const Config &config)
    : m_file(open(
        (config.data + "/serve.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600))
{
    if (m_file < 0)
        throw DataFolderError(config.data + "/serve.lock: " + std::strerror(errno));
    if (flock(m_file, LOCK_EX | LOCK_NB) != 0) {
        close(m_file);
        throw DataFolderError("another server runs on " + config.data);
    }
}

DataFolderLock::~DataFolderLock()
{
    close(m_file);
}

} // namespace kvx::server
