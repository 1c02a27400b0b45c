#include "LocalFile.h"

#include <FailPoint.h>
#include <QFileInfo>
#include <algorithm>

#if defined(_WIN32)
#include <io.h>
#else
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace kvx {

namespace {

QString whyNotOwnRegularFile(const QString &path, bool isRegular, bool isOwn)
{
    if (!isRegular)
        return QStringLiteral("\"%1\" is a link or no regular file.").arg(path);
    if (!isOwn)
        return QStringLiteral("\"%1\" belongs to another user.").arg(path);
    return {};
}

#if defined(_WIN32)

// Opening by path is enough here: the temporary folder is the user's own.
bool openOwnRegularFile(QFile &file, const QString &path, QString &error)
{
    const QFileInfo info(path);
    file.setFileName(path);
    if (info.exists())
        error = whyNotOwnRegularFile(path, info.isFile() && !info.isSymLink(), true);
    return error.isEmpty() && file.open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

bool isOwner(const QFileInfo &)
{
    return true;
}

#else

bool openOwnRegularFile(QFile &file, const QString &path, QString &error)
{
    // Non-blocking, or a FIFO would hold us here; a link fails with ELOOP.
    const int descriptor = ::open(
        QFile::encodeName(path).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) {
        if (errno == ELOOP)
            error = whyNotOwnRegularFile(path, false, true);
        return false;
    }
    struct stat status = {};
    if (::fstat(descriptor, &status) == 0)
        error = whyNotOwnRegularFile(path, S_ISREG(status.st_mode), status.st_uid == ::geteuid());
    if (error.isEmpty()
        && file.open(
            descriptor, QIODevice::ReadOnly | QIODevice::Unbuffered, QFileDevice::AutoCloseHandle))
        return true;
    ::close(descriptor);
    return false;
}

bool isOwner(const QFileInfo &info)
{
    return info.ownerId() == ::geteuid();
}

#endif

} // namespace

bool LocalFile::open(const QString &path)
{
    if (path.isEmpty()) {
        m_error = QStringLiteral("The request names no local file.");
        return false;
    }
    if (!openOwnRegularFile(m_file, path, m_error)) {
        if (m_error.isEmpty())
            m_error = QStringLiteral("The file \"%1\" cannot be read.").arg(path);
        return false;
    }
    m_size = m_file.size();
    return true;
}

qint64 LocalFile::read(char *buffer, qint64 capacity)
{
    const qint64 wanted = std::min(capacity, m_size - m_position);
    if (wanted == 0)
        return 0;
    const qint64 got = m_file.read(buffer, wanted);
    if (got <= 0 || KVX_FAIL_POINT("upload/part read"))
        return -1;
    m_position += got;
    return got;
}

bool LocalFile::seek(qint64 offset)
{
    if (offset < 0 || offset > m_size || !m_file.seek(offset))
        return false;
    m_position = offset;
    return true;
}

QString whyNotWritable(const QString &path)
{
    if (path.isEmpty())
        return QStringLiteral("The request names no local file.");
    const QFileInfo info(path);
    if (!info.isSymLink() && !info.exists())
        return {};
    return whyNotOwnRegularFile(path, info.isFile() && !info.isSymLink(), isOwner(info));
}

} // namespace kvx
