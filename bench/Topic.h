#pragma once

#include <functional>
#include <vector>

namespace kvx::bench {

/// What a subscriber does with a message before he looks at the clock. Called on his own thread.
using Receiver = std::function<void(int message)>;

/// Publishes so many small messages, one after the other, to as many subscribers as there are
/// receivers. Gives the milliseconds from each publishing until each receiver was done. Throws
/// std::runtime_error when one does not arrive.
std::vector<double> bareNotifications(
    int brokerPort, const std::vector<Receiver> &receivers, int messages);

} // namespace kvx::bench
