#pragma once

#include "services/Reply.h"

#include <memory>
#include <string>

namespace kvx::server {

struct Config;
class ReceivedFile;

/// Bytes that came inside a request, written to `tmp/` and placed in the blob store, as an upload
/// would be. Slow: for Reply::after. Throws std::system_error.
std::shared_ptr<const ReceivedFile> storeBytes(const Config &config, const std::string &bytes);

/// The same with a file of the server's machine, which may be large.
std::shared_ptr<const ReceivedFile> storeFile(const Config &config, const std::string &path);

/// storeBytes, and a continuation that goes on with what was stored, or refuses with "StorageFull".
Reply::Continuation storeThen(
    const Config &config, const std::string &bytes, Reply (*next)(Call &, const ReceivedFile &));

/// The bytes of a blob. Throws std::system_error.
std::string loadBytes(const Config &config, const std::string &sha256);

} // namespace kvx::server
