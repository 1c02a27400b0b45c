#pragma once

#include <chrono>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

namespace kvx::openwire {

/// What the two ends agree on before anything else is said.
struct WireFormat {
    int version = 12;
    std::chrono::milliseconds maxInactivity { 30000 }; ///< zero: no keep-alives, no check
    std::chrono::milliseconds initialDelay { 10000 }; ///< added to the first check
    std::int64_t maxFrameSize = 64 << 20; ///< largest frame that may be sent, in bytes
};

/// The offer: loose encoding, no caching, no stack traces, and the figures of wanted.
std::string encodeWireFormatInfo(const WireFormat &wanted);

/// Reads the other end's offer from a frame without its length. Throws DecodeError.
WireFormat decodeWireFormatInfo(std::string_view frame);

/// The smaller of each figure. ProtocolError when there is no common version.
WireFormat negotiate(const WireFormat &ours, const WireFormat &theirs);

} // namespace kvx::openwire
