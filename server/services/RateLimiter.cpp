#include "services/RateLimiter.h"

#include <algorithm>

namespace kvx::server {

bool RateLimiter::admit(std::int64_t sessionId, Rate rate, Time now)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_buckets.size() > 20'000)
        forgetFull(now);
    const auto [place, fresh] = m_buckets.try_emplace(sessionId, Bucket { rate.burst, now });
    Bucket &bucket = place->second;
    bucket.level = std::min(
        rate.burst, bucket.level + static_cast<double>(now - bucket.at) / 1000.0 * rate.perSecond);
    bucket.at = now;
    if (bucket.level < 1)
        return false;
    bucket.level -= 1;
    return true;
}

void RateLimiter::forgetFull(Time now)
{
    // Every rate fills its bucket within ten seconds; an older one says nothing any more.
    for (auto i = m_buckets.begin(); i != m_buckets.end();)
        i = now - i->second.at > 10'000 ? m_buckets.erase(i) : std::next(i);
}

} // namespace kvx::server
