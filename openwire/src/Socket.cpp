#include "Socket.h"

#include "Worker.h"

#include <cms/CMSException.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace kvx::openwire {

namespace {

using SocketClock = Socket::Clock;

struct SocketAddress {
    sockaddr_storage storage = {};
    socklen_t size = 0;
};

struct LookUp {
    std::vector<SocketAddress> addresses;
    int error = 0;
};

LookUp lookUp(const std::string &host, std::uint16_t port, int flags)
{
    LookUp result;
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV | flags;
    addrinfo *found = nullptr;
    result.error = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
    for (const addrinfo *entry = found; entry; entry = entry->ai_next) {
        SocketAddress address;
        address.size = std::min<socklen_t>(entry->ai_addrlen, sizeof address.storage);
        std::memcpy(&address.storage, entry->ai_addr, address.size);
        result.addresses.push_back(address);
    }
    if (found)
        freeaddrinfo(found);
    return result;
}

// The system's name service has no deadline of its own, so it runs on a thread that can be left
// behind.
std::vector<SocketAddress> addressesOf(
    const std::string &host, std::uint16_t port, SocketClock::time_point deadline)
{
    LookUp numeric = lookUp(host, port, AI_NUMERICHOST);
    if (numeric.error == 0)
        return numeric.addresses;
    const auto result = std::make_shared<LookUp>();
    Worker resolver;
    resolver.start([result, host, port] { *result = lookUp(host, port, 0); });
    if (!resolver.endedBy(deadline))
        throw cms::CMSException("Looking up the host name " + host + " took too long");
    if (result->error != 0)
        throw cms::CMSException("Unknown host " + host + ": " + gai_strerror(result->error));
    return result->addresses;
}

// 1 when ready, 0 at the deadline.
int waitFor(int handle, short events, SocketClock::time_point deadline)
{
    for (;;) {
        const auto left
            = std::chrono::ceil<std::chrono::milliseconds>(deadline - SocketClock::now());
        pollfd entry = { handle, events, 0 };
        const int limit = static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 3600 * 1000));
        const int ready = ::poll(&entry, 1, limit);
        if (ready > 0)
            return 1;
        if (ready < 0 && errno != EINTR)
            throw std::system_error(errno, std::generic_category());
        if (SocketClock::now() >= deadline)
            return 0;
    }
}

// 0, or the error number.
int connectTo(int handle, const SocketAddress &address, SocketClock::time_point deadline)
{
    if (::connect(handle, reinterpret_cast<const sockaddr *>(&address.storage), address.size) == 0)
        return 0;
    if (errno != EINPROGRESS)
        return errno;
    if (waitFor(handle, POLLOUT, deadline) == 0)
        return ETIMEDOUT;
    int error = 0;
    socklen_t size = sizeof error;
    ::getsockopt(handle, SOL_SOCKET, SO_ERROR, &error, &size);
    return error;
}

} // namespace

Socket::Socket(const std::string &host, std::uint16_t port, std::chrono::milliseconds limit)
{
    const SocketClock::time_point deadline = SocketClock::now() + limit;
    int error = EHOSTUNREACH;
    const std::vector<SocketAddress> addresses = addressesOf(host, port, deadline);
    std::size_t left = addresses.size();
    for (const SocketAddress &address : addresses) {
        // An address that does not answer at all must leave time for the others.
        const auto now = SocketClock::now();
        const auto share = now + (deadline - now) / static_cast<std::int64_t>(left--);
        m_handle
            = ::socket(address.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        error = m_handle < 0 ? errno : connectTo(m_handle, address, share);
        if (error == 0) {
            const int on = 1;
            ::setsockopt(m_handle, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            return;
        }
        if (m_handle >= 0)
            ::close(m_handle);
        m_handle = -1;
    }
    throw cms::CMSException(std::generic_category().message(error));
}

Socket::~Socket()
{
    ::close(m_handle);
}

std::optional<std::size_t> Socket::read(std::vector<char> &buffer, Clock::time_point deadline)
{
    for (;;) {
        const ssize_t count = ::recv(m_handle, buffer.data(), buffer.size(), 0);
        if (count >= 0)
            return static_cast<std::size_t>(count);
        if (errno != EAGAIN && errno != EINTR)
            throw std::system_error(errno, std::generic_category());
        if (errno == EAGAIN && waitFor(m_handle, POLLIN, deadline) == 0)
            return std::nullopt;
    }
}

std::optional<std::size_t> Socket::write(std::string_view bytes, Clock::time_point deadline)
{
    for (;;) {
        const ssize_t count = ::send(m_handle, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count >= 0)
            return static_cast<std::size_t>(count);
        if (errno != EAGAIN && errno != EINTR)
            throw std::system_error(errno, std::generic_category());
        if (errno == EAGAIN && waitFor(m_handle, POLLOUT, deadline) == 0)
            return std::nullopt;
    }
}

void Socket::shutdown()
{
    ::shutdown(m_handle, SHUT_RDWR);
}

} // namespace kvx::openwire
