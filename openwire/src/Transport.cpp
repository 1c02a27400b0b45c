#include "Transport.h"

#include "Cursor.h"
#include "Refusal.h"

#include <cms/CMSException.h>

#include <algorithm>
#include <system_error>
#include <utility>
#include <vector>

namespace kvx::openwire {

namespace {

constexpr std::size_t queueLimit = 4u << 20; // senders wait above this
constexpr std::size_t batchLimit = 64u << 10; // small frames are written together up to this
constexpr std::chrono::milliseconds quickestCheck { 1000 };

std::string addressText(const BrokerUri &uri)
{
    const bool ipv6 = uri.host.find(':') != std::string::npos;
    return (ipv6 ? "[" + uri.host + "]" : uri.host) + ":" + std::to_string(uri.port);
}

} // namespace

Transport::Transport(const BrokerUri &uri)
    : m_uri(uri)
    , m_patience(uri.loginLimit)
    , m_socket(uri.host, uri.port, std::min(uri.connectLimit, uri.loginLimit))
    , m_format(uri.wireFormat)
{
    m_patience.spend(m_created);
}

void Transport::start(const std::shared_ptr<TransportListener> &listener)
{
    // Sent without waiting for the broker's: some connectors stay silent until they know the
    // protocol.
    m_queue.push_back(encodeWireFormatInfo(m_uri.wireFormat));
    m_queuedBytes = m_queue.front().size();
    m_reader.start([this, listener] { runReader(*listener); });
    m_writer.start([this, listener] { runWriter(*listener); });
}

void Transport::awaitNegotiated()
{
    const Clock::time_point begin = Clock::now();
    const Clock::time_point deadline = begin + m_patience.allowed(m_uri.loginLimit);
    std::unique_lock<std::mutex> lock(m_mutex);
    const bool ended
        = m_changed.wait_until(lock, deadline, [this] { return m_failure || m_version != 0; });
    m_patience.spend(begin);
    if (!ended)
        throw cms::CMSException("The broker at " + addressText(m_uri) + " did not answer in time");
    if (m_failure)
        std::rethrow_exception(m_failure);
}

void Transport::checkUsable(std::size_t frameSize) const
{
    if (m_failure)
        std::rethrow_exception(m_failure);
    const std::size_t length = frameSize - 4;
    if (static_cast<std::int64_t>(length) > m_format.maxFrameSize)
        throw cms::CMSException("A frame of " + std::to_string(length)
            + " bytes is larger than the broker takes (" + std::to_string(m_format.maxFrameSize)
            + ")");
}

void Transport::send(std::string frame, bool always)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    checkUsable(frame.size());
    const auto hasRoom = [this] { return m_failure || m_queuedBytes < queueLimit; };
    if (!always && !m_changed.wait_for(lock, m_uri.requestLimit, hasRoom))
        throw cms::CMSException("The broker at " + addressText(m_uri) + " takes no more data");
    if (m_failure)
        std::rethrow_exception(m_failure);
    m_queuedBytes += frame.size();
    m_queue.push_back(std::move(frame));
    m_changed.notify_all();
}

void Transport::addPending(std::int32_t commandId, std::size_t frameSize, Pending pending)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    checkUsable(frameSize);
    m_pending.emplace(commandId, std::move(pending));
}

bool Transport::forget(std::int32_t commandId)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_pending.erase(commandId) > 0;
}

void Transport::request(std::int32_t commandId, std::string frame, Clock::duration limit)
{
    struct Waiter {
        std::mutex mutex;
        std::condition_variable changed;
        bool answered = false;
        std::exception_ptr failure;
    };
    const auto waiter = std::make_shared<Waiter>();
    const Done done = [waiter](const std::exception_ptr &failure) {
        const std::lock_guard<std::mutex> lock(waiter->mutex);
        waiter->answered = true;
        waiter->failure = failure;
        waiter->changed.notify_all();
    };
    const Clock::time_point begin = Clock::now();
    const Clock::time_point deadline = begin + m_patience.allowed(limit);
    addPending(commandId, frame.size(), { done, Clock::time_point::max() });
    try {
        send(std::move(frame), true);
    } catch (...) {
        forget(commandId);
        throw;
    }
    std::unique_lock<std::mutex> lock(waiter->mutex);
    const bool answered
        = waiter->changed.wait_until(lock, deadline, [&] { return waiter->answered; });
    m_patience.spend(begin);
    if (!answered) {
        lock.unlock();
        forget(commandId);
        throw cms::CMSException("The broker at " + addressText(m_uri) + " did not answer in time");
    }
    if (waiter->failure)
        std::rethrow_exception(waiter->failure);
}

void Transport::requestLater(std::int32_t commandId, std::string frame, Done done, bool always)
{
    addPending(commandId, frame.size(), { std::move(done), Clock::now() + m_uri.requestLimit });
    try {
        send(std::move(frame), always);
    } catch (...) {
        // Whoever has taken the request out of the list has told the callback already.
        if (forget(commandId))
            throw;
    }
}

void Transport::answer(std::int32_t commandId, const std::exception_ptr &failure)
{
    Done done;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto found = m_pending.find(commandId);
        if (found == m_pending.end())
            return;
        done = std::move(found->second.done);
        m_pending.erase(found);
    }
    done(failure);
}

void Transport::flush(Clock::time_point limit)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait_until(lock, limit, [this] { return m_failure || m_queuedBytes == 0; });
}

std::exception_ptr Transport::failure() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_failure;
}

void Transport::end(const std::exception_ptr &reason)
{
    fail(reason, nullptr);
}

void Transport::join(Clock::time_point limit)
{
    m_reader.endedBy(limit);
    m_writer.endedBy(limit);
}

void Transport::fail(const std::exception_ptr &reason, TransportListener *listener)
{
    std::map<std::int32_t, Pending> pending;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_failure)
            return;
        m_failure = reason;
        pending.swap(m_pending);
        m_queue.clear();
        m_queuedBytes = 0;
        m_changed.notify_all();
    }
    m_socket.shutdown();
    for (const auto &entry : pending)
        entry.second.done(reason);
    if (listener)
        listener->onLost(reason);
}

Transport::Clock::time_point Transport::readDeadline(Clock::time_point lastRead) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_version == 0 || m_format.maxInactivity.count() == 0)
        return Clock::now() + std::chrono::hours(1);
    const auto silence = std::max(2 * m_format.maxInactivity, quickestCheck);
    return std::max(lastRead, m_opened + m_format.initialDelay) + silence;
}

void Transport::runReader(TransportListener &listener)
{
    std::vector<char> buffer(64 * 1024);
    Clock::time_point lastRead = Clock::now();
    try {
        for (;;) {
            const Clock::time_point deadline = readDeadline(lastRead);
            const std::optional<std::size_t> count = m_socket.read(buffer, deadline);
            if (!count) {
                if (readDeadline(lastRead) > Clock::now())
                    continue;
                throw ProtocolError("Channel was inactive for too long: " + addressText(m_uri));
            }
            if (*count == 0)
                throw ConnectionClosed(
                    "The broker at " + addressText(m_uri) + " closed the connection");
            lastRead = Clock::now();
            m_input.append({ buffer.data(), *count });
            while (const std::optional<std::string_view> frame = m_input.next())
                handleFrame(*frame, listener);
        }
    } catch (const ConnectionClosed &) {
        fail(std::current_exception(), &listener);
    } catch (const std::system_error &ex) {
        fail(toException("Connection to " + addressText(m_uri) + " lost: " + ex.code().message()),
            &listener);
    } catch (const std::exception &ex) {
        fail(toException(ex.what()), &listener);
    }
}

void Transport::handleOffer(std::string_view frame)
{
    const WireFormat agreed = negotiate(m_uri.wireFormat, decodeWireFormatInfo(frame));
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_format = agreed;
    m_version = agreed.version;
    m_changed.notify_all();
}

void Transport::handleFrame(std::string_view frame, TransportListener &listener)
{
    if (static_cast<std::uint8_t>(frame.front()) == NullType)
        return;
    if (m_version == 0) {
        handleOffer(frame);
        return;
    }
    Command command;
    try {
        command = decodeCommand(frame, m_version);
    } catch (const DecodeError &) {
        return; // the length has kept the stream in step
    }
    if (const auto *response = std::get_if<Response>(&command)) {
        answer(response->correlationId,
            response->failure ? toException(*response->failure) : std::exception_ptr());
    } else if (auto *dispatch = std::get_if<MessageDispatch>(&command)) {
        listener.onDispatch(std::move(*dispatch));
    } else if (const auto *control = std::get_if<ConsumerControl>(&command)) {
        listener.onConsumerControl(*control);
    } else if (const auto *error = std::get_if<ConnectionError>(&command)) {
        listener.onConnectionError(toException(error->failure));
    } else if (const auto *keepAlive = std::get_if<KeepAlive>(&command)) {
        if (keepAlive->responseRequired)
            send(encodeKeepAlive(keepAlive->commandId), true);
    } else if (std::holds_alternative<Shutdown>(command)) {
        throw ProtocolError("The broker at " + addressText(m_uri) + " is shutting down");
    }
}

void Transport::expirePending(Clock::time_point now)
{
    std::vector<Done> expired;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (auto entry = m_pending.begin(); entry != m_pending.end();) {
            if (entry->second.deadline > now) {
                ++entry;
                continue;
            }
            expired.push_back(std::move(entry->second.done));
            entry = m_pending.erase(entry);
        }
    }
    for (const Done &done : expired)
        done(toException("The broker at " + addressText(m_uri) + " did not answer in time"));
}

// Blocks until there is something to write; empty when the connection has ended.
std::string Transport::takeQueued(Clock::time_point lastWrite)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        if (m_failure)
            return {};
        if (!m_queue.empty()) {
            std::string batch = std::move(m_queue.front());
            m_queue.pop_front();
            while (!m_queue.empty() && batch.size() + m_queue.front().size() <= batchLimit) {
                batch += m_queue.front();
                m_queue.pop_front();
            }
            return batch;
        }
        const Clock::time_point now = Clock::now();
        Clock::time_point wake = now + std::chrono::hours(1);
        if (m_version != 0 && m_format.maxInactivity.count() > 0) {
            wake = lastWrite + m_format.maxInactivity / 3;
            if (wake <= now) {
                std::string keepAlive = encodeKeepAlive(nextCommandId());
                m_queuedBytes += keepAlive.size();
                return keepAlive;
            }
        }
        for (const auto &entry : m_pending)
            wake = std::min(wake, entry.second.deadline);
        if (wake <= now) {
            lock.unlock();
            expirePending(now);
            lock.lock();
            continue;
        }
        m_changed.wait_until(lock, wake);
    }
}

void Transport::runWriter(TransportListener &listener)
{
    Clock::time_point lastWrite = Clock::now();
    try {
        for (;;) {
            const std::string batch = takeQueued(lastWrite);
            if (batch.empty())
                return;
            std::string_view left = batch;
            while (!left.empty()) {
                const auto count = m_socket.write(left, Clock::now() + m_uri.requestLimit);
                if (!count)
                    throw ProtocolError(
                        "The broker at " + addressText(m_uri) + " takes no more data");
                left.remove_prefix(*count);
                lastWrite = Clock::now();
            }
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_queuedBytes -= std::min(m_queuedBytes, batch.size());
            m_changed.notify_all();
        }
    } catch (const std::system_error &ex) {
        fail(toException("Connection to " + addressText(m_uri) + " lost: " + ex.code().message()),
            &listener);
    } catch (const std::exception &ex) {
        fail(toException(ex.what()), &listener);
    }
}

} // namespace kvx::openwire
