#include "services/ItemsTold.h"

namespace kvx::server {

namespace {

constexpr std::size_t mostListeners = 20'000;

} // namespace

std::optional<std::int64_t> ItemsTold::upTo(const Listener &listener) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_told.find(
        { listener.connectionId, listener.sessionId, listener.projectId, listener.module });
    return found == m_told.end() ? std::nullopt : std::optional(found->second);
}

void ItemsTold::note(const Listener &listener, std::int64_t sequence)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    // Connections are numbered upwards: the lowest are the oldest.
    if (m_told.size() >= mostListeners)
        m_told.erase(m_told.begin());
    m_told[{ listener.connectionId, listener.sessionId, listener.projectId, listener.module }]
        = sequence;
}

} // namespace kvx::server
