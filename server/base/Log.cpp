#include "base/Log.h"
#include "base/Clock.h"
#include "base/Config.h"
#include "base/JsonText.h"

#include <algorithm>
#include <log4cplus/consoleappender.h>
#include <log4cplus/fileappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <unistd.h>

namespace kvx::server {

namespace {

bool jsonLines = false;

log4cplus::Logger &logger()
{
    static log4cplus::Initializer initializer;
    static log4cplus::Logger instance = [] {
        log4cplus::Logger made = log4cplus::Logger::getInstance("kvx-server");
        log4cplus::SharedAppenderPtr appender(new log4cplus::ConsoleAppender(true, true));
        appender->setLayout(std::make_unique<log4cplus::PatternLayout>("%m"));
        made.setAdditivity(false);
        made.addAppender(appender);
        return made;
    }();
    return instance;
}

log4cplus::LogLevel native(LogLevel level)
{
    switch (level) {
    case LogLevel::Debug:
        return log4cplus::DEBUG_LOG_LEVEL;
    case LogLevel::Info:
        return log4cplus::INFO_LOG_LEVEL;
    case LogLevel::Warning:
        return log4cplus::WARN_LOG_LEVEL;
    case LogLevel::Error:
        break;
    }
    return log4cplus::ERROR_LOG_LEVEL;
}

const char *levelName(LogLevel level)
{
    constexpr const char *names[] = { "debug", "info", "warning", "error" };
    return names[static_cast<int>(level)];
}

/// A value of a text line: quoted where a reader could mistake its end.
std::string plainValue(const std::string &value)
{
    const bool simple = !value.empty() && std::all_of(value.begin(), value.end(), [](char c) {
        return static_cast<unsigned char>(c) > ' ' && c != '"' && c != '=';
    });
    return simple ? value : jsonText(value);
}

} // namespace

void openLog(const Config &config)
{
    jsonLines = config.logFormat == "json";
    log4cplus::Logger &log = logger();
    if (!config.logFile.empty()) {
        log4cplus::SharedAppenderPtr appender(
            new log4cplus::FileAppender(config.logFile, std::ios_base::app, true, false));
        if (static_cast<log4cplus::FileAppender &>(*appender).isClosed()
            || access(config.logFile.c_str(), W_OK) != 0)
            throw ConfigError("log.file: " + config.logFile + " cannot be written");
        appender->setLayout(std::make_unique<log4cplus::PatternLayout>("%m"));
        log.removeAllAppenders();
        log.addAppender(appender);
    }
    for (const LogLevel level :
        { LogLevel::Debug, LogLevel::Info, LogLevel::Warning, LogLevel::Error }) {
        if (config.logLevel == levelName(level))
            log.setLogLevel(native(level));
    }
}

void logLine(LogLevel level, const std::string &event, const LogFields &fields)
{
    log4cplus::Logger &log = logger();
    if (!log.isEnabledFor(native(level)))
        return;
    std::string line;
    if (jsonLines) {
        line = "{\"time\":" + jsonText(utcText(wallTime())) + ",\"level\":\"" + levelName(level)
            + "\",\"event\":" + jsonText(event);
        for (const auto &[name, value] : fields)
            line += ',' + jsonText(name) + ':' + jsonText(value);
        line += '}';
    } else {
        line = utcText(wallTime()) + ' ' + levelName(level) + ' ' + event;
        for (const auto &[name, value] : fields)
            line += std::string(" ") + name + '=' + plainValue(value);
    }
    line += '\n'; // not left to the layout, which would write it by itself
    log.forcedLog(native(level), line, nullptr, 0, nullptr);
}

} // namespace kvx::server
