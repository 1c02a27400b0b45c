#include "services/StoredBytes.h"
#include "base/Config.h"
#include "base/Digest.h"
#include "base/Text.h"
#include "services/Access.h"
#include "services/Call.h"
#include "store/BlobStore.h"

#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace kvx::server {

namespace {

class File {
public:
    File(const std::string &path, int flags)
        : m_path(path)
        , m_handle(::open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, 0600))
    {
        if (m_handle < 0)
            fail();
    }
    ~File() { ::close(m_handle); }
    File(const File &) = delete;
    File &operator=(const File &) = delete;

    void write(std::string_view bytes)
    {
        while (!bytes.empty()) {
            const ssize_t written = ::write(m_handle, bytes.data(), bytes.size());
            if (written < 0 && errno != EINTR)
                fail();
            bytes.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
        }
        if (::fsync(m_handle) != 0)
            fail();
    }

    std::string read()
    {
        std::string bytes;
        char buffer[64 * 1024];
        for (;;) {
            const ssize_t count = ::read(m_handle, buffer, sizeof buffer);
            if (count < 0 && errno != EINTR)
                fail();
            if (count == 0)
                return bytes;
            bytes.append(buffer, count < 0 ? 0 : static_cast<std::size_t>(count));
        }
    }

private:
    [[noreturn]] void fail() const
    {
        throw std::system_error(errno, std::generic_category(), m_path);
    }

    const std::string m_path;
    const int m_handle;
};

} // namespace

std::shared_ptr<const ReceivedFile> storeBytes(const Config &config, const std::string &bytes)
{
    const std::string path = config.temporaryFolder() + '/' + newUuid();
    const auto file = std::make_shared<ReceivedFile>(
        path, static_cast<std::int64_t>(bytes.size()), sha256(bytes), md5(bytes));
    File(path, O_WRONLY | O_CREAT | O_EXCL).write(bytes);
    BlobStore(config.data).place(path, file->sha256);
    return file;
}

Reply::Continuation storeThen(
    const Config &config, const std::string &bytes, Reply (*next)(Call &, const ReceivedFile &))
{
    const auto refuse = [](Call &) { return Reply::refused(StatusCode::StorageFull); };
    if (!hasSpace(config))
        return refuse;
    try {
        return [next, file = storeBytes(config, bytes)](Call &call) { return next(call, *file); };
    } catch (const std::system_error &error) {
        if (error.code().value() != ENOSPC && error.code().value() != EDQUOT)
            throw;
        return refuse;
    }
}

std::string loadBytes(const Config &config, const std::string &sha256)
{
    return File(BlobStore(config.data).path(sha256), O_RDONLY).read();
}

} // namespace kvx::server
