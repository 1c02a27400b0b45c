#include <KVXCommon/KVXLog.h>
#include <KVXNetwork/KVXNetworkLog.h>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <atomic>
#include <gtest/gtest.h>
#include <log4cplus/appender.h>
#include <log4cplus/spi/loggingevent.h>
#include <mutex>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

struct Record {
    std::string text;
    log4cplus::LogLevel level;
    std::string file;
    int line;
    std::string function;
};

class CapturingAppender : public log4cplus::Appender {
public:
    ~CapturingAppender() override { destructorImpl(); }
    void close() override { closed = true; }
    std::vector<Record> records;
    bool closed = false;

protected:
    void append(const log4cplus::spi::InternalLoggingEvent &event) override
    {
        records.push_back({ event.getMessage(), event.getLogLevel(), event.getFile(),
            event.getLine(), event.getFunction() });
    }
};

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
    return file.readAll();
}

// What the process writes to standard error while this object lives.
class StandardError {
public:
    explicit StandardError(const QString &path)
        : m_path(path)
        , m_kept(dup(STDERR_FILENO))
    {
        FILE *file = std::fopen(path.toLocal8Bit().constData(), "w");
        dup2(fileno(file), STDERR_FILENO);
        std::fclose(file);
    }
    ~StandardError() { end(); }
    QByteArray end()
    {
        if (m_kept >= 0) {
            std::fflush(stderr);
            dup2(m_kept, STDERR_FILENO);
            close(m_kept);
            m_kept = -1;
        }
        return contentOf(m_path);
    }

private:
    const QString m_path;
    int m_kept;
};

class Log : public testing::Test {
protected:
    ~Log() override { KVXLog::shutdown(); }
    QString path(const QString &name) const { return m_folder.filePath(name); }
    static void write(const char *text, log4cplus::LogLevel level = log4cplus::INFO_LOG_LEVEL)
    {
        const log4cplus::Logger logger = KVXLog::getLogger();
        if (logger.isEnabledFor(level))
            logger.forcedLog(level, text, "KVXCWLoginImpl.cpp", 42, "bool KVXCWLoginImpl::login()");
    }

private:
    QTemporaryDir m_folder;
};

} // namespace

TEST_F(Log, NothingIsLoggedBeforeASetUp)
{
    EXPECT_FALSE(KVXLog::inited());
    StandardError error(path("err"));
    KVXNetworkLog::logInfo("dropped");
    KVXNetworkLog::logError("dropped");
    write("dropped");
    EXPECT_EQ(error.end(), "");
}

TEST_F(Log, AForeignLoggerGetsTheRecordAsItIs)
{
    log4cplus::Logger host = log4cplus::Logger::getInstance("host.application");
    auto *capture = new CapturingAppender;
    const log4cplus::SharedAppenderPtr kept(capture);
    host.addAppender(kept);
    host.setAdditivity(false);
    host.setLogLevel(log4cplus::INFO_LOG_LEVEL);
    KVXLog::init(host);
    EXPECT_TRUE(KVXLog::inited());
    write("Upload file. result=1, %1 %2\nline", log4cplus::WARN_LOG_LEVEL);
    ASSERT_EQ(capture->records.size(), 1u);
    EXPECT_EQ(capture->records[0].text, "Upload file. result=1, %1 %2\nline");
    EXPECT_EQ(capture->records[0].level, 30000);
    EXPECT_EQ(capture->records[0].file, "KVXCWLoginImpl.cpp");
    EXPECT_EQ(capture->records[0].line, 42);
    EXPECT_EQ(capture->records[0].function, "bool KVXCWLoginImpl::login()");

    KVXNetworkLog::logError(QString::fromUtf8("ActiveMQ run error: message=ü"));
    KVXNetworkLog::logInfo("Recv message");
    ASSERT_EQ(capture->records.size(), 3u);
    EXPECT_EQ(capture->records[1].text,
        QString::fromUtf8("ActiveMQ run error: message=ü").toLocal8Bit().toStdString());
    EXPECT_EQ(capture->records[1].level, 40000);
    EXPECT_EQ(capture->records[1].file, "KVXNetworkLog.cpp");
    EXPECT_EQ(capture->records[2].level, 20000);

    host.setLogLevel(log4cplus::ERROR_LOG_LEVEL);
    KVXNetworkLog::logInfo("not wanted");
    EXPECT_EQ(capture->records.size(), 3u);

    KVXLog::shutdown();
    EXPECT_FALSE(KVXLog::inited());
    KVXNetworkLog::logError("dropped");
    write("dropped", log4cplus::ERROR_LOG_LEVEL);
    EXPECT_EQ(capture->records.size(), 3u);
    EXPECT_FALSE(capture->closed) << "the host's logger stays the host's";
    host.removeAllAppenders();
}

TEST_F(Log, TheFileHoldsLevelTextSourceAndLine)
{
    ASSERT_TRUE(KVXLog::initFile(path("host.log"), log4cplus::INFO_LOG_LEVEL));
    write("Download file. result=1");
    write("not wanted", log4cplus::DEBUG_LOG_LEVEL);
    KVXLog::shutdown();
    write("dropped");
    const QByteArray text = contentOf(path("host.log"));
    EXPECT_EQ(text.count('\n'), 1) << text.constData();
    EXPECT_TRUE(text.contains(
        "INFO  Download file. result=1 [KVXCWLoginImpl.cpp:42 bool KVXCWLoginImpl::login()]"))
        << text.constData();
}

TEST_F(Log, AFileIsAppendedTo)
{
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(KVXLog::initFile(path("host.log"), log4cplus::INFO_LOG_LEVEL));
        write("line");
        KVXLog::shutdown();
    }
    EXPECT_EQ(contentOf(path("host.log")).count('\n'), 2);
}

TEST_F(Log, AFileThatCannotBeOpenedIsToldAndChangesNothing)
{
    EXPECT_FALSE(KVXLog::initFile(path("no/such/folder.log"), log4cplus::INFO_LOG_LEVEL));
    EXPECT_FALSE(KVXLog::initFile(QDir::tempPath(), log4cplus::INFO_LOG_LEVEL));
    EXPECT_FALSE(KVXLog::initFile(QString(), log4cplus::INFO_LOG_LEVEL));
    EXPECT_FALSE(KVXLog::inited());
    ASSERT_TRUE(KVXLog::initFile(path("good.log"), log4cplus::INFO_LOG_LEVEL));
    EXPECT_FALSE(KVXLog::initFile(path("no/such/folder.log"), log4cplus::INFO_LOG_LEVEL));
    write("still logged");
    KVXLog::shutdown();
    EXPECT_TRUE(contentOf(path("good.log")).contains("still logged"));
}

TEST_F(Log, ANewSetUpReplacesTheOneBefore)
{
    ASSERT_TRUE(KVXLog::initFile(path("first.log"), log4cplus::INFO_LOG_LEVEL));
    write("one");
    ASSERT_TRUE(KVXLog::initFile(path("second.log"), log4cplus::ERROR_LOG_LEVEL));
    write("two", log4cplus::ERROR_LOG_LEVEL);
    write("three");
    KVXLog::shutdown();
    EXPECT_EQ(contentOf(path("first.log")).count('\n'), 1);
    EXPECT_EQ(contentOf(path("second.log")).count('\n'), 1);
}

TEST_F(Log, TheConsoleIsStandardError)
{
    StandardError error(path("err"));
    KVXLog::initConsole(log4cplus::WARN_LOG_LEVEL);
    write("to the console", log4cplus::WARN_LOG_LEVEL);
    write("not wanted");
    KVXLog::shutdown();
    const QByteArray text = error.end();
    EXPECT_TRUE(text.contains("WARN  to the console")) << text.constData();
    EXPECT_EQ(text.count('\n'), 1) << text.constData();
}

TEST_F(Log, TheFileRollsAtItsSizeAndKeepsFivePredecessors)
{
    ASSERT_TRUE(KVXLog::initFile(path("big.log"), log4cplus::INFO_LOG_LEVEL));
    const std::string line(100'000, 'x');
    for (int i = 0; i < 750; ++i)
        write(line.c_str());
    KVXLog::shutdown();
    EXPECT_TRUE(QFile::exists(path("big.log.5")));
    EXPECT_FALSE(QFile::exists(path("big.log.6")));
    EXPECT_LE(QFile(path("big.log.1")).size(), 10 * 1024 * 1024 + 200'000);
}

TEST_F(Log, SetUpsAndShutdownsDoNotDisturbThreadsThatLog)
{
    StandardError error(path("err"));
    std::atomic<bool> ending { false };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&ending] {
            while (!ending) {
                KVXNetworkLog::logError("text");
                if (KVXLog::inited())
                    write("text", log4cplus::ERROR_LOG_LEVEL);
            }
        });
    }
    const log4cplus::Logger host = log4cplus::Logger::getInstance("host.none");
    for (int i = 0; i < 50; ++i) {
        EXPECT_TRUE(KVXLog::initFile(path("a.log"), log4cplus::INFO_LOG_LEVEL));
        KVXLog::shutdown();
        EXPECT_TRUE(KVXLog::initFile(path("b.log"), log4cplus::INFO_LOG_LEVEL));
    }
    ending = true;
    for (std::thread &thread : threads)
        thread.join();
    KVXLog::shutdown();
    EXPECT_EQ(error.end(), "") << "log4cplus complains about a logger without appenders";
}
