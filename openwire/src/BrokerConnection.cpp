#include "Handles.h"

#include <cms/UnsupportedOperationException.h>

namespace kvx::openwire {

BrokerConnection::BrokerConnection(std::shared_ptr<ConnectionState> state)
    : m_state(std::move(state))
{
}

BrokerConnection::~BrokerConnection()
{
    try {
        m_state->close();
    } catch (...) {
        // A destructor has nobody to tell.
    }
}

void BrokerConnection::start()
{
    m_state->start();
}

void BrokerConnection::stop()
{
    m_state->stop();
}

void BrokerConnection::close()
{
    // A listener that deletes this handle while it is being closed must not take the state along.
    const std::shared_ptr<ConnectionState> state = m_state;
    state->close();
}

cms::Session *BrokerConnection::createSession()
{
    return createSession(cms::Session::AUTO_ACKNOWLEDGE);
}

cms::Session *BrokerConnection::createSession(cms::Session::AcknowledgeMode ackMode)
{
    if (ackMode != cms::Session::AUTO_ACKNOWLEDGE && ackMode != cms::Session::DUPS_OK_ACKNOWLEDGE)
        throw cms::UnsupportedOperationException(
            "Only sessions that acknowledge by themselves are supported.");
    return new BrokerSession(m_state->openSession(), ackMode);
}

std::string BrokerConnection::getClientID() const
{
    return m_state->clientId();
}

void BrokerConnection::setClientID(const std::string &clientID)
{
    m_state->setClientId(clientID);
}

cms::ExceptionListener *BrokerConnection::getExceptionListener() const
{
    return m_state->exceptionListener();
}

void BrokerConnection::setExceptionListener(cms::ExceptionListener *listener)
{
    m_state->setExceptionListener(listener);
}

} // namespace kvx::openwire
