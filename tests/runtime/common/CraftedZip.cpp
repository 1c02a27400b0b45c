#include "CraftedZip.h"

#include <zlib.h>

namespace kvx::test {

namespace {

QByteArray number(qint64 value, int bytes)
{
    QByteArray text;
    for (int i = 0; i < bytes; ++i)
        text.append(static_cast<char>(value >> (8 * i)));
    return text;
}

qint64 orTruth(qint64 lie, qint64 truth)
{
    return lie < 0 ? truth : lie;
}

quint32 crcOf(const QByteArray &content)
{
    return static_cast<quint32>(crc32(0, reinterpret_cast<const Bytef *>(content.constData()),
        static_cast<uInt>(content.size())));
}

} // namespace

QByteArray deflated(const QByteArray &content)
{
    // A length of four bytes and a zlib header of two stand in front, a checksum of four behind.
    const QByteArray packed = qCompress(content, 9);
    return packed.mid(6, packed.size() - 10);
}

QByteArray CraftedZip::bytes() const
{
    QByteArray archive = prefix;
    QByteArray directory;
    for (const CraftedEntry &entry : entries) {
        const qint64 offset = orTruth(entry.offset, archive.size());
        const QByteArray packed = entry.deflated ? deflated(entry.content) : entry.content;
        const int method = static_cast<int>(orTruth(entry.method, entry.deflated ? 8 : 0));
        const QByteArray sums = number(orTruth(entry.crc, crcOf(entry.content)), 4)
            + number(orTruth(entry.packedSize, packed.size()), 4)
            + number(orTruth(entry.size, entry.content.size()), 4);
        const QByteArray localName = entry.localName.isEmpty() ? entry.name : entry.localName;
        archive += "PK\x03\x04" + number(20, 2) + number(orTruth(entry.localFlags, entry.flags), 2)
            + number(orTruth(entry.localMethod, method), 2) + number(0x5a21, 4) + sums
            + number(localName.size(), 2) + number(entry.extra.size(), 2) + localName + entry.extra
            + packed;
        directory += "PK\x01\x02" + number(entry.madeBy << 8 | 20, 2) + number(20, 2)
            + number(entry.flags, 2) + number(method, 2) + number(0x5a21, 4) + sums
            + number(entry.name.size(), 2) + number(entry.extra.size(), 2)
            + number(entry.comment.size(), 2) + number(entry.disk, 2) + number(0, 2)
            + number(entry.attributes, 4) + number(offset, 4) + entry.name + entry.extra
            + entry.comment;
    }
    const qint64 count = orTruth(entryCount, entries.size());
    return archive + directory + beforeEnd + "PK\x05\x06" + number(disk, 2) + number(disk, 2)
        + number(orTruth(entryCountOnDisk, count), 2) + number(count, 2)
        + number(orTruth(directorySize, directory.size()), 4)
        + number(orTruth(directoryOffset, archive.size()), 4) + number(comment.size(), 2) + comment
        + trailing;
}

} // namespace kvx::test
