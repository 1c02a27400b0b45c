#include "store/BlobStore.h"
#include "base/Digest.h"
#include "base/Text.h"
#include "store/Db.h"

#include <FailPoint.h>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <future>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace kvx::server {

namespace {

[[noreturn]] void fail(const std::string &what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

void sync(const std::string &path)
{
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (descriptor < 0)
        fail(path);
    const int result = ::fsync(descriptor);
    const int error = errno;
    ::close(descriptor);
    errno = error;
    if (result != 0)
        fail(path);
}

bool holds(const std::string &path, const std::string &digest)
{
    std::ifstream file(path, std::ios::binary);
    Digest found(Digest::Kind::Sha256);
    std::vector<char> part(std::size_t { 256 } << 10);
    while (file) {
        file.read(part.data(), static_cast<std::streamsize>(part.size()));
        found.add({ part.data(), static_cast<std::size_t>(file.gcount()) });
    }
    return file.eof() && found.finish() == digest;
}

/// A power cut left something else under the name. The bytes are on the disk before they take it:
/// somebody else may have put his own there meanwhile, and have named them in a row.
void replace(const std::string &target, const std::string &from)
{
    const std::string beside = target + '.' + newUuid();
    sync(from);
    if (::link(from.c_str(), beside.c_str()) != 0)
        fail(beside);
    if (::rename(beside.c_str(), target.c_str()) != 0) {
        const int error = errno;
        ::unlink(beside.c_str());
        errno = error;
        fail(target);
    }
}

/// False when it was there.
bool makeFolder(const std::string &folder)
{
    if (::mkdir(folder.c_str(), 0700) == 0)
        return true;
    if (errno != EEXIST)
        fail(folder);
    return false;
}

std::string folderName(int folder)
{
    char name[3];
    std::snprintf(name, sizeof name, "%02x", static_cast<unsigned>(folder));
    return name;
}

bool isYoung(const std::string &path, Time before)
{
    struct stat status { };
    return ::stat(path.c_str(), &status) == 0
        && static_cast<Time>(status.st_mtime) * 1000 >= before;
}

} // namespace

std::string BlobStore::path(const std::string &sha256) const
{
    return m_folder + "/blobs/" + sha256.substr(0, 2) + '/' + sha256;
}

void BlobStore::makeFolders() const
{
    const std::string all = m_folder + "/blobs";
    makeFolder(all);
    std::vector<std::string> made;
    try {
        for (int i = 0; i < folderCount; ++i) {
            const std::string folder = all + '/' + folderName(i);
            if (makeFolder(folder))
                made.push_back(folder);
        }
        if (!made.empty())
            sync(all);
    } catch (...) {
        for (const std::string &folder : made) // else nobody would sync them any more
            ::rmdir(folder.c_str());
        throw;
    }
}

void BlobStore::place(const std::string &from, const std::string &sha256) const
{
    const std::string target = path(sha256);
    const std::filesystem::path folder = std::filesystem::path(target).parent_path();
    bool isNew = ::link(from.c_str(), target.c_str()) == 0;
    if (!isNew && errno == ENOENT) {
        makeFolders();
        isNew = ::link(from.c_str(), target.c_str()) == 0;
    }
    if (!isNew) {
        if (errno != EEXIST)
            fail(target);
        if (holds(target, sha256))
            ::utimensat(AT_FDCWD, target.c_str(), nullptr, 0);
        else
            replace(target, from);
    }
    try {
        if (KVX_FAIL_POINT("content/named"))
            throw std::system_error(EIO, std::generic_category(), target);
        // Also when it was there: whoever linked the same bytes a moment ago may not be here yet.
        // At the same time: the disk then waits once for what would be two waits.
        std::future<void> name = std::async(std::launch::async, sync, folder.string());
        sync(target);
        name.get();
        if (KVX_FAIL_POINT("content/synced"))
            throw std::system_error(EIO, std::generic_category(), target);
    } catch (...) {
        // What could not be written once may look whole for as long as it is remembered.
        if (isNew)
            ::unlink(target.c_str());
        throw;
    }
}

void BlobStore::record(
    Db &db, const std::string &from, const std::string &sha256, std::int64_t size, Time now) const
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

std::string BlobStore::dropUnused(Db &db, const std::string &last, Time before, int maximum) const
{
    const auto rows = db.rows<std::string, Time>(
        "SELECT sha256, created FROM blob WHERE sha256 > :last ORDER BY sha256 LIMIT :maximum",
        { { "last", last }, { "maximum", maximum } });
    for (const auto &[sha256, created] : rows) {
        if (created >= before || isYoung(path(sha256), before))
            continue;
        const auto dropped = db.run(
            "DELETE FROM blob WHERE sha256 = :sha256"
            " AND NOT EXISTS (SELECT 1 FROM project WHERE file_blob = blob.sha256)"
            " AND NOT EXISTS (SELECT 1 FROM project_log WHERE blob = blob.sha256)"
            " AND NOT EXISTS (SELECT 1 FROM project_log WHERE file_blob = blob.sha256)"
            " AND NOT EXISTS (SELECT 1 FROM stage WHERE blob = blob.sha256)"
            " AND NOT EXISTS (SELECT 1 FROM file WHERE blob = blob.sha256)"
            " AND NOT EXISTS (SELECT 1 FROM template_version WHERE blob = blob.sha256)"
            " AND NOT EXISTS (SELECT 1 FROM shared_table WHERE blob = blob.sha256)"
            " AND NOT EXISTS (SELECT 1 FROM shared_table_revision WHERE blob = blob.sha256)"
            " AND NOT EXISTS (SELECT 1 FROM resource_package WHERE blob = blob.sha256)"
            " AND NOT EXISTS (SELECT 1 FROM ocr_job WHERE blob = blob.sha256)"
            " AND NOT EXISTS (SELECT 1 FROM ocr_page WHERE text_blob = blob.sha256)"
            " AND NOT EXISTS (SELECT 1 FROM ocr_page WHERE pdf_blob = blob.sha256)",
            { { "sha256", sha256 } });
        if (dropped > 0)
            ::unlink(path(sha256).c_str()); // an upload of these bytes puts the file back
    }
    return static_cast<int>(rows.size()) == maximum ? std::get<0>(rows.back()) : std::string();
}

void BlobStore::dropStray(Db &db, int folder, Time before) const
{
    std::error_code ignored;
    for (const auto &entry :
        std::filesystem::directory_iterator(m_folder + "/blobs/" + folderName(folder), ignored)) {
        const std::string file = entry.path().string();
        if (!entry.is_regular_file(ignored) || isYoung(file, before))
            continue;
        if (!db.value<std::int64_t>("SELECT size FROM blob WHERE sha256 = :sha256",
                { { "sha256", entry.path().filename().string() } }))
            ::unlink(file.c_str());
    }
}

} // namespace kvx::server
