#include "services/StoredBytes.h"
#include "base/Config.h"
#include "base/Digest.h"
#include "base/Text.h"
#include "services/Access.h"
#include "services/Call.h"
#include "store/BlobStore.h"

#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kvx::server {

namespace {

class File {
public:
    File(const std::string &path, int flags)
        : m_path(path)
        , m_handle(::open(path.c_str(), flags | O_CLOEXEC, 0600))
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
    }

    /// The next bytes; none at the end.
    std::string_view read()
    {
        for (;;) {
            const ssize_t count = ::read(m_handle, m_buffer.data(), m_buffer.size());
            if (count >= 0)
                return { m_buffer.data(), static_cast<std::size_t>(count) };
            if (errno != EINTR)
                fail();
        }
    }

private:
    [[noreturn]] void fail() const
    {
        throw std::system_error(errno, std::generic_category(), m_path);
    }

    const std::string m_path;
    const int m_handle;
    std::vector<char> m_buffer = std::vector<char>(64 * 1024);
};

/// Takes bytes until `next` gives none.
std::shared_ptr<const ReceivedFile> store(
    const Config &config, const std::function<std::string_view()> &next)
{
    const std::string path = config.temporaryFolder() + '/' + newUuid();
    Digest sha256(Digest::Kind::Sha256);
    Digest md5(Digest::Kind::Md5);
    std::int64_t size = 0;
    try {
        File file(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW);
        for (std::string_view bytes = next(); !bytes.empty(); bytes = next()) {
            file.write(bytes);
            sha256.add(bytes);
            md5.add(bytes);
            size += static_cast<std::int64_t>(bytes.size());
        }
    } catch (...) {
        ::unlink(path.c_str());
        throw;
    }
    const auto stored = std::make_shared<ReceivedFile>(path, size, sha256.finish(), md5.finish());
    BlobStore(config.data).place(path, stored->sha256);
    return stored;
}

} // namespace

std::shared_ptr<const ReceivedFile> storeBytes(const Config &config, const std::string &bytes)
{
    return store(config, [rest = std::string_view(bytes)]() mutable {
        return std::exchange(rest, std::string_view());
    });
}

std::shared_ptr<const ReceivedFile> storeFile(const Config &config, const std::string &path)
{
    File file(path, O_RDONLY);
    return store(config, [&file] { return file.read(); });
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
    File file(BlobStore(config.data).path(sha256), O_RDONLY);
    std::string bytes;
    for (std::string_view more = file.read(); !more.empty(); more = file.read())
        bytes += more;
    return bytes;
}

} // namespace kvx::server
