#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvx::server {

bool isValidUtf8(std::string_view text);

/// Without the white space at both ends (Unicode's, not only ASCII's).
std::string trimmed(std::string_view text);

/// Unicode normal form C. The text must be valid UTF-8.
std::string normalized(std::string_view text);

/// The form in which names are compared: trimmed, normal form C, case folded.
std::string foldedKey(std::string_view text);

/// The form in which an e-mail is stored, compared and sent: trimmed, normal form C, lower case.
std::string canonicalEmail(std::string_view text);

/// A name that a user typed, trimmed and in normal form C; nothing when it is empty, longer than
/// `maximum` characters, or holds control characters.
std::optional<std::string> displayName(std::string_view text, std::size_t maximum);

/// The number of characters (code points) of valid UTF-8.
std::size_t characterCount(std::string_view text);

/// "{8-4-4-4-12}" hexadecimal digits with braces.
bool isGuid(std::string_view text);

/// The form in which project GUIDs are compared: lower case.
std::string guidKey(std::string_view guid);

std::string lowerAscii(std::string_view text);
std::string base64Url(const unsigned char *bytes, std::size_t count);
std::string hex(const unsigned char *bytes, std::size_t count);
bool isHex(std::string_view text, std::size_t digits);

/// A random UUID, "xxxxxxxx-xxxx-4xxx-yxxx-xxxxxxxxxxxx".
std::string newUuid();

/// Parts between single separators, each trimmed; empty parts are left out.
std::vector<std::string> splitList(std::string_view text, char separator = ',');

} // namespace kvx::server
