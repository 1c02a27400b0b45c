#include "notify/Message.h"
#include "base/JsonText.h"
#include "services/Request.h"
#include "store/OutboxStore.h"

#include <unicode/utf8.h>

namespace kvx::server {

std::string messageText(const OutboxRow &row, const MessageContent &content, std::int64_t number)
{
    return "{\"notifymsg_type\":" + jsonText(row.type)
        + ",\"notifymsg_from\":" + jsonText(row.sender)
        + ",\"notifymsg_to\":\"\",\"notifymsg_seq\":" + std::to_string(number) + ",\"Command\":"
        + jsonText(content.command) + ",\"notifymsg_content\":" + content.json + '}';
}

std::vector<std::string> splitContent(const std::string &json, std::size_t limit)
{
    if (json.size() <= limit || json.front() != '[')
        return { json };
    rapidjson::Document document;
    document.Parse(json.data(), json.size());
    if (document.HasParseError() || !document.IsArray())
        return { json };
    std::vector<std::string> pieces;
    std::string piece;
    for (const Json &element : document.GetArray()) {
        const std::string text = compactJson(element);
        if (!piece.empty() && piece.size() + text.size() + 2 > limit) {
            pieces.push_back(piece + ']');
            piece.clear();
        }
        piece += (piece.empty() ? '[' : ',') + text;
    }
    pieces.push_back(piece + ']');
    return pieces;
}

std::string withCommand(const std::string &command, const std::string &record)
{
    const std::string key = "{\"Command\":" + jsonText(command);
    return record == "{}" ? key + '}' : key + ',' + record.substr(1);
}

std::string modifiedUtf8(const std::string &text)
{
    std::string result;
    result.reserve(text.size());
    const auto unit = [&result](unsigned value) {
        result += static_cast<char>(0xE0U | (value >> 12));
        result += static_cast<char>(0x80U | ((value >> 6) & 0x3FU));
        result += static_cast<char>(0x80U | (value & 0x3FU));
    };
    const auto *bytes = reinterpret_cast<const unsigned char *>(text.data());
    const auto length = static_cast<int32_t>(text.size());
    for (int32_t i = 0; i < length;) {
        const int32_t begin = i;
        UChar32 c;
        U8_NEXT(bytes, i, length, c);
        if (c == 0) {
            result += "\xC0\x80";
        } else if (c > 0xFFFF) {
            unit(0xD800U + (static_cast<unsigned>(c - 0x10000) >> 10));
            unit(0xDC00U + (static_cast<unsigned>(c - 0x10000) & 0x3FFU));
        } else {
            result.append(
                text, static_cast<std::size_t>(begin), static_cast<std::size_t>(i - begin));
        }
    }
    return result;
}

} // namespace kvx::server
