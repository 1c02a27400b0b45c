#include "services/WorkPool.h"

namespace kvx::server {

WorkPool::WorkPool(int threads, std::size_t queueLimit)
    : m_queueLimit(queueLimit)
{
    for (int i = 0; i < threads; ++i)
        m_threads.emplace_back([this] { work(); });
}

WorkPool::~WorkPool()
{
    stop();
}

void WorkPool::stop()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_ending = true;
    }
    m_changed.notify_all();
    for (std::thread &thread : m_threads)
        thread.join();
    m_threads.clear();
}

bool WorkPool::submit(std::function<void()> job)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_ending || m_jobs.size() >= m_queueLimit)
            return false;
        m_jobs.push_back(std::move(job));
    }
    m_changed.notify_one();
    return true;
}

void WorkPool::work()
{
    while (true) {
        std::function<void()> job;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_changed.wait(lock, [this] { return m_ending || !m_jobs.empty(); });
            if (m_ending)
                return;
            job = std::move(m_jobs.front());
            m_jobs.pop_front();
        }
        job();
    }
}

} // namespace kvx::server
