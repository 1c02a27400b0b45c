#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kvx::server {

/// What is wrong with a change log's archive, as the end of a sentence for the user; nothing when
/// it holds one flat, unencrypted, intact entry of that name, of at most 256 MiB and at most 200
/// times its packed size, and nothing else: whatever is accepted here every client can unpack. A
/// bad log would stop every colleague's synchronisation. Reads the whole archive.
std::optional<std::string> faultOfLogArchive(const std::string &path, const std::string &entryName);

/// The same for the command file in an archive that has stood this test.
std::optional<std::string> faultOfArchivedCommandFile(
    const std::string &path, const std::string &guid, std::int64_t version);

} // namespace kvx::server
