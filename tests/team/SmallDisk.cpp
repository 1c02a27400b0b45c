#include "SmallDisk.h"

#include <QFile>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace kvx::test {

namespace {

/// Whether this process sees mounts of its own. Once for all disks: each further one would hide the
/// others from children that run already.
bool hasOwnMounts()
{
    static const bool own = unshare(CLONE_NEWNS) == 0
        && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    return own;
}

void limitFiles(qint64 process, rlim_t bytes)
{
    rlimit limit = {};
    const auto pid = static_cast<pid_t>(process);
    EXPECT_EQ(prlimit(pid, RLIMIT_FSIZE, nullptr, &limit), 0) << std::strerror(errno);
    limit.rlim_cur = bytes;
    EXPECT_EQ(prlimit(pid, RLIMIT_FSIZE, &limit, nullptr), 0) << std::strerror(errno);
}

} // namespace

SmallDisk::SmallDisk(int mebibytes)
{
    const QByteArray size = "mode=0700,size=" + QByteArray::number(mebibytes) + "m";
    m_mounted = hasOwnMounts()
        && mount("tmpfs", QFile::encodeName(m_folder.path()).constData(), "tmpfs", 0,
               size.constData())
            == 0;
}

SmallDisk::~SmallDisk()
{
    if (m_mounted)
        umount2(QFile::encodeName(m_folder.path()).constData(), MNT_DETACH);
}

void SmallDisk::fill(const QList<qint64> &writers, qint64 left)
{
    if (!m_mounted) {
        m_limited = writers;
        for (const qint64 process : writers)
            limitFiles(process, 1024);
        return;
    }
    const int file = open(QFile::encodeName(path(QStringLiteral("filler"))).constData(),
        O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    ASSERT_GE(file, 0) << std::strerror(errno);
    // Others write meanwhile, so that what was free a moment ago may not be free any more.
    int error = ENOSPC;
    for (int tries = 0; error == ENOSPC && tries < 100; ++tries) {
        struct statvfs space = {};
        ASSERT_EQ(statvfs(QFile::encodeName(m_folder.path()).constData(), &space), 0);
        const auto free = static_cast<qint64>(space.f_bavail * space.f_frsize);
        error = free > left ? posix_fallocate(file, 0, free - left) : 0;
    }
    EXPECT_EQ(error, 0) << std::strerror(error);
    close(file);
}

void SmallDisk::makeSpace()
{
    for (const qint64 process : m_limited)
        limitFiles(process, RLIM_INFINITY);
    m_limited.clear();
    QFile::remove(path(QStringLiteral("filler")));
}

QString SmallDisk::cause() const
{
    return QString::fromLocal8Bit(std::strerror(m_mounted ? ENOSPC : EFBIG));
}

} // namespace kvx::test
