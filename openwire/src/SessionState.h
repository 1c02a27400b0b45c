#pragma once

#include "Commands.h"
#include "Messages.h"
#include "Worker.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace cms {
class MessageListener;
}

namespace kvx::openwire {

class ConnectionState;

/// A consumer's part of its session; guarded by the session's mutex, but for what never changes.
struct ConsumerState {
    struct Waiting {
        std::uint64_t order;
        std::shared_ptr<MessageData> message;
    };

    ConsumerRequest request; // never changes
    cms::MessageListener *listener = nullptr;
    std::deque<Waiting> waiting;
    bool started = true;
    bool closed = false;
    std::exception_ptr failure; // the broker ended this consumer
};

/// Queues what the broker sends to the consumers of a session and hands it to their listeners on a
/// thread of its own. Shared by the session's handles, its thread and nobody else; keeps the
/// connection alive.
class SessionState : public std::enable_shared_from_this<SessionState> {
public:
    using Clock = std::chrono::steady_clock;
    using Consumer = std::shared_ptr<ConsumerState>;

    SessionState(std::shared_ptr<ConnectionState> connection, SessionId id, bool started);

    const SessionId &id() const { return m_id; }
    ConnectionState &connection() const { return *m_connection; }

    /// cms::IllegalStateException when the session was closed.
    void checkOpen() const;

    Consumer openConsumer(
        const DestinationName &destination, const std::string &selector, bool noLocal);
    void closeConsumer(const Consumer &consumer);
    void setListener(const Consumer &consumer, cms::MessageListener *listener);
    cms::MessageListener *listener(const Consumer &consumer) const;
    void setConsumerStarted(const Consumer &consumer, bool started);

    /// As cms::MessageConsumer::receive(); no deadline waits without limit.
    std::unique_ptr<PlainMessage> receive(
        const Consumer &consumer, std::optional<Clock::time_point> deadline);

    std::int64_t nextProducer();

    void setStarted(bool started);
    /// Waits for a listener that is running, up to the connection's close limit.
    void awaitIdle();
    void close();

    /// No listener is called from now on; whoever waits for a message is let go.
    void halt();
    void join(Clock::time_point limit);
    bool isCurrent() const { return m_worker.isCurrent(); }

    // From the reading thread.
    void accept(MessageDispatch dispatch);
    void endConsumer(const ConsumerId &id, const std::exception_ptr &failure);
    void onLost(const std::exception_ptr &failure);

private:
    void run();
    Consumer nextReady() const;
    void deliver(
        const ConsumerState &consumer, cms::MessageListener &listener, const MessageData &message);
    void acknowledge(const ConsumerState &consumer, const MessageData &message);
    void remove(std::int32_t commandId, std::string frame);

    const std::shared_ptr<ConnectionState> m_connection;
    const SessionId m_id;
    Worker m_worker;

    mutable std::mutex m_mutex; // guards everything below
    std::condition_variable m_changed;
    std::map<std::int64_t, Consumer> m_consumers;
    std::int64_t m_lastConsumer = 0;
    std::int64_t m_lastProducer = 0;
    std::uint64_t m_lastOrder = 0;
    const ConsumerState *m_busy = nullptr; // whose listener is running
    std::exception_ptr m_failure;
    bool m_dispatching = false;
    bool m_started = false;
    bool m_ended = false;
};

} // namespace kvx::openwire
