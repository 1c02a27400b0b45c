#pragma once

#include <QString>

namespace kvx {

/// True for a plain file name that means the same on every system: no folder, drive, stream or
/// parent part, no control or wildcard character, no reserved device name, at most 255 bytes.
bool isSafeEntryName(const QString &name);

/// Two names with the same key are one file on some file system.
QString entryNameKey(const QString &name);

} // namespace kvx
