#pragma once

#include <KVXExport.h>
#include <QMap>
#include <QString>

/// Zip archives. Both operations are safe against hostile archives and leave no partial target.
class KVXCOMMON_API KVXZipFile {
public:
    /// Packs the files (entry name to local path) into a new archive, written beside the target
    /// and renamed. With a password the entries are encrypted with AES-256. An entry that would
    /// shrink to less than a 200th is stored as it is, since nobody would unpack it.
    /// False: nothing is left at archivePath.
    static bool compressFiles(
        const QString &archivePath, const QMap<QString, QString> &files, const QString &password);

    /// Unpacks into the directory (created, mode 0700) and fills files (entry name to extracted
    /// path). Accepts up to 16 flat regular entries with distinct safe names, 256 MiB in all and
    /// a ratio of at most 200; refuses everything else and then leaves nothing behind.
    /// An archive without entries succeeds with an empty map.
    static bool extractFiles(const QString &archivePath, const QString &directory,
        QMap<QString, QString> &files, const QString &password);
};
