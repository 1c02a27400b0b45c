#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kvx::openwire {

/// A frame does not hold what its type promises. The frame is dropped, the stream stays in step.
class DecodeError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Deepest nesting of objects and of values that is followed.
constexpr int maxDepth = 16;

/// Reads the big-endian fields of one frame. Every read is checked against the frame's end and
/// throws DecodeError when it would go past it. Views stay valid as long as the frame's bytes.
class Cursor {
public:
    explicit Cursor(std::string_view bytes);

    std::uint8_t u8();
    bool boolean();
    std::int16_t i16();
    std::uint16_t u16();
    std::int32_t i32();
    std::int64_t i64();
    std::string_view bytes(std::size_t count);

    /// Text behind its presence byte; empty when absent.
    std::string string();
    /// Text with a two-byte length and no presence byte.
    std::string_view shortText();
    /// Bytes behind presence byte and four-byte length; empty when absent.
    std::string_view byteSequence();
    /// A four-byte count of things that take at least one byte each; never more than bytes are
    /// left.
    std::size_t count();

    std::size_t left() const { return m_bytes.size(); }

private:
    std::uint64_t number(std::size_t width);

    std::string_view m_bytes;
};

} // namespace kvx::openwire
