#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kvx::test {

/// A real HTTP/1.1 server on 127.0.0.1 in threads of its own, scripted per path: it can answer
/// properly, slowly, in part or not at all. Every request is recorded as it came over the wire.
class LoopbackServer {
public:
    struct Request {
        std::string method;
        std::string target; ///< path with query; an absolute URL when a proxy was spoken to
        std::map<std::string, std::string> headers; ///< names in lower case
        std::string head; ///< raw bytes up to and including the empty line
        std::string body; ///< the first 4 MiB
        std::size_t bodySize = 0;
        int connection = 0; ///< 1 for the first accepted one

        std::string header(const std::string &name) const;
    };

    /// The client's end of a connection, for a handler.
    class Connection {
    public:
        /// False when the client is gone.
        bool send(const std::string &bytes);
        /// Waits; false at once when the server is being stopped.
        bool wait(int milliseconds);
        /// No further request is read from it after this handler.
        void close() { m_open = false; }
        /// Ends it with a TCP reset instead of a proper end.
        void reset();
        bool clientIsGone() const;

    private:
        friend class LoopbackServer;
        LoopbackServer *m_server = nullptr;
        int m_socket = -1;
        int m_number = 0;
        bool m_open = true;
        bool m_reset = false;
        std::string m_unread;
        std::thread m_thread;
    };

    using Handler = std::function<void(const Request &, Connection &)>;
    /// Called before the body is read. True: it has answered, the body is not asked for.
    using HeadHandler = std::function<bool(const Request &, Connection &)>;

    /// Bound and accepting when constructed.
    LoopbackServer();
    /// Ends all connections and joins all threads.
    ~LoopbackServer();
    LoopbackServer(const LoopbackServer &) = delete;
    LoopbackServer &operator=(const LoopbackServer &) = delete;

    int port() const { return m_port; }
    /// "http://127.0.0.1:port" + path.
    std::string url(const std::string &path = "/kvx/service") const;

    /// Who answers requests to the path (without query); the last one set counts. Other paths get
    /// 404.
    void handle(const std::string &path, Handler handler);
    void handleHead(const std::string &path, HeadHandler handler);

    std::vector<Request> requests() const;
    Request lastRequest() const;
    /// True when so many requests have arrived within the time.
    bool waitForRequests(std::size_t count, int milliseconds = 5000) const;
    int connections() const;
    /// Connections that still stand.
    int openConnections() const;
    /// Ends every connection that stands, as a restarted server does.
    void dropConnections();

    /// A complete response with Content-Length.
    static std::string response(const std::string &body, int status = 200,
        const std::string &headers = "Content-Type: application/json\r\n");
    /// A handler that always answers so.
    static Handler answer(
        const std::string &body, int status = 200, const std::string &headers = "");
    /// A handler that sends these bytes and closes.
    static Handler raw(const std::string &bytes);

private:
    void accept();
    void serve(Connection &connection);
    bool receive(Connection &connection) const;
    bool readHead(Connection &connection, Request &request) const;
    bool readBody(Connection &connection, Request &request) const;

    int m_listener = -1;
    int m_port = 0;
    std::thread m_thread;
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    bool m_stopping = false;
    std::map<std::string, Handler> m_handlers;
    std::map<std::string, HeadHandler> m_headHandlers;
    std::vector<Request> m_requests;
    std::vector<std::unique_ptr<Connection>> m_connections;
};

} // namespace kvx::test
