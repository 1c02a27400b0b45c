#include "FaultProxy.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace kvx::test {

namespace {

constexpr int beat = 5; // milliseconds, within which a new fault takes effect
constexpr std::size_t most = 1 << 20; // bytes that wait for a slow end

sockaddr_in loopback(int port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return address;
}

int connectTo(int port)
{
    const int target = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    if (port != 0
        && connect(target, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0)
        return target;
    ::close(target);
    return -1;
}

void prepare(int end)
{
    const int on = 1;
    setsockopt(end, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    fcntl(end, F_SETFL, fcntl(end, F_GETFL) | O_NONBLOCK);
}

} // namespace

FaultProxy::FaultProxy(int target)
    : m_listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
    , m_target(target)
{
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    auto *generic = reinterpret_cast<sockaddr *>(&address);
    if (bind(m_listener, generic, size) != 0 || listen(m_listener, 128) != 0
        || getsockname(m_listener, generic, &size) != 0)
        throw std::runtime_error("the proxy finds no port");
    m_port = ntohs(address.sin_port);
    m_thread = std::thread([this] { run(); });
}

FaultProxy::~FaultProxy()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_ending = true;
    }
    m_thread.join();
    for (Connection &connection : m_connections)
        close(connection);
    ::close(m_listener);
}

void FaultProxy::setTarget(int port)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_target = port;
}

void FaultProxy::set(const Fault &fault)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_fault = fault;
    m_struck = false;
    for (Count &count : m_counts)
        count = { 0, fault.after.empty(), {} };
}

void FaultProxy::cutAll()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (Connection &connection : m_connections)
        connection.over = connection.reset = true;
}

void FaultProxy::abandonAll()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (Connection &connection : m_connections)
        connection.abandoned = true;
}

bool FaultProxy::struck()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_struck;
}

bool FaultProxy::awaitStruck(int seconds)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::seconds(seconds), [this] { return m_struck; });
}

long FaultProxy::passed(Direction direction)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_counts[direction].bytes;
}

void FaultProxy::run()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    auto before = std::chrono::steady_clock::now();
    while (!m_ending) {
        std::vector<pollfd> wanted { { m_listener, POLLIN, 0 } };
        for (Connection &connection : m_connections) {
            for (Stream &stream : connection.streams) {
                if (frozen() || connection.abandoned)
                    continue;
                const bool room = !stream.ended && stream.waiting.size() < most;
                wanted.push_back({ room ? stream.from : -1, POLLIN, 0 });
                const bool drips = m_struck && m_fault.kind == Drip;
                const bool due = !stream.waiting.empty() && !(drips && stream.allowance < 1);
                wanted.push_back({ due ? stream.to : -1, POLLOUT, 0 });
            }
        }
        lock.unlock();
        poll(wanted.data(), wanted.size(), beat);
        lock.lock();
        const auto now = std::chrono::steady_clock::now();
        const double seconds = std::chrono::duration<double>(now - before).count();
        before = now;
        accept();
        for (Connection &connection : m_connections) {
            for (const Direction direction : { ToServer, ToClient }) {
                Stream &stream = connection.streams[direction];
                if (frozen() || connection.over || connection.abandoned)
                    break;
                const double rate = static_cast<double>(m_fault.rate);
                stream.allowance = std::min(stream.allowance + seconds * rate, 1 + rate / 10);
                read(connection, direction);
                write(stream);
            }
            const auto &[there, back] = connection.streams;
            connection.over = connection.over || (there.closed && back.closed);
            if (connection.over)
                close(connection);
        }
        m_connections.remove_if([](const Connection &connection) { return connection.over; });
    }
}

void FaultProxy::accept()
{
    for (;;) {
        const int client = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0)
            return;
        const int target = connectTo(m_target);
        if (target < 0) {
            ::close(client);
            continue;
        }
        prepare(client);
        prepare(target);
        m_connections.push_back({ { Stream { client, target }, Stream { target, client } } });
    }
}

void FaultProxy::read(Connection &connection, Direction direction)
{
    Stream &stream = connection.streams[direction];
    char chunk[16384];
    while (!stream.ended && !frozen() && !connection.over && stream.waiting.size() < most) {
        const ssize_t got = recv(stream.from, chunk, sizeof chunk, 0);
        if (got < 0 && (errno == EAGAIN || errno == EINTR))
            return;
        if (got < 0)
            connection.over = connection.reset = true;
        if (got <= 0)
            stream.ended = true;
        else
            pass(connection, direction, std::string(chunk, static_cast<std::size_t>(got)));
    }
}

void FaultProxy::pass(Connection &connection, Direction direction, std::string piece)
{
    Stream &stream = connection.streams[direction];
    Count &count = m_counts[direction];
    std::size_t begin = 0;
    if (!count.counting) {
        const std::size_t kept = count.tail.size();
        count.tail += piece;
        const std::size_t found = count.tail.find(m_fault.after);
        if (found == std::string::npos) {
            count.tail.erase(0, count.tail.size() - std::min(count.tail.size(), most / 16));
            stream.waiting += piece;
            return;
        }
        count.counting = true;
        const std::size_t end = found + m_fault.after.size();
        begin = end > kept ? end - kept : 0;
    }
    const long before = count.bytes;
    const auto length = static_cast<long>(piece.size() - begin);
    count.bytes += length;
    const bool due = m_fault.kind != None && !m_struck && direction == m_fault.direction
        && m_fault.at >= before && m_fault.at < before + length;
    if (!due) {
        stream.waiting += piece;
        return;
    }
    m_struck = true;
    m_changed.notify_all();
    strike(connection, stream, std::move(piece),
        begin + static_cast<std::size_t>(m_fault.at - before));
}

void FaultProxy::strike(Connection &connection, Stream &stream, std::string piece, std::size_t at)
{
    switch (m_fault.kind) {
    case Cut:
    case Truncate:
        stream.waiting += piece.substr(0, at);
        write(stream);
        connection.over = true;
        connection.reset = m_fault.kind == Cut;
        return;
    case Flip:
        piece[at] = static_cast<char>(piece[at] ^ 1);
        break;
    case Repeat:
        piece += std::string(piece);
        break;
    case Freeze:
        // What came before the byte is on its way already.
        stream.waiting += piece.substr(0, at);
        write(stream);
        stream.waiting += piece.substr(at);
        return;
    case Drip:
    case None:
        break;
    }
    stream.waiting += piece;
}

void FaultProxy::write(Stream &stream)
{
    const bool drips = m_struck && m_fault.kind == Drip;
    while (!stream.waiting.empty()) {
        const std::size_t due = drips
            ? std::min(stream.waiting.size(), static_cast<std::size_t>(stream.allowance))
            : stream.waiting.size();
        const ssize_t sent
            = due > 0 ? send(stream.to, stream.waiting.data(), due, MSG_NOSIGNAL) : 0;
        if (sent < 0 && errno != EAGAIN && errno != EINTR) {
            // Nobody there to hear it; what that end has sent still counts.
            stream.waiting.clear();
            stream.ended = true;
        }
        if (sent <= 0)
            break;
        stream.waiting.erase(0, static_cast<std::size_t>(sent));
        if (drips)
            stream.allowance -= static_cast<double>(sent);
    }
    if (stream.ended && stream.waiting.empty() && !stream.closed) {
        shutdown(stream.to, SHUT_WR);
        stream.closed = true;
    }
}

void FaultProxy::close(Connection &connection)
{
    for (const Stream &stream : connection.streams) {
        if (connection.reset) {
            const linger atOnce { 1, 0 };
            setsockopt(stream.from, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
        }
        ::close(stream.from);
    }
}

} // namespace kvx::test
