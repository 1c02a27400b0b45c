#pragma once

#include <string>

namespace kvx::server {

/// Whether the archive's bytes are those of a plain one with one entry, as every client demands:
/// one volume, no zip64, the directory directly before its end record, nothing behind that, and a
/// local header that tells the same as the directory. The zip library itself reads more than that.
bool hasPlainLayout(const std::string &path);

} // namespace kvx::server
