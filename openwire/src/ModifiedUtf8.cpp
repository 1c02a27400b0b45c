#include "ModifiedUtf8.h"

#include <cms/MessageFormatException.h>

#include <cstddef>

namespace kvx::openwire {

namespace {

std::size_t sequenceLength(unsigned char lead)
{
    if (lead < 0x80)
        return 1;
    if (lead >= 0xc0 && lead < 0xe0)
        return 2;
    if (lead >= 0xe0 && lead < 0xf0)
        return 3;
    return lead >= 0xf0 && lead < 0xf5 ? 4 : 0;
}

void appendSurrogate(std::string &out, unsigned unit)
{
    out += static_cast<char>(0xe0 | unit >> 12);
    out += static_cast<char>(0x80 | (unit >> 6 & 0x3f));
    out += static_cast<char>(0x80 | (unit & 0x3f));
}

} // namespace

std::string toModifiedUtf8(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = sequenceLength(static_cast<unsigned char>(text.front()));
        bool valid = length != 0 && length <= text.size();
        for (std::size_t i = 1; valid && i < length; ++i)
            valid = (static_cast<unsigned char>(text[i]) & 0xc0) == 0x80;
        if (!valid)
            throw cms::MessageFormatException("A header text is not valid UTF-8.");
        const std::string_view sequence = text.substr(0, length);
        text.remove_prefix(length);
        if (length == 4) {
            unsigned code = static_cast<unsigned char>(sequence[0]) & 0x07u;
            for (std::size_t i = 1; i < 4; ++i)
                code = code << 6 | (static_cast<unsigned char>(sequence[i]) & 0x3fu);
            if (code < 0x10000 || code > 0x10ffff)
                throw cms::MessageFormatException("A header text is not valid UTF-8.");
            appendSurrogate(out, 0xd800 + ((code - 0x10000) >> 10));
            appendSurrogate(out, 0xdc00 + ((code - 0x10000) & 0x3ff));
        } else if (sequence[0] == '\0') {
            out += "\xc0\x80";
        } else {
            out += sequence;
        }
    }
    return out;
}

} // namespace kvx::openwire
