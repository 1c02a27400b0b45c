#include "ocr/OcrFile.h"
#include "base/Config.h"
#include "base/Digest.h"
#include "base/Text.h"
#include "services/Call.h"
#include "store/BlobStore.h"

#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace kvx::server {

namespace {

class Reader {
public:
    explicit Reader(const std::string &path)
        : m_path(path)
        , m_handle(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW))
    {
        if (m_handle < 0)
            fail();
    }
    ~Reader() { close(m_handle); }
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;

    /// The next bytes; empty at the end.
    std::string_view next()
    {
        ssize_t count = 0;
        do {
            count = ::read(m_handle, m_buffer, sizeof m_buffer);
        } while (count < 0 && errno == EINTR);
        if (count < 0)
            fail();
        return { m_buffer, static_cast<std::size_t>(count) };
    }

    void sync()
    {
        if (fsync(m_handle) != 0)
            fail();
    }

private:
    [[noreturn]] void fail() const
    {
        throw std::system_error(errno, std::generic_category(), m_path);
    }

    const std::string m_path;
    const int m_handle;
    char m_buffer[64 * 1024];
};

} // namespace

OcrFile::OcrFile(const Config &config)
    : path(config.temporaryFolder() + '/' + newUuid())
{
}

OcrFile::~OcrFile()
{
    unlink(path.c_str());
}

bool OcrFile::read(std::string &bytes, std::size_t limit) const
{
    bytes.clear();
    Reader reader(path);
    for (auto piece = reader.next(); !piece.empty(); piece = reader.next()) {
        if (bytes.size() + piece.size() > limit)
            return false;
        bytes.append(piece);
    }
    return true;
}

std::shared_ptr<const ReceivedFile> OcrFile::place(const Config &config) const
{
    Digest sha256(Digest::Kind::Sha256);
    Digest md5(Digest::Kind::Md5);
    std::int64_t size = 0;
    Reader reader(path);
    for (auto piece = reader.next(); !piece.empty(); piece = reader.next()) {
        sha256.add(piece);
        md5.add(piece);
        size += static_cast<std::int64_t>(piece.size());
    }
    reader.sync();
    auto file = std::make_shared<ReceivedFile>(path, size, sha256.finish(), md5.finish());
    BlobStore(config.data).place(path, file->sha256);
    return file;
}

} // namespace kvx::server
