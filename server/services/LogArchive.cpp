#include "services/LogArchive.h"
#include "services/CommandFile.h"
#include "services/ZipLayout.h"

#include <memory>
#include <vector>
#include <zip.h>

namespace kvx::server {

namespace {

constexpr zip_uint64_t largestEntry = zip_uint64_t { 256 } << 20;
constexpr zip_uint64_t largestRatio = 200;

struct CloseArchive {
    void operator()(zip_t *archive) const { zip_discard(archive); }
};
struct CloseEntry {
    void operator()(zip_file_t *file) const { zip_fclose(file); }
};

/// Neither link nor folder nor device, whichever system is said to have made it.
bool isOrdinaryFile(zip_t *archive)
{
    zip_uint8_t system = 0;
    zip_uint32_t attributes = 0;
    if (zip_file_get_external_attributes(archive, 0, 0, &system, &attributes) != 0)
        return false;
    constexpr zip_uint32_t typeMask = 0170000;
    constexpr zip_uint32_t regular = 0100000;
    constexpr zip_uint32_t dosFolder = 0x10;
    const zip_uint32_t type = (attributes >> 16) & typeMask;
    return (type == 0 || type == regular) && (attributes & dosFolder) == 0;
}

/// Reads the entry to its end, which also checks its sum.
bool isIntact(zip_t *archive, zip_uint64_t size)
{
    const std::unique_ptr<zip_file_t, CloseEntry> entry(zip_fopen_index(archive, 0, 0));
    if (!entry)
        return false;
    std::vector<char> buffer(64 * 1024);
    zip_uint64_t total = 0;
    for (;;) {
        const zip_int64_t count = zip_fread(entry.get(), buffer.data(), buffer.size());
        if (count < 0)
            return false;
        if (count == 0)
            return total == size;
        total += static_cast<zip_uint64_t>(count);
        if (total > size)
            return false;
    }
}

} // namespace

std::optional<std::string> faultOfLogArchive(const std::string &path, const std::string &entryName)
{
    int error = 0;
    const std::unique_ptr<zip_t, CloseArchive> archive(
        zip_open(path.c_str(), ZIP_RDONLY | ZIP_CHECKCONS, &error));
    if (!archive)
        return "it is not a zip archive";
    if (zip_get_num_entries(archive.get(), 0) != 1)
        return "it must hold exactly one entry";
    zip_stat_t entry;
    zip_stat_init(&entry);
    if (zip_stat_index(archive.get(), 0, ZIP_FL_ENC_RAW, &entry) != 0)
        return "its entry cannot be read";
    constexpr zip_uint64_t needed = ZIP_STAT_NAME | ZIP_STAT_SIZE | ZIP_STAT_COMP_SIZE
        | ZIP_STAT_COMP_METHOD | ZIP_STAT_ENCRYPTION_METHOD;
    if ((entry.valid & needed) != needed)
        return "its entry cannot be read";
    if (entryName != entry.name)
        return "its entry must be named " + entryName;
    if (entry.encryption_method != ZIP_EM_NONE)
        return "it has a password";
    if (entry.comp_method != ZIP_CM_STORE && entry.comp_method != ZIP_CM_DEFLATE)
        return "it is packed by a method that clients do not read";
    if (!isOrdinaryFile(archive.get()))
        return "its entry is no ordinary file";
    if (entry.size > largestEntry)
        return "its entry is larger than 256 MiB";
    if (entry.size > largestRatio * entry.comp_size)
        return "its entry unpacks to more than 200 times its size";
    if (!hasPlainLayout(path))
        return "it holds something beside its entry";
    if (!isIntact(archive.get(), entry.size))
        return "its entry is damaged";
    return std::nullopt;
}

std::optional<std::string> faultOfArchivedCommandFile(
    const std::string &path, const std::string &guid, std::int64_t version)
{
    const std::unique_ptr<zip_t, CloseArchive> archive(zip_open(path.c_str(), ZIP_RDONLY, nullptr));
    const std::unique_ptr<zip_file_t, CloseEntry> entry(
        archive ? zip_fopen_index(archive.get(), 0, 0) : nullptr);
    if (!entry)
        return "its entry cannot be read";
    const auto read = [&entry](char *buffer, std::size_t size) {
        std::size_t total = 0;
        while (total < size) {
            const zip_int64_t count = zip_fread(entry.get(), buffer + total, size - total);
            if (count <= 0)
                break;
            total += static_cast<std::size_t>(count);
        }
        return total;
    };
    return faultOfCommandFile(read, guid, version);
}

} // namespace kvx::server
