#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace kvx {

/// Counts the threads that are inside an object which another thread wants to leave behind.
/// Once closed it lets nobody in; those who are inside can be waited for. Any thread.
class CallGate {
public:
    /// Inside from construction to destruction, unless the gate was closed: then false.
    class Pass {
    public:
        explicit Pass(CallGate &gate);
        ~Pass();
        Pass(const Pass &) = delete;
        Pass &operator=(const Pass &) = delete;
        explicit operator bool() const { return m_inside; }

    private:
        CallGate &m_gate;
        bool m_inside;
    };

    void close();
    /// Nobody is inside any more. The gate may be destroyed then, if it was closed.
    void waitUntilEmpty();
    bool waitUntilEmpty(std::chrono::milliseconds limit);

private:
    std::mutex m_mutex;
    std::condition_variable m_left;
    int m_inside = 0;
    bool m_closed = false;
};

} // namespace kvx
