#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kvx::bench {

using Moment = std::chrono::steady_clock::time_point;

/// Publishes small messages on a topic of a broker. Throws cms::CMSException.
class BareTopic {
public:
    BareTopic(int brokerPort, const std::string &name);
    ~BareTopic();

    Moment publish();

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

/// A subscriber with nothing around the library.
class BareReceiver {
public:
    BareReceiver(int brokerPort, const std::string &topic);
    ~BareReceiver();

    /// When the next message was handed over. Throws std::runtime_error when none comes.
    Moment next();

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

/// What a subscriber does with a message before he looks at the clock. Called on his own thread.
using Receiver = std::function<void(int message)>;

/// Publishes so many small messages, one after the other, to as many subscribers as there are
/// receivers. Gives the milliseconds from each publishing until each receiver was done. Throws
/// std::runtime_error when one does not arrive.
std::vector<double> bareNotifications(
    int brokerPort, const std::vector<Receiver> &receivers, int messages);

} // namespace kvx::bench
