#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace kvx::openwire {

/// A thread that can be given up: one that does not end in time goes on alone.
/// What its body uses must therefore be owned by the body, not by whoever owns the worker.
class Worker {
public:
    Worker() = default;
    ~Worker();
    Worker(const Worker &) = delete;
    Worker &operator=(const Worker &) = delete;

    /// Called once. Throws cms::CMSException when the system has no thread left.
    void start(std::function<void()> body);

    bool isCurrent() const;

    /// Waits until the body has ended; it has to have been told to. True when it has, or was never
    /// started. False after the limit, or at once on the worker's own thread. May be called again.
    bool endedBy(std::chrono::steady_clock::time_point limit);

private:
    struct Latch {
        std::mutex mutex;
        std::condition_variable changed;
        bool done = false;
    };

    mutable std::mutex m_mutex;
    std::thread m_thread; // guarded by m_mutex
    std::thread::id m_id; // guarded by m_mutex
    std::shared_ptr<Latch> m_latch; // guarded by m_mutex
};

} // namespace kvx::openwire
