#pragma once

namespace kvx::server {

/// Ends a piece of work from another thread, once. Any thread.
class StopSignal {
public:
    StopSignal();
    ~StopSignal();
    StopSignal(const StopSignal &) = delete;
    StopSignal &operator=(const StopSignal &) = delete;

    void stop() const;
    /// Can be read from as soon as the work is to end.
    int handle() const { return m_handle; }

private:
    const int m_handle;
};

} // namespace kvx::server
