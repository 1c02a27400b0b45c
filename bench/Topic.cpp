#include "Topic.h"

#include "Stand.h"

#include <activemq/library/ActiveMQCPP.h>
#include <chrono>
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
#include <memory>
#include <mutex>

namespace kvx::bench {

namespace {

using Moment = std::chrono::steady_clock::time_point;

struct Receipts {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Moment> moments;
};

class Subscriber : public cms::MessageListener {
public:
    Subscriber(cms::ConnectionFactory &factory, Receipts &receipts, const Receiver &receiver)
        : m_receipts(receipts)
        , m_receiver(receiver)
        , m_connection(factory.createConnection())
        , m_session(m_connection->createSession(cms::Session::AUTO_ACKNOWLEDGE))
        , m_topic(m_session->createTopic("bench"))
        , m_consumer(m_session->createConsumer(m_topic.get()))
    {
        m_consumer->setMessageListener(this);
        m_connection->start();
    }
    ~Subscriber() override { m_connection->close(); }

    void onMessage(const cms::Message *) override
    {
        try {
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
    Receiver m_receiver;
    int m_received = 0;
    std::unique_ptr<cms::Connection> m_connection;
    std::unique_ptr<cms::Session> m_session;
    std::unique_ptr<cms::Topic> m_topic;
    std::unique_ptr<cms::MessageConsumer> m_consumer;
};

} // namespace

std::vector<double> bareNotifications(
    int brokerPort, const std::vector<Receiver> &receivers, int messages)
{
    activemq::library::ActiveMQCPP::initializeLibrary();
    const std::unique_ptr<cms::ConnectionFactory> factory(
        cms::ConnectionFactory::createCMSConnectionFactory(
            "tcp://127.0.0.1:" + std::to_string(brokerPort)));
    Receipts receipts;
    std::vector<std::unique_ptr<Subscriber>> listening;
    for (const Receiver &receiver : receivers)
        listening.push_back(std::make_unique<Subscriber>(*factory, receipts, receiver));

    const std::unique_ptr<cms::Connection> connection(factory->createConnection());
    const std::unique_ptr<cms::Session> session(
        connection->createSession(cms::Session::AUTO_ACKNOWLEDGE));
    const std::unique_ptr<cms::Topic> topic(session->createTopic("bench"));
    const std::unique_ptr<cms::MessageProducer> producer(session->createProducer(topic.get()));
    producer->setDeliveryMode(cms::DeliveryMode::NON_PERSISTENT);
    connection->start();

    std::vector<double> times;
    for (int i = 0; i < messages; ++i) {
        const std::unique_ptr<cms::TextMessage> message(
            session->createTextMessage(std::string(500, 'x')));
        std::unique_lock<std::mutex> lock(receipts.mutex);
        receipts.moments.clear();
        lock.unlock();
        const Moment published = std::chrono::steady_clock::now();
        producer->send(message.get());
        lock.lock();
        require(receipts.changed.wait_for(lock, std::chrono::seconds(30),
                    [&] { return receipts.moments.size() == listening.size(); }),
            QStringLiteral("a message did not arrive"));
        for (const Moment moment : receipts.moments)
            times.push_back(std::chrono::duration<double, std::milli>(moment - published).count());
    }
    connection->close();
    return times;
}

} // namespace kvx::bench
