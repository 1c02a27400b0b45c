#include "support/FakeHost.h"

#include "frame/KVXServerInfo.h"

#include <KVXCollaboration/KVXCWFileService.h>
#include <KVXCollaboration/KVXCWIDManager.h>
#include <KVXCollaboration/KVXCWProjectData.h>
#include <KVXCollaboration/KVXCWProjectList.h>
#include <KVXCollaboration/KVXCWProjectPermission.h>
#include <KVXCollaboration/KVXCWUser.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCollaboration/KVXRole.h>
#include <KVXCommon/KVXLog.h>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <atomic>
#include <gtest/gtest.h>
#include <log4cplus/appender.h>
#include <log4cplus/hierarchy.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>
#include <thread>

namespace kvx::test {

struct FakeHost::LogStore {
    mutable std::mutex mutex;
    QList<LogRecord> records;
};

namespace {

class CapturingAppender : public log4cplus::Appender {
public:
    explicit CapturingAppender(std::shared_ptr<FakeHost::LogStore> store)
        : m_store(std::move(store))
    {
    }
    ~CapturingAppender() override { destructorImpl(); }
    void close() override { closed = true; }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent &event) override
    {
        const std::lock_guard<std::mutex> lock(m_store->mutex);
        m_store->records.append(
            { event.getLogLevel(), QString::fromLocal8Bit(event.getMessage().c_str()),
                QString::fromLocal8Bit(event.getFile().c_str()),
                QString::fromLocal8Bit(event.getFunction().c_str()), event.getLine() });
    }

private:
    std::shared_ptr<FakeHost::LogStore> m_store;
};

log4cplus::Logger testLogger()
{
    return log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("kvx.test"));
}

} // namespace

FakeHost::FakeHost()
    : m_log(std::make_shared<LogStore>())
{
    log4cplus::Logger logger = testLogger();
    logger.removeAllAppenders();
    logger.setAdditivity(false);
    logger.setLogLevel(log4cplus::ALL_LOG_LEVEL);
    logger.addAppender(log4cplus::SharedAppenderPtr(new CapturingAppender(m_log)));
    KVXLog::init(logger);

    KVXNetwork::setInstance(&network);
    KVXServerInfo::getInstance()->setHost(QStringLiteral("127.0.0.1"));
    KVXServerInfo::getInstance()->setPort(QStringLiteral("8090"));
    KVXServerInfo::getInstance()->setBrokerPort(QStringLiteral("61616"));

    KVXCollaborator *registry = KVXCollaborator::getInstance();
    messager = new FakeMessage;
    registry->setMessager(messager);
    login = new FakeLogin;
    registry->setLoginManager(login);
    setUser(QStringLiteral("Anna Weiss"), QStringLiteral("anna@example.com"));
}

FakeHost::~FakeHost()
{
    KVXCollaborator *registry = KVXCollaborator::getInstance();
    registry->reset(false, QString());
    registry->setProjectListManager(nullptr);
    registry->setProjectPermissionManager(nullptr);
    registry->setFileService(nullptr);
    registry->setUserManager(nullptr);
    registry->setLoginManager(nullptr);
    registry->setMessager(nullptr);
    registry->setProjectEntryPoints(nullptr, nullptr);
    unconfigure();
    KVXNetwork::setInstance(nullptr);
    KVXLog::shutdown();
    testLogger().removeAllAppenders();
}

void FakeHost::unconfigure()
{
    KVXServerInfo::getInstance()->setHost(QString());
    KVXServerInfo::getInstance()->setPort(QString());
}

void FakeHost::setUser(const QString &name, const QString &email, const QJsonObject &role)
{
    login->user = std::make_unique<KVXUser>(name, email);
    if (!role.isEmpty())
        login->user->setRole(KVXRole::fromJson(role));
}

void FakeHost::removeUser()
{
    login->user.reset();
}

bool FakeHost::notifyFromBroker(const QJsonObject &message)
{
    return notifyFromBroker(QList<QJsonObject> { message });
}

bool FakeHost::notifyFromBroker(const QList<QJsonObject> &messages)
{
    std::atomic<bool> returned { false };
    std::thread broker([this, &messages, &returned] {
        for (const QJsonObject &message : messages)
            emit messager->notify(message);
        returned = true;
    });
    const bool inTime = waitUntil([&returned] { return returned.load(); }, 10000);
    if (!inTime)
        qFatal("a notification was not handled within ten seconds");
    broker.join();
    QCoreApplication::processEvents(); // queued receivers
    return inTime;
}

QList<LogRecord> FakeHost::takeLog()
{
    const std::lock_guard<std::mutex> lock(m_log->mutex);
    QList<LogRecord> taken;
    taken.swap(m_log->records);
    return taken;
}

bool FakeHost::logged(int level, const QString &text) const
{
    const std::lock_guard<std::mutex> lock(m_log->mutex);
    for (const LogRecord &record : m_log->records) {
        if (record.level == level && record.text == text)
            return true;
    }
    return false;
}

void expectNoRequest(FakeHost &host)
{
    const QStringList services = host.network.takeServices();
    EXPECT_TRUE(services.isEmpty()) << services.join(QLatin1Char(' ')).toStdString();
}

void expectJson(const QJsonObject &actual, const char *expected)
{
    EXPECT_EQ(QJsonDocument(actual).toJson(QJsonDocument::Compact).toStdString(),
        QJsonDocument(json(expected)).toJson(QJsonDocument::Compact).toStdString());
}

bool waitUntil(const std::function<bool()> &condition, int limitMs)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > limitMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        std::this_thread::yield();
    }
    return true;
}

QJsonObject json(const char *text)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(QByteArray(text), &error);
    EXPECT_TRUE(document.isObject()) << error.errorString().toStdString() << ": " << text;
    return document.object();
}

} // namespace kvx::test
