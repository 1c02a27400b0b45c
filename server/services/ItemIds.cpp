#include "services/ItemIds.h"
#include "services/Request.h"

#include <algorithm>
#include <charconv>

namespace kvx::server {

namespace {

constexpr std::size_t mostIds = 500'000;

} // namespace

std::vector<std::int64_t> parseItemIds(const std::string &text)
{
    std::vector<std::int64_t> ids;
    const char *at = text.data();
    const char *const end = at + text.size();
    while (at != end) {
        std::int32_t id = 0;
        const auto [rest, error] = std::from_chars(at, end, id);
        if (error != std::errc() || id < 0 || *at == '-' || (rest != end && *rest != ';'))
            throw BadRequest(
                "\"IDs\" must be numbers from 0 to 2147483647, each followed by \";\"");
        if (ids.size() == mostIds)
            throw BadRequest("\"IDs\" holds more than 500,000 numbers");
        ids.push_back(id);
        at = rest == end ? end : rest + 1;
    }
    if (!std::is_sorted(ids.begin(), ids.end()))
        std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    return ids;
}

} // namespace kvx::server
