#pragma once

#include <KVXNetwork/KVXNetwork.h>
#include <chrono>

namespace kvx {

/// Tells a receiver how far a transfer is, often enough for a progress bar and no more often.
class ProgressReport {
public:
    ProgressReport(void *receiver, KVXNetwork::ProgressFunction function);
    void moved(qint64 done, qint64 total);
    /// The last word of a transfer that succeeded.
    void finish(qint64 total);

private:
    void report(qint64 done, qint64 total);

    void *m_receiver;
    KVXNetwork::ProgressFunction m_function;
    qint64 m_done = -1;
    qint64 m_total = -1;
    std::chrono::steady_clock::time_point m_next {};
};

} // namespace kvx
