#pragma once

#include <KVXExport.h>
#include <QString>
#include <log4cplus/logger.h>

/// The host's log front. Nothing is logged before the host has called one of the set-ups.
class KVXCOMMON_API KVXLog {
public:
    /// True once a set-up succeeded.
    static bool inited();
    /// The logger of the application. Only valid while inited() is true.
    static log4cplus::Logger getLogger();

    /// Rolling file of at most 10 MiB with five predecessors. False when it cannot be opened.
    static bool initFile(const QString &path, log4cplus::LogLevel level);
    /// Standard error.
    static void initConsole(log4cplus::LogLevel level);
    /// Uses the host's own logger.
    static void init(const log4cplus::Logger &logger);
    /// Ends logging; inited() is false again.
    static void shutdown();
};
