#pragma once

#include "notify/CurrentLink.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace kvx::server {

/// A thread with a connection to the broker: woken from outside, and ended within a limit. A
/// derived class calls `begin` last in its constructor and `end` first in its destructor.
class BrokerWorker {
public:
    BrokerWorker(const BrokerWorker &) = delete;
    BrokerWorker &operator=(const BrokerWorker &) = delete;

    /// There may be work. Any thread.
    void wake();

protected:
    BrokerWorker(const Config &config, BrokerLink::Topic topic);
    ~BrokerWorker() = default;

    /// `run` returns when `m_stopping` is set and nothing is left to do.
    void begin(std::function<void()> run);
    /// Lets it work for `working` and then close for `closing` at most. False when it has not ended
    /// by then: it is caught in a broker that accepts and never answers.
    bool stop(std::chrono::milliseconds working, std::chrono::milliseconds closing);
    /// Ends it, however long that takes.
    void end();

    std::mutex m_mutex; ///< guards what follows
    std::condition_variable m_changed;
    bool m_woken = false;
    bool m_stopping = false;
    std::chrono::steady_clock::time_point m_stopEnd;

    CurrentLink m_link; ///< the thread's own, except where it says otherwise

private:
    bool m_ended = false; ///< guarded too
    std::thread m_thread;
};

} // namespace kvx::server
