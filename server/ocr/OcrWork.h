#pragma once

#include "ocr/StopSignal.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace kvx::server {

/// What the threads that recognise and the services tell each other. Losing it costs time, never
/// truth: jobs stand in the database. Any thread.
class OcrWork {
public:
    /// A job was submitted, or the threads are to end.
    void wake();
    /// Until wake(), or that long; a wake() since the last wait counts.
    void wait(std::chrono::milliseconds limit);

    /// A page of that job is being worked on until the returned object goes.
    std::shared_ptr<StopSignal> begin(const std::string &jobId);
    /// Ends the pages of the job that are in work now.
    void stop(const std::string &jobId);
    void stopAll();

    void noteDuration(std::chrono::milliseconds page);
    /// Mean seconds of the last 50 pages.
    double secondsAPage() const;

    /// Users take turns: the one who waited longest comes next.
    void takeTurn(std::int64_t userId);
    std::uint64_t lastTurn(std::int64_t userId) const;

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_woken = false;
    std::multimap<std::string, std::weak_ptr<StopSignal>> m_running;
    std::deque<std::chrono::milliseconds> m_durations;
    std::map<std::int64_t, std::uint64_t> m_turns;
    std::uint64_t m_nextTurn = 1;
};

} // namespace kvx::server
