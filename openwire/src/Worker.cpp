#include "Worker.h"

#include <cms/CMSException.h>

#include <system_error>
#include <utility>

namespace kvx::openwire {

Worker::~Worker()
{
    if (m_thread.joinable())
        m_thread.detach();
}

void Worker::start(std::function<void()> body)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto latch = std::make_shared<Latch>();
    const auto run = [body = std::move(body), latch]() mutable {
        body();
        body = nullptr; // may end what owns this worker: before the latch, so that a joiner sees it
                        // ended
        const std::lock_guard<std::mutex> done(latch->mutex);
        latch->done = true;
        latch->changed.notify_all();
    };
    try {
        m_thread = std::thread(run);
    } catch (const std::system_error &ex) {
        throw cms::CMSException("No thread could be started: " + ex.code().message());
    }
    m_id = m_thread.get_id();
    m_latch = latch;
}

bool Worker::isCurrent() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_id == std::this_thread::get_id();
}

bool Worker::endedBy(std::chrono::steady_clock::time_point limit)
{
    std::shared_ptr<Latch> latch;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_latch)
            return true;
        if (m_id == std::this_thread::get_id())
            return false;
        latch = m_latch;
    }
    {
        std::unique_lock<std::mutex> lock(latch->mutex);
        if (!latch->changed.wait_until(lock, limit, [&] { return latch->done; }))
            return false;
    }
    std::thread ended;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ended = std::exchange(m_thread, std::thread());
    }
    if (ended.joinable())
        ended.join();
    return true;
}

} // namespace kvx::openwire
