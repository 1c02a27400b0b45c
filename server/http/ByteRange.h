#pragma once

#include <cstdint>
#include <string>

namespace kvx::server {

/// The bytes of a download that a request asks for: [begin, end).
struct ByteRange {
    enum class Kind { Whole, Part, Unsatisfiable };
    Kind kind = Kind::Whole;
    std::int64_t begin = 0;
    std::int64_t end = 0;
};

/// One range "bytes=a-b", "bytes=a-" or "bytes=-n"; anything else, several ranges included, is
/// answered with the whole file, and so is a range whose `ifRange` names other contents.
ByteRange requestedRange(const std::string &range, const std::string &ifRange,
    const std::string &etag, std::int64_t size);

} // namespace kvx::server
