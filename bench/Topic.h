#pragma once

#include <QString>
#include <vector>

namespace kvx::bench {

/// Publishes so many small messages, one after the other, to so many subscribers that do nothing
/// but look at the clock. Gives the milliseconds from each publishing to each receipt.
std::vector<double> bareNotifications(int brokerPort, int subscribers, int messages);

} // namespace kvx::bench
