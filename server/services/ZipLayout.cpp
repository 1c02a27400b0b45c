#include "services/ZipLayout.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <string_view>

namespace kvx::server {

namespace {

// Record sizes and signatures of the ZIP file format (APPNOTE 4.3).
constexpr std::size_t endRecordSize = 22;
constexpr std::size_t centralHeaderSize = 46;
constexpr std::size_t localHeaderSize = 30;
constexpr std::size_t longestField = 0xffff; // of a name, an extra field or a comment
constexpr std::string_view endSignature("PK\x05\x06", 4);
constexpr std::string_view centralSignature("PK\x01\x02", 4);
constexpr std::string_view localSignature("PK\x03\x04", 4);

std::uint32_t number(std::string_view bytes, std::size_t at, std::size_t size)
{
    std::uint32_t value = 0;
    for (std::size_t i = size; i-- > 0;)
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
}

std::uint32_t number16(std::string_view bytes, std::size_t at)
{
    return number(bytes, at, 2);
}

std::uint64_t number32(std::string_view bytes, std::size_t at)
{
    return number(bytes, at, 4);
}

/// Empty where there are not so many.
std::string bytesAt(std::ifstream &archive, std::uint64_t offset, std::size_t size)
{
    std::string bytes(size, '\0');
    archive.clear();
    archive.seekg(static_cast<std::streamoff>(offset));
    archive.read(bytes.data(), static_cast<std::streamsize>(size));
    return archive ? bytes : std::string();
}

/// The directory's one header; empty where it is not the whole directory.
std::string centralHeader(
    std::ifstream &archive, std::uint64_t size, std::uint64_t &directoryOffset)
{
    const std::uint64_t tailSize = std::min<std::uint64_t>(size, endRecordSize + longestField);
    const std::string tail = bytesAt(archive, size - tailSize, static_cast<std::size_t>(tailSize));
    const std::size_t at = tail.rfind(endSignature);
    if (at == std::string::npos || tail.size() - at < endRecordSize
        || at + endRecordSize + number16(tail, at + 20) != tail.size())
        return {};
    const bool oneVolume = number16(tail, at + 4) == 0 && number16(tail, at + 6) == 0;
    const bool oneEntry = number16(tail, at + 8) == 1 && number16(tail, at + 10) == 1;
    const std::uint64_t directorySize = number32(tail, at + 12);
    directoryOffset = number32(tail, at + 16);
    if (!oneVolume || !oneEntry || directoryOffset + directorySize != size - tailSize + at
        || directorySize < centralHeaderSize
        || directorySize > centralHeaderSize + 3 * longestField)
        return {};
    std::string header = bytesAt(archive, directoryOffset, static_cast<std::size_t>(directorySize));
    const bool whole = header.compare(0, 4, centralSignature) == 0 && number16(header, 34) == 0
        && centralHeaderSize + number16(header, 28) + number16(header, 30) + number16(header, 32)
            == header.size();
    return whole ? header : std::string();
}

} // namespace

bool hasPlainLayout(const std::string &path)
{
    std::ifstream archive(path, std::ios::binary | std::ios::ate);
    if (!archive)
        return false;
    std::uint64_t directoryOffset = 0;
    const std::string central
        = centralHeader(archive, static_cast<std::uint64_t>(archive.tellg()), directoryOffset);
    if (central.empty())
        return false;
    const std::string name = central.substr(centralHeaderSize, number16(central, 28));
    const std::uint64_t offset = number32(central, 42);
    const std::string local = bytesAt(archive, offset, localHeaderSize);
    if (local.compare(0, 4, localSignature) != 0 || local.compare(6, 4, central, 8, 4) != 0
        || number16(local, 26) != name.size()
        || bytesAt(archive, offset + localHeaderSize, name.size()) != name)
        return false;
    const std::uint64_t end
        = offset + localHeaderSize + name.size() + number16(local, 28) + number32(central, 20);
    return name.find('\0') == std::string::npos && end <= directoryOffset;
}

} // namespace kvx::server
