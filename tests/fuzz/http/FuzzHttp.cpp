#include "../Require.h"
#include "http/Connection.h"
#include "server/ServiceHarness.h"

#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <cstdlib>
#include <sys/socket.h>

using namespace kvx::test;
using namespace kvx::server;
using boost::asio::ip::tcp;
using Error = boost::system::error_code;

namespace {

constexpr std::size_t largestInput = 64 * 1024;
/// The peer says nothing more when the server has been silent for so long.
constexpr std::chrono::microseconds patience { 800 };

struct Site {
    Site()
        : harness([](Config &config) { config.lockHold = 1; })
        , anna(harness.join("anna@example.com"))
        , context { harness.environment(), harness.dispatcher(),
            [](auto answer) {
                answer({ true, "fine\n" });
            },
            files, digests, stopping }
    {
    }

    ServiceHarness harness;
    const Session anna;
    boost::asio::thread_pool files { 1 };
    boost::asio::thread_pool digests { 1 };
    std::atomic<bool> stopping { false };
    ConnectionContext context;
};

/// The other end: sends the bytes and keeps what comes back.
class Peer {
public:
    Peer(boost::asio::io_context &io, int handle, std::string bytes)
        : m_socket(io, tcp::v4(), handle)
        , m_bytes(std::move(bytes))
    {
        boost::asio::async_write(m_socket, boost::asio::buffer(m_bytes), [](Error, std::size_t) {});
        boost::asio::async_read(m_socket, boost::asio::dynamic_buffer(m_replies),
            [this](Error, std::size_t) { finish(); });
    }
    void fallSilent()
    {
        Error ignored;
        m_socket.shutdown(tcp::socket::shutdown_send, ignored);
    }
    void finish()
    {
        Error ignored;
        m_socket.close(ignored);
    }
    bool isOver() const { return !m_socket.is_open(); }
    const std::string &replies() const { return m_replies; }

private:
    tcp::socket m_socket;
    const std::string m_bytes;
    std::string m_replies;
};

std::string exchange(Site &site, Connection::Kind kind, const std::string &bytes)
{
    static std::uint64_t lastId = 0;
    // To the end of the process: a connection that another thread lets go of still looks at it.
    static auto &io = *new boost::asio::io_context;
    static const auto work = boost::asio::make_work_guard(io);
    std::array<int, 2> ends {};
    require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) == 0, "there are sockets");
    Peer peer(io, ends[0], bytes);
    std::atomic<bool> closed { false }; // on whichever thread lets go of it last
    std::make_shared<Connection>(tcp::socket(io, tcp::v4(), ends[1]), site.context, kind,
        "127.0.0.1", ++lastId, [&closed] { closed = true; })
        ->start();
    while (!closed && io.run_one_for(patience) > 0) { }
    peer.fallSilent();
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(4);
    while (!closed) {
        io.run_one_for(patience);
        require(std::chrono::steady_clock::now() < limit, "a connection whose peer is silent ends");
    }
    while (!peer.isOver())
        io.run_one();
    io.poll(); // what was cancelled
    return peer.replies();
}

/// The replies are whole and say what they are.
void judge(std::string_view replies)
{
    while (!replies.empty()) {
        require(replies.substr(0, 9) == "HTTP/1.1 ", "a reply begins as one");
        if (replies.substr(9, 3) == "100") {
            replies.remove_prefix(std::string_view("HTTP/1.1 100 Continue\r\n\r\n").size());
            continue;
        }
        const std::size_t headEnd = replies.find("\r\n\r\n");
        require(headEnd != std::string_view::npos, "a reply's head is whole");
        const std::string head(replies.substr(0, headEnd + 2));
        const std::size_t field = head.find("\r\nContent-Length: ");
        require(field != std::string::npos, "a reply tells its length");
        const auto length = static_cast<std::size_t>(std::atoll(head.c_str() + field + 18));
        replies.remove_prefix(headEnd + 4);
        require(replies.size() >= length, "a reply's body is whole");
        require(replies.substr(0, length).find("\"statuscode\":0") == std::string_view::npos,
            "nothing broke");
        replies.remove_prefix(length);
    }
}

} // namespace

/// What a peer sends, "$" standing for the cookie of a session; to the administration's listener
/// when the first byte is a zero.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static auto *const site = new Site; // its threads end with the process
    std::string bytes(reinterpret_cast<const char *>(data), std::min(size, largestInput));
    auto kind = Connection::Kind::Services;
    if (!bytes.empty() && bytes[0] == '\0') {
        kind = Connection::Kind::Admin;
        bytes.erase(0, 1);
    }
    for (std::size_t at = bytes.find('$'); at != std::string::npos; at = bytes.find('$', at))
        bytes.replace(at, 1, "kvxsid=" + site->anna.token);
    judge(exchange(*site, kind, bytes));
    return 0;
}
