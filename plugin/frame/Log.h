#pragma once

#include <QString>
#include <log4cplus/loglevel.h>

/// The module's log lines: KVX_INFO("text %1 %2", a, b). Nothing is formatted while logging is
/// off or the level is not wanted. All placeholders are filled in one pass, so that a "%2" inside
/// a project name stays what it is. The record carries the source file's base name, the line and
/// the signature of the function. Defined before this header, KVX_LOG_SOURCE replaces the name and
/// KVX_LOG_FUNCTION the signature, for an operation that has helpers or a file of its own.

namespace kvx {

bool logEnabled(log4cplus::LogLevel level);
void writeLog(log4cplus::LogLevel level, const char *source, int line, const char *function,
    const QString &text);

inline QString logValue(const QString &value)
{
    return value;
}
inline QString logValue(int value)
{
    return QString::number(value);
}
/// General format, as the status of an upload is shown.
inline QString logValue(double value)
{
    return QString::number(value);
}

inline QString logText(const char *text)
{
    return QString::fromLatin1(text);
}
template <class... Values> QString logText(const char *text, const Values &...values)
{
    return QString::fromLatin1(text).arg(logValue(values)...);
}

} // namespace kvx

#ifndef KVX_LOG_SOURCE
#define KVX_LOG_SOURCE __FILE__
#endif

#ifndef KVX_LOG_FUNCTION
#define KVX_LOG_FUNCTION Q_FUNC_INFO
#endif

#define KVX_LOG(level, ...)                                                                        \
    do {                                                                                           \
        if (kvx::logEnabled(level))                                                                \
            kvx::writeLog(                                                                         \
                level, KVX_LOG_SOURCE, __LINE__, KVX_LOG_FUNCTION, kvx::logText(__VA_ARGS__));     \
    } while (false)
#define KVX_INFO(...) KVX_LOG(log4cplus::INFO_LOG_LEVEL, __VA_ARGS__)
#define KVX_WARN(...) KVX_LOG(log4cplus::WARN_LOG_LEVEL, __VA_ARGS__)
#define KVX_ERROR(...) KVX_LOG(log4cplus::ERROR_LOG_LEVEL, __VA_ARGS__)
