#include "FrameWriter.h"

#include "ModifiedUtf8.h"

#include <cms/MessageFormatException.h>

#include <utility>

namespace kvx::openwire {

FrameWriter::FrameWriter(std::uint8_t type)
    : m_bytes(4, '\0')
{
    u8(type);
}

void FrameWriter::number(std::uint64_t value, int width)
{
    for (int shift = (width - 1) * 8; shift >= 0; shift -= 8)
        m_bytes += static_cast<char>(value >> shift & 0xff);
}

FrameWriter &FrameWriter::u8(std::uint8_t value)
{
    number(value, 1);
    return *this;
}

FrameWriter &FrameWriter::boolean(bool value)
{
    return u8(value ? 1 : 0);
}

FrameWriter &FrameWriter::i16(std::int16_t value)
{
    number(static_cast<std::uint16_t>(value), 2);
    return *this;
}

FrameWriter &FrameWriter::i32(std::int32_t value)
{
    number(static_cast<std::uint32_t>(value), 4);
    return *this;
}

FrameWriter &FrameWriter::i64(std::int64_t value)
{
    number(static_cast<std::uint64_t>(value), 8);
    return *this;
}

FrameWriter &FrameWriter::raw(std::string_view bytes)
{
    m_bytes += bytes;
    return *this;
}

FrameWriter &FrameWriter::null()
{
    return boolean(false);
}

FrameWriter &FrameWriter::string(std::string_view text)
{
    const std::string bytes = toModifiedUtf8(text);
    if (bytes.size() > 0xffff)
        throw cms::MessageFormatException("A header text is longer than 65535 bytes.");
    return boolean(true).i16(static_cast<std::int16_t>(bytes.size())).raw(bytes);
}

FrameWriter &FrameWriter::stringOrNull(std::string_view text)
{
    return text.empty() ? null() : string(text);
}

FrameWriter &FrameWriter::byteSequence(std::string_view bytes)
{
    return boolean(true).i32(static_cast<std::int32_t>(bytes.size())).raw(bytes);
}

std::string FrameWriter::take()
{
    const std::size_t length = m_bytes.size() - 4;
    for (std::size_t i = 0; i < 4; ++i)
        m_bytes[i] = static_cast<char>(length >> (24 - 8 * i) & 0xff);
    return std::move(m_bytes);
}

} // namespace kvx::openwire
