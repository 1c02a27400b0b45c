#include "ConnectionState.h"

#include "Refusal.h"
#include "SessionState.h"

#include <cms/AsyncCallback.h>
#include <cms/IllegalStateException.h>
#include <cms/InvalidClientIdException.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <unistd.h>
#include <utility>

namespace kvx::openwire {

namespace {

constexpr char connectionClosedText[] = "The connection has already been closed!";

// Two connections of one ID would make the broker's answers go astray, so chance takes part in it.
std::string uniqueConnectionId()
{
    static std::atomic<unsigned> counter { 0 };
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    std::random_device random;
    return "ID:kvx-" + std::to_string(::getpid()) + '-'
        + std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(now).count()) + '-'
        + std::to_string(random()) + '-' + std::to_string(++counter) + ":1";
}

} // namespace

ConnectionState::ConnectionState(const BrokerUri &uri, Credentials credentials)
    : m_uri(uri)
    , m_credentials(std::move(credentials))
    , m_id(uniqueConnectionId())
    , m_transport(m_uri)
{
}

std::shared_ptr<ConnectionState> ConnectionState::open(
    const BrokerUri &uri, Credentials credentials)
{
    const auto state = std::make_shared<ConnectionState>(uri, std::move(credentials));
    try {
        state->m_events.start();
        state->m_transport.start(state);
    } catch (...) {
        state->close();
        throw;
    }
    return state;
}

void ConnectionState::checkOpen() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_closing)
        throw cms::IllegalStateException(connectionClosedText);
}

void ConnectionState::setClientId(const std::string &clientId)
{
    checkOpen();
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_inUse)
            throw cms::IllegalStateException(
                "Cannot set client Id on a Connection already in use.");
        if (clientId.empty())
            throw cms::InvalidClientIdException("Client ID cannot be an empty string");
        m_clientId = clientId;
    }
    logIn();
}

std::string ConnectionState::clientId() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_clientId;
}

void ConnectionState::logIn()
{
    checkOpen();
    const std::lock_guard<std::mutex> login(m_loginMutex);
    if (const std::exception_ptr failure = m_transport.failure())
        std::rethrow_exception(failure);
    if (m_loggedIn)
        return;
    ConnectionRequest request;
    request.connectionId = m_id;
    if (!m_credentials.userName.empty())
        request.userName = m_credentials.userName;
    if (!m_credentials.password.empty())
        request.password = m_credentials.password;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_inUse = true;
        request.clientId = m_clientId.empty() ? m_id : m_clientId;
    }
    try {
        m_transport.awaitNegotiated();
        const std::int32_t command = m_transport.nextCommandId();
        m_loginCommand = command;
        m_transport.request(command, encodeConnectionInfo(request, command, m_transport.version()),
            m_uri.loginLimit);
        m_loggedIn = true;
    } catch (const cms::CMSException &) {
        // The broker would keep the socket for a while, and even go on answering.
        m_transport.end(std::current_exception());
        throw;
    }
}

std::shared_ptr<SessionState> ConnectionState::openSession()
{
    logIn();
    std::shared_ptr<SessionState> session;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const SessionId id { m_id, ++m_lastSession };
        session = std::make_shared<SessionState>(shared_from_this(), id, m_started);
        m_sessions.emplace(id.value, session);
    }
    const std::int32_t command = m_transport.nextCommandId();
    try {
        m_transport.request(command, encodeSessionInfo(session->id(), command), m_uri.requestLimit);
    } catch (...) {
        forgetSession(session->id().value);
        throw;
    }
    return session;
}

void ConnectionState::forgetSession(std::int64_t id)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_sessions.erase(id);
}

ConnectionState::Sessions ConnectionState::sessions() const
{
    Sessions result;
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto &entry : m_sessions) {
        if (std::shared_ptr<SessionState> session = entry.second.lock())
            result.push_back(std::move(session));
    }
    return result;
}

std::shared_ptr<SessionState> ConnectionState::session(std::int64_t id) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_sessions.find(id);
    return found == m_sessions.end() ? nullptr : found->second.lock();
}

void ConnectionState::start()
{
    logIn();
    m_transport.patience().setEndless();
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_started = true;
    }
    for (const auto &session : sessions())
        session->setStarted(true);
}

void ConnectionState::stop()
{
    checkOpen();
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_started = false;
    }
    const Sessions all = sessions();
    for (const auto &session : all)
        session->setStarted(false);
    for (const auto &session : all)
        session->awaitIdle();
}

void ConnectionState::leaveBroker()
{
    if (!m_loggedIn || m_transport.failure())
        return;
    try {
        m_transport.patience().setEndless();
        const std::int32_t command = m_transport.nextCommandId();
        m_transport.request(command, encodeRemoveConnection(m_id, command, m_transport.version()),
            m_uri.closeLimit);
        m_transport.send(encodeShutdown(m_transport.nextCommandId()), true);
        m_transport.flush(Transport::Clock::now() + std::chrono::milliseconds(100));
    } catch (const cms::CMSException &) {
        // A broker that does not answer notices the closed socket.
    }
}

void ConnectionState::close()
{
    const Sessions all = sessions();
    const bool own = m_events.isCurrent()
        || std::any_of(
            all.begin(), all.end(), [](const auto &session) { return session->isCurrent(); });
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_closing) {
            // A listener must not wait for a closing that waits for the listener.
            if (!own)
                m_changed.wait_for(lock, 3 * m_uri.closeLimit, [this] { return m_closed; });
            return;
        }
        m_closing = true;
    }
    for (const auto &session : all)
        session->halt();
    leaveBroker();
    m_transport.end(std::make_exception_ptr(cms::IllegalStateException(connectionClosedText)));

    const auto limit = Transport::Clock::now() + m_uri.closeLimit;
    for (const auto &session : all)
        session->join(limit);
    m_events.finish(limit);
    m_transport.join(limit);

    const std::lock_guard<std::mutex> lock(m_mutex);
    m_sessions.clear();
    m_closed = true;
    m_changed.notify_all();
}

void ConnectionState::setExceptionListener(cms::ExceptionListener *listener)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_exceptionListener = listener;
    if (!m_events.isCurrent())
        m_changed.wait(lock, [this] { return !m_listenerBusy; });
}

cms::ExceptionListener *ConnectionState::exceptionListener() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_exceptionListener;
}

void ConnectionState::complete(cms::AsyncCallback *callback, const std::exception_ptr &failure)
{
    m_events.post([callback, failure] {
        if (failure) {
            report(*callback, failure);
            return;
        }
        try {
            callback->onSuccess();
        } catch (...) {
            // A callback is asked not to throw; there is nobody left to tell.
        }
    });
}

void ConnectionState::postFailure(const std::exception_ptr &failure)
{
    m_events.post([self = shared_from_this(), failure] { self->callExceptionListener(failure); });
}

void ConnectionState::callExceptionListener(const std::exception_ptr &failure)
{
    cms::ExceptionListener *listener = nullptr;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_closing || !m_exceptionListener)
            return;
        listener = m_exceptionListener;
        m_listenerBusy = true;
    }
    report(*listener, failure);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_listenerBusy = false;
    m_changed.notify_all();
}

void ConnectionState::onDispatch(MessageDispatch dispatch)
{
    if (const std::shared_ptr<SessionState> target = session(dispatch.consumer.session))
        target->accept(std::move(dispatch));
}

void ConnectionState::onConsumerControl(const ConsumerControl &control)
{
    const std::shared_ptr<SessionState> target = session(control.consumer.session);
    if (!target || !control.close)
        return;
    const std::exception_ptr failure = toException("The broker has ended the subscription.");
    target->endConsumer(control.consumer, failure);
    postFailure(failure);
}

void ConnectionState::onConnectionError(const std::exception_ptr &failure)
{
    if (m_loggedIn)
        postFailure(failure);
    else
        m_transport.answer(m_loginCommand, failure);
}

void ConnectionState::onLost(const std::exception_ptr &failure)
{
    for (const auto &session : sessions())
        session->onLost(failure);
    postFailure(failure);
}

} // namespace kvx::openwire
