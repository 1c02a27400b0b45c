#include "Handles.h"

#include "Refusal.h"

#include <chrono>
#include <cms/UnsupportedOperationException.h>
#include <thread>

namespace kvx::openwire {

namespace {

/// It takes a busy broker a few milliseconds.
constexpr std::chrono::milliseconds brokersOwnStart { 100 };
/// Who takes longer to close has had the time to say why; a second try would only cost as much.
constexpr std::chrono::seconds wordlessCloseLimit { 1 };

} // namespace

BrokerConnection::BrokerConnection(std::shared_ptr<ConnectionState> state)
    : m_state(std::move(state))
{
}

BrokerConnection::~BrokerConnection()
{
    try {
        BrokerConnection::close();
    } catch (...) {
        // A destructor has nobody to tell.
    }
}

void BrokerConnection::start()
{
    state()->start();
}

void BrokerConnection::stop()
{
    state()->stop();
}

void BrokerConnection::close()
{
    // A listener that deletes this handle while it is being closed must not take the state along.
    std::shared_ptr<ConnectionState> closing;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_closed = true;
        closing = m_state;
    }
    closing->close();
}

std::shared_ptr<ConnectionState> BrokerConnection::state() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_state;
}

std::shared_ptr<ConnectionState> BrokerConnection::openAnew(
    const std::shared_ptr<ConnectionState> &lost)
{
    BrokerUri uri = lost->uri();
    uri.loginLimit
        = std::chrono::ceil<std::chrono::milliseconds>(lost->transport().patience().left());
    const auto opened = ConnectionState::open(uri, lost->credentials());
    opened->setExceptionListener(lost->exceptionListener());
    bool wasClosed = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        wasClosed = m_closed;
        if (!wasClosed)
            m_state = opened;
    }
    (wasClosed ? opened : lost)->close();
    return opened;
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
    return new BrokerSession(state()->openSession(), ackMode);
}

std::string BrokerConnection::getClientID() const
{
    return state()->clientId();
}

void BrokerConnection::setClientID(const std::string &clientID)
{
    const std::shared_ptr<ConnectionState> first = state();
    const auto begin = std::chrono::steady_clock::now();
    try {
        first->setClientId(clientID);
        return;
    } catch (const ConnectionClosed &) {
        if (std::chrono::steady_clock::now() - begin > wordlessCloseLimit)
            throw;
        // A broker that refuses a client before it has finished its own side of the connection
        // closes it at once, and its words are never sent. It gets the time it needs and is asked
        // once more.
    }
    const std::shared_ptr<ConnectionState> second = openAnew(first);
    std::this_thread::sleep_for(brokersOwnStart);
    second->setClientId(clientID);
}

cms::ExceptionListener *BrokerConnection::getExceptionListener() const
{
    return state()->exceptionListener();
}

void BrokerConnection::setExceptionListener(cms::ExceptionListener *listener)
{
    state()->setExceptionListener(listener);
}

} // namespace kvx::openwire
