#include "Handles.h"

namespace kvx::openwire {

BrokerConsumer::BrokerConsumer(
    std::shared_ptr<SessionState> session, SessionState::Consumer consumer)
    : m_session(std::move(session))
    , m_consumer(std::move(consumer))
{
}

BrokerConsumer::~BrokerConsumer()
{
    try {
        m_session->closeConsumer(m_consumer);
    } catch (...) {
        // A destructor has nobody to tell.
    }
}

void BrokerConsumer::start()
{
    m_session->setConsumerStarted(m_consumer, true);
}

void BrokerConsumer::stop()
{
    m_session->setConsumerStarted(m_consumer, false);
}

void BrokerConsumer::close()
{
    const std::shared_ptr<SessionState> session = m_session;
    session->closeConsumer(m_consumer);
}

cms::Message *BrokerConsumer::receive()
{
    return m_session->receive(m_consumer, std::nullopt).release();
}

cms::Message *BrokerConsumer::receive(int millisecs)
{
    const auto limit = std::chrono::milliseconds(millisecs);
    return m_session->receive(m_consumer, SessionState::Clock::now() + limit).release();
}

cms::Message *BrokerConsumer::receiveNoWait()
{
    return receive(0);
}

void BrokerConsumer::setMessageListener(cms::MessageListener *listener)
{
    m_session->setListener(m_consumer, listener);
}

cms::MessageListener *BrokerConsumer::getMessageListener() const
{
    return m_session->listener(m_consumer);
}

std::string BrokerConsumer::getMessageSelector() const
{
    return m_consumer->request.selector;
}

} // namespace kvx::openwire
