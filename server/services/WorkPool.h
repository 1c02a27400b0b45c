#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace kvx::server {

/// Threads for work that takes long and needs no database, behind a bounded queue. Any thread.
class WorkPool {
public:
    WorkPool(int threads, std::size_t queueLimit);
    ~WorkPool();

    /// Drops what is queued, waits for what runs; from then on nothing is taken.
    void stop();

    /// False when the queue is full or the pool has stopped. The job lets no exception out.
    bool submit(std::function<void()> job);

private:
    void work();

    const std::size_t m_queueLimit;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::function<void()>> m_jobs;
    bool m_ending = false;
    std::vector<std::thread> m_threads;
};

} // namespace kvx::server
