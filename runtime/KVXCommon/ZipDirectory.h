#pragma once

#include <QByteArray>
#include <QIODevice>
#include <QVector>

namespace kvx {

/// One entry as the archive's central directory describes it, name as raw bytes.
struct ZipEntry {
    QByteArray name;
    quint16 flags = 0;
    quint16 method = 0;
    quint32 packedSize = 0;
    quint32 size = 0;
    quint32 externalAttributes = 0;
    quint32 headerOffset = 0;
};

/// Reads the central directory. The zip library hides what a careful reader wants to see (NUL
/// bytes in names, overlapping entries, a local header that names another file), so this looks at
/// the bytes first. False unless the archive is a plain one of at most maxEntries entries: one
/// volume, no zip64, directory directly before its end record, nothing behind the end record,
/// entries that lie apart from each other and agree with their local headers.
bool readZipDirectory(QIODevice &archive, int maxEntries, QVector<ZipEntry> &entries);

} // namespace kvx
