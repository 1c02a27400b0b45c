#include "DownloadTarget.h"

#include "LocalFile.h"

#include <FailPoint.h>
#include <QDir>
#include <QFileInfo>
#include <QUuid>
#include <cerrno>
#include <filesystem>

#if defined(_WIN32)
#include <io.h>
#else
#include <unistd.h>
#endif

namespace kvx {

namespace {

#if defined(_WIN32)

bool syncFile(int descriptor)
{
    return ::_commit(descriptor) == 0;
}

std::filesystem::path nativePath(const QString &path)
{
    return path.toStdWString();
}

#else

bool syncFile(int descriptor)
{
    return ::fsync(descriptor) == 0;
}

std::filesystem::path nativePath(const QString &path)
{
    return QFile::encodeName(path).toStdString();
}

#endif

} // namespace

DownloadTarget::DownloadTarget(const QString &path)
    : m_path(path)
    , m_file(path + QLatin1Char('.') + QUuid::createUuid().toString(QUuid::Id128).left(8))
{
}

DownloadTarget::~DownloadTarget()
{
    if (m_file.isOpen())
        m_file.remove();
}

bool DownloadTarget::isKept(const QString &path)
{
    const QString temporary = QDir::tempPath(); // empty: TMPDIR names no folder
    if (QFileInfo(path).path() == temporary)
        return false;
    const QString folder = QFileInfo(path).dir().canonicalPath();
    return temporary.isEmpty()
        || !(folder + QLatin1Char('/')).startsWith(temporary + QLatin1Char('/'));
}

bool DownloadTarget::open()
{
    m_error = whyNotWritable(m_path);
    if (!m_error.isEmpty())
        return false;
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered))
        return fail(m_file.errorString());
    if (QFile::exists(m_path))
        m_file.setPermissions(QFile::permissions(m_path));
    return true;
}

bool DownloadTarget::write(const char *bytes, qint64 size)
{
    // A disk that fills up takes a part first and gives its reason with the next.
    for (qint64 written = 0; written < size;) {
        const qint64 count = m_file.write(bytes + written, size - written);
        if (count <= 0)
            return fail(m_file.errorString());
        written += count;
    }
    if (!m_expected.isEmpty())
        m_hash.addData(bytes, static_cast<int>(size));
    m_received += size;
    if (KVX_FAIL_POINT("download/part written"))
        return fail(qt_error_string(EIO));
    return true;
}

bool DownloadTarget::commit()
{
    if (!m_expected.isEmpty() && m_hash.result() != m_expected) {
        m_error = QStringLiteral("The file arrived damaged.");
        return false;
    }
    if (isKept(m_path) && !syncFile(m_file.handle()))
        return fail(qt_error_string());
    std::error_code error;
    std::filesystem::rename(nativePath(m_file.fileName()), nativePath(m_path), error);
    if (error)
        return fail(QString::fromStdString(error.message()));
    m_file.close();
    return true;
}

bool DownloadTarget::fail(const QString &cause)
{
    m_error = QStringLiteral("The file \"%1\" cannot be written: %2").arg(m_path, cause);
    return false;
}

} // namespace kvx
