#include "base/Text.h"

#include <algorithm>
#include <sodium.h>
#include <stdexcept>
#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

namespace kvx::server {

namespace {

icu::UnicodeString composed(const icu::UnicodeString &text)
{
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2 *form = icu::Normalizer2::getNFCInstance(status);
    const icu::UnicodeString result = form->normalize(text, status);
    if (U_FAILURE(status))
        throw std::runtime_error(u_errorName(status));
    return result;
}

icu::UnicodeString wide(std::string_view text)
{
    return icu::UnicodeString::fromUTF8(
        icu::StringPiece(text.data(), static_cast<int>(text.size())));
}

std::string narrow(const icu::UnicodeString &text)
{
    std::string result;
    text.toUTF8String(result);
    return result;
}

icu::UnicodeString withoutOuterBlanks(std::string_view text)
{
    const icu::UnicodeString whole = wide(text);
    int begin = 0;
    int end = whole.length();
    while (begin < end && u_isUWhiteSpace(whole[begin]))
        ++begin;
    while (end > begin && u_isUWhiteSpace(whole[end - 1]))
        --end;
    return icu::UnicodeString(whole, begin, end - begin);
}

icu::UnicodeString cleaned(std::string_view text)
{
    return composed(withoutOuterBlanks(text));
}

} // namespace

bool isValidUtf8(std::string_view text)
{
    const auto *bytes = reinterpret_cast<const unsigned char *>(text.data());
    const auto length = static_cast<int32_t>(text.size());
    for (int32_t i = 0; i < length;) {
        UChar32 character;
        U8_NEXT(bytes, i, length, character);
        if (character < 0)
            return false;
    }
    return true;
}

std::string trimmed(std::string_view text)
{
    return narrow(withoutOuterBlanks(text));
}

std::string normalized(std::string_view text)
{
    return narrow(composed(wide(text)));
}

std::string foldedKey(std::string_view text)
{
    icu::UnicodeString folded = cleaned(text);
    folded.foldCase();
    return narrow(composed(folded));
}

std::string canonicalEmail(std::string_view text)
{
    icu::UnicodeString lower = cleaned(text);
    lower.toLower(icu::Locale::getRoot());
    return narrow(composed(lower));
}

std::optional<std::string> displayName(std::string_view text, std::size_t maximum)
{
    const icu::UnicodeString name = cleaned(text);
    const auto count = static_cast<std::size_t>(name.countChar32());
    if (count == 0 || count > maximum)
        return std::nullopt;
    for (int i = 0; i < name.length(); i = name.moveIndex32(i, 1)) {
        if (u_charType(name.char32At(i)) == U_CONTROL_CHAR)
            return std::nullopt;
    }
    return narrow(name);
}

std::size_t characterCount(std::string_view text)
{
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char byte) { return (byte & 0xC0) != 0x80; }));
}

bool isGuid(std::string_view text)
{
    if (text.size() != 38 || text.front() != '{' || text.back() != '}')
        return false;
    for (std::size_t i = 1; i < 37; ++i) {
        const bool dash = i == 9 || i == 14 || i == 19 || i == 24;
        if (dash ? text[i] != '-' : !isHex(text.substr(i, 1), 1))
            return false;
    }
    return true;
}

std::string guidKey(std::string_view guid)
{
    return lowerAscii(guid);
}

std::string lowerAscii(std::string_view text)
{
    std::string result(text);
    for (char &byte : result) {
        if (byte >= 'A' && byte <= 'Z')
            byte = static_cast<char>(byte - 'A' + 'a');
    }
    return result;
}

std::string base64Url(const unsigned char *bytes, std::size_t count)
{
    const int variant = sodium_base64_VARIANT_URLSAFE_NO_PADDING;
    std::string result(sodium_base64_encoded_len(count, variant), '\0');
    sodium_bin2base64(result.data(), result.size(), bytes, count, variant);
    result.pop_back();
    return result;
}

std::string hex(const unsigned char *bytes, std::size_t count)
{
    std::string result(count * 2 + 1, '\0');
    sodium_bin2hex(result.data(), result.size(), bytes, count);
    result.pop_back();
    return result;
}

bool isHex(std::string_view text, std::size_t digits)
{
    return text.size() == digits && std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
    });
}

std::string newUuid()
{
    unsigned char bytes[16];
    randombytes_buf(bytes, sizeof bytes);
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
    std::string result = hex(bytes, sizeof bytes);
    for (const std::size_t at : { 8U, 13U, 18U, 23U })
        result.insert(at, 1, '-');
    return result;
}

std::vector<std::string> splitList(std::string_view text, char separator)
{
    std::vector<std::string> parts;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(separator), text.size());
        std::string part = trimmed(text.substr(0, end));
        if (!part.empty())
            parts.push_back(std::move(part));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return parts;
}

} // namespace kvx::server
