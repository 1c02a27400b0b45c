#include "http/HttpServer.h"
#include "base/Config.h"
#include "base/Log.h"
#include "http/Connection.h"
#include "http/ConnectionLimits.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <map>
#include <mutex>
#include <thread>

namespace kvx::server {

namespace asio = boost::asio;
using Tcp = asio::ip::tcp;

namespace {

constexpr std::chrono::seconds longestStop { 20 };
constexpr std::chrono::milliseconds acceptPause { 50 };

int loopCount(const Config &config)
{
    const auto cores = static_cast<int>(std::thread::hardware_concurrency());
    return config.threads > 0 ? config.threads : std::max(2, cores);
}

/// An event loop with the one thread that runs it. With several threads a loop would wake another
/// for each step of a request.
struct Loop {
    asio::io_context io { 1 };
    asio::executor_work_guard<asio::io_context::executor_type> kept { io.get_executor() };
};

} // namespace

class HttpServer::Impl {
public:
    Impl(const Environment &environment, Dispatcher &dispatcher, ReadyCheck ready)
        : m_config(environment.config)
        , m_limits(environment.config)
        , m_loops(static_cast<std::size_t>(loopCount(environment.config)))
        , m_files(4)
        , m_digests(2)
        , m_context { environment, dispatcher, std::move(ready), m_files, m_digests, m_stopping }
        , m_services(m_loops.front().io)
        , m_admin(m_loops.front().io)
        , m_signals(m_loops.front().io)
        , m_stopTimer(m_loops.front().io)
    {
    }

    ~Impl()
    {
        m_files.join();
        m_digests.join();
    }

    static void bind(Tcp::acceptor &acceptor, const HostPort &address)
    {
        boost::system::error_code error;
        const std::string host = address.host == "localhost" ? "127.0.0.1" : address.host;
        const auto ip = asio::ip::make_address(host, error);
        const Tcp::endpoint endpoint(ip, address.port);
        if (!error)
            acceptor.open(endpoint.protocol(), error);
        if (!error)
            acceptor.set_option(Tcp::acceptor::reuse_address(true), error);
        if (!error)
            acceptor.bind(endpoint, error);
        if (!error)
            acceptor.listen(asio::socket_base::max_listen_connections, error);
        if (error)
            throw ListenError(
                address.host + ":" + std::to_string(address.port) + ": " + error.message());
    }

    void listen()
    {
        bind(m_services, m_config.listen);
        bind(m_admin, m_config.adminListen);
        std::signal(SIGPIPE, SIG_IGN);
        std::signal(SIGXFSZ, SIG_IGN);
        m_signals.add(SIGTERM);
        m_signals.add(SIGINT);
    }

    void run()
    {
        m_signals.async_wait([this](boost::system::error_code error, int) {
            if (!error)
                stop();
        });
        accept(m_services, Connection::Kind::Services);
        accept(m_admin, Connection::Kind::Admin);
        std::vector<std::thread> threads;
        for (std::size_t i = 1; i < m_loops.size(); ++i)
            threads.emplace_back([this, i] { m_loops[i].io.run(); });
        m_loops.front().io.run();
        for (std::thread &thread : threads)
            thread.join();
    }

    Tcp::acceptor &services() { return m_services; }
    Tcp::acceptor &admin() { return m_admin; }

private:
    using Verdict = ConnectionLimits::Verdict;

    void accept(Tcp::acceptor &acceptor, Connection::Kind kind)
    {
        m_nextLoop = (m_nextLoop + 1) % m_loops.size();
        acceptor.async_accept(m_loops[m_nextLoop].io.get_executor(),
            [this, &acceptor, kind](boost::system::error_code error, Tcp::socket socket) {
                if (!acceptor.is_open())
                    return;
                if (!error)
                    take(std::move(socket), kind);
                if (!error || error == asio::error::connection_aborted)
                    accept(acceptor, kind);
                else
                    acceptLater(acceptor, kind, error);
            });
    }

    /// Out of descriptors: accepting at once again would only burn the processor.
    void acceptLater(
        Tcp::acceptor &acceptor, Connection::Kind kind, const boost::system::error_code &cause)
    {
        logLine(LogLevel::Warning, "connection not accepted", { { "cause", cause.message() } });
        auto timer = std::make_shared<asio::steady_timer>(m_loops.front().io, acceptPause);
        timer->async_wait([this, timer, &acceptor, kind](boost::system::error_code) {
            if (acceptor.is_open())
                accept(acceptor, kind);
        });
    }

    void take(Tcp::socket socket, Connection::Kind kind)
    {
        boost::system::error_code error;
        const auto remote = socket.remote_endpoint(error);
        if (error)
            return;
        const std::string peer = remote.address().to_string();
        socket.set_option(Tcp::no_delay(true), error);
        const bool isCounted = kind == Connection::Kind::Services;
        const Verdict verdict = isCounted ? m_limits.admit(peer) : Verdict::Admitted;
        if (verdict == Verdict::Dropped)
            return;
        const std::uint64_t id = ++m_lastId;
        auto connection = std::make_shared<Connection>(
            std::move(socket), m_context, kind, peer, id, [this, isCounted, peer, verdict, id] {
                forget(id);
                if (isCounted)
                    m_limits.leave(peer, verdict);
            });
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_connections[id] = connection;
        }
        if (verdict == Verdict::Admitted)
            connection->start();
        else
            connection->turnAway(verdict == Verdict::ServerFull ? 503 : 429);
    }

    void forget(std::uint64_t id)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_connections.erase(id);
    }

    void stop()
    {
        logLine(LogLevel::Info, "stopping");
        m_stopping = true;
        boost::system::error_code ignored;
        m_services.close(ignored);
        m_admin.close(ignored);
        m_context.dispatcher.drain();
        std::vector<std::shared_ptr<Connection>> open;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            for (const auto &[id, connection] : m_connections) {
                if (auto living = connection.lock())
                    open.push_back(std::move(living));
            }
        }
        for (const auto &connection : open)
            connection->stop();
        m_stopEnd = std::chrono::steady_clock::now() + longestStop;
        waitForEnd();
    }

    void waitForEnd()
    {
        bool gone = false;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            gone = m_connections.empty();
        }
        if (gone || std::chrono::steady_clock::now() > m_stopEnd) {
            for (Loop &loop : m_loops)
                loop.io.stop();
            return;
        }
        m_stopTimer.expires_after(std::chrono::milliseconds(20));
        m_stopTimer.async_wait([this](boost::system::error_code) { waitForEnd(); });
    }

    const Config &m_config;
    std::atomic<bool> m_stopping { false };
    std::mutex m_mutex;
    std::map<std::uint64_t, std::weak_ptr<Connection>> m_connections;
    ConnectionLimits m_limits;
    std::atomic<std::uint64_t> m_lastId { 0 };
    std::chrono::steady_clock::time_point m_stopEnd;

    /// Accepting and stopping run on the first, connections on each in turn.
    std::vector<Loop> m_loops;
    std::size_t m_nextLoop = 0;
    asio::thread_pool m_files;
    asio::thread_pool m_digests;
    ConnectionContext m_context;
    Tcp::acceptor m_services;
    Tcp::acceptor m_admin;
    asio::signal_set m_signals;
    asio::steady_timer m_stopTimer;
};

HttpServer::HttpServer(const Environment &environment, Dispatcher &dispatcher, ReadyCheck ready)
    : m_impl(std::make_unique<Impl>(environment, dispatcher, std::move(ready)))
{
}

HttpServer::~HttpServer() = default;

void HttpServer::listen()
{
    m_impl->listen();
}

std::uint16_t HttpServer::port() const
{
    return m_impl->services().local_endpoint().port();
}

std::uint16_t HttpServer::adminPort() const
{
    return m_impl->admin().local_endpoint().port();
}

void HttpServer::run()
{
    m_impl->run();
}

} // namespace kvx::server
