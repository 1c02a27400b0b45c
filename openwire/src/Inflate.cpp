#include "Inflate.h"

#include "FrameBuffer.h"

#include <cms/MessageFormatException.h>

#include <vector>
#include <zlib.h>

namespace kvx::openwire {

std::string inflateContent(std::string_view compressed)
{
    z_stream stream = {};
    if (inflateInit(&stream) != Z_OK)
        throw cms::MessageFormatException("The message cannot be inflated.");
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(compressed.data()));
    stream.avail_in = static_cast<uInt>(compressed.size());

    std::string out;
    std::vector<char> chunk(64 * 1024);
    int result = Z_OK;
    while (result == Z_OK && out.size() <= maxIncomingFrame) {
        stream.next_out = reinterpret_cast<Bytef *>(chunk.data());
        stream.avail_out = static_cast<uInt>(chunk.size());
        result = ::inflate(&stream, Z_NO_FLUSH);
        out.append(chunk.data(), chunk.size() - stream.avail_out);
    }
    inflateEnd(&stream);
    if (out.size() > maxIncomingFrame)
        throw cms::MessageFormatException("The message is larger than 64 MiB when inflated.");
    if (result != Z_STREAM_END)
        throw cms::MessageFormatException("The compressed message is damaged.");
    return out;
}

} // namespace kvx::openwire
