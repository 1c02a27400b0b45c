#include "BrokerClient.h"

#include <activemq/library/ActiveMQCPP.h>
#include <atomic>
#include <cms/Connection.h>
#include <cms/ConnectionFactory.h>
#include <cms/DeliveryMode.h>
#include <cms/ExceptionListener.h>
#include <cms/MessageConsumer.h>
#include <cms/MessageListener.h>
#include <cms/MessageProducer.h>
#include <cms/Session.h>
#include <cms/TextMessage.h>
#include <condition_variable>
#include <mutex>
#include <stdexcept>

namespace kvx::test {

class BrokerClient::Impl : public cms::MessageListener, public cms::ExceptionListener {
public:
    Impl(const std::string &brokerUri, const std::string &clientId, BrokerClient::Hear hear)
        : hear(std::move(hear))
    {
        static const bool started = [] {
            activemq::library::ActiveMQCPP::initializeLibrary();
            return true;
        }();
        static_cast<void>(started);
        const std::unique_ptr<cms::ConnectionFactory> factory(
            cms::ConnectionFactory::createCMSConnectionFactory(brokerUri));
        connection.reset(factory->createConnection("", ""));
        connection->setClientID(clientId);
        connection->setExceptionListener(this);
        session.reset(connection->createSession(cms::Session::AUTO_ACKNOWLEDGE));
        topic.reset(session->createTopic("com.orvane.kvx"));
        producer.reset(session->createProducer(topic.get()));
        consumer.reset(session->createConsumer(topic.get()));
        consumer->setMessageListener(this);
        connection->start();
    }

    ~Impl() override
    {
        try {
            connection->setExceptionListener(nullptr);
            connection->close();
        } catch (const cms::CMSException &) {
            // It was cut off before.
        }
    }

    void onMessage(const cms::Message *message) override
    {
        const auto *textMessage = dynamic_cast<const cms::TextMessage *>(message);
        const std::string text = textMessage ? textMessage->getText() : "not a text";
        if (hear) {
            hear(text);
            return;
        }
        const std::lock_guard<std::mutex> lock(mutex);
        texts.push_back(text);
        ids.push_back(message->getCMSMessageID());
        changed.notify_all();
    }

    void onException(const cms::CMSException &) override
    {
        const std::lock_guard<std::mutex> lock(mutex);
        cut = true;
        changed.notify_all();
    }

    const BrokerClient::Hear hear;
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> texts;
    std::vector<std::string> ids;
    bool cut = false;
    std::unique_ptr<cms::Connection> connection;
    std::unique_ptr<cms::Session> session;
    std::unique_ptr<cms::Topic> topic;
    std::unique_ptr<cms::MessageProducer> producer;
    std::unique_ptr<cms::MessageConsumer> consumer;
};

BrokerClient::BrokerClient(const std::string &brokerUri, const std::string &clientId, Hear hear)
{
    try {
        m_impl = std::make_unique<Impl>(brokerUri, clientId, std::move(hear));
    } catch (const cms::CMSException &error) {
        throw std::runtime_error(error.getMessage());
    }
}

BrokerClient::~BrokerClient() = default;

void BrokerClient::publish(const std::string &text, const std::string &to)
{
    const std::unique_ptr<cms::TextMessage> message(m_impl->session->createTextMessage(text));
    if (!to.empty())
        message->setStringProperty("kvxTo", to);
    // A persistent message is the one whose sender waits.
    m_impl->producer->send(message.get(), cms::DeliveryMode::PERSISTENT, 4, 0);
}

void BrokerClient::post(const std::string &text)
{
    const std::unique_ptr<cms::TextMessage> message(m_impl->session->createTextMessage(text));
    m_impl->producer->send(message.get(), cms::DeliveryMode::NON_PERSISTENT, 4, 0);
}

std::vector<std::string> BrokerClient::awaitText(const std::string &text, int seconds)
{
    std::unique_lock<std::mutex> lock(m_impl->mutex);
    m_impl->changed.wait_for(lock, std::chrono::seconds(seconds), [&] {
        for (const std::string &one : m_impl->texts) {
            if (one.find(text) != std::string::npos)
                return true;
        }
        return false;
    });
    return m_impl->texts;
}

std::vector<std::string> BrokerClient::messageIds() const
{
    const std::lock_guard<std::mutex> lock(m_impl->mutex);
    return m_impl->ids;
}

bool BrokerClient::isCut() const
{
    const std::lock_guard<std::mutex> lock(m_impl->mutex);
    return m_impl->cut;
}

bool BrokerClient::awaitCut(int seconds)
{
    std::unique_lock<std::mutex> lock(m_impl->mutex);
    return m_impl->changed.wait_for(
        lock, std::chrono::seconds(seconds), [this] { return m_impl->cut; });
}

std::string refusal(const std::string &brokerUri, const std::string &clientId)
{
    try {
        const BrokerClient client(brokerUri, clientId);
        return {};
    } catch (const std::runtime_error &error) {
        return error.what();
    }
}

} // namespace kvx::test
