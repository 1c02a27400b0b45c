#include "DownloadTarget.h"

#include "LocalFile.h"

#if defined(_WIN32)
#include <io.h>
#else
#include <unistd.h>
#endif

namespace kvx {

namespace {

bool syncFile(int descriptor)
{
#if defined(_WIN32)
    return ::_commit(descriptor) == 0;
#else
    return ::fsync(descriptor) == 0;
#endif
}

} // namespace

DownloadTarget::DownloadTarget(const QString &path)
    : m_file(path)
{
}

bool DownloadTarget::open()
{
    m_error = whyNotWritable(m_file.fileName());
    if (!m_error.isEmpty())
        return false;
    return m_file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) || fail();
}

bool DownloadTarget::write(const char *bytes, qint64 size)
{
    if (m_file.write(bytes, size) != size)
        return fail();
    if (!m_expected.isEmpty())
        m_hash.addData(bytes, static_cast<int>(size));
    m_received += size;
    return true;
}

bool DownloadTarget::commit()
{
    if (!m_expected.isEmpty() && m_hash.result() != m_expected) {
        m_error = QStringLiteral("The file arrived damaged.");
        return false;
    }
    // QSaveFile syncs, too, but keeps quiet about a failure.
    if (!syncFile(m_file.handle()) || !m_file.commit())
        return fail();
    return true;
}

bool DownloadTarget::fail()
{
    m_error = QStringLiteral("The file \"%1\" cannot be written: %2")
                  .arg(m_file.fileName(), m_file.errorString());
    return false;
}

} // namespace kvx
