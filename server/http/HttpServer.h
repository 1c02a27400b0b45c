#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

namespace kvx::server {

class Dispatcher;
struct Environment;

/// An address cannot be served; the text names it.
class ListenError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Answer of a health page: good or not, and one line for each thing looked at.
struct HealthReport {
    bool good = true;
    std::string text;
};

/// The two listeners and their threads. The services' paths are those of allEndpoints(); the
/// second listener answers /livez and /readyz.
class HttpServer {
public:
    /// `ready` is asked for each /readyz, on any thread, and answers once, on any thread.
    using ReadyCheck = std::function<void(std::function<void(HealthReport)>)>;
    HttpServer(const Environment &environment, Dispatcher &dispatcher, ReadyCheck ready);
    ~HttpServer();

    /// Binds both addresses. Throws ListenError.
    void listen();
    std::uint16_t port() const; ///< useful where port 0 was configured
    std::uint16_t adminPort() const;

    /// Serves until SIGTERM or SIGINT, then lets running requests end (20 s at most) and returns.
    void run();

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace kvx::server
