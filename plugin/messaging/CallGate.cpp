#include "messaging/CallGate.h"

namespace kvx {

CallGate::Pass::Pass(CallGate &gate)
    : m_gate(gate)
{
    const std::lock_guard<std::mutex> lock(m_gate.m_mutex);
    m_inside = !m_gate.m_closed;
    if (m_inside)
        ++m_gate.m_inside;
}

CallGate::Pass::~Pass()
{
    if (!m_inside)
        return;
    // Notified under the lock: whoever waits may destroy the gate as soon as it is released.
    const std::lock_guard<std::mutex> lock(m_gate.m_mutex);
    --m_gate.m_inside;
    m_gate.m_left.notify_all();
}

void CallGate::close()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_closed = true;
}

void CallGate::waitUntilEmpty()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_left.wait(lock, [this] { return m_inside == 0; });
}

bool CallGate::waitUntilEmpty(std::chrono::milliseconds limit)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_left.wait_for(lock, limit, [this] { return m_inside == 0; });
}

} // namespace kvx
