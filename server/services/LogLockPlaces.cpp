#include "services/LogLockPlaces.h"

namespace kvx::server {

namespace {

constexpr Time keptFor = 10'000;
constexpr std::size_t sweepAbove = 1000;

} // namespace

LogLockPlaces::Entry &LogLockPlaces::entry(std::int64_t projectId, std::int64_t sessionId, Time now)
{
    if (m_entries.size() > sweepAbove) {
        for (auto it = m_entries.begin(); it != m_entries.end();)
            it = it->second.until < now ? m_entries.erase(it) : std::next(it);
    }
    Entry &found = m_entries[{ projectId, sessionId }];
    if (found.until < now)
        found.place = { ++m_last, 0 };
    return found;
}

LogLockPlaces::Place LogLockPlaces::of(std::int64_t projectId, std::int64_t sessionId, Time now)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    Entry &found = entry(projectId, sessionId, now);
    found.until = now + keptFor;
    return found.place;
}

void LogLockPlaces::keep(std::int64_t projectId, std::int64_t sessionId, Time held, Time now)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    Entry &found = entry(projectId, sessionId, now);
    found.place.held += held;
    found.until = now + keptFor;
}

void LogLockPlaces::leave(std::int64_t projectId, std::int64_t sessionId)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_entries.erase({ projectId, sessionId });
}

} // namespace kvx::server
