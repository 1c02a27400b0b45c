#pragma once

#include <QStringList>

namespace kvx::test {

/// What lies in a folder: names, kinds, sizes and times of everything below it.
class FolderSnapshot {
public:
    /// Writes the state of the folder to a file, without the folders in `except` and what they
    /// hold. The file must not lie in the folder itself, unless below one of `except`.
    static bool take(const QString &folder, const QStringList &except, const QString &file);
    /// What is new, gone or different since, one path each.
    static QStringList changesSince(const QString &folder, const QString &file);
};

} // namespace kvx::test
