#include "MessagingFixture.h"

#include "messaging/CallGate.h"

#include <QElapsedTimer>
#include <cms/ConnectionFactory.h>
#include <cms/DeliveryMode.h>
#include <cms/TextMessage.h>
#include <cstdlib>
#include <iostream>
#include <map>
#include <thread>
#include <unistd.h>

namespace kvx::test {

namespace {

std::unique_ptr<Broker> theBroker;

/// Qt tells of a blocking call that waits for its own thread and then lets it wait.
void failOnDeadLock(QtMsgType, const QMessageLogContext &, const QString &text)
{
    std::cerr << text.toStdString() + '\n';
    if (text.contains(QLatin1String("Dead lock")))
        ADD_FAILURE() << text.toStdString();
}

class BrokerEnvironment : public testing::Environment {
public:
    void SetUp() override { qInstallMessageHandler(failOnDeadLock); }
    void TearDown() override
    {
        qInstallMessageHandler(nullptr);
        theBroker.reset();
    }
};

[[maybe_unused]] testing::Environment *const environment
    = testing::AddGlobalTestEnvironment(new BrokerEnvironment);

/// What a receiver calls; outlives it while a call is under way.
struct Target {
    CallGate gate;
    Receiver::Function function;
};

std::mutex targetsMutex;
std::map<const Receiver *, std::shared_ptr<Target>> targets; // guarded by targetsMutex

std::shared_ptr<Target> findTarget(const Receiver *receiver)
{
    const std::lock_guard<std::mutex> lock(targetsMutex);
    const auto found = targets.find(receiver);
    return found == targets.end() ? nullptr : found->second;
}

std::shared_ptr<Target> takeTarget(const Receiver *receiver)
{
    const std::lock_guard<std::mutex> lock(targetsMutex);
    return targets.extract(receiver).mapped();
}

QString unique(const char *prefix)
{
    static int number = 0;
    return QStringLiteral("%1.%2.%3").arg(QLatin1String(prefix)).arg(getpid()).arg(++number);
}

} // namespace

Broker &broker()
{
    if (!theBroker)
        theBroker = std::make_unique<Broker>();
    return *theBroker;
}

Publisher::Publisher(const std::string &topic)
{
    const std::unique_ptr<cms::ConnectionFactory> factory(
        cms::ConnectionFactory::createCMSConnectionFactory(broker().uri()));
    m_connection.reset(factory->createConnection());
    m_session.reset(m_connection->createSession());
    m_topic.reset(m_session->createTopic(topic));
    m_producer.reset(m_session->createProducer(m_topic.get()));
    m_connection->start();
}

Publisher::~Publisher() = default;

void Publisher::send(const std::string &text)
{
    const std::unique_ptr<cms::Message> message(m_session->createTextMessage(text));
    m_producer->send(message.get(), cms::DeliveryMode::PERSISTENT, 4, 0);
}

void Publisher::post(const std::string &text)
{
    const std::unique_ptr<cms::Message> message(m_session->createTextMessage(text));
    m_producer->send(message.get(), cms::DeliveryMode::NON_PERSISTENT, 4, 0);
}

void Publisher::sendPlain()
{
    const std::unique_ptr<cms::Message> message(m_session->createMessage());
    m_producer->send(message.get(), cms::DeliveryMode::PERSISTENT, 4, 0);
}

Receiver::Receiver(const KVXCWMessage *messager, Qt::ConnectionType type, Function function)
    : m_type(type)
{
    if (type == Qt::BlockingQueuedConnection)
        addBlockingReceiver(this);
    const auto target = std::make_shared<Target>();
    target->function = std::move(function);
    {
        const std::lock_guard<std::mutex> lock(targetsMutex);
        targets.emplace(this, target);
    }
    connect(messager, &KVXCWMessage::notify, this, &Receiver::onNotify, type);
}

Receiver::~Receiver()
{
    removeBlockingReceiver(this);
    const std::shared_ptr<Target> target = takeTarget(this);
    target->gate.close();
    if (m_type == Qt::DirectConnection)
        target->gate.waitUntilEmpty();
}

void Receiver::onNotify(const QJsonObject &message)
{
    // A broker thread may come here when the receiver is gone already.
    const std::shared_ptr<Target> target = findTarget(this);
    if (!target)
        return;
    if (const CallGate::Pass pass { target->gate })
        target->function(message);
}

Recorder::Recorder(const KVXCWMessage *messager, Qt::ConnectionType type)
    : m_receiver(messager, type, [this](const QJsonObject &message) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_messages.push_back(message);
    })
{
}

int Recorder::count() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return int(m_messages.size());
}

QJsonObject Recorder::at(int index) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_messages.at(std::size_t(index));
}

bool Recorder::waitFor(int count, int limitMs) const
{
    return waitBlocked([this, count] { return this->count() >= count; }, limitMs);
}

bool waitBlocked(const std::function<bool()> &condition, int limitMs)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > limitMs)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

int elapsedMs(const std::function<void()> &call)
{
    QElapsedTimer timer;
    timer.start();
    call();
    return int(timer.elapsed());
}

bool longRun()
{
    return std::getenv("KVX_TEST_LONG") != nullptr;
}

MessagingFixture::MessagingFixture()
    : email(unique("anna") + QLatin1String("@example.com"))
    , topic(unique("kvx.test"))
{
    host.setUser(QStringLiteral("Anna Weiss"), email);
    messager->setBrokerURI(QString::fromStdString(broker().uri()));
    messager->setTopic(topic);
}

std::string MessagingFixture::message(int number)
{
    return R"({"notifymsg_type": "t", "n": )" + std::to_string(number) + '}';
}

} // namespace kvx::test
