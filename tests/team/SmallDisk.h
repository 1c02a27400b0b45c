#pragma once

#include <QList>
#include <QString>
#include <QTemporaryDir>

namespace kvx::test {

/// A disk of a few MiB that a test fills and empties. It is mounted for this process and its
/// children only and ends with them. Where the system does not let the test mount one, it is a
/// folder, and while it is full the given processes cannot write beyond the first KiB of a file.
/// Made before the process has threads and children.
class SmallDisk {
public:
    explicit SmallDisk(int mebibytes);
    ~SmallDisk();
    SmallDisk(const SmallDisk &) = delete;
    SmallDisk &operator=(const SmallDisk &) = delete;

    QString path(const QString &name = {}) const { return m_folder.filePath(name); }
    /// Leaves so many bytes to the processes that write to it.
    void fill(const QList<qint64> &writers, qint64 left = 0);
    void makeSpace();
    bool isMounted() const { return m_mounted; }
    /// The system's words for what a writer meets.
    QString cause() const;

private:
    QTemporaryDir m_folder;
    bool m_mounted = false;
    QList<qint64> m_limited;
};

} // namespace kvx::test
