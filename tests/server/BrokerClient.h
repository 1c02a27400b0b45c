#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kvx::test {

/// A client of the broker as every host has one: connection under a client ID, no user name, one
/// producer and one subscription of the topic of notifications.
class BrokerClient {
public:
    /// Throws std::runtime_error with the broker's words when it is refused.
    /// With `hear`, messages are handed to it on the client's thread and not kept.
    using Hear = std::function<void(const std::string &text)>;
    BrokerClient(const std::string &brokerUri, const std::string &clientId, Hear hear = {});
    ~BrokerClient();
    BrokerClient(const BrokerClient &) = delete;
    BrokerClient &operator=(const BrokerClient &) = delete;

    /// Returns when the broker has accepted the message; `to` becomes the property "kvxTo".
    void publish(const std::string &text, const std::string &to = {});
    /// Does not wait for the broker.
    void post(const std::string &text);

    /// What was heard so far, as soon as a message holds that text or the time is over.
    std::vector<std::string> awaitText(const std::string &text, int seconds = 20);
    /// The message IDs of what was heard.
    std::vector<std::string> messageIds() const;
    bool isCut() const;
    bool awaitCut(int seconds);

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

/// The broker's words for a connection that it refuses; empty when it is accepted.
std::string refusal(const std::string &brokerUri, const std::string &clientId);

} // namespace kvx::test
