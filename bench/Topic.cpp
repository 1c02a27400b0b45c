#include "Topic.h"

#include "Stand.h"

#include <activemq/library/ActiveMQCPP.h>
#include <cms/Connection.h>
#include <cms/ConnectionFactory.h>
#include <cms/DeliveryMode.h>
#include <cms/MessageConsumer.h>
#include <cms/MessageListener.h>
#include <cms/MessageProducer.h>
#include <cms/Session.h>
#include <cms/TextMessage.h>
#include <condition_variable>
#include <cstdio>
#include <mutex>

namespace kvx::bench {

namespace {

std::unique_ptr<cms::ConnectionFactory> factoryOf(int brokerPort)
{
    activemq::library::ActiveMQCPP::initializeLibrary();
    return std::unique_ptr<cms::ConnectionFactory>(
        cms::ConnectionFactory::createCMSConnectionFactory(
            "tcp://127.0.0.1:" + std::to_string(brokerPort)));
}

struct Receipts {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Moment> moments;

    void wait(std::size_t count)
    {
        std::unique_lock<std::mutex> lock(mutex);
        require(changed.wait_for(
                    lock, std::chrono::seconds(30), [&] { return moments.size() == count; }),
            QStringLiteral("a message did not arrive"));
    }
};

class Subscriber : public cms::MessageListener {
public:
    Subscriber(cms::ConnectionFactory &factory, const std::string &topic, Receipts &receipts,
        Receiver receiver)
        : m_receipts(receipts)
        , m_receiver(std::move(receiver))
        , m_connection(factory.createConnection())
        , m_session(m_connection->createSession(cms::Session::AUTO_ACKNOWLEDGE))
        , m_topic(m_session->createTopic(topic))
        , m_consumer(m_session->createConsumer(m_topic.get()))
    {
        m_consumer->setMessageListener(this);
        m_connection->start();
    }
    ~Subscriber() override { m_connection->close(); }

    void onMessage(const cms::Message *) override
    {
        try {
            if (m_receiver)
                m_receiver(m_received++);
        } catch (const std::exception &error) {
            std::fprintf(stderr, "kvx-bench: %s\n", error.what());
            return; // whoever waits for this receipt ends the run
        }
        const Moment now = std::chrono::steady_clock::now();
        const std::lock_guard<std::mutex> lock(m_receipts.mutex);
        m_receipts.moments.push_back(now);
        m_receipts.changed.notify_one();
    }

private:
    Receipts &m_receipts;
    const Receiver m_receiver;
    int m_received = 0;
    std::unique_ptr<cms::Connection> m_connection;
    std::unique_ptr<cms::Session> m_session;
    std::unique_ptr<cms::Topic> m_topic;
    std::unique_ptr<cms::MessageConsumer> m_consumer;
};

} // namespace

struct BareTopic::Impl {
    std::unique_ptr<cms::Connection> connection;
    std::unique_ptr<cms::Session> session;
    std::unique_ptr<cms::Topic> topic;
    std::unique_ptr<cms::MessageProducer> producer;
};

BareTopic::BareTopic(int brokerPort, const std::string &name)
    : m_impl(std::make_unique<Impl>())
{
    Impl &impl = *m_impl;
    impl.connection.reset(factoryOf(brokerPort)->createConnection());
    impl.session.reset(impl.connection->createSession(cms::Session::AUTO_ACKNOWLEDGE));
    impl.topic.reset(impl.session->createTopic(name));
    impl.producer.reset(impl.session->createProducer(impl.topic.get()));
    impl.producer->setDeliveryMode(cms::DeliveryMode::NON_PERSISTENT);
    impl.connection->start();
}

BareTopic::~BareTopic()
{
    m_impl->connection->close();
}

Moment BareTopic::publish()
{
    const std::unique_ptr<cms::TextMessage> message(
        m_impl->session->createTextMessage(std::string(500, 'x')));
    const Moment published = std::chrono::steady_clock::now();
    m_impl->producer->send(message.get());
    return published;
}

struct BareReceiver::Impl {
    Receipts receipts;
    std::unique_ptr<Subscriber> subscriber;
};

BareReceiver::BareReceiver(int brokerPort, const std::string &topic)
    : m_impl(std::make_unique<Impl>())
{
    m_impl->subscriber
        = std::make_unique<Subscriber>(*factoryOf(brokerPort), topic, m_impl->receipts, Receiver());
}

BareReceiver::~BareReceiver() = default;

Moment BareReceiver::next()
{
    m_impl->receipts.wait(1);
    const std::lock_guard<std::mutex> lock(m_impl->receipts.mutex);
    const Moment moment = m_impl->receipts.moments.front();
    m_impl->receipts.moments.clear();
    return moment;
}

std::vector<double> bareNotifications(
    int brokerPort, const std::vector<Receiver> &receivers, int messages)
{
    const std::string name = "bench";
    const auto factory = factoryOf(brokerPort);
    Receipts receipts;
    std::vector<std::unique_ptr<Subscriber>> listening;
    for (const Receiver &receiver : receivers)
        listening.push_back(std::make_unique<Subscriber>(*factory, name, receipts, receiver));
    BareTopic topic(brokerPort, name);

    std::vector<double> times;
    for (int i = 0; i < messages; ++i) {
        const Moment published = topic.publish();
        receipts.wait(listening.size());
        const std::lock_guard<std::mutex> lock(receipts.mutex);
        for (const Moment moment : receipts.moments)
            times.push_back(std::chrono::duration<double, std::milli>(moment - published).count());
        receipts.moments.clear();
    }
    return times;
}

} // namespace kvx::bench
