#include "base/Config.h"
#include "base/JsonText.h"
#include "http/ByteRange.h"
#include "http/Connection.h"

#include <algorithm>
#include <array>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/http/status.hpp>
#include <fcntl.h>
#include <sodium.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kvx::server {

namespace asio = boost::asio;
namespace http = boost::beast::http;

namespace {

constexpr std::size_t pieceSize = 128 * 1024;
constexpr std::chrono::seconds pieceLimit { 30 };
constexpr std::chrono::seconds lingerLimit { 2 };
constexpr std::size_t lingerBytes = std::size_t { 1 } << 20;
constexpr std::size_t replyHeaderLimit = 2048;

std::string reprDigest(const std::string &sha256)
{
    std::string bytes(sha256.size() / 2, '\0');
    sodium_hex2bin(reinterpret_cast<unsigned char *>(bytes.data()), bytes.size(), sha256.data(),
        sha256.size(), nullptr, nullptr, nullptr);
    std::string encoded(
        sodium_base64_encoded_len(bytes.size(), sodium_base64_VARIANT_ORIGINAL), '\0');
    sodium_bin2base64(encoded.data(), encoded.size(),
        reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size(),
        sodium_base64_VARIANT_ORIGINAL);
    encoded.pop_back();
    return "sha-256=:" + encoded + ":";
}

} // namespace

void Connection::watchPeer()
{
    m_watching = true;
    m_socket.async_wait(
        Socket::wait_read, [self = shared_from_this(), exchange = m_exchange](ErrorCode error) {
            char byte;
            if (!error
                && recv(self->m_socket.native_handle(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0)
                exchange->abandoned = true;
        });
}

void Connection::answerSoon(Reply reply)
{
    asio::dispatch(
        m_socket.get_executor(), [self = shared_from_this(), reply = std::move(reply)]() mutable {
            self->answer(std::move(reply));
        });
}

void Connection::answer(Reply reply)
{
    m_answered = true;
    if (m_watching) {
        ErrorCode ignored;
        m_socket.cancel(ignored);
        m_watching = false;
    }
    if (reply.fileBody())
        sendFile(reply);
    else
        sendReply(reply);
}

void Connection::refuse(
    StatusCode code, int httpStatus, const std::string &argument, bool closeAfter)
{
    m_idle = false;
    m_closeAfter = m_closeAfter || closeAfter;
    Reply reply = Reply::refused(code, { argument }).setHttpStatus(httpStatus);
    m_context.dispatcher.reject(m_exchange, reply);
    sendReply(reply);
}

std::string Connection::head(int status, std::int64_t length, const char *contentType) const
{
    const auto reason = http::obsolete_reason(static_cast<http::status>(status));
    std::string text = "HTTP/1.1 " + std::to_string(status) + ' '
        + std::string(reason.data(), reason.size()) + "\r\nContent-Type: " + contentType
        + "\r\nContent-Length: " + std::to_string(length)
        + "\r\nCache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\nKvx-Epoch: "
        + m_context.environment.epoch + "\r\n";
    if (m_exchange && !m_exchange->requestId.empty())
        text += "Kvx-Request: " + m_exchange->requestId + "\r\n";
    if (!m_mark.empty())
        text += "Kvx-Exchange: " + m_mark + "\r\n";
    if (m_closeAfter || m_context.stopping)
        text += "Connection: close\r\n";
    if (status == 405)
        text += "Allow: POST\r\n";
    return text;
}

void Connection::sendReply(Reply &reply)
{
    m_outBody = reply.takeBody();
    std::string text
        = head(reply.httpStatus(), static_cast<std::int64_t>(m_outBody.size()), "application/json");
    if (const std::string *token = reply.cookie()) {
        text += "Set-Cookie: kvxsid=" + *token + "; Path=/kvx; HttpOnly; SameSite=Strict"
            + (token->empty() ? "; Max-Age=0" : "") + "\r\n";
    }
    send(std::move(text));
}

void Connection::sendPlain(int status, std::string text)
{
    m_outBody = std::move(text);
    send(head(status, static_cast<std::int64_t>(m_outBody.size()), "text/plain; charset=utf-8"));
}

void Connection::sendFile(const Reply &reply)
{
    const FileBody &file = *reply.fileBody();
    m_outFile = open(file.path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (m_outFile < 0) {
        refuse(StatusCode::Failed, 500, {}, false);
        return;
    }
    const std::string etag = '"' + file.sha256 + '"';
    const ByteRange range = requestedRange(
        header(http::field::range), header(http::field::if_range), etag, file.size);
    if (range.kind == ByteRange::Kind::Unsatisfiable) {
        ::close(m_outFile);
        m_outFile = -1;
        m_outBody.clear();
        send(head(416, 0, "application/octet-stream") + "Content-Range: bytes */"
            + std::to_string(file.size) + "\r\n");
        return;
    }
    m_outOffset = range.begin;
    m_outLeft = range.end - range.begin;
    const bool part = range.kind == ByteRange::Kind::Part;
    std::string text = head(part ? 206 : 200, m_outLeft, "application/octet-stream") + "ETag: "
        + etag + "\r\nAccept-Ranges: bytes\r\nRepr-Digest: " + reprDigest(file.sha256) + "\r\n";
    if (part) {
        text += "Content-Range: bytes " + std::to_string(range.begin) + '-'
            + std::to_string(range.end - 1) + '/' + std::to_string(file.size) + "\r\n";
    }
    const std::string json = asciiJson(reply.body());
    text
        += "Kvx-Reply: " + (json.size() <= replyHeaderLimit ? json : "{\"statuscode\":1}") + "\r\n";
    m_outBody.clear();
    send(std::move(text));
}

void Connection::send(std::string head)
{
    m_outHead = std::move(head) + "\r\n";
    m_outSent = 0;
    const auto piece = nextPiece();
    if (!piece) {
        close();
        return;
    }
    sendPieces({ asio::buffer(m_outHead), *piece });
}

void Connection::sendBodyPiece()
{
    const auto piece = nextPiece();
    if (!piece)
        close(); // shorter than its row says: the client sees the missing bytes
    else if (piece->size() == 0)
        onSent();
    else
        sendPieces({ *piece, {} });
}

void Connection::sendPieces(const std::array<asio::const_buffer, 2> &pieces)
{
    arm(pieceLimit);
    asio::async_write(m_socket, pieces, [self = shared_from_this()](ErrorCode error, std::size_t) {
        error ? self->close() : self->sendBodyPiece();
    });
}

/// Empty at the end; none when the file has no more.
std::optional<asio::const_buffer> Connection::nextPiece()
{
    if (m_outLeft == 0) {
        const std::size_t count = std::min(pieceSize, m_outBody.size() - m_outSent);
        m_outSent += count;
        return asio::buffer(m_outBody.data() + m_outSent - count, count);
    }
    const auto wanted = static_cast<std::size_t>(
        std::min<std::int64_t>(m_outLeft, static_cast<std::int64_t>(pieceSize)));
    m_chunk.resize(wanted);
    const ssize_t count = pread(m_outFile, m_chunk.data(), wanted, m_outOffset);
    if (count <= 0)
        return std::nullopt;
    m_outOffset += count;
    m_outLeft -= count;
    return asio::buffer(m_chunk.data(), static_cast<std::size_t>(count));
}

void Connection::onSent()
{
    disarm();
    std::string().swap(m_outBody); // idle connections keep no memory
    if (m_outFile >= 0) {
        ::close(m_outFile);
        m_outFile = -1;
    }
    if (m_closeAfter) {
        lingerThenClose();
        return;
    }
    if (m_bodyUse == BodyUse::Discard && m_parser && !m_parser->is_done())
        readBody(); // most clients send a refused file to its end before they look at the reply
    else
        waitForRequest();
}

void Connection::lingerThenClose()
{
    // Closing with unread bytes would reset the connection and could take the reply with it.
    ErrorCode ignored;
    m_socket.shutdown(Socket::shutdown_send, ignored);
    m_chunk.resize(pieceSize);
    m_discarded = 0;
    arm(lingerLimit);
    discard();
}

void Connection::discard()
{
    m_socket.async_read_some(
        asio::buffer(m_chunk), [self = shared_from_this()](ErrorCode error, std::size_t count) {
            self->m_discarded += count;
            if (error || self->m_discarded > lingerBytes)
                self->close();
            else
                self->discard();
        });
}

void Connection::close()
{
    disarm();
    if (m_exchange)
        m_exchange->abandoned = true;
    if (m_outFile >= 0) {
        ::close(m_outFile);
        m_outFile = -1;
    }
    ErrorCode ignored;
    m_socket.close(ignored);
}

void Connection::routeAdmin(const std::string &path)
{
    if (path == "/livez") {
        sendPlain(200, "ok\n");
    } else if (path == "/readyz") {
        m_context.ready([self = shared_from_this()](HealthReport report) {
            asio::post(self->m_socket.get_executor(), [self, report = std::move(report)] {
                self->sendPlain(report.good ? 200 : 503, report.text);
            });
        });
    } else {
        sendPlain(404, "not found\n");
    }
}

} // namespace kvx::server
