#pragma once

#include <QByteArray>
#include <QCryptographicHash>
#include <QFile>
#include <QString>

namespace kvx {

/// Where a received file goes: a new file beside the target that takes its name at the very end.
/// Until then, and after any failure, the target is what it was before.
///
/// A target under the temporary folder (QDir::tempPath()) is read by this process alone and fetched
/// anew after a crash, so nobody waits for the disk there. Any other is on the disk before it gets
/// its name.
class DownloadTarget {
public:
    explicit DownloadTarget(const QString &path);
    ~DownloadTarget();
    DownloadTarget(const DownloadTarget &) = delete;
    DownloadTarget &operator=(const DownloadTarget &) = delete;

    /// Makes the new file; false with error().
    bool open();
    /// The SHA-256 the bytes must have; empty: unknown.
    void expectDigest(const QByteArray &sha256) { m_expected = sha256; }
    bool write(const char *bytes, qint64 size);
    /// Checks the digest, syncs where that is due and renames; false with error(), the target then
    /// untouched.
    bool commit();
    qint64 received() const { return m_received; }
    const QString &error() const { return m_error; }

    /// Whether the file is to survive a power cut.
    static bool isKept(const QString &path);

private:
    bool fail(const QString &cause);

    const QString m_path;
    QFile m_file;
    QCryptographicHash m_hash { QCryptographicHash::Sha256 };
    QByteArray m_expected;
    qint64 m_received = 0;
    QString m_error;
};

} // namespace kvx
