#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kvx::openwire {

/// Builds one frame: four bytes of length, the type, then the fields, big endian.
class FrameWriter {
public:
    explicit FrameWriter(std::uint8_t type);

    FrameWriter &u8(std::uint8_t value);
    FrameWriter &boolean(bool value);
    FrameWriter &i16(std::int16_t value);
    FrameWriter &i32(std::int32_t value);
    FrameWriter &i64(std::int64_t value);
    FrameWriter &raw(std::string_view bytes);

    /// An absent text, object, array or byte sequence.
    FrameWriter &null();
    /// A present text, possibly empty. cms::MessageFormatException when it is no text or longer
    /// than 65,535 bytes.
    FrameWriter &string(std::string_view text);
    /// Absent when empty.
    FrameWriter &stringOrNull(std::string_view text);
    /// A present byte sequence.
    FrameWriter &byteSequence(std::string_view bytes);

    /// The finished frame, its length filled in. The writer is empty afterwards.
    std::string take();

private:
    void number(std::uint64_t value, int width);

    std::string m_bytes;
};

} // namespace kvx::openwire
