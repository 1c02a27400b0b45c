#include "base/JsonText.h"

#include <cstdio>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <unicode/utf8.h>

namespace kvx::server {

std::string jsonText(std::string_view text)
{
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
    return { buffer.GetString(), buffer.GetSize() };
}

std::string asciiJson(const std::string &json)
{
    std::string result;
    const auto *bytes = reinterpret_cast<const unsigned char *>(json.data());
    const auto length = static_cast<int32_t>(json.size());
    const auto escape = [&result](unsigned unit) {
        char text[8];
        std::snprintf(text, sizeof text, "\\u%04x", unit & 0xFFFFU);
        result += text;
    };
    for (int32_t i = 0; i < length;) {
        UChar32 c;
        U8_NEXT(bytes, i, length, c);
        if (c < 0) {
            result += '?';
        } else if (c < 0x80) {
            result += static_cast<char>(c);
        } else if (c < 0x10000) {
            escape(static_cast<unsigned>(c));
        } else {
            escape(0xD800U + (static_cast<unsigned>(c - 0x10000) >> 10));
            escape(0xDC00U + (static_cast<unsigned>(c - 0x10000) & 0x3FFU));
        }
    }
    return result;
}

} // namespace kvx::server
