#pragma once

#include <QFile>
#include <QString>

namespace kvx {

/// A file that is to be sent. Only a regular file of the user's own is opened, never through a
/// link: temporary folders are shared, and a planted link would send out another file.
class LocalFile {
public:
    /// False, with error() telling why, when there is nothing that may be sent.
    bool open(const QString &path);
    const QString &error() const { return m_error; }
    /// Bytes that were there when the file was opened; exactly these are sent.
    qint64 size() const { return m_size; }
    /// At most capacity bytes; 0 at the end, -1 when the file has become shorter or unreadable.
    qint64 read(char *buffer, qint64 capacity);
    bool seek(qint64 offset);
    qint64 position() const { return m_position; }

private:
    QFile m_file;
    qint64 m_size = 0;
    qint64 m_position = 0;
    QString m_error;
};

/// Empty when a received file may take this path: nothing is there yet, or a regular file of the
/// user's own. Else why not.
QString whyNotWritable(const QString &path);

} // namespace kvx
