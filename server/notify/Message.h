#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kvx::server {

struct OutboxRow;

/// The content of a message and the command under which it goes out.
struct MessageContent {
    std::string command;
    std::string json; ///< an object, or an array for "PermissionChanged"
};

/// The whole message: type, sender, number, command and content.
std::string messageText(const OutboxRow &row, const MessageContent &content, std::int64_t number);

/// A "PermissionChanged" array that is larger than `limit` in pieces that are not, each an array; a
/// single record larger than that stays whole. Any other content is one piece.
std::vector<std::string> splitContent(const std::string &json, std::size_t limit);

/// A record with "Command" as its first key.
std::string withCommand(const std::string &command, const std::string &record);

/// UTF-8 as Java writes it: NUL as two bytes, characters above U+FFFF as two surrogates of three
/// bytes each. The client library passes bytes through unchanged.
std::string modifiedUtf8(const std::string &text);

} // namespace kvx::server
