#include "support/TopicListener.h"

#include <activemq/library/ActiveMQCPP.h>
#include <chrono>
#include <cms/Connection.h>
#include <cms/ConnectionFactory.h>
#include <cms/MessageConsumer.h>
#include <cms/MessageListener.h>
#include <cms/Session.h>
#include <condition_variable>
#include <functional>
#include <mutex>

namespace kvx::test {

class TopicListener::Impl : public cms::MessageListener {
public:
    explicit Impl(const std::string &brokerUrl)
    {
        static const bool started = [] {
            activemq::library::ActiveMQCPP::initializeLibrary();
            return true;
        }();
        static_cast<void>(started);
        m_factory.reset(cms::ConnectionFactory::createCMSConnectionFactory(brokerUrl));
        m_connection.reset(m_factory->createConnection());
        m_session.reset(m_connection->createSession(cms::Session::AUTO_ACKNOWLEDGE));
        const std::unique_ptr<cms::Topic> topic(m_session->createTopic("com.orvane.kvx"));
        m_consumer.reset(m_session->createConsumer(topic.get()));
        m_consumer->setMessageListener(this);
        m_connection->start();
    }

    ~Impl() override
    {
        try {
            m_connection->close();
        } catch (const cms::CMSException &) {
            // The broker was killed before.
        }
    }

    void onMessage(const cms::Message *message) override
    {
        const auto *text = dynamic_cast<const cms::TextMessage *>(message);
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_texts.push_back(text ? text->getText() : "not a text");
        m_changed.notify_all();
    }

    std::vector<std::string> await(
        const std::function<bool(const std::vector<std::string> &)> &enough, int seconds)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait_for(lock, std::chrono::seconds(seconds), [&] { return enough(m_texts); });
        return m_texts;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_texts;
    std::unique_ptr<cms::ConnectionFactory> m_factory;
    std::unique_ptr<cms::Connection> m_connection;
    std::unique_ptr<cms::Session> m_session;
    std::unique_ptr<cms::MessageConsumer> m_consumer;
};

TopicListener::TopicListener(const std::string &brokerUrl)
    : m_impl(std::make_unique<Impl>(brokerUrl))
{
}

TopicListener::~TopicListener() = default;

std::vector<std::string> TopicListener::await(std::size_t count, int seconds)
{
    return m_impl->await([count](const auto &texts) { return texts.size() >= count; }, seconds);
}

std::vector<std::string> TopicListener::awaitText(const std::string &text, int seconds)
{
    return m_impl->await(
        [&text](const auto &texts) {
            for (const std::string &one : texts) {
                if (one.find(text) != std::string::npos)
                    return true;
            }
            return false;
        },
        seconds);
}

} // namespace kvx::test
