#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

namespace kvx::server {

struct Config;

class BrokerError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One connection to the broker with one producer for the topic of all notifications. Made when
/// needed and thrown away when it breaks. One thread; only the callbacks come on others.
class BrokerLink {
public:
    /// Called when the broker has a message (or never will: false), on a thread of the library.
    using Receipt = std::function<void(bool delivered)>;

    /// Connects; throws BrokerError. `broken` is called at least once when the connection is lost.
    BrokerLink(const Config &config, std::function<void(const std::string &)> broken);
    ~BrokerLink();

    /// Hands a message to the broker without waiting for it. Throws BrokerError.
    void send(const std::string &text, Receipt receipt);

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace kvx::server
