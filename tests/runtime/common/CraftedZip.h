#pragma once

#include <QByteArray>
#include <QVector>

namespace kvx::test {

/// Writes archives byte by byte, so that every field can lie.
struct CraftedEntry {
    QByteArray name {};
    QByteArray content = "content";
    bool deflated = false;

    // What the headers say instead of the truth; -1: the truth.
    qint64 size = -1;
    qint64 packedSize = -1;
    qint64 crc = -1;
    int method = -1;
    int localMethod = -1;
    int flags = 0x800; // UTF-8
    int localFlags = -1;
    QByteArray localName {}; // empty: the name
    quint32 attributes = 0100644U << 16;
    int madeBy = 3; // Unix
    qint64 offset = -1;
    QByteArray extra {};
    int disk = 0;
    QByteArray comment {};
};

struct CraftedZip {
    QVector<CraftedEntry> entries {};
    QByteArray prefix {}; ///< in front of the first entry, counted in the offsets
    QByteArray comment {};
    QByteArray trailing {};
    QByteArray beforeEnd {}; ///< between directory and end record
    int entryCount = -1;
    int entryCountOnDisk = -1;
    qint64 directorySize = -1;
    qint64 directoryOffset = -1;
    int disk = 0;

    QByteArray bytes() const;
};

/// Raw deflate stream.
QByteArray deflated(const QByteArray &content);

} // namespace kvx::test
