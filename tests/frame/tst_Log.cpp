#include "frame/Log.h"
#include "support/FakeHost.h"

#include <KVXCommon/KVXLog.h>
#include <gtest/gtest.h>
#include <log4cplus/logger.h>

namespace kvx::test {

namespace {

int formatted = 0;

QString counted(const QString &text)
{
    ++formatted;
    return text;
}

LogRecord onlyRecord(FakeHost &host)
{
    const QList<LogRecord> records = host.takeLog();
    EXPECT_EQ(records.size(), 1);
    return records.isEmpty() ? LogRecord {} : records.first();
}

} // namespace

TEST(Log, recordsCarryLevelFileNameLineAndFunction)
{
    FakeHost host;
    const int line = __LINE__;
    KVX_INFO("a");
    KVX_WARN("b");
    KVX_ERROR("c");

    const QList<LogRecord> records = host.takeLog();
    ASSERT_EQ(records.size(), 3);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(records[i].level, (i + 2) * 10000);
        EXPECT_EQ(records[i].text, QString(QLatin1Char(char('a' + i))));
        EXPECT_EQ(records[i].source, QStringLiteral("tst_Log.cpp"));
        EXPECT_EQ(records[i].line, line + 1 + i);
        EXPECT_TRUE(records[i].function.contains(QLatin1String("TestBody")))
            << records[i].function.toStdString();
    }
}

TEST(Log, placeholdersAreFilledInOnePass)
{
    FakeHost host;
    KVX_INFO("%1 and %2, %3", QStringLiteral("%2"), QStringLiteral("%1"), 7);
    EXPECT_EQ(onlyRecord(host).text, QStringLiteral("%2 and %1, 7"));
}

TEST(Log, aTextWithoutValuesIsNotSearchedForPlaceholders)
{
    FakeHost host;
    KVX_INFO("100 %1");
    EXPECT_EQ(onlyRecord(host).text, QStringLiteral("100 %1"));
}

TEST(Log, numbersAreDecimalAndStatusesInGeneralFormat)
{
    FakeHost host;
    KVX_INFO("%1 %2 %3", -5, 1.5, 300.0);
    EXPECT_EQ(onlyRecord(host).text, QStringLiteral("-5 1.5 300"));
}

TEST(Log, nothingIsFormattedWhileTheLevelIsOff)
{
    FakeHost host;
    log4cplus::Logger logger = KVXLog::getLogger();
    const log4cplus::LogLevel before = logger.getLogLevel();
    logger.setLogLevel(log4cplus::WARN_LOG_LEVEL);
    formatted = 0;

    KVX_INFO("%1", counted(QStringLiteral("x")));
    EXPECT_EQ(formatted, 0);
    KVX_WARN("%1", counted(QStringLiteral("y")));
    EXPECT_EQ(formatted, 1);

    logger.setLogLevel(before);
    EXPECT_EQ(onlyRecord(host).text, QStringLiteral("y"));
}

TEST(Log, nothingIsLoggedBeforeTheHostHasSetUpItsLog)
{
    FakeHost host;
    KVXLog::shutdown();
    formatted = 0;

    KVX_ERROR("%1", counted(QStringLiteral("x")));

    EXPECT_EQ(formatted, 0);
    EXPECT_TRUE(host.takeLog().isEmpty());
}

TEST(Log, textIsConvertedToTheLocalEncoding)
{
    FakeHost host;
    const QString text = QStringLiteral("Größe \u20ac");
    KVX_INFO("%1", text);
    EXPECT_EQ(onlyRecord(host).text, QString::fromLocal8Bit(text.toLocal8Bit()));
}

} // namespace kvx::test
