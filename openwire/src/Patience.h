#pragma once

#include <chrono>
#include <mutex>

namespace kvx::openwire {

/// What a connection may wait in all until it works, so that a broker that is late with every
/// answer does not keep a login waiting for each of them. Any thread.
class Patience {
public:
    using Clock = std::chrono::steady_clock;

    explicit Patience(Clock::duration all);

    /// The time that a wait of that limit gets.
    Clock::duration allowed(Clock::duration limit) const;
    /// A wait is over that began then.
    void spend(Clock::time_point begin);
    /// The connection works: every wait has its own limit from now on.
    void setEndless();
    Clock::duration left() const;

private:
    mutable std::mutex m_mutex;
    Clock::duration m_left;
    bool m_endless = false;
};

} // namespace kvx::openwire
