#pragma once

#include "BrokerUri.h"
#include "Commands.h"
#include "FrameBuffer.h"
#include "Patience.h"
#include "Socket.h"
#include "WireFormat.h"
#include "Worker.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace kvx::openwire {

/// What a transport tells its connection. Called on the reading thread (onLost also on the writing
/// one); must return at once.
class TransportListener {
public:
    virtual ~TransportListener() = default;
    virtual void onDispatch(MessageDispatch dispatch) = 0;
    virtual void onConsumerControl(const ConsumerControl &control) = 0;
    virtual void onConnectionError(const std::exception_ptr &failure) = 0;
    /// The connection broke; at most once, and not after end() was called.
    virtual void onLost(const std::exception_ptr &failure) = 0;
};

/// Carries commands over one socket: negotiates, keeps the connection alive, notices a broker that
/// fell silent, and brings answers to those who wait for them. A reading and a writing thread;
/// neither ever runs foreign code.
class Transport {
public:
    using Clock = std::chrono::steady_clock;
    using Done = std::function<void(const std::exception_ptr &)>;

    /// Opens the socket; throws cms::CMSException. Nothing is sent before start().
    explicit Transport(const BrokerUri &uri);

    /// Starts the threads and sends the offer. The threads own the listener, which owns this.
    void start(const std::shared_ptr<TransportListener> &listener);

    /// Waits for the broker's offer. cms::CMSException at the limit or when the connection breaks.
    void awaitNegotiated();

    /// What waiting may take until the connection works: the opened socket, the offer and every
    /// request draw on it.
    Patience &patience() { return m_patience; }

    /// Of the agreed wire format. Only after awaitNegotiated().
    int version() const { return m_version; }

    std::int32_t nextCommandId() { return ++m_lastCommandId; }

    /// Queues a frame. Waits while much is queued, unless always is set.
    /// cms::CMSException when the frame is larger than the broker takes, the connection is lost, or
    /// the queue did not move for a request's limit.
    void send(std::string frame, bool always = false);

    /// Sends a request and waits for its answer. Throws what the broker answered, or
    /// cms::CMSException at the limit.
    void request(std::int32_t commandId, std::string frame, Clock::duration limit);

    /// Sends a request whose answer goes to done: exactly once, on one of the threads, with null
    /// for success. When this throws, done is not called. always as in send().
    void requestLater(std::int32_t commandId, std::string frame, Done done, bool always = false);

    /// Answers a request as if the broker had.
    void answer(std::int32_t commandId, const std::exception_ptr &failure);

    /// Waits until everything queued was written, or the connection is lost.
    void flush(Clock::time_point limit);

    /// Null while the connection works, else why it does not.
    std::exception_ptr failure() const;

    /// Closes the socket; everything that waits or comes later fails with reason. Not reported to
    /// the listener. Does not wait.
    void end(const std::exception_ptr &reason);

    /// Waits until both threads have ended, after end().
    void join(Clock::time_point limit);

private:
    struct Pending {
        Done done;
        Clock::time_point deadline;
    };

    void runReader(TransportListener &listener);
    void runWriter(TransportListener &listener);
    void handleFrame(std::string_view frame, TransportListener &listener);
    void handleOffer(std::string_view frame);
    void fail(const std::exception_ptr &reason, TransportListener *listener);
    void addPending(std::int32_t commandId, std::size_t frameSize, Pending pending);
    void checkUsable(std::size_t frameSize) const;
    bool forget(std::int32_t commandId);
    Clock::time_point readDeadline(Clock::time_point lastRead) const;
    std::string takeQueued(Clock::time_point lastWrite);
    void expirePending(Clock::time_point now);

    const BrokerUri m_uri;
    Patience m_patience;
    const Clock::time_point m_created = Clock::now();
    Socket m_socket;
    const Clock::time_point m_opened = Clock::now();
    std::atomic<std::int32_t> m_lastCommandId { 0 };
    std::atomic<int> m_version { 0 }; // 0 until negotiated
    FrameBuffer m_input; // reading thread only
    Worker m_reader;
    Worker m_writer;

    mutable std::mutex m_mutex; // guards everything below
    std::condition_variable m_changed;
    WireFormat m_format;
    std::exception_ptr m_failure;
    std::map<std::int32_t, Pending> m_pending;
    std::deque<std::string> m_queue;
    std::size_t m_queuedBytes = 0;
};

} // namespace kvx::openwire
