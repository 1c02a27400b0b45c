#pragma once

#include "base/Clock.h"
#include "notify/BrokerWorker.h"

#include <atomic>
#include <chrono>
#include <string>

namespace kvx::server {

class DbPool;

/// Tells the broker's guard who has a session: the whole list after each login and each end of a
/// session, and once a second besides, which is how ends come through that the clock or a command
/// brought about. A thread and a connection of its own: a message that waits must not hold it up.
class GuardFeed final : public BrokerWorker {
public:
    enum class State {
        Away, ///< the broker is not reached, or the guard has not confirmed anything yet
        None, ///< the broker has no guard
        Ok,
    };

    GuardFeed(const Config &config, const Clock &clock, DbPool &pool);
    ~GuardFeed();

    State state() const { return m_state; }

    /// False when the thread could not be ended in time.
    bool stop(std::chrono::milliseconds limit) { return BrokerWorker::stop({}, limit); }

private:
    void run();
    void connect();
    void tell();
    void drop(const std::string &cause);
    std::string sessions();

    const Config &m_config;
    const Clock &m_clock;
    DbPool &m_pool;
    std::atomic<State> m_state { State::Away };

    // The feed's thread's own.
    std::chrono::milliseconds m_backoff { 0 };
    std::string m_lastWord; ///< what was logged last

    bool m_received = false; ///< guarded
};

} // namespace kvx::server
