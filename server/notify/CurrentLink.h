#pragma once

#include "notify/BrokerLink.h"

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace kvx::server {

struct Config;

/// The connection to the broker that a worker thread has at the moment, if any. What an earlier one
/// still reports counts no more. The worker lends its mutex, which guards what is reported, and
/// the condition variable that a report wakes.
class CurrentLink {
public:
    CurrentLink(const Config &config, BrokerLink::Topic topic, std::mutex &mutex,
        std::condition_variable &changed);

    // On the worker's thread, without the mutex.

    /// Throws BrokerError.
    void connect();
    void drop();
    bool isThere() const { return m_link != nullptr; }
    /// Only while it is there.
    bool isGuarded() const { return m_link->isGuarded(); }
    /// Only while it is there. `receipt` is called with the mutex. Throws BrokerError.
    void send(
        const std::string &text, const std::optional<std::string> &to, BrokerLink::Receipt receipt);

    // With the mutex.

    bool isBroken() const { return m_broken; }
    const std::string &cause() const { return m_cause; }
    void setBroken(const std::string &cause);

private:
    const Config &m_config;
    const BrokerLink::Topic m_topic;
    std::mutex &m_mutex;
    std::condition_variable &m_changed;
    std::unique_ptr<BrokerLink> m_link;
    std::uint64_t m_age = 0;
    bool m_broken = false;
    std::string m_cause;
};

} // namespace kvx::server
