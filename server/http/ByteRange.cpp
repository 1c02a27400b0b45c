#include "http/ByteRange.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace kvx::server {

namespace {

std::optional<std::int64_t> wholeNumber(const std::string &text)
{
    std::int64_t number = 0;
    const char *end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || rest != end || number < 0)
        return std::nullopt;
    return number;
}

} // namespace

ByteRange requestedRange(const std::string &range, const std::string &ifRange,
    const std::string &etag, std::int64_t size)
{
    const ByteRange whole { ByteRange::Kind::Whole, 0, size };
    if (range.rfind("bytes=", 0) != 0 || (!ifRange.empty() && ifRange != etag))
        return whole;
    const std::size_t dash = range.find('-');
    if (dash == std::string::npos || range.find(',') != std::string::npos)
        return whole;
    const std::string first = range.substr(6, dash - 6);
    const std::string last = range.substr(dash + 1);
    const auto begin = wholeNumber(first);
    const auto end = wholeNumber(last);
    if (first.empty() && end) {
        if (*end == 0 || size == 0)
            return { ByteRange::Kind::Unsatisfiable, 0, 0 };
        return { ByteRange::Kind::Part, size - std::min(size, *end), size };
    }
    if (!begin || (!last.empty() && !end) || (end && *end < *begin))
        return whole;
    if (*begin >= size)
        return { ByteRange::Kind::Unsatisfiable, 0, 0 };
    return { ByteRange::Kind::Part, *begin, end ? std::min(size, *end + 1) : size };
}

} // namespace kvx::server
