#include "http/Connection.h"
#include "base/Config.h"
#include "base/Text.h"

#include <algorithm>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/http/read.hpp>
#include <cctype>
#include <limits>

namespace kvx::server {

namespace asio = boost::asio;
namespace http = boost::beast::http;

namespace {

constexpr std::size_t jsonChunk = 64 * 1024;
constexpr std::size_t worthAThread = 64 * 1024; // parsing that would hold up other connections
constexpr std::size_t uploadChunk = 256 * 1024; // each goes to a file thread and back
constexpr std::uint32_t headLimit = 8 * 1024;
constexpr std::size_t largestJson = std::size_t { 16 } << 20;
constexpr std::int64_t formOverhead = 128 * 1024;
constexpr std::chrono::minutes bodyLimitInAll { 15 };
constexpr std::int64_t slowestBody = 1024; // bytes a second

std::string text(boost::beast::string_view view)
{
    return { view.data(), view.size() };
}

std::string cookieValue(const std::string &cookies, const std::string &name)
{
    for (const std::string &cookie : splitList(cookies, ';')) {
        if (cookie.compare(0, name.size() + 1, name + "=") == 0)
            return cookie.substr(name.size() + 1);
    }
    return {};
}

const Endpoint *findEndpoint(const std::string &path)
{
    for (const Endpoint &endpoint : allEndpoints()) {
        if (path == endpoint.path)
            return &endpoint;
    }
    return nullptr;
}

bool isMark(const std::string &text)
{
    return text.size() <= 64 && std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return c == '-' || (c < 128 && std::isalnum(c) != 0);
    });
}

} // namespace

Connection::Connection(Socket socket, ConnectionContext &context, Kind kind, std::string peer,
    std::uint64_t id, std::function<void()> closed)
    : m_socket(std::move(socket))
    , m_context(context)
    , m_kind(kind)
    , m_peer(std::move(peer))
    , m_id(id)
    , m_closed(std::move(closed))
    , m_timer(m_socket.get_executor())
{
}

Connection::~Connection()
{
    close();
    m_closed();
}

void Connection::start()
{
    asio::post(m_socket.get_executor(), [self = shared_from_this()] { self->readHead(); });
}

void Connection::turnAway(int httpStatus)
{
    asio::post(m_socket.get_executor(), [self = shared_from_this(), httpStatus] {
        self->m_exchange = std::make_shared<Exchange>();
        self->m_exchange->address = self->m_peer;
        self->m_exchange->connectionId = self->m_id;
        self->refuse(StatusCode::Busy, httpStatus, {});
    });
}

void Connection::stop()
{
    asio::post(m_socket.get_executor(), [self = shared_from_this()] {
        self->m_closeAfter = true;
        if (self->m_idle)
            self->close();
    });
}

/// A limit that is later than the one the timer waits for changes nothing: the timer looks again
/// when it fires. Almost every limit is lifted long before, and setting a timer costs more.
void Connection::arm(std::chrono::milliseconds limit)
{
    m_timedOut = false;
    m_deadline = std::chrono::steady_clock::now() + limit;
    if (!m_timing || m_timer.expiry() > m_deadline)
        startTimer();
}

void Connection::disarm()
{
    m_timedOut = false;
    m_deadline = Deadline::max();
}

void Connection::startTimer()
{
    m_timing = true;
    m_timer.expires_at(m_deadline); // ends an earlier wait, whose handler does nothing then
    m_timer.async_wait([weak = weak_from_this()](ErrorCode error) {
        if (const auto self = weak.lock(); self && !error)
            self->onTimer();
    });
}

void Connection::onTimer()
{
    m_timing = false;
    if (m_deadline == Deadline::max())
        return;
    if (m_deadline > std::chrono::steady_clock::now()) {
        startTimer();
        return;
    }
    m_timedOut = true;
    ErrorCode ignored;
    m_socket.cancel(ignored);
}

void Connection::waitForRequest()
{
    m_parser.reset();
    m_exchange.reset();
    m_upload.reset();
    m_bodyUse = BodyUse::Json;
    m_idle = m_buffer.size() == 0;
    if (m_closeAfter || m_context.stopping) {
        close();
        return;
    }
    if (!m_idle) {
        readHead();
        return;
    }
    m_buffer.shrink_to_fit();
    std::vector<char>().swap(m_chunk); // "= {}" would keep its memory
    arm(std::chrono::milliseconds(m_context.environment.config.keepAlive));
    m_socket.async_wait(Socket::wait_read, [self = shared_from_this()](ErrorCode error) {
        if (error)
            self->close();
        else
            self->readHead();
    });
}

void Connection::readHead()
{
    m_parser.emplace();
    m_parser->header_limit(headLimit);
    // Judged by path and content type once the head is there.
    m_parser->body_limit(std::numeric_limits<std::uint64_t>::max());
    m_exchange = std::make_shared<Exchange>();
    m_exchange->address = m_peer;
    m_exchange->connectionId = m_id;
    m_mark.clear();
    arm(std::chrono::milliseconds(m_context.environment.config.headerTimeout));
    http::async_read_header(m_socket, m_buffer, *m_parser,
        [self = shared_from_this()](ErrorCode error, std::size_t) { self->onHead(error); });
}

void Connection::onHead(ErrorCode error)
{
    if (error) {
        onBadHead(error);
        return;
    }
    disarm();
    m_idle = false;
    const auto &message = m_parser->get();
    if (m_parser->chunked() && message.count(http::field::content_length) != 0) {
        refuse(StatusCode::BadRequest, 400, "it states its length twice");
        return;
    }
    if (!m_parser->keep_alive())
        m_closeAfter = true;
    m_mark = text(message["Kvx-Exchange"]);
    if (!isMark(m_mark))
        m_mark.clear();
    m_exchange->address = peerAddress();
    m_exchange->token = cookieValue(header(http::field::cookie), "kvxsid");
    if (m_exchange->token.size() > 100)
        m_exchange->token.clear();
    route();
}

void Connection::onBadHead(ErrorCode error)
{
    if (m_timedOut && m_buffer.size() > 0)
        refuse(StatusCode::BadRequest, 408, "its head did not arrive in time");
    else if (error == http::error::header_limit || error == http::error::buffer_overflow)
        refuse(StatusCode::TooLarge, 431, std::to_string(headLimit) + " bytes in the head");
    else if (error.category() == http::make_error_code(http::error::bad_method).category()
        && error != http::error::end_of_stream && error != http::error::partial_message)
        refuse(StatusCode::BadRequest, 400, "it is not HTTP: " + error.message());
    else
        close();
}

std::string Connection::header(http::field name) const
{
    return text(m_parser->get()[name]);
}

std::string Connection::peerAddress() const
{
    const auto &proxies = m_context.environment.config.trustedProxies;
    const auto isProxy = [&proxies](const std::string &address) {
        return std::find(proxies.begin(), proxies.end(), address) != proxies.end();
    };
    if (!isProxy(m_peer))
        return m_peer;
    const std::vector<std::string> hops = splitList(text(m_parser->get()["X-Forwarded-For"]));
    for (auto hop = hops.rbegin(); hop != hops.rend(); ++hop) {
        if (!isProxy(*hop) && hop->size() <= 64)
            return *hop;
    }
    return m_peer;
}

void Connection::route()
{
    const std::string target = text(m_parser->get().target());
    const std::string path = target.substr(0, target.find('?'));
    const std::string method = text(m_parser->get().method_string());
    if (m_kind == Kind::Admin) {
        routeAdmin(path);
        return;
    }
    m_exchange->endpoint = findEndpoint(path);
    if (!m_exchange->endpoint) {
        refuse(StatusCode::BadRequest, 404, "there is no such path");
        return;
    }
    if (method != "POST" && !(method == "GET" && m_exchange->endpoint->service)) {
        refuse(StatusCode::BadRequest, 405, "the method is not allowed here");
        return;
    }
    if (acceptBody(method))
        sendContinue();
}

bool Connection::acceptBody(const std::string &method)
{
    const Config &config = m_context.environment.config;
    const auto length = m_parser->content_length();
    const bool hasBody = m_parser->chunked() || (length && *length > 0);
    if (method == "POST" && !hasBody && !length) {
        refuse(StatusCode::BadRequest, 411, "its length is missing");
        return false;
    }
    const std::string type = header(http::field::content_type);
    const std::string boundary = multipartBoundary(type);
    if (hasBody && !boundary.empty()) {
        m_bodyUse = BodyUse::Upload;
        m_exchange->multipart = true;
        const auto limit = static_cast<std::uint64_t>(config.uploadLimit + formOverhead);
        if (length && *length > limit) {
            refuse(StatusCode::TooLarge, 413, std::to_string(config.uploadLimit) + " bytes");
            return false;
        }
        m_upload = std::make_unique<UploadStream>(config, boundary, m_context.digests);
        return true;
    }
    if (hasBody && lowerAscii(type).rfind("application/json", 0) != 0) {
        refuse(StatusCode::BadRequest, 415, "the content type must be application/json");
        return false;
    }
    // Which service it is stands in the body; only who seems logged in may send a large one.
    m_bodyUse = BodyUse::Json;
    m_bodyLimit
        = m_exchange->token.empty() ? static_cast<std::size_t>(config.requestLimit) : largestJson;
    if (length && *length > m_bodyLimit) {
        refuse(StatusCode::TooLarge, 413, std::to_string(m_bodyLimit) + " bytes");
        return false;
    }
    return true;
}

void Connection::sendContinue()
{
    m_bodyBytes = 0;
    m_bodyStart = std::chrono::steady_clock::now();
    if (lowerAscii(header(http::field::expect)) != "100-continue") {
        readBody();
        return;
    }
    const auto go = [self = shared_from_this()] {
        self->m_outHead = "HTTP/1.1 100 Continue\r\n\r\n";
        self->arm(std::chrono::milliseconds(self->m_context.environment.config.bodyTimeout));
        asio::async_write(self->m_socket, asio::buffer(self->m_outHead),
            [self](ErrorCode error, std::size_t) { error ? self->close() : self->readBody(); });
    };
    if (m_bodyUse != BodyUse::Upload) {
        go();
        return;
    }
    m_context.dispatcher.findLiveSession(
        m_exchange->token, [self = shared_from_this(), go](bool live) {
            asio::post(self->m_socket.get_executor(), [self, go, live] {
                if (live)
                    go();
                else
                    self->refuse(StatusCode::NotLoggedIn, 200, {});
            });
        });
}

void Connection::readBody()
{
    if (m_parser->is_done()) {
        useChunk(0);
        return;
    }
    if (m_chunk.empty()) {
        m_chunk.resize(chunkSize());
        m_buffer.reserve(m_chunk.size()); // without it a large body comes in very small reads
    }
    auto &body = m_parser->get().body();
    body.data = m_chunk.data() + m_filled;
    body.size = m_chunk.size() - m_filled;
    body.more = true;
    arm(std::chrono::milliseconds(m_context.environment.config.bodyTimeout));
    http::async_read_some(m_socket, m_buffer, *m_parser,
        [self = shared_from_this()](ErrorCode error, std::size_t) { self->onBody(error); });
}

/// A small body, as almost all are, needs no large buffer.
std::size_t Connection::chunkSize() const
{
    if (m_bodyUse == BodyUse::Upload)
        return uploadChunk;
    const auto length = m_parser->content_length_remaining();
    return length ? static_cast<std::size_t>(std::min<std::uint64_t>(*length, jsonChunk))
                  : jsonChunk;
}

bool Connection::isBodyTooSlow() const
{
    const auto passed = std::chrono::steady_clock::now() - m_bodyStart;
    if (passed > bodyLimitInAll)
        return true;
    const auto grace = std::chrono::milliseconds(m_context.environment.config.bodyTimeout);
    if (passed <= grace)
        return false;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(passed - grace).count();
    return m_bodyBytes < seconds * slowestBody;
}

void Connection::onBody(ErrorCode error)
{
    if (error == http::error::need_buffer)
        error = {};
    const bool late = m_timedOut || isBodyTooSlow();
    disarm();
    if (late && m_bodyUse != BodyUse::Discard) {
        refuse(StatusCode::BadRequest, 408, "its body did not arrive in time");
        return;
    }
    if (error && error.category() == http::make_error_code(http::error::bad_chunk).category()
        && error != http::error::partial_message && error != http::error::end_of_stream
        && m_bodyUse != BodyUse::Discard) {
        refuse(StatusCode::BadRequest, 400, "it is not HTTP: " + error.message());
        return;
    }
    if (error || late) {
        close();
        return;
    }
    const std::size_t filled = m_chunk.size() - m_parser->get().body().size;
    m_bodyBytes += static_cast<std::int64_t>(filled - m_filled);
    m_filled = filled;
    if (m_bodyUse == BodyUse::Upload && !m_parser->is_done() && filled < m_chunk.size()
        && m_socket.available(error) > 0) {
        readBody();
        return;
    }
    m_filled = 0;
    useChunk(filled);
}

void Connection::useChunk(std::size_t size)
{
    switch (m_bodyUse) {
    case BodyUse::Json:
        if (m_exchange->body.size() + size > m_bodyLimit) {
            refuse(StatusCode::TooLarge, 413, std::to_string(m_bodyLimit) + " bytes");
            return;
        }
        m_exchange->body.append(m_chunk.data(), size);
        if (m_parser->is_done())
            onJsonComplete();
        else
            readBody();
        return;
    case BodyUse::Upload:
        feedUpload(size);
        return;
    case BodyUse::Discard:
        if (m_parser->is_done())
            waitForRequest();
        else
            readBody();
        return;
    }
}

void Connection::onJsonComplete()
{
    const auto dispatch = [self = shared_from_this()] {
        self->m_context.dispatcher.dispatch(
            self->m_exchange, [self](Reply reply) { self->answerSoon(std::move(reply)); });
    };
    m_answered = false;
    if (m_exchange->body.size() > worthAThread)
        asio::post(m_context.files, dispatch);
    else
        dispatch();
    if (!m_answered)
        watchPeer();
}

} // namespace kvx::server
