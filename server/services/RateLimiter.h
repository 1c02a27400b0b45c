#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <mutex>
#include <unordered_map>

namespace kvx::server {

/// Requests per second and session, with a burst. Kept in memory: losing the counts costs nothing
/// but a little patience with whoever was over them. Any thread.
class RateLimiter {
public:
    struct Rate {
        double perSecond;
        double burst;
    };
    static constexpr Rate requests { 500, 5000 };
    static constexpr Rate nameQuestions { 5, 50 };

    bool admit(std::int64_t sessionId, Rate rate, Time now);

private:
    struct Bucket {
        double level;
        Time at;
    };
    void forgetFull(Time now);

    std::mutex m_mutex;
    std::unordered_map<std::int64_t, Bucket> m_buckets;
};

} // namespace kvx::server
