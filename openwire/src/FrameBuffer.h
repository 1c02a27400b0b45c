#pragma once

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kvx::openwire {

/// Largest frame that is accepted.
constexpr std::size_t maxIncomingFrame = 64u << 20;

/// The stream is out of step or breaks the rules: the connection has to end.
class ProtocolError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Cuts the bytes of the socket into frames. Grows with the bytes that arrive, never by the length
/// that a frame claims.
class FrameBuffer {
public:
    void append(std::string_view bytes);

    /// The next complete frame without its length, good until the next append; empty when more
    /// bytes are needed. ProtocolError for a length that is not positive or above maxIncomingFrame.
    std::optional<std::string_view> next();

    std::size_t capacity() const { return m_bytes.capacity(); }

private:
    std::string m_bytes;
    std::size_t m_start = 0;
};

} // namespace kvx::openwire
