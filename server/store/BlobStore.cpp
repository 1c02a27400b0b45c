#include "store/BlobStore.h"
#include "store/Db.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace kvx::server {

namespace {

[[noreturn]] void fail(const std::string &what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

void syncFolder(const std::string &folder)
{
    const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        fail(folder);
    const int result = ::fsync(descriptor);
    const int error = errno;
    ::close(descriptor);
    errno = error;
    if (result != 0)
        fail(folder);
}

void makeFolder(const std::string &folder)
{
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST)
        fail(folder);
}

} // namespace

std::string BlobStore::path(const std::string &sha256) const
{
    return m_folder + "/blobs/" + sha256.substr(0, 2) + '/' + sha256.substr(2, 2) + '/' + sha256;
}

void BlobStore::place(const std::string &from, const std::string &sha256) const
{
    const std::string target = path(sha256);
    const std::filesystem::path inner = std::filesystem::path(target).parent_path();
    const std::filesystem::path outer = inner.parent_path();
    makeFolder(outer.parent_path().string());
    makeFolder(outer.string());
    makeFolder(inner.string());
    if (::link(from.c_str(), target.c_str()) != 0) {
        if (errno != EEXIST)
            fail(target);
        ::utimensat(AT_FDCWD, target.c_str(), nullptr, 0);
    }
    // Always: whoever made the folder or linked the same bytes a moment ago may not be here yet.
    for (const auto &folder : { inner, outer, outer.parent_path() })
        syncFolder(folder.string());
}

void BlobStore::record(Db &db, const std::string &from, const std::string &sha256,
    std::int64_t size, Time now) const
{
    if (::access(path(sha256).c_str(), F_OK) != 0)
        place(from, sha256);
    db.run("INSERT INTO blob (sha256, size, created) VALUES (:sha256, :size, :now)"
           " ON CONFLICT (sha256) DO NOTHING",
        { { "sha256", sha256 }, { "size", size }, { "now", now } });
}

std::int64_t BlobStore::size(Db &db, const std::string &sha256)
{
    const auto size = db.value<std::int64_t>(
        "SELECT size FROM blob WHERE sha256 = :sha256", { { "sha256", sha256 } });
    if (!size)
        throw DbError(DbError::Kind::Other, "there is no blob " + sha256);
    return *size;
}

} // namespace kvx::server
