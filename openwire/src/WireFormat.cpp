#include "WireFormat.h"

#include "Commands.h"
#include "Cursor.h"
#include "FrameBuffer.h"
#include "FrameWriter.h"
#include "Values.h"

#include <algorithm>

namespace kvx::openwire {

namespace {

constexpr std::string_view wireFormatMagic = "ActiveMQ";
// An offer below this would have the ends do nothing but keep each other alive.
constexpr std::chrono::milliseconds shortestInactivity { 300 };
constexpr std::int64_t longestDuration = 24 * 3600 * 1000;

std::int64_t integerOption(const ValueMap &options, std::string_view name, std::int64_t fallback)
{
    const Value *value = findValue(options, name);
    if (!value)
        return fallback;
    if (const auto *wide = std::get_if<std::int64_t>(value))
        return *wide;
    if (const auto *narrow = std::get_if<std::int32_t>(value))
        return *narrow;
    throw DecodeError("The wire format option " + std::string(name) + " is no number");
}

std::chrono::milliseconds durationOption(const ValueMap &options, std::string_view name)
{
    return std::chrono::milliseconds(
        std::clamp<std::int64_t>(integerOption(options, name, 0), 0, longestDuration));
}

} // namespace

std::string encodeWireFormatInfo(const WireFormat &wanted)
{
    const ValueMap options = {
        { "TcpNoDelayEnabled", true },
        { "SizePrefixDisabled", false },
        { "CacheEnabled", false },
        { "TightEncodingEnabled", false },
        { "StackTraceEnabled", false },
        { "MaxInactivityDuration", std::int64_t(wanted.maxInactivity.count()) },
        { "MaxInactivityDurationInitalDelay", std::int64_t(wanted.initialDelay.count()) },
    };
    return FrameWriter(WireFormatInfoType)
        .raw(wireFormatMagic)
        .i32(wanted.version)
        .byteSequence(encodeValues(options))
        .take();
}

WireFormat decodeWireFormatInfo(std::string_view frame)
{
    Cursor cursor(frame);
    if (cursor.u8() != WireFormatInfoType
        || cursor.bytes(wireFormatMagic.size()) != wireFormatMagic)
        throw DecodeError("The other end does not speak OpenWire");
    WireFormat offer;
    offer.version = cursor.i32();
    const ValueMap options = decodeValues(cursor.byteSequence());
    offer.maxInactivity = durationOption(options, "MaxInactivityDuration");
    offer.initialDelay = durationOption(options, "MaxInactivityDurationInitalDelay");
    offer.maxFrameSize = integerOption(options, "MaxFrameSize", 0);
    if (offer.maxFrameSize <= 0)
        offer.maxFrameSize = std::numeric_limits<std::int64_t>::max();
    return offer;
}

WireFormat negotiate(const WireFormat &ours, const WireFormat &theirs)
{
    WireFormat result;
    result.version = std::min(ours.version, theirs.version);
    if (result.version < 1)
        throw ProtocolError(
            "The broker offers the unknown version " + std::to_string(theirs.version));
    result.maxInactivity = std::min(ours.maxInactivity, theirs.maxInactivity);
    if (result.maxInactivity.count() > 0)
        result.maxInactivity = std::max(result.maxInactivity, shortestInactivity);
    result.initialDelay = std::min(ours.initialDelay, theirs.initialDelay);
    result.maxFrameSize = std::min(ours.maxFrameSize, theirs.maxFrameSize);
    return result;
}

} // namespace kvx::openwire
