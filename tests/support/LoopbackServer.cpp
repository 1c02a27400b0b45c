#include "support/LoopbackServer.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <netinet/tcp.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace kvx::test {

namespace {

const std::size_t KeptBody = 4 * 1024 * 1024;
const char EndOfHead[] = "\r\n\r\n";

std::string trimmed(const std::string &text)
{
    const auto begin = text.find_first_not_of(" \t\r\n");
    const auto end = text.find_last_not_of(" \t\r\n");
    return begin == std::string::npos ? std::string() : text.substr(begin, end - begin + 1);
}

std::string lowered(std::string text)
{
    for (char &c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// The path of a target, which a client of a proxy gives with scheme and host.
std::string pathOf(std::string target)
{
    const auto scheme = target.find("://");
    if (scheme != std::string::npos) {
        const auto slash = target.find('/', scheme + 3);
        target = slash == std::string::npos ? "/" : target.substr(slash);
    }
    return target.substr(0, target.find('?'));
}

void parseHead(LoopbackServer::Request &request)
{
    const auto endOfLine = request.head.find("\r\n");
    const std::string line = request.head.substr(0, endOfLine);
    const auto first = line.find(' ');
    const auto second = line.rfind(' ');
    if (first == std::string::npos || second <= first)
        return;
    request.method = line.substr(0, first);
    request.target = line.substr(first + 1, second - first - 1);
    for (auto at = endOfLine + 2; at + 2 < request.head.size();) {
        const auto end = request.head.find("\r\n", at);
        const std::string field = request.head.substr(at, end - at);
        const auto colon = field.find(':');
        if (colon != std::string::npos)
            request.headers[lowered(trimmed(field.substr(0, colon)))]
                = trimmed(field.substr(colon + 1));
        at = end + 2;
    }
}

} // namespace

std::string LoopbackServer::Request::header(const std::string &name) const
{
    const auto found = headers.find(name);
    return found == headers.end() ? std::string() : found->second;
}

bool LoopbackServer::Connection::send(const std::string &bytes)
{
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count
            = ::send(m_socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

bool LoopbackServer::Connection::wait(int milliseconds)
{
    std::unique_lock<std::mutex> lock(m_server->m_mutex);
    return !m_server->m_changed.wait_for(
        lock, std::chrono::milliseconds(milliseconds), [this] { return m_server->m_stopping; });
}

void LoopbackServer::Connection::reset()
{
    m_open = false;
    m_reset = true;
}

bool LoopbackServer::Connection::clientIsGone() const
{
    char byte = 0;
    const ssize_t count = ::recv(m_socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    return count == 0 || (count < 0 && errno != EAGAIN && errno != EWOULDBLOCK);
}

LoopbackServer::LoopbackServer()
{
    m_listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(m_listener, reinterpret_cast<sockaddr *>(&address), size) != 0
        || ::listen(m_listener, 128) != 0
        || ::getsockname(m_listener, reinterpret_cast<sockaddr *>(&address), &size) != 0)
        throw std::runtime_error("LoopbackServer: no port to listen on");
    m_port = ntohs(address.sin_port);
    m_thread = std::thread([this] { accept(); });
}

LoopbackServer::~LoopbackServer()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
    }
    m_changed.notify_all();
    ::shutdown(m_listener, SHUT_RDWR);
    m_thread.join();
    ::close(m_listener);
    dropConnections();
    for (const auto &connection : m_connections)
        connection->m_thread.join();
}

std::string LoopbackServer::url(const std::string &path) const
{
    return "http://127.0.0.1:" + std::to_string(m_port) + path;
}

void LoopbackServer::handle(const std::string &path, Handler handler)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_handlers[path] = std::move(handler);
}

void LoopbackServer::handleHead(const std::string &path, HeadHandler handler)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_headHandlers[path] = std::move(handler);
}

std::vector<LoopbackServer::Request> LoopbackServer::requests() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_requests;
}

LoopbackServer::Request LoopbackServer::lastRequest() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_requests.empty() ? Request() : m_requests.back();
}

bool LoopbackServer::waitForRequests(std::size_t count, int milliseconds) const
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::milliseconds(milliseconds),
        [this, count] { return m_requests.size() >= count; });
}

int LoopbackServer::connections() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<int>(m_connections.size());
}

int LoopbackServer::openConnections() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<int>(std::count_if(m_connections.begin(), m_connections.end(),
        [](const auto &connection) { return connection->m_socket >= 0; }));
}

void LoopbackServer::dropConnections()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto &connection : m_connections) {
        if (connection->m_socket >= 0)
            ::shutdown(connection->m_socket, SHUT_RDWR);
    }
}

std::string LoopbackServer::response(
    const std::string &body, int status, const std::string &headers)
{
    return "HTTP/1.1 " + std::to_string(status) + " Answer\r\n" + headers
        + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

LoopbackServer::Handler LoopbackServer::answer(
    const std::string &body, int status, const std::string &headers)
{
    const std::string bytes = response(body, status, headers);
    return [bytes](const Request &, Connection &connection) { connection.send(bytes); };
}

LoopbackServer::Handler LoopbackServer::raw(const std::string &bytes)
{
    return [bytes](const Request &, Connection &connection) {
        connection.send(bytes);
        connection.close();
    };
}

void LoopbackServer::accept()
{
    for (;;) {
        const int socket = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0 && (errno == EINTR || errno == ECONNABORTED))
            continue;
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_stopping || socket < 0) {
            if (socket >= 0)
                ::close(socket);
            return;
        }
        const int on = 1;
        ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        auto connection = std::make_unique<Connection>();
        connection->m_server = this;
        connection->m_socket = socket;
        connection->m_number = static_cast<int>(m_connections.size()) + 1;
        m_connections.push_back(std::move(connection));
        Connection *added = m_connections.back().get();
        added->m_thread = std::thread([this, added] { serve(*added); });
    }
}

void LoopbackServer::serve(Connection &connection)
{
    for (;;) {
        Request request;
        request.connection = connection.m_number;
        if (!connection.m_open || !readHead(connection, request))
            break;
        Handler handler;
        HeadHandler headHandler;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            const std::string path = pathOf(request.target);
            const auto found = m_handlers.find(path);
            handler = found == m_handlers.end() ? answer("", 404) : found->second;
            const auto head = m_headHandlers.find(path);
            if (head != m_headHandlers.end())
                headHandler = head->second;
        }
        const bool answered = headHandler && headHandler(request, connection);
        const bool complete = answered || readBody(connection, request);
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_requests.push_back(request);
        }
        m_changed.notify_all();
        if (!complete)
            break;
        if (!answered)
            handler(request, connection);
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (connection.m_reset) {
        const linger hard { 1, 0 };
        ::setsockopt(connection.m_socket, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    }
    ::close(connection.m_socket);
    connection.m_socket = -1;
}

bool LoopbackServer::receive(Connection &connection) const
{
    char buffer[64 * 1024];
    const ssize_t count = ::recv(connection.m_socket, buffer, sizeof buffer, 0);
    if (count <= 0)
        return false;
    connection.m_unread.append(buffer, static_cast<std::size_t>(count));
    return true;
}

bool LoopbackServer::readHead(Connection &connection, Request &request) const
{
    std::size_t end = 0;
    while ((end = connection.m_unread.find(EndOfHead)) == std::string::npos) {
        if (!receive(connection))
            return false;
    }
    request.head = connection.m_unread.substr(0, end + 4);
    connection.m_unread.erase(0, end + 4);
    parseHead(request);
    return true;
}

bool LoopbackServer::readBody(Connection &connection, Request &request) const
{
    const std::size_t size = std::strtoull(request.header("content-length").c_str(), nullptr, 10);
    if (size > 0 && !request.header("expect").empty()
        && !connection.send("HTTP/1.1 100 Continue\r\n\r\n"))
        return false;
    while (request.bodySize < size) {
        if (connection.m_unread.empty() && !receive(connection))
            return false;
        const std::size_t taken = std::min(size - request.bodySize, connection.m_unread.size());
        if (request.body.size() < KeptBody)
            request.body.append(connection.m_unread, 0, taken);
        request.bodySize += taken;
        connection.m_unread.erase(0, taken);
    }
    return true;
}

} // namespace kvx::test
