#pragma once

#include "CurlHandle.h"

#include <memory>
#include <mutex>
#include <vector>

namespace kvx {

/// Handles for as many threads as are in a request. The one used last is given out first, so a
/// host that posts from one thread keeps using one connection. Callable from several threads.
class HandlePool {
public:
    /// A handle for one exchange; goes back when the lease ends.
    class Lease {
    public:
        explicit Lease(HandlePool &pool);
        ~Lease();
        Lease(const Lease &) = delete;
        Lease &operator=(const Lease &) = delete;
        CurlHandle *operator->() const { return m_handle.get(); }
        /// The connections are not to be used again.
        void spoil() { m_spoiled = true; }

    private:
        HandlePool &m_pool;
        std::unique_ptr<CurlHandle> m_handle;
        unsigned m_generation = 0;
        bool m_spoiled = false;
    };

    /// Closes kept connections; those in use are closed when their exchange is over.
    void clear();
    /// Ends the exchanges under way.
    void abort();

private:
    std::mutex m_mutex;
    std::vector<std::unique_ptr<CurlHandle>> m_idle;
    std::vector<CurlHandle *> m_active;
    unsigned m_generation = 0;
};

} // namespace kvx
