#include "Handles.h"

namespace kvx::openwire {

BrokerSession::BrokerSession(std::shared_ptr<SessionState> state, AcknowledgeMode ackMode)
    : m_state(std::move(state))
    , m_ackMode(ackMode)
{
}

BrokerSession::~BrokerSession()
{
    try {
        m_state->close();
    } catch (...) {
        // A destructor has nobody to tell.
    }
}

void BrokerSession::start()
{
    m_state->checkOpen();
    m_state->setStarted(true);
}

void BrokerSession::stop()
{
    m_state->checkOpen();
    m_state->setStarted(false);
    m_state->awaitIdle();
}

void BrokerSession::close()
{
    const std::shared_ptr<SessionState> state = m_state;
    state->close();
}

cms::MessageConsumer *BrokerSession::createConsumer(const cms::Destination *destination)
{
    return createConsumer(destination, {}, false);
}

cms::MessageConsumer *BrokerSession::createConsumer(
    const cms::Destination *destination, const std::string &selector)
{
    return createConsumer(destination, selector, false);
}

cms::MessageConsumer *BrokerSession::createConsumer(
    const cms::Destination *destination, const std::string &selector, bool noLocal)
{
    return new BrokerConsumer(
        m_state, m_state->openConsumer(nameOf(destination), selector, noLocal));
}

cms::MessageProducer *BrokerSession::createProducer(const cms::Destination *destination)
{
    std::optional<DestinationName> name;
    if (destination)
        name = nameOf(destination);
    return new BrokerProducer(m_state, std::move(name));
}

cms::Queue *BrokerSession::createQueue(const std::string &queueName)
{
    m_state->checkOpen();
    return new QueueDestination(DestinationName { cms::Destination::QUEUE, queueName });
}

cms::Topic *BrokerSession::createTopic(const std::string &topicName)
{
    m_state->checkOpen();
    return new TopicDestination(DestinationName { cms::Destination::TOPIC, topicName });
}

cms::Message *BrokerSession::createMessage()
{
    m_state->checkOpen();
    return new PlainMessage(MessageData());
}

cms::TextMessage *BrokerSession::createTextMessage()
{
    m_state->checkOpen();
    MessageData data;
    data.type = TextMessageType;
    return new PlainTextMessage(std::move(data));
}

cms::TextMessage *BrokerSession::createTextMessage(const std::string &text)
{
    std::unique_ptr<cms::TextMessage> message(createTextMessage());
    message->setText(text);
    return message.release();
}

cms::Session::AcknowledgeMode BrokerSession::getAcknowledgeMode() const
{
    return m_ackMode;
}

bool BrokerSession::isTransacted() const
{
    return false;
}

} // namespace kvx::openwire
