#pragma once

#include <KVXNetwork/KVXNetwork.h>
#include <atomic>
#include <curl/curl.h>
#include <memory>
#include <vector>

namespace kvx {

/// Probes many addresses at once on the calling thread. Only cancel() may come from another one.
class ServerSearch {
public:
    ServerSearch(QStringList addresses, int port, KVXNetworkProxy proxy);
    ~ServerSearch();
    /// Blocks until every address has been probed or the search was cancelled.
    void run(void *receiver, KVXNetwork::SearchFunction progress);
    void cancel();

private:
    struct Probe;
    void startProbes();
    bool start(const QString &address);
    void finish(CURL *easy, CURLcode result);
    void report(const QString &text);

    const QStringList m_addresses;
    const int m_port;
    const KVXNetworkProxy m_proxy;
    void *m_receiver = nullptr;
    KVXNetwork::SearchFunction m_progress = nullptr;
    int m_next = 0;
    int m_done = 0;
    CURLM *const m_multi;
    std::vector<std::unique_ptr<Probe>> m_probes;
    std::atomic<bool> m_cancelled { false };
};

} // namespace kvx
