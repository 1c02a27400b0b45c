#include "ZipDirectory.h"

#include <algorithm>
#include <utility>

namespace kvx {

namespace {

// Record sizes and signatures of the ZIP file format (APPNOTE 4.3).
const int EndRecordSize = 22;
const int CentralHeaderSize = 46;
const int LocalHeaderSize = 30;
const int LongestField = 0xffff; // of a name, an extra field or a comment
const quint32 EndSignature = 0x06054b50;
const quint32 CentralSignature = 0x02014b50;
const quint32 LocalSignature = 0x04034b50;

quint16 zip16(const QByteArray &bytes, int at)
{
    return static_cast<quint16>(
        static_cast<quint8>(bytes[at]) | static_cast<quint8>(bytes[at + 1]) << 8);
}

quint32 zip32(const QByteArray &bytes, int at)
{
    return static_cast<quint32>(zip16(bytes, at))
        | static_cast<quint32>(zip16(bytes, at + 2)) << 16;
}

QByteArray zipBytes(QIODevice &archive, qint64 offset, qint64 size)
{
    if (!archive.seek(offset))
        return {};
    const QByteArray bytes = archive.read(size);
    return bytes.size() == size ? bytes : QByteArray();
}

struct EndRecord {
    qint64 offset = 0;
    int entries = 0;
    quint32 directorySize = 0;
    quint32 directoryOffset = 0;
};

bool readEndRecord(QIODevice &archive, EndRecord &end)
{
    const qint64 size = archive.size();
    const qint64 tailOffset = std::max<qint64>(0, size - EndRecordSize - LongestField);
    const QByteArray tail = zipBytes(archive, tailOffset, size - tailOffset);
    const int at = tail.lastIndexOf(QByteArray("PK\x05\x06", 4));
    if (at < 0 || tail.size() - at < EndRecordSize || zip32(tail, at) != EndSignature)
        return false;
    const bool singleVolume = zip16(tail, at + 4) == 0 && zip16(tail, at + 6) == 0
        && zip16(tail, at + 8) == zip16(tail, at + 10);
    if (!singleVolume || at + EndRecordSize + zip16(tail, at + 20) != tail.size())
        return false;
    end = { tailOffset + at, zip16(tail, at + 10), zip32(tail, at + 12), zip32(tail, at + 16) };
    return qint64(end.directoryOffset) + end.directorySize == end.offset;
}

// Offset behind the entry's packed bytes; -1 when its local header tells another story.
qint64 endOfEntry(QIODevice &archive, const ZipEntry &entry)
{
    const QByteArray header = zipBytes(archive, entry.headerOffset, LocalHeaderSize);
    if (header.isEmpty() || zip32(header, 0) != LocalSignature)
        return -1;
    const int nameSize = zip16(header, 26);
    if (zip16(header, 6) != entry.flags || zip16(header, 8) != entry.method
        || zipBytes(archive, entry.headerOffset + qint64(LocalHeaderSize), nameSize) != entry.name)
        return -1;
    return entry.headerOffset + qint64(LocalHeaderSize) + nameSize + zip16(header, 28)
        + entry.packedSize;
}

bool entriesLieApart(QIODevice &archive, const QVector<ZipEntry> &entries, qint64 directoryOffset)
{
    QVector<std::pair<qint64, qint64>> ranges;
    for (const ZipEntry &entry : entries) {
        const qint64 end = endOfEntry(archive, entry);
        if (end < 0)
            return false;
        ranges.append({ entry.headerOffset, end });
    }
    std::sort(ranges.begin(), ranges.end());
    qint64 free = 0;
    for (const auto &[begin, end] : ranges) {
        if (begin < free)
            return false;
        free = end;
    }
    return free <= directoryOffset;
}

} // namespace

bool readZipDirectory(QIODevice &archive, int maxEntries, QVector<ZipEntry> &entries)
{
    EndRecord end;
    if (!readEndRecord(archive, end) || end.entries > maxEntries
        || end.directorySize > quint32(end.entries) * (CentralHeaderSize + 3 * LongestField))
        return false;
    const QByteArray directory = zipBytes(archive, end.directoryOffset, end.directorySize);
    int at = 0;
    for (int i = 0; i < end.entries; ++i) {
        if (directory.size() - at < CentralHeaderSize || zip32(directory, at) != CentralSignature
            || zip16(directory, at + 34) != 0)
            return false;
        const int nameSize = zip16(directory, at + 28);
        const int headerSize
            = CentralHeaderSize + nameSize + zip16(directory, at + 30) + zip16(directory, at + 32);
        if (directory.size() - at < headerSize)
            return false;
        entries.append({ directory.mid(at + CentralHeaderSize, nameSize), zip16(directory, at + 8),
            zip16(directory, at + 10), zip32(directory, at + 20), zip32(directory, at + 24),
            zip32(directory, at + 38), zip32(directory, at + 42) });
        at += headerSize;
    }
    return at == directory.size() && entriesLieApart(archive, entries, end.directoryOffset);
}

} // namespace kvx
