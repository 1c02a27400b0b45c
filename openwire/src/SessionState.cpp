#include "SessionState.h"

#include "ConnectionState.h"
#include "FrameBuffer.h"

#include <cms/IllegalStateException.h>
#include <cms/MessageListener.h>

#include <utility>

namespace kvx::openwire {

namespace {

constexpr std::int32_t prefetch = 1000;
// The broker counts acknowledgements a little ahead of us; far more than asked for is no mistake.
constexpr std::size_t mostWaiting = 2 * prefetch;

} // namespace

SessionState::SessionState(std::shared_ptr<ConnectionState> connection, SessionId id, bool started)
    : m_connection(std::move(connection))
    , m_id(std::move(id))
    , m_started(started)
{
}

void SessionState::checkOpen() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_ended)
        throw cms::IllegalStateException("The session has already been closed!");
}

SessionState::Consumer SessionState::openConsumer(
    const DestinationName &destination, const std::string &selector, bool noLocal)
{
    checkOpen();
    const auto consumer = std::make_shared<ConsumerState>();
    {
        // Known before the broker is asked: the first message may come before the answer.
        const std::lock_guard<std::mutex> lock(m_mutex);
        const ConsumerId id { m_id.connection, m_id.value, ++m_lastConsumer };
        consumer->request = { id, destination, selector, noLocal, prefetch };
        m_consumers.emplace(id.value, consumer);
    }
    Transport &transport = m_connection->transport();
    const std::int32_t command = transport.nextCommandId();
    try {
        transport.request(command,
            encodeConsumerInfo(consumer->request, command, transport.version()),
            m_connection->uri().requestLimit);
    } catch (...) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_consumers.erase(consumer->request.id.value);
        throw;
    }
    return consumer;
}

// Closing does not wait for the broker: what it still sends is dropped here.
void SessionState::remove(std::int32_t commandId, std::string frame)
{
    try {
        m_connection->transport().requestLater(
            commandId, std::move(frame), [](const auto &) {}, true);
    } catch (const cms::CMSException &) {
        // The broker is gone, and with it what was to be removed.
    }
}

void SessionState::closeConsumer(const Consumer &consumer)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (std::exchange(consumer->closed, true))
            return;
        m_consumers.erase(consumer->request.id.value);
        consumer->waiting.clear();
        m_changed.notify_all();
    }
    Transport &transport = m_connection->transport();
    const std::int32_t command = transport.nextCommandId();
    remove(command, encodeRemoveConsumer(consumer->request.id, command, transport.version()));
    if (m_worker.isCurrent())
        return;
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait_for(
        lock, m_connection->uri().closeLimit, [&] { return m_busy != consumer.get(); });
}

void SessionState::setListener(const Consumer &consumer, cms::MessageListener *listener)
{
    const bool own = m_worker.isCurrent();
    std::unique_lock<std::mutex> lock(m_mutex);
    if (consumer->closed && listener)
        throw cms::IllegalStateException("The consumer has already been closed!");
    consumer->listener = listener;
    if (listener && !m_dispatching && !m_ended) {
        m_worker.start([self = shared_from_this()] { self->run(); });
        m_dispatching = true;
    }
    m_changed.notify_all();
    if (!own)
        m_changed.wait(lock, [&] { return m_busy != consumer.get(); });
}

cms::MessageListener *SessionState::listener(const Consumer &consumer) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return consumer->listener;
}

void SessionState::setConsumerStarted(const Consumer &consumer, bool started)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    consumer->started = started;
    m_changed.notify_all();
}

std::int64_t SessionState::nextProducer()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return ++m_lastProducer;
}

std::unique_ptr<PlainMessage> SessionState::receive(
    const Consumer &consumer, std::optional<Clock::time_point> deadline)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    for (const auto &entry : m_consumers) {
        if (entry.second->listener)
            throw cms::CMSException(
                "Cannot synchronously receive a message when a MessageListener is set");
    }
    const auto over = [&] { return consumer->closed || m_ended || m_failure || consumer->failure; };
    const auto hasMessage
        = [&] { return m_started && consumer->started && !consumer->waiting.empty(); };
    const auto wake = [&] { return over() || hasMessage(); };
    if (!deadline)
        m_changed.wait(lock, wake);
    else
        m_changed.wait_until(lock, *deadline, wake);
    if (consumer->closed || m_ended)
        return nullptr;
    if (hasMessage()) {
        const std::shared_ptr<MessageData> message = consumer->waiting.front().message;
        consumer->waiting.pop_front();
        lock.unlock();
        acknowledge(*consumer, *message);
        return makeReceived(std::move(*message));
    }
    if (m_failure)
        std::rethrow_exception(m_failure);
    if (consumer->failure)
        std::rethrow_exception(consumer->failure);
    return nullptr;
}

void SessionState::setStarted(bool started)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_started = started;
    m_changed.notify_all();
}

void SessionState::awaitIdle()
{
    if (m_worker.isCurrent())
        return;
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait_for(lock, m_connection->uri().closeLimit, [this] { return m_busy == nullptr; });
}

void SessionState::close()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_ended)
            return;
    }
    halt();
    m_connection->forgetSession(m_id.value);
    Transport &transport = m_connection->transport();
    const std::int32_t command = transport.nextCommandId();
    remove(command, encodeRemoveSession(m_id, command, transport.version()));
    join(Clock::now() + m_connection->uri().closeLimit);
}

void SessionState::halt()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_ended = true;
    for (const auto &entry : m_consumers) {
        entry.second->closed = true;
        entry.second->waiting.clear();
    }
    m_consumers.clear();
    m_changed.notify_all();
}

void SessionState::join(Clock::time_point limit)
{
    m_worker.endedBy(limit);
}

void SessionState::accept(MessageDispatch dispatch)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_consumers.find(dispatch.consumer.value);
    if (found == m_consumers.end() || !dispatch.message)
        return; // closed just now, or a dispatch without message
    ConsumerState &consumer = *found->second;
    if (consumer.waiting.size() >= mostWaiting)
        throw ProtocolError("The broker sends more messages than were asked for");
    consumer.waiting.push_back({ ++m_lastOrder, std::move(dispatch.message) });
    m_changed.notify_all();
}

void SessionState::endConsumer(const ConsumerId &id, const std::exception_ptr &failure)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_consumers.find(id.value);
    if (found == m_consumers.end())
        return;
    found->second->failure = failure;
    m_changed.notify_all();
}

void SessionState::onLost(const std::exception_ptr &failure)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_failure = failure;
    m_changed.notify_all();
}

SessionState::Consumer SessionState::nextReady() const
{
    Consumer result;
    for (const auto &entry : m_consumers) {
        const Consumer &consumer = entry.second;
        if (consumer->listener && consumer->started && !consumer->waiting.empty()
            && (!result || consumer->waiting.front().order < result->waiting.front().order))
            result = consumer;
    }
    return result;
}

void SessionState::run()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        Consumer consumer;
        m_changed.wait(lock, [&] {
            consumer = m_started && !m_ended ? nextReady() : nullptr;
            return m_ended || consumer;
        });
        if (m_ended)
            return;
        cms::MessageListener *listener = consumer->listener;
        std::shared_ptr<MessageData> message = std::move(consumer->waiting.front().message);
        consumer->waiting.pop_front();
        m_busy = consumer.get();
        lock.unlock();
        deliver(*consumer, *listener, *message);
        message.reset();
        lock.lock();
        m_busy = nullptr;
        m_changed.notify_all();
    }
}

void SessionState::deliver(
    const ConsumerState &consumer, cms::MessageListener &listener, const MessageData &message)
{
    try {
        const std::unique_ptr<PlainMessage> received = makeReceived(message);
        listener.onMessage(received.get());
    } catch (...) {
        // A listener is asked not to throw; the message counts as taken.
    }
    acknowledge(consumer, message);
}

void SessionState::acknowledge(const ConsumerState &consumer, const MessageData &message)
{
    Transport &transport = m_connection->transport();
    try {
        transport.send(encodeAcknowledgement(consumer.request.id, message,
                           transport.nextCommandId(), transport.version()),
            true);
    } catch (const cms::CMSException &) {
        // Without the broker there is nobody to tell; its loss is reported elsewhere.
    }
}

} // namespace kvx::openwire
