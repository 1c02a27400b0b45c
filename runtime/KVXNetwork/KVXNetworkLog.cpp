#include <KVXNetwork/KVXNetworkLog.h>

#include <KVXCommon/KVXLog.h>

namespace {

void writeNetworkLog(log4cplus::LogLevel level, const QString &text, int line, const char *function)
{
    if (!KVXLog::inited())
        return;
    const log4cplus::Logger logger = KVXLog::getLogger();
    if (logger.isEnabledFor(level))
        logger.forcedLog(
            level, text.toLocal8Bit().toStdString(), "KVXNetworkLog.cpp", line, function);
}

} // namespace

void KVXNetworkLog::logInfo(const QString &text)
{
    writeNetworkLog(log4cplus::INFO_LOG_LEVEL, text, __LINE__, Q_FUNC_INFO);
}

void KVXNetworkLog::logError(const QString &text)
{
    writeNetworkLog(log4cplus::ERROR_LOG_LEVEL, text, __LINE__, Q_FUNC_INFO);
}
