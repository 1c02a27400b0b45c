#pragma once

#include <QByteArray>
#include <QCryptographicHash>
#include <QSaveFile>
#include <QString>

namespace kvx {

/// Where a received file goes: a temporary beside the target that takes its name at the very end.
/// Until then, and after any failure, the target is what it was before.
class DownloadTarget {
public:
    explicit DownloadTarget(const QString &path);

    /// Makes the temporary; false with error().
    bool open();
    /// The SHA-256 the bytes must have; empty: unknown.
    void expectDigest(const QByteArray &sha256) { m_expected = sha256; }
    bool write(const char *bytes, qint64 size);
    /// Checks the digest, syncs and renames; false with error(), the target then untouched.
    bool commit();
    qint64 received() const { return m_received; }
    const QString &error() const { return m_error; }

private:
    bool fail();

    QSaveFile m_file;
    QCryptographicHash m_hash { QCryptographicHash::Sha256 };
    QByteArray m_expected;
    qint64 m_received = 0;
    QString m_error;
};

} // namespace kvx
