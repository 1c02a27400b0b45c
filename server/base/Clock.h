#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

namespace kvx::server {

/// Milliseconds since 1970, UTC.
using Time = std::int64_t;

/// The wall clock, as it is. For dates that users read.
Time wallTime();

/// The clock of leases and time-outs: the wall clock at start plus the monotonic clock since, so
/// that a clock set back neither prolongs a session nor frees a lock. Any thread.
class Clock {
public:
    /// `highest` is the highest value an earlier run has stored; time never goes below it.
    explicit Clock(Time highest = 0);
    virtual ~Clock() = default;
    virtual Time now() const;
    /// What the age of files is counted from: the wall clock, which dates them, less any stretch
    /// that it jumped ahead of this clock or was found behind it. So no jump makes a file old that
    /// was written in this run; one set back and righted again only keeps files for longer.
    Time forFiles() const;

protected:
    virtual Time wall() const { return wallTime(); }

private:
    const Time m_start;
    const std::chrono::steady_clock::time_point m_steadyStart;
    mutable std::atomic<Time> m_behind { 0 }; ///< the furthest the wall clock was behind this one
};

/// "yyyy-MM-dd hh:mm" in the time zone of the process.
std::string minuteText(Time time);

/// "yyyy-MM-dd hh:mm:ss" in the time zone of the process.
std::string secondText(Time time);

/// "yyyy-MM-ddThh:mm:ss.zzzZ", for log lines.
std::string utcText(Time time);

} // namespace kvx::server
