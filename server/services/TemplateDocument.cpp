#include "services/TemplateDocument.h"

#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>
#include <sodium.h>

namespace kvx::server {

namespace {

constexpr std::size_t largestDocument = std::size_t { 8 } << 20;
/// Below the nesting at which the clients' JSON reader gives up.
constexpr int deepest = 500;

/// Accepts one object; builds nothing.
struct ObjectCheck : rapidjson::BaseReaderHandler<rapidjson::UTF8<>, ObjectCheck> {
    bool Default() { return depth > 0; }
    bool StartObject() { return ++depth <= deepest; }
    bool EndObject(rapidjson::SizeType) { return --depth >= 0; }
    bool StartArray() { return depth > 0 && ++depth <= deepest; }
    bool EndArray(rapidjson::SizeType) { return --depth >= 0; }
    int depth = 0;
};

bool isJsonObject(std::string_view text)
{
    rapidjson::MemoryStream stream(text.data(), text.size());
    ObjectCheck check;
    constexpr unsigned flags
        = rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag;
    return !rapidjson::Reader().Parse<flags>(stream, check).IsError();
}

} // namespace

std::optional<std::string> templateDocument(std::string_view base64Text)
{
    if (base64Text.size() / 4 * 3 > largestDocument + 3)
        return std::nullopt;
    std::string bytes(base64Text.size() / 4 * 3 + 3, '\0');
    std::size_t size = 0;
    if (sodium_base642bin(reinterpret_cast<unsigned char *>(bytes.data()), bytes.size(),
            base64Text.data(), base64Text.size(), nullptr, &size, nullptr,
            sodium_base64_VARIANT_ORIGINAL)
        != 0)
        return std::nullopt;
    bytes.resize(size);
    if (size > largestDocument || !isJsonObject(bytes))
        return std::nullopt;
    return bytes;
}

std::string base64(std::string_view bytes)
{
    std::string text(sodium_base64_encoded_len(bytes.size(), sodium_base64_VARIANT_ORIGINAL), '\0');
    sodium_bin2base64(text.data(), text.size(),
        reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size(),
        sodium_base64_VARIANT_ORIGINAL);
    text.pop_back(); // its terminator
    return text;
}

} // namespace kvx::server
