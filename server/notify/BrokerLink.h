#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace kvx::server {

struct Config;

class BrokerError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One connection to the broker with one producer. Made when needed and thrown away when it breaks.
/// One thread; only the callbacks come on others.
class BrokerLink {
public:
    enum class Topic {
        Notifications, ///< what clients hear
        Guard, ///< what only the broker's guard hears
    };
    /// Called when the broker has a message, or never will: then with its reason. On a thread of
    /// the library.
    using Receipt = std::function<void(bool delivered, const std::string &refusal)>;

    /// Connects; throws BrokerError. `broken` is called at least once when the connection is lost.
    BrokerLink(const Config &config, Topic topic, std::function<void(const std::string &)> broken);
    ~BrokerLink();

    /// Whether the guard stands before this broker; asked at the other end of this very connection.
    bool isGuarded() const;

    /// Hands a message to the broker without waiting for it; a guard passes it on to the client IDs
    /// `to` only (e-mails joined by ";"; nothing: everybody). Throws BrokerError.
    void send(const std::string &text, const std::optional<std::string> &to, Receipt receipt);

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace kvx::server
