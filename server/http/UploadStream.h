#pragma once

#include "base/Digest.h"
#include "http/Multipart.h"
#include "services/StatusCode.h"

#include <boost/asio/thread_pool.hpp>
#include <cstdint>
#include <future>
#include <memory>
#include <string>
#include <string_view>

namespace kvx::server {

class ReceivedFile;
struct Config;

/// Why an upload ended early, as the client is told.
class UploadError : public std::runtime_error {
public:
    UploadError(StatusCode code, int httpStatus, const std::string &argument)
        : std::runtime_error(argument)
        , code(code)
        , httpStatus(httpStatus)
    {
    }
    const StatusCode code;
    const int httpStatus;
};

/// An upload on its way to disk: the form is taken apart, digests run along, nothing is kept in
/// memory. Used by one thread at a time; its calls block on the disk. All throw UploadError.
class UploadStream {
public:
    /// The digests are taken by these threads, while the caller's writes and fetches more.
    UploadStream(
        const Config &config, std::string_view boundary, boost::asio::thread_pool &digests);
    ~UploadStream(); ///< removes what was not finished

    enum class Progress { More, RequestReady, Complete };
    /// With bytes: what came from the peer. After RequestReady, call `open` and then again without
    /// bytes.
    Progress feed(std::string_view bytes);

    const std::string &request() const { return m_reader.request(); }

    /// Makes the temporary file. `announced` is the length of the whole form, 0 when unknown.
    void open(std::int64_t announced);

    /// The file is not on the disk yet; who keeps it syncs it.
    std::shared_ptr<const ReceivedFile> finish();

private:
    void write(std::string_view bytes);
    void addToDigests(std::string_view bytes);
    void waitForDigests();
    void writeAll(std::string_view bytes);
    void startWriting();

    const Config &m_config;
    boost::asio::thread_pool &m_digestThreads;
    MultipartReader m_reader;
    Digest m_sha256;
    Digest m_md5;
    std::future<void> m_digestsRunning;
    bool m_wrote = false; ///< something of what was fed last
    std::string m_path;
    int m_file = -1;
    std::int64_t m_size = 0;
    std::int64_t m_onItsWay = 0; ///< so much the disk was told to write
};

} // namespace kvx::server
