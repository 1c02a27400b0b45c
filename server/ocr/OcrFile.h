#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace kvx::server {

class ReceivedFile;
struct Config;

/// A name in the server's folder for temporary files, for a file that another process makes there.
/// What lies under it goes with this object.
class OcrFile {
public:
    explicit OcrFile(const Config &config);
    ~OcrFile();
    OcrFile(const OcrFile &) = delete;
    OcrFile &operator=(const OcrFile &) = delete;

    const std::string path;

    /// At most that many bytes; nothing when there are more. Throws std::system_error.
    bool read(std::string &bytes, std::size_t limit) const;
    /// Synced to disk and linked into the blob store. Throws std::system_error.
    std::shared_ptr<const ReceivedFile> place(const Config &config) const;
};

} // namespace kvx::server
