#include "notify/BrokerLink.h"
#include "base/Config.h"
#include "notify/Message.h"

#include <activemq/library/ActiveMQCPP.h>
#include <cms/AsyncCallback.h>
#include <cms/CMSSecurityException.h>
#include <cms/Connection.h>
#include <cms/ConnectionFactory.h>
#include <cms/DeliveryMode.h>
#include <cms/MessageProducer.h>
#include <cms/Session.h>
#include <list>
#include <mutex>

namespace kvx::server {

namespace {

constexpr char notificationTopic[] = "com.orvane.kvx";
constexpr char guardTopic[] = "com.orvane.kvx.guard";
/// How the guard refuses "hello". A broker without one takes it for a message, and no client of
/// such a broker can make it refuse in these words.
constexpr char guardAnswer[] = "kvx-broker-guard 1";

/// The library is set up once and for all: it cannot be set up a second time.
void startLibrary()
{
    static const bool started = [] {
        activemq::library::ActiveMQCPP::initializeLibrary();
        return true;
    }();
    static_cast<void>(started);
}

} // namespace

class BrokerLink::Impl : public cms::ExceptionListener {
public:
    Impl(const Config &config, Topic topic, std::function<void(const std::string &)> broken)
        : m_broken(std::move(broken))
    {
        startLibrary();
        m_factory.reset(cms::ConnectionFactory::createCMSConnectionFactory(config.brokerUrl));
        m_connection.reset(config.brokerUser.empty()
                ? m_factory->createConnection()
                : m_factory->createConnection(config.brokerUser, config.brokerPassword));
        m_connection->setExceptionListener(this);
        m_session.reset(m_connection->createSession(cms::Session::AUTO_ACKNOWLEDGE));
        m_guarded = askForGuard();
        const bool toGuard = topic == Topic::Guard;
        m_producer = createProducer(toGuard ? guardTopic : notificationTopic);
        m_producer->setDeliveryMode(cms::DeliveryMode::NON_PERSISTENT);
        m_connection->start();
    }

    ~Impl() override
    {
        try {
            m_connection->setExceptionListener(nullptr);
            m_connection->close();
        } catch (const cms::CMSException &) {
            // It was broken already.
        }
    }

    bool isGuarded() const { return m_guarded; }

    void send(const std::string &text, const std::optional<std::string> &to, Receipt receipt)
    {
        const std::unique_ptr<cms::TextMessage> message(
            m_session->createTextMessage(modifiedUtf8(text)));
        // Without a guard everybody would read who else sees the project.
        if (to && m_guarded)
            message->setStringProperty("kvxTo", modifiedUtf8(*to));
        m_producer->send(message.get(), addWaiting(std::move(receipt)));
    }

    void onException(const cms::CMSException &error) override { m_broken(error.getMessage()); }

private:
    struct Waiting : cms::AsyncCallback {
        void onSuccess() override { outcome(true, {}); }
        void onException(const cms::CMSException &error) override
        {
            outcome(false, error.getMessage());
        }
        void outcome(bool delivered, const std::string &refusal)
        {
            const std::lock_guard<std::mutex> lock(mutex);
            if (!done)
                receipt(delivered, refusal);
            done = true;
        }
        std::mutex mutex;
        Receipt receipt;
        bool done = false;
        bool isDone()
        {
            const std::lock_guard<std::mutex> lock(mutex);
            return done;
        }
    };

    std::unique_ptr<cms::MessageProducer> createProducer(const char *topicName)
    {
        const std::unique_ptr<cms::Topic> topic(m_session->createTopic(topicName));
        return std::unique_ptr<cms::MessageProducer>(m_session->createProducer(topic.get()));
    }

    bool askForGuard()
    {
        try {
            const auto producer = createProducer(guardTopic);
            // A persistent message is the one whose sender waits for the answer.
            producer->setDeliveryMode(cms::DeliveryMode::PERSISTENT);
            const std::unique_ptr<cms::TextMessage> hello(m_session->createTextMessage("hello"));
            producer->send(hello.get());
            return false;
        } catch (const cms::CMSException &error) {
            const std::string why = error.getMessage();
            if (why == guardAnswer)
                return true;
            // Rules of its own may keep everybody from that topic. Any other failure tells nothing:
            // what is sent to a guarded broker without its audience is heard by everybody.
            if (dynamic_cast<const cms::CMSSecurityException *>(&error)
                && why.rfind(guardAnswer, 0) != 0)
                return false;
            throw;
        }
    }

    cms::AsyncCallback *addWaiting(Receipt receipt)
    {
        m_waiting.remove_if([](const std::unique_ptr<Waiting> &one) { return one->isDone(); });
        auto &added = m_waiting.emplace_back(std::make_unique<Waiting>());
        added->receipt = std::move(receipt);
        return added.get();
    }

    std::function<void(const std::string &)> m_broken;
    std::list<std::unique_ptr<Waiting>> m_waiting; // outlives the connection that calls them
    std::unique_ptr<cms::ConnectionFactory> m_factory;
    std::unique_ptr<cms::Connection> m_connection;
    std::unique_ptr<cms::Session> m_session;
    std::unique_ptr<cms::MessageProducer> m_producer;
    bool m_guarded = false;
};

BrokerLink::BrokerLink(
    const Config &config, Topic topic, std::function<void(const std::string &)> broken)
{
    try {
        m_impl = std::make_unique<Impl>(config, topic, std::move(broken));
    } catch (const cms::CMSException &error) {
        throw BrokerError(error.getMessage());
    }
}

BrokerLink::~BrokerLink() = default;

bool BrokerLink::isGuarded() const
{
    return m_impl->isGuarded();
}

void BrokerLink::send(
    const std::string &text, const std::optional<std::string> &to, Receipt receipt)
{
    try {
        m_impl->send(text, to, std::move(receipt));
    } catch (const cms::CMSException &error) {
        throw BrokerError(error.getMessage());
    }
}

} // namespace kvx::server
