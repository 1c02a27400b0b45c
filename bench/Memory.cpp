#include "Memory.h"

#include <QFile>
#include <malloc.h>

namespace kvx::bench {

namespace {

/// In MB.
double statusFigure(const QString &folder, const char *name)
{
    QFile file(folder + QLatin1String("/status"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray text = file.readAll();
    const int at = text.indexOf(name);
    return at < 0 ? 0
                  : text.mid(at).split(':').at(1).trimmed().split(' ').first().toDouble() / 1024;
}

} // namespace

MemoryPeak::MemoryPeak()
    : m_folder(QStringLiteral("/proc/self"))
{
    malloc_trim(0); // what was freed before would hide what is needed now
    begin();
}

MemoryPeak::MemoryPeak(qint64 process)
    : m_folder(QStringLiteral("/proc/%1").arg(process))
{
    begin();
}

void MemoryPeak::begin()
{
    QFile file(m_folder + QLatin1String("/clear_refs"));
    if (file.open(QIODevice::WriteOnly))
        file.write("5"); // the peak begins anew
    m_before = statusFigure(m_folder, "VmRSS");
}

double MemoryPeak::growth() const
{
    return most() - m_before;
}

double MemoryPeak::most() const
{
    return statusFigure(m_folder, "VmHWM");
}

} // namespace kvx::bench
