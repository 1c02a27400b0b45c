#include "notify/BrokerWorker.h"

namespace kvx::server {

BrokerWorker::BrokerWorker(const Config &config, BrokerLink::Topic topic)
    : m_link(config, topic, m_mutex, m_changed)
{
}

void BrokerWorker::wake()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_woken = true;
    }
    m_changed.notify_all();
}

void BrokerWorker::begin(std::function<void()> run)
{
    m_thread = std::thread([this, run = std::move(run)] {
        run();
        m_link.drop();
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_ended = true;
        m_changed.notify_all();
    });
}

bool BrokerWorker::stop(std::chrono::milliseconds working, std::chrono::milliseconds closing)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_stopping) {
        m_stopping = true;
        m_stopEnd = std::chrono::steady_clock::now() + working;
    }
    m_changed.notify_all();
    const bool ended = m_changed.wait_for(lock, working + closing, [this] { return m_ended; });
    lock.unlock();
    if (ended && m_thread.joinable())
        m_thread.join();
    return ended;
}

void BrokerWorker::end()
{
    stop({}, {});
    if (m_thread.joinable())
        m_thread.join();
}

} // namespace kvx::server
