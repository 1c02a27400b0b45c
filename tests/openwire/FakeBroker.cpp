#include "FakeBroker.h"

#include "Commands.h"
#include "Cursor.h"
#include "WireFormat.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kvx::test {

using namespace kvx::openwire;

bool FakePeer::readAll(char *to, std::size_t count)
{
    while (count > 0) {
        const ssize_t got = ::recv(m_handle, to, count, 0);
        if (got <= 0)
            return false;
        to += got;
        count -= static_cast<std::size_t>(got);
    }
    return true;
}

FakePeer::Frame FakePeer::frame()
{
    Frame result;
    char length[4];
    if (!readAll(length, sizeof length))
        return result;
    result.bytes.resize(static_cast<std::size_t>(Cursor({ length, sizeof length }).i32()));
    if (!readAll(result.bytes.data(), result.bytes.size()))
        return result;
    Cursor cursor(result.bytes);
    result.type = cursor.u8();
    if (result.type != WireFormatInfoType)
        result.commandId = cursor.i32();
    return result;
}

void FakePeer::send(std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t count = ::send(m_handle, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0)
            return;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

void FakePeer::offer()
{
    WireFormat format;
    format.initialDelay = std::chrono::milliseconds(0);
    send(encodeWireFormatInfo(format));
}

void FakePeer::answer(std::int32_t commandId)
{
    std::string response = fromHex("1e 00000000 00");
    for (int shift = 24; shift >= 0; shift -= 8)
        response += static_cast<char>(commandId >> shift & 0xff);
    send(framed(response));
}

void FakePeer::serveUntil(int type)
{
    offer();
    for (;;) {
        const Frame request = frame();
        if (request.type == -1 || request.type == type)
            return;
        const bool answered = request.bytes.size() > 5 && request.bytes[5] != 0;
        if (request.type != WireFormatInfoType && answered)
            answer(request.commandId);
    }
}

void FakePeer::freeze()
{
    while (frame().type != -1) { }
}

FakeBroker::FakeBroker(std::function<void(FakePeer &)> script)
    : m_script(std::move(script))
{
    m_listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(m_listener, reinterpret_cast<sockaddr *>(&address), size) != 0
        || ::listen(m_listener, 16) != 0
        || ::getsockname(m_listener, reinterpret_cast<sockaddr *>(&address), &size) != 0)
        std::abort();
    m_port = ntohs(address.sin_port);
    m_thread = std::thread([this] { run(); });
}

FakeBroker::~FakeBroker()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_ending = true;
        ::shutdown(m_listener, SHUT_RDWR);
        if (m_peer >= 0)
            ::shutdown(m_peer, SHUT_RDWR);
    }
    m_thread.join();
    ::close(m_listener);
}

std::string FakeBroker::uri(const std::string &options) const
{
    return "tcp://127.0.0.1:" + std::to_string(m_port) + options;
}

void FakeBroker::run()
{
    for (;;) {
        const int handle = ::accept(m_listener, nullptr, nullptr);
        if (handle < 0)
            return;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (m_ending) {
                ::close(handle);
                return;
            }
            m_peer = handle;
        }
        FakePeer peer(handle);
        m_script(peer);
        const std::lock_guard<std::mutex> lock(m_mutex);
        ::close(handle);
        m_peer = -1;
    }
}

std::string framed(std::string_view bytes)
{
    std::string result;
    for (int shift = 24; shift >= 0; shift -= 8)
        result += static_cast<char>(bytes.size() >> shift & 0xff);
    return result.append(bytes);
}

std::string fromHex(std::string_view hex)
{
    std::string digits;
    for (const char c : hex) {
        if (c != ' ')
            digits += c;
    }
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes += static_cast<char>(std::strtol(digits.substr(i, 2).c_str(), nullptr, 16));
    return bytes;
}

std::string toHex(std::string_view bytes)
{
    constexpr char digits[] = "0123456789abcdef";
    std::string hex;
    for (const char c : bytes) {
        hex += digits[static_cast<unsigned char>(c) >> 4];
        hex += digits[static_cast<unsigned char>(c) & 15];
    }
    return hex;
}

} // namespace kvx::test
