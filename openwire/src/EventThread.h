#pragma once

#include "Worker.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

namespace kvx::openwire {

/// Runs a connection's callbacks one after the other, so that no listener holds up the socket.
class EventThread {
public:
    EventThread();

    void start();

    /// Ignored after finish().
    void post(std::function<void()> event);

    /// Runs what was posted, then ends; waits for that until the limit. After the limit, or when
    /// called by an event, the thread finishes its work alone.
    void finish(std::chrono::steady_clock::time_point limit);

    bool isCurrent() const { return m_worker.isCurrent(); }

private:
    struct Queue {
        std::mutex mutex;
        std::condition_variable changed;
        std::deque<std::function<void()>> events;
        bool finishing = false;
    };

    static void run(Queue &queue);

    std::shared_ptr<Queue> m_queue;
    Worker m_worker;
};

} // namespace kvx::openwire
