#pragma once

#include <atomic>
#include <curl/curl.h>

namespace kvx {

/// A libcurl handle, new for every exchange, and the connections that are kept from one to the
/// next. Driven by one thread at a time; only abort() may come from another one.
class CurlHandle {
public:
    CurlHandle();
    ~CurlHandle();
    CurlHandle(const CurlHandle &) = delete;
    CurlHandle &operator=(const CurlHandle &) = delete;

    CURL *easy() const { return m_easy; }
    /// Blocks until the prepared exchange is over.
    CURLcode run();
    /// Ends the run at once; one that is still to come, too, until rearm().
    void abort();
    /// Before each exchange.
    void rearm();
    /// False when the peer has sent something on the last connection that nobody has asked for.
    bool isQuiet() const;

private:
    CURL *m_easy;
    CURLM *const m_multi;
    std::atomic<bool> m_aborted { false };
    curl_socket_t m_socket = CURL_SOCKET_BAD;
};

} // namespace kvx
