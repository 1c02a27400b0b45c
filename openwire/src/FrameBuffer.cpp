#include "FrameBuffer.h"

#include "Cursor.h"

namespace kvx::openwire {

namespace {

constexpr std::size_t lengthBytes = 4;
constexpr std::size_t keptCapacity = 1u << 20; // what a single large frame needed is given back

} // namespace

void FrameBuffer::append(std::string_view bytes)
{
    m_bytes.erase(0, m_start);
    m_start = 0;
    if (m_bytes.empty() && m_bytes.capacity() > keptCapacity)
        m_bytes.shrink_to_fit();
    m_bytes += bytes;
}

std::optional<std::string_view> FrameBuffer::next()
{
    const std::string_view waiting = std::string_view(m_bytes).substr(m_start);
    if (waiting.size() < lengthBytes)
        return std::nullopt;
    const std::int32_t length = Cursor(waiting).i32();
    if (length <= 0 || static_cast<std::size_t>(length) > maxIncomingFrame)
        throw ProtocolError("The broker sent a frame of " + std::to_string(length) + " bytes");
    const auto size = static_cast<std::size_t>(length);
    if (waiting.size() - lengthBytes < size)
        return std::nullopt;
    m_start += lengthBytes + size;
    return waiting.substr(lengthBytes, size);
}

} // namespace kvx::openwire
