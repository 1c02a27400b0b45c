#include "http/UploadStream.h"
#include "base/Config.h"
#include "base/Text.h"
#include "services/Call.h"

#include <FailPoint.h>
#include <boost/asio/post.hpp>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace kvx::server {

namespace {

constexpr std::size_t requestPartLimit = 64 * 1024;
constexpr std::size_t worthAThread = 64 * 1024;
constexpr std::int64_t worthWriting = std::int64_t { 1 } << 20;

[[noreturn]] void failOnDisk(int error)
{
    if (error == ENOSPC || error == EDQUOT || error == EFBIG)
        throw UploadError(StatusCode::StorageFull, 200, {});
    throw UploadError(StatusCode::Failed, 500, std::strerror(error));
}

} // namespace

UploadStream::UploadStream(
    const Config &config, std::string_view boundary, boost::asio::thread_pool &digests)
    : m_config(config)
    , m_digestThreads(digests)
    , m_reader(boundary, requestPartLimit)
    , m_sha256(Digest::Kind::Sha256)
    , m_md5(Digest::Kind::Md5)
{
}

UploadStream::~UploadStream()
{
    if (m_digestsRunning.valid())
        m_digestsRunning.wait(); // the bytes are read until then
    if (m_file >= 0)
        close(m_file);
    if (!m_path.empty())
        unlink(m_path.c_str());
}

UploadStream::Progress UploadStream::feed(std::string_view bytes)
{
    try {
        if (!m_wrote)
            waitForDigests(); // they read the piece before the last, which goes now
        m_wrote = false;
        m_reader.feed(bytes);
        while (true) {
            switch (m_reader.next()) {
            case MultipartReader::Event::NeedMore:
                return Progress::More;
            case MultipartReader::Event::Request:
                return Progress::RequestReady;
            case MultipartReader::Event::Data:
                write(m_reader.data());
                break;
            case MultipartReader::Event::End:
                return Progress::Complete;
            }
        }
    } catch (const MultipartError &error) {
        throw UploadError(StatusCode::BadRequest, 400, error.what());
    }
}

void UploadStream::open(std::int64_t announced)
{
    struct statvfs space { };
    if (statvfs(m_config.temporaryFolder().c_str(), &space) == 0) {
        const auto left = static_cast<std::int64_t>(space.f_bavail * space.f_frsize);
        if (left - announced < m_config.diskReserve)
            throw UploadError(StatusCode::StorageFull, 200, {});
    }
    std::string path = m_config.temporaryFolder() + "/" + newUuid();
    m_file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (m_file < 0)
        failOnDisk(errno);
    m_path = std::move(path);
    if (KVX_FAIL_POINT("upload/file created"))
        failOnDisk(EIO);
}

void UploadStream::write(std::string_view bytes)
{
    m_size += static_cast<std::int64_t>(bytes.size());
    if (m_size > m_config.uploadLimit)
        throw UploadError(
            StatusCode::TooLarge, 413, std::to_string(m_config.uploadLimit) + " bytes");
    m_wrote = true;
    addToDigests(bytes);
    writeAll(bytes);
}

void UploadStream::addToDigests(std::string_view bytes)
{
    waitForDigests();
    const auto add = [this, bytes] {
        m_md5.add(bytes);
        m_sha256.add(bytes);
    };
    if (bytes.size() < worthAThread) {
        add();
        return;
    }
    std::packaged_task<void()> task(add);
    m_digestsRunning = task.get_future();
    boost::asio::post(m_digestThreads, std::move(task));
}

void UploadStream::waitForDigests()
{
    if (m_digestsRunning.valid())
        m_digestsRunning.get();
}

void UploadStream::writeAll(std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = ::write(m_file, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            failOnDisk(errno);
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    if (KVX_FAIL_POINT("upload/part written"))
        failOnDisk(ENOSPC);
    if (m_size - m_onItsWay >= worthWriting)
        startWriting();
}

/// Has the disk begin: there is less to wait for when the file is synced.
void UploadStream::startWriting()
{
    static_cast<void>(sync_file_range(
        m_file, m_onItsWay, m_size - m_onItsWay, SYNC_FILE_RANGE_WRITE)); // its failure is fsync's
    m_onItsWay = m_size;
}

std::shared_ptr<const ReceivedFile> UploadStream::finish()
{
    startWriting();
    waitForDigests();
    const int closed = close(m_file);
    m_file = -1;
    if (closed != 0)
        failOnDisk(errno);
    auto file = std::make_shared<ReceivedFile>(m_path, m_size, m_sha256.finish(), m_md5.finish());
    m_path.clear();
    return file;
}

} // namespace kvx::server
