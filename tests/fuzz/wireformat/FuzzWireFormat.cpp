#include "../Require.h"
#include "Cursor.h"
#include "FrameBuffer.h"
#include "WireFormat.h"

#include <cstdint>

using namespace kvx::openwire;
using kvx::test::require;

/// Whatever the other end offers, nothing is agreed on that this end did not want.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const WireFormat ours;
    try {
        const WireFormat theirs
            = decodeWireFormatInfo({ reinterpret_cast<const char *>(data), size });
        require(theirs.maxFrameSize > 0, "a frame may have a size");
        require(theirs.maxInactivity.count() >= 0 && theirs.initialDelay.count() >= 0,
            "times are not negative");
        const WireFormat agreed = negotiate(ours, theirs);
        require(agreed.version >= 1 && agreed.version <= ours.version, "a version of ours");
        require(agreed.maxFrameSize <= ours.maxFrameSize, "frames of our size");
        require(agreed.maxInactivity <= ours.maxInactivity, "keep-alives at least as often");
        require(agreed.maxInactivity.count() == 0 || agreed.maxInactivity.count() >= 300,
            "keep-alives not without a pause");
        const std::string again = encodeWireFormatInfo(agreed);
        const WireFormat read = decodeWireFormatInfo(std::string_view(again).substr(4));
        require(read.version == agreed.version && read.maxInactivity == agreed.maxInactivity
                && read.initialDelay == agreed.initialDelay,
            "an offer reads back as written");
    } catch (const DecodeError &) {
    } catch (const ProtocolError &) {
    }
    return 0;
}
