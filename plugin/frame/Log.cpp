#include "frame/Log.h"

#include <KVXCommon/KVXLog.h>

namespace kvx {

namespace {

const char *baseName(const char *path)
{
    const char *name = path;
    for (const char *at = path; *at; ++at) {
        if (*at == '/' || *at == '\\')
            name = at + 1;
    }
    return name;
}

} // namespace

bool logEnabled(log4cplus::LogLevel level)
{
    return KVXLog::inited() && KVXLog::getLogger().isEnabledFor(level);
}

void writeLog(log4cplus::LogLevel level, const char *source, int line, const char *function,
    const QString &text)
{
    KVXLog::getLogger().forcedLog(
        level, text.toLocal8Bit().toStdString(), baseName(source), line, function);
}

} // namespace kvx
