#include "services/ProjectFields.h"
#include "base/Text.h"

#include <charconv>
#include <limits>

namespace kvx::server {

bool isInnerLibraryName(const std::string &name)
{
    return foldedKey(name) == foldedKey(innerLibraryName);
}

bool isInnerLibraryGuid(const std::string &guid)
{
    return guidKey(guid) == innerLibraryGuid;
}

std::string nameOf(const JsonObject &request, const char *key, std::size_t maximum)
{
    const auto name = displayName(request.text(key), maximum);
    if (!name) {
        request.refuse(key,
            "must be a name of 1 to " + std::to_string(maximum)
                + " characters without control characters");
    }
    return *name;
}

std::optional<std::int64_t> numberOf(const JsonObject &request, const char *key)
{
    constexpr std::int64_t lowest = std::numeric_limits<std::int32_t>::min();
    constexpr std::int64_t highest = std::numeric_limits<std::int32_t>::max();
    const Json *value = request.find(key);
    if (!value)
        return std::nullopt;
    if (!value->IsString())
        return request.integer(key, lowest, highest);
    const char *begin = value->GetString();
    const char *end = begin + value->GetStringLength();
    std::int32_t number = 0;
    const auto [rest, error] = std::from_chars(begin, end, number);
    if (error != std::errc() || rest != end)
        throw BadRequest("\"" + std::string(key) + "\" must be a whole number");
    return number;
}

std::optional<std::string> amountOf(const JsonObject &request)
{
    const Json *value = request.find("Amount");
    if (!value)
        return std::nullopt;
    if (value->IsNumber())
        return compactJson(*value);
    return request.text("Amount", 64);
}

} // namespace kvx::server
