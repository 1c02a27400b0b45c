#include "Cursor.h"

namespace kvx::openwire {

Cursor::Cursor(std::string_view bytes)
    : m_bytes(bytes)
{
}

std::string_view Cursor::bytes(std::size_t count)
{
    if (count > m_bytes.size())
        throw DecodeError("The frame ends inside a field");
    const std::string_view result = m_bytes.substr(0, count);
    m_bytes.remove_prefix(count);
    return result;
}

std::uint64_t Cursor::number(std::size_t width)
{
    std::uint64_t value = 0;
    for (const char byte : bytes(width))
        value = value << 8 | static_cast<std::uint8_t>(byte);
    return value;
}

std::uint8_t Cursor::u8()
{
    return static_cast<std::uint8_t>(number(1));
}

bool Cursor::boolean()
{
    return u8() != 0;
}

std::int16_t Cursor::i16()
{
    return static_cast<std::int16_t>(number(2));
}

std::uint16_t Cursor::u16()
{
    return static_cast<std::uint16_t>(number(2));
}

std::int32_t Cursor::i32()
{
    return static_cast<std::int32_t>(number(4));
}

std::int64_t Cursor::i64()
{
    return static_cast<std::int64_t>(number(8));
}

std::string Cursor::string()
{
    return boolean() ? std::string(shortText()) : std::string();
}

std::string_view Cursor::shortText()
{
    return bytes(u16());
}

std::size_t Cursor::count()
{
    const std::int32_t value = i32();
    if (value < 0)
        return 0;
    if (static_cast<std::size_t>(value) > left())
        throw DecodeError("A count is larger than the frame");
    return static_cast<std::size_t>(value);
}

std::string_view Cursor::byteSequence()
{
    return boolean() ? bytes(count()) : std::string_view();
}

} // namespace kvx::openwire
