#include <KVXCommon/KVXLog.h>

#include <QFile>
#include <log4cplus/appender.h>
#include <log4cplus/consoleappender.h>
#include <log4cplus/fileappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/nullappender.h>
#include <memory>
#include <mutex>

namespace {

const char LogPattern[] = "%D{%Y-%m-%d %H:%M:%S.%q} [%t] %-5p %m [%b:%L %M]%n";
const long LogFileSize = 10L * 1024 * 1024;
const int LogFileCount = 5;

struct LogFront {
    std::mutex mutex;
    log4cplus::Logger own; // ours; never without an appender, or log4cplus complains on stderr
    log4cplus::Logger current;
    bool inited = false;
};

LogFront &logFront()
{
    // Never destroyed: threads may log until the very end of the process.
    static LogFront *const front = [] {
        log4cplus::initialize();
        auto *made = new LogFront;
        made->own = log4cplus::Logger::getInstance("KVX");
        made->own.setAdditivity(false);
        made->own.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
        made->current = made->own;
        return made;
    }();
    return *front;
}

// The new appender is added before the old ones go, so that no record falls in between.
void useOwnLogger(LogFront &front, const log4cplus::SharedAppenderPtr &appender)
{
    const log4cplus::SharedAppenderPtrList before = front.own.getAllAppenders();
    front.own.addAppender(appender);
    for (const log4cplus::SharedAppenderPtr &old : before)
        front.own.removeAppender(old);
    front.current = front.own;
}

void startOwnLogger(const log4cplus::SharedAppenderPtr &appender, log4cplus::LogLevel level)
{
    appender->setLayout(std::make_unique<log4cplus::PatternLayout>(LogPattern));
    LogFront &front = logFront();
    const std::lock_guard<std::mutex> lock(front.mutex);
    useOwnLogger(front, appender);
    front.own.setLogLevel(level);
    front.inited = true;
}

} // namespace

bool KVXLog::inited()
{
    LogFront &front = logFront();
    const std::lock_guard<std::mutex> lock(front.mutex);
    return front.inited;
}

log4cplus::Logger KVXLog::getLogger()
{
    LogFront &front = logFront();
    const std::lock_guard<std::mutex> lock(front.mutex);
    return front.current;
}

bool KVXLog::initFile(const QString &path, log4cplus::LogLevel level)
{
    logFront();
    // The appender does not tell its maker that the file could not be opened.
    if (path.isEmpty() || !QFile(path).open(QIODevice::Append))
        return false;
    startOwnLogger(log4cplus::SharedAppenderPtr(new log4cplus::RollingFileAppender(
                       QFile::encodeName(path).toStdString(), LogFileSize, LogFileCount)),
        level);
    return true;
}

void KVXLog::initConsole(log4cplus::LogLevel level)
{
    logFront();
    const bool toStandardError = true;
    const bool flush = true;
    startOwnLogger(
        log4cplus::SharedAppenderPtr(new log4cplus::ConsoleAppender(toStandardError, flush)),
        level);
}

void KVXLog::init(const log4cplus::Logger &logger)
{
    LogFront &front = logFront();
    const std::lock_guard<std::mutex> lock(front.mutex);
    useOwnLogger(front, log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
    front.current = logger;
    front.inited = true;
}

void KVXLog::shutdown()
{
    LogFront &front = logFront();
    const std::lock_guard<std::mutex> lock(front.mutex);
    useOwnLogger(front, log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
    front.inited = false;
}
