#include "Relay.h"

#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace kvx::test {

namespace {

constexpr int tickMs = 5;
constexpr std::size_t keptOfTalk = 1 << 20;

int loopbackSocket(int port, bool listening)
{
    const int handle = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<in_port_t>(port));
    const auto *place = reinterpret_cast<const sockaddr *>(&address);
    const bool good = listening
        ? ::bind(handle, place, sizeof address) == 0 && ::listen(handle, 64) == 0
        : ::connect(handle, place, sizeof address) == 0;
    if (!good) {
        ::close(handle);
        return -1;
    }
    return handle;
}

} // namespace

Relay::Relay(int target)
    : m_target(target)
    , m_listener(loopbackSocket(0, true))
{
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    if (m_listener < 0
        || ::getsockname(m_listener, reinterpret_cast<sockaddr *>(&address), &size) != 0)
        throw std::runtime_error("the relay cannot listen");
    m_port = ntohs(address.sin_port);
    m_thread = std::thread([this] { run(); });
}

Relay::~Relay()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_ending = true;
    }
    m_thread.join();
    for (const Pair &pair : m_pairs) {
        ::close(pair.client);
        ::close(pair.target);
    }
    ::close(m_listener);
}

int Relay::count(const std::string &text)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    int found = 0;
    for (const Pair &pair : m_pairs)
        found += !pair.over && pair.said.find(text) != std::string::npos;
    return found;
}

int Relay::cut(const std::string &text)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    int ended = 0;
    for (Pair &pair : m_pairs) {
        if (!pair.over && pair.said.find(text) != std::string::npos) {
            pair.over = true;
            ++ended;
        }
    }
    return ended;
}

void Relay::delay(const std::string &text, std::chrono::milliseconds time)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (Pair &pair : m_pairs) {
        if (pair.said.find(text) != std::string::npos)
            pair.delay = time;
    }
}

void Relay::setRefusing(bool refusing)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_refusing = refusing;
}

void Relay::run()
{
    for (;;) {
        std::vector<pollfd> waiting { { m_listener, POLLIN, 0 } };
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (m_ending)
                return;
            for (auto pair = m_pairs.begin(); pair != m_pairs.end();) {
                if (!pair->over) {
                    waiting.push_back({ pair->client, POLLIN, 0 });
                    waiting.push_back({ pair->target, POLLIN, 0 });
                    ++pair;
                    continue;
                }
                ::close(pair->client);
                ::close(pair->target);
                pair = m_pairs.erase(pair);
            }
        }
        ::poll(waiting.data(), waiting.size(), tickMs);
        const std::lock_guard<std::mutex> lock(m_mutex);
        std::size_t at = 1;
        for (Pair &pair : m_pairs) {
            for (const bool fromClient : { true, false }) {
                if (waiting[at++].revents != 0 && !pair.over)
                    read(pair, fromClient);
            }
            write(pair.target, pair.toTarget, pair.over);
            write(pair.client, pair.toClient, pair.over);
        }
        if (waiting[0].revents != 0)
            accept();
    }
}

void Relay::accept()
{
    const int client = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
    const int target = m_refusing || client < 0 ? -1 : loopbackSocket(m_target, false);
    if (target < 0) {
        ::close(client);
        return;
    }
    Pair pair;
    pair.client = client;
    pair.target = target;
    m_pairs.push_back(pair);
}

void Relay::read(Pair &pair, bool fromClient)
{
    char buffer[65536];
    const ssize_t got
        = ::recv(fromClient ? pair.client : pair.target, buffer, sizeof buffer, MSG_DONTWAIT);
    if (got <= 0) {
        pair.over = got == 0 || (errno != EAGAIN && errno != EINTR);
        return;
    }
    const std::string bytes(buffer, static_cast<std::size_t>(got));
    std::list<Piece> &pieces = fromClient ? pair.toTarget : pair.toClient;
    const auto due = Clock::now() + (fromClient ? pair.delay : std::chrono::milliseconds(0));
    pieces.push_back({ pieces.empty() ? due : std::max(due, pieces.back().due), bytes });
    if (fromClient && pair.said.size() < keptOfTalk)
        pair.said += bytes;
}

void Relay::write(int socket, std::list<Piece> &pieces, bool &over)
{
    while (!over && !pieces.empty() && pieces.front().due <= Clock::now()) {
        std::string &bytes = pieces.front().bytes;
        const ssize_t put = ::send(socket, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (put < 0) {
            over = errno != EAGAIN && errno != EINTR;
            return;
        }
        bytes.erase(0, static_cast<std::size_t>(put));
        if (!bytes.empty())
            return;
        pieces.pop_front();
    }
}

} // namespace kvx::test
