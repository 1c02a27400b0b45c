#include "HandlePool.h"

#include <algorithm>

namespace kvx {

namespace {

const size_t MostIdleHandles = 8;

} // namespace

HandlePool::Lease::Lease(HandlePool &pool)
    : m_pool(pool)
{
    std::vector<std::unique_ptr<CurlHandle>> closing;
    const std::lock_guard<std::mutex> lock(pool.m_mutex);
    m_generation = pool.m_generation;
    while (!m_handle && !pool.m_idle.empty()) {
        m_handle = std::move(pool.m_idle.back());
        pool.m_idle.pop_back();
        // What waits there would be taken for the answer to the next request.
        if (!m_handle->isQuiet())
            closing.push_back(std::move(m_handle));
    }
    if (!m_handle)
        m_handle = std::make_unique<CurlHandle>();
    m_handle->rearm();
    pool.m_active.push_back(m_handle.get());
}

// A handle that is not kept is closed after the lock is released: closing can take a moment.
HandlePool::Lease::~Lease()
{
    const std::lock_guard<std::mutex> lock(m_pool.m_mutex);
    auto &active = m_pool.m_active;
    active.erase(std::find(active.begin(), active.end(), m_handle.get()));
    if (!m_spoiled && m_generation == m_pool.m_generation && m_pool.m_idle.size() < MostIdleHandles)
        m_pool.m_idle.push_back(std::move(m_handle));
}

void HandlePool::clear()
{
    std::vector<std::unique_ptr<CurlHandle>> closing;
    const std::lock_guard<std::mutex> lock(m_mutex);
    closing.swap(m_idle);
    ++m_generation;
}

void HandlePool::abort()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (CurlHandle *handle : m_active)
        handle->abort();
}

} // namespace kvx
