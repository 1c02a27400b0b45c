#pragma once

#include "http/HttpServer.h"
#include "http/UploadStream.h"
#include "services/Dispatcher.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/buffer_body.hpp>
#include <boost/beast/http/parser.hpp>

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kvx::server {

/// What connections share and the server keeps.
struct ConnectionContext {
    const Environment &environment;
    Dispatcher &dispatcher;
    HttpServer::ReadyCheck ready;
    /// Threads for what blocks on the disk.
    boost::asio::thread_pool &files;
    /// Threads for what only computes.
    boost::asio::thread_pool &digests;
    std::atomic<bool> &stopping;
};

/// One client connection: reads requests, hands them on, sends replies. All members run on the one
/// thread of the connection's loop, but for the steps given to the file threads, during which
/// nothing else of the connection runs.
class Connection : public std::enable_shared_from_this<Connection> {
public:
    using Socket = boost::asio::ip::tcp::socket;
    enum class Kind { Services, Admin };

    Connection(Socket socket, ConnectionContext &context, Kind kind, std::string peer,
        std::uint64_t id, std::function<void()> closed);
    ~Connection();

    void start();
    /// In place of `start`: answers "Busy" with this status, whatever is asked, and closes. Takes a
    /// few seconds at most.
    void turnAway(int httpStatus);
    /// Closes at once when idle, else after the reply that is due.
    void stop();

private:
    using ErrorCode = boost::system::error_code;
    using Parser = boost::beast::http::request_parser<boost::beast::http::buffer_body>;
    enum class BodyUse { Json, Upload, Discard };

    // Connection.cpp: reading
    void waitForRequest();
    void readHead();
    void onHead(ErrorCode error);
    void onBadHead(ErrorCode error);
    void route();
    void routeAdmin(const std::string &path);
    std::string peerAddress() const;
    std::string header(boost::beast::http::field name) const;
    bool acceptBody(const std::string &method);
    void sendContinue();
    void readBody();
    void onBody(ErrorCode error);
    std::size_t chunkSize() const;
    bool isBodyTooSlow() const;
    void useChunk(std::size_t size);
    void onJsonComplete();

    // ConnectionUpload.cpp: files on their way in
    void feedUpload(std::size_t size);
    void onFileThread(const std::function<void()> &step);
    void advanceUpload(UploadStream::Progress progress);
    void judgeUpload();
    void finishUpload();
    void refuseUpload(StatusCode code, int httpStatus, const std::string &argument);

    // ConnectionReply.cpp: sending
    void watchPeer();
    void answerSoon(Reply reply); ///< from any thread
    void answer(Reply reply);
    void refuse(
        StatusCode code, int httpStatus, const std::string &argument, bool closeAfter = true);
    void sendReply(Reply &reply);
    void sendFile(const Reply &reply);
    void sendPlain(int status, std::string text);
    std::string head(int status, std::int64_t length, const char *contentType) const;
    void send(std::string head);
    void sendBodyPiece();
    void sendPieces(const std::array<boost::asio::const_buffer, 2> &pieces);
    std::optional<boost::asio::const_buffer> nextPiece();
    void onSent();
    void lingerThenClose();
    void discard();
    void close();

    void arm(std::chrono::milliseconds limit);
    void disarm();
    void startTimer();
    void onTimer();

    Socket m_socket;
    ConnectionContext &m_context;
    const Kind m_kind;
    const std::string m_peer;
    const std::uint64_t m_id;
    const std::function<void()> m_closed;

    using Deadline = std::chrono::steady_clock::time_point;
    boost::asio::steady_timer m_timer;
    Deadline m_deadline = Deadline::max();
    bool m_timing = false; ///< the timer waits
    bool m_timedOut = false;
    boost::beast::flat_buffer m_buffer;
    std::optional<Parser> m_parser;
    std::vector<char> m_chunk;
    std::size_t m_filled = 0; ///< of the chunk, by reads that came one after the other

    ExchangePtr m_exchange;
    std::string m_mark; ///< "Kvx-Exchange" of the request, repeated in the reply
    BodyUse m_bodyUse = BodyUse::Json;
    std::size_t m_bodyLimit = 0;
    std::int64_t m_bodyBytes = 0;
    std::chrono::steady_clock::time_point m_bodyStart;
    std::unique_ptr<UploadStream> m_upload;
    bool m_idle = true;
    bool m_closeAfter = false;

    bool m_answered = false;
    bool m_watching = false; ///< whether the peer goes away before it is answered
    std::string m_outHead;
    std::string m_outBody;
    std::size_t m_outSent = 0;
    int m_outFile = -1;
    std::int64_t m_outOffset = 0;
    std::int64_t m_outLeft = 0;
    std::size_t m_discarded = 0;
};

} // namespace kvx::server
