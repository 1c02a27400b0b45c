#include "Patience.h"

#include <algorithm>

namespace kvx::openwire {

Patience::Patience(Clock::duration all)
    : m_left(all)
{
}

Patience::Clock::duration Patience::allowed(Clock::duration limit) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_endless ? limit : std::min(limit, m_left);
}

void Patience::spend(Clock::time_point begin)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_left = std::max(Clock::duration::zero(), m_left - (Clock::now() - begin));
}

void Patience::setEndless()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_endless = true;
}

Patience::Clock::duration Patience::left() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_left;
}

} // namespace kvx::openwire
