#include "ocr/OcrWork.h"

#include <numeric>

namespace kvx::server {

namespace {

constexpr std::size_t durationsKept = 50;
/// Before the first page is through.
constexpr double assumedSeconds = 4;

} // namespace

void OcrWork::wake()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_woken = true;
    }
    m_changed.notify_all();
}

void OcrWork::wait(std::chrono::milliseconds limit)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait_for(lock, limit, [this] { return m_woken; });
    m_woken = false;
}

std::shared_ptr<StopSignal> OcrWork::begin(const std::string &jobId)
{
    auto signal = std::make_shared<StopSignal>();
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (auto entry = m_running.begin(); entry != m_running.end();)
        entry = entry->second.expired() ? m_running.erase(entry) : std::next(entry);
    m_running.emplace(jobId, signal);
    return signal;
}

void OcrWork::stop(const std::string &jobId)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto [first, last] = m_running.equal_range(jobId);
    for (auto entry = first; entry != last; ++entry) {
        if (const auto signal = entry->second.lock())
            signal->stop();
    }
}

void OcrWork::stopAll()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto &entry : m_running) {
        if (const auto signal = entry.second.lock())
            signal->stop();
    }
}

void OcrWork::noteDuration(std::chrono::milliseconds page)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_durations.push_back(page);
    if (m_durations.size() > durationsKept)
        m_durations.pop_front();
}

double OcrWork::secondsAPage() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_durations.empty())
        return assumedSeconds;
    const auto sum
        = std::accumulate(m_durations.begin(), m_durations.end(), std::chrono::milliseconds(0));
    return static_cast<double>(sum.count()) / 1000 / static_cast<double>(m_durations.size());
}

void OcrWork::takeTurn(std::int64_t userId)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_turns[userId] = m_nextTurn++;
}

std::uint64_t OcrWork::lastTurn(std::int64_t userId) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto turn = m_turns.find(userId);
    return turn == m_turns.end() ? 0 : turn->second;
}

} // namespace kvx::server
