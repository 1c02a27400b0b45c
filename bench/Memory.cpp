#include "Memory.h"

#include <QFile>
#include <malloc.h>

namespace kvx::bench {

namespace {

/// In MB.
double statusFigure(const char *name)
{
    QFile file(QStringLiteral("/proc/self/status"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray text = file.readAll();
    const int at = text.indexOf(name);
    return at < 0 ? 0
                  : text.mid(at).split(':').at(1).trimmed().split(' ').first().toDouble() / 1024;
}

} // namespace

MemoryPeak::MemoryPeak()
{
    malloc_trim(0); // what was freed before would hide what is needed now
    QFile file(QStringLiteral("/proc/self/clear_refs"));
    if (file.open(QIODevice::WriteOnly))
        file.write("5"); // the peak begins anew
    m_before = statusFigure("VmRSS");
}

double MemoryPeak::growth() const
{
    return statusFigure("VmHWM") - m_before;
}

} // namespace kvx::bench
