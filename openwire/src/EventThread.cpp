#include "EventThread.h"

#include <utility>

namespace kvx::openwire {

EventThread::EventThread()
    : m_queue(std::make_shared<Queue>())
{
}

void EventThread::start()
{
    m_worker.start([queue = m_queue] { run(*queue); });
}

void EventThread::post(std::function<void()> event)
{
    const std::lock_guard<std::mutex> lock(m_queue->mutex);
    if (m_queue->finishing)
        return;
    m_queue->events.push_back(std::move(event));
    m_queue->changed.notify_one();
}

void EventThread::finish(std::chrono::steady_clock::time_point limit)
{
    {
        const std::lock_guard<std::mutex> lock(m_queue->mutex);
        m_queue->finishing = true;
    }
    m_queue->changed.notify_all();
    m_worker.endedBy(limit);
}

void EventThread::run(Queue &queue)
{
    std::unique_lock<std::mutex> lock(queue.mutex);
    for (;;) {
        queue.changed.wait(lock, [&] { return queue.finishing || !queue.events.empty(); });
        if (queue.events.empty())
            return;
        std::function<void()> event = std::move(queue.events.front());
        queue.events.pop_front();
        lock.unlock();
        event();
        event = nullptr; // what it owns ends outside the lock
        lock.lock();
    }
}

} // namespace kvx::openwire
