#include "services/FileNames.h"
#include "base/Text.h"

#include <algorithm>
#include <array>
#include <unicode/uchar.h>
#include <unicode/utf8.h>

namespace kvx::server {

namespace {

constexpr std::size_t guidLength = 38;
constexpr std::size_t longestName = 120;

bool isDigits(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

/// Names that some file systems take for devices, whatever stands behind the first dot.
bool isDeviceName(const std::string &name)
{
    static constexpr std::array<std::string_view, 6> names { "con", "prn", "aux", "nul", "conin$",
        "conout$" };
    std::string stem = lowerAscii(name.substr(0, name.find('.')));
    stem.erase(stem.find_last_not_of(' ') + 1); // blanks before the dot do not count there
    if (std::find(names.begin(), names.end(), stem) != names.end())
        return true;
    return stem.size() == 4 && (stem.compare(0, 3, "com") == 0 || stem.compare(0, 3, "lpt") == 0)
        && stem[3] >= '0' && stem[3] <= '9';
}

bool isAllowed(UChar32 character)
{
    if (character < 0x80)
        return u_isalnum(character) || character == ' ' || character == '.' || character == '_'
            || character == '-';
    const int category = u_charType(character);
    return u_isalnum(character) || category == U_NON_SPACING_MARK
        || category == U_COMBINING_SPACING_MARK;
}

/// Letters, digits, space, ". _ -"; 1..120 characters; no dot or space at the beginning or the end.
std::optional<std::string> plainName(std::string_view text)
{
    if (text.empty() || text.size() > longestName * 4 || !isValidUtf8(text))
        return std::nullopt;
    std::string name = normalized(text);
    const auto *bytes = reinterpret_cast<const unsigned char *>(name.data());
    const auto length = static_cast<std::int32_t>(name.size());
    for (std::int32_t i = 0; i < length;) {
        UChar32 character = 0;
        U8_NEXT(bytes, i, length, character);
        if (!isAllowed(character))
            return std::nullopt;
    }
    const auto isEdge = [](char c) { return c == '.' || c == ' '; };
    if (characterCount(name) > longestName || isEdge(name.front()) || isEdge(name.back())
        || name.find("..") != std::string::npos || isDeviceName(name))
        return std::nullopt;
    return name;
}

std::optional<FileName> projectName(std::string_view guid, std::string_view rest)
{
    FileName name;
    name.guid = guid;
    if (rest == ".KVX") {
        name.kind = FileName::Kind::ProjectFile;
        return name;
    }
    if (rest.empty() || rest.front() != '_')
        return std::nullopt;
    rest.remove_prefix(1);
    if (rest.substr(0, 3) == "log" && isDigits(rest.substr(3))) {
        const std::string_view digits = rest.substr(3);
        const bool valid
            = !digits.empty() && digits.size() <= 9 && (digits[0] != '0' || digits.size() == 1);
        name.kind = valid ? FileName::Kind::ChangeLog : FileName::Kind::BadChangeLog;
        name.version = valid ? std::stoll(std::string(digits)) : -1;
        return name;
    }
    const auto plain = plainName(rest);
    if (!plain)
        return std::nullopt;
    name.kind = FileName::Kind::Attachment;
    name.name = *plain;
    return name;
}

} // namespace

std::optional<FileName> parseFileName(std::string_view text)
{
    if (text.size() > guidLength && isGuid(text.substr(0, guidLength)))
        return projectName(text.substr(0, guidLength), text.substr(guidLength));
    const auto plain = plainName(text);
    if (!plain)
        return std::nullopt;
    FileName name;
    name.name = *plain;
    return name;
}

FileName requestedFile(const JsonObject &request)
{
    const auto name = parseFileName(request.text("FileName", 1000));
    if (!name)
        throw BadRequest("\"FileName\" is not a file name of this service");
    const std::string guid = request.text("ProjectGUID", std::string());
    if (!guid.empty() && !name->guid.empty() && guidKey(guid) != guidKey(name->guid))
        throw BadRequest("\"ProjectGUID\" and \"FileName\" name different projects");
    return *name;
}

std::string logName(const std::string &guid, std::int64_t version)
{
    return guid + "_log" + std::to_string(version);
}

} // namespace kvx::server
