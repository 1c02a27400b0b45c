#include "messaging/ModifiedUtf8.h"

namespace kvx {

namespace {

/// The surrogate whose three bytes begin at the position, 0 when there is none.
unsigned surrogateAt(const std::string &text, std::size_t at)
{
    if (at + 2 >= text.size() || static_cast<unsigned char>(text[at]) != 0xED)
        return 0;
    const auto second = static_cast<unsigned char>(text[at + 1]);
    const auto third = static_cast<unsigned char>(text[at + 2]);
    if (second < 0xA0 || second > 0xBF || (third & 0xC0U) != 0x80)
        return 0;
    return 0xD000U | ((second & 0x3FU) << 6) | (third & 0x3FU);
}

void appendUtf8(std::string &out, unsigned high, unsigned low)
{
    const unsigned code = 0x10000U + ((high - 0xD800U) << 10) + (low - 0xDC00U);
    out += static_cast<char>(0xF0U | (code >> 18));
    out += static_cast<char>(0x80U | ((code >> 12) & 0x3FU));
    out += static_cast<char>(0x80U | ((code >> 6) & 0x3FU));
    out += static_cast<char>(0x80U | (code & 0x3FU));
}

} // namespace

std::string fromModifiedUtf8(const std::string &text)
{
    std::string out;
    out.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        if (text.compare(at, 2, "\xC0\x80") == 0) {
            out += '\0';
            at += 2;
            continue;
        }
        const unsigned high = surrogateAt(text, at);
        const unsigned low = high >= 0xD800 && high < 0xDC00 ? surrogateAt(text, at + 3) : 0;
        if (low >= 0xDC00) {
            appendUtf8(out, high, low);
            at += 6;
        } else {
            out += text[at++];
        }
    }
    return out;
}

} // namespace kvx
