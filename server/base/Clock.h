#pragma once

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

private:
    const Time m_start;
    const std::chrono::steady_clock::time_point m_steadyStart;
};

/// "yyyy-MM-dd hh:mm" in the time zone of the process.
std::string minuteText(Time time);

/// "yyyy-MM-dd hh:mm:ss" in the time zone of the process.
std::string secondText(Time time);

/// "yyyy-MM-ddThh:mm:ss.zzzZ", for log lines.
std::string utcText(Time time);

} // namespace kvx::server
