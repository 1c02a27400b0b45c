#include "Client.h"

#include <stdexcept>

namespace kvx::test {

void Signal::set()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_set = true;
    m_changed.notify_all();
}

void Signal::reset()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_set = false;
}

bool Signal::isSet() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_set;
}

bool Signal::wait(std::chrono::milliseconds limit)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, limit, [this] { return m_set; });
}

void Recorder::onMessage(const cms::Message *message)
{
    if (onArrival)
        onArrival();
    const auto *text = dynamic_cast<const cms::TextMessage *>(message);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_texts.push_back(text ? text->getText() : "(no text)");
    m_changed.notify_all();
}

bool Recorder::waitFor(std::size_t count, std::chrono::seconds limit)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, limit, [&] { return m_texts.size() >= count; });
}

std::vector<std::string> Recorder::texts() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_texts;
}

void Failures::onException(const cms::CMSException &ex)
{
    if (onFailure)
        onFailure();
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_texts.push_back(ex.getMessage());
    m_changed.notify_all();
}

bool Failures::waitFor(std::size_t count, std::chrono::seconds limit)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, limit, [&] { return m_texts.size() >= count; });
}

std::vector<std::string> Failures::texts() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_texts;
}

Client::Client(const std::string &uri, const std::string &clientId, const std::string &user,
    const std::string &password)
    : factory(cms::ConnectionFactory::createCMSConnectionFactory(uri))
    , connection(factory->createConnection(user, password))
{
    if (!clientId.empty())
        connection->setClientID(clientId);
}

void Client::open(const std::string &topicName)
{
    session.reset(connection->createSession());
    topic.reset(session->createTopic(topicName));
    consumer.reset(session->createConsumer(topic.get()));
    producer.reset(session->createProducer(topic.get()));
    producer->setDeliveryMode(cms::DeliveryMode::NON_PERSISTENT);
    connection->start();
}

void Client::publish(const std::string &text)
{
    const std::unique_ptr<cms::TextMessage> message(session->createTextMessage(text));
    producer->send(message.get());
}

std::string Client::receiveText()
{
    const std::unique_ptr<cms::Message> message(consumer->receive(20000));
    const auto *text = dynamic_cast<const cms::TextMessage *>(message.get());
    if (!text)
        throw std::runtime_error(message ? "The message is no text" : "No message came");
    return text->getText();
}

std::string failureOf(const std::function<void()> &action)
{
    try {
        action();
    } catch (const cms::CMSException &ex) {
        return ex.getMessage();
    }
    return {};
}

std::chrono::milliseconds timeOf(const std::function<void()> &action)
{
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - start);
}

} // namespace kvx::test
