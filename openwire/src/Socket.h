#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvx::openwire {

/// A connected stream socket. One thread may read and one write at the same time; shutdown() may be
/// called by any and ends the waiting of both.
class Socket {
public:
    using Clock = std::chrono::steady_clock;

    /// Throws cms::CMSException with the system's words when nobody answers at any of the host's
    /// addresses within the limit, looking up the name included.
    Socket(const std::string &host, std::uint16_t port, std::chrono::milliseconds limit);
    ~Socket();
    Socket(const Socket &) = delete;
    Socket &operator=(const Socket &) = delete;

    /// Waits for bytes and puts them into buffer. 0 at the end of the stream, empty at the
    /// deadline. std::system_error when the connection broke.
    std::optional<std::size_t> read(std::vector<char> &buffer, Clock::time_point deadline);

    /// Writes some of bytes and says how many; empty when none could be written by the deadline.
    /// std::system_error when the connection broke.
    std::optional<std::size_t> write(std::string_view bytes, Clock::time_point deadline);

    void shutdown();

private:
    int m_handle = -1;
};

} // namespace kvx::openwire
