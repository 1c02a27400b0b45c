#include "RawPeer.h"

#include <arpa/inet.h>
#include <atomic>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace kvx::test {

namespace {

constexpr int answerLimit = 10'000;

enum Command : std::uint8_t {
    WireFormatInfo = 1,
    ConnectionInfo = 3,
    SessionInfo = 4,
    ConsumerInfo = 5,
    ProducerInfo = 6,
    DestinationInfo = 8,
    MessageDispatch = 21,
    TextMessage = 28,
    Response = 30,
    ExceptionResponse = 31,
};

std::string number(std::uint64_t value, int width)
{
    std::string bytes;
    for (int shift = (width - 1) * 8; shift >= 0; shift -= 8)
        bytes += static_cast<char>((value >> shift) & 0xFF);
    return bytes;
}

std::string flag(bool value)
{
    return value ? std::string(1, '\1') : std::string(1, '\0');
}

const std::string absent = flag(false);

std::string text(const std::string &value)
{
    return flag(true) + number(value.size(), 2) + value;
}

std::string textOrAbsent(const std::string &value)
{
    return value.empty() ? absent : text(value);
}

std::string object(std::uint8_t type, const std::string &fields)
{
    return flag(true) + static_cast<char>(type) + fields;
}

std::string destination(RawPeer::Kind kind, const std::string &name)
{
    return name.empty() ? absent : object(kind, text(name));
}

std::uint32_t wholeNumber(const std::string &bytes, std::size_t at)
{
    std::uint32_t value = 0;
    for (std::size_t i = at; i < at + 4; ++i)
        value = value << 8 | static_cast<unsigned char>(bytes.at(i));
    return value;
}

std::string textAt(const std::string &bytes, std::size_t &at)
{
    if (bytes.at(at++) == 0)
        return {};
    const std::size_t size = static_cast<std::size_t>(static_cast<unsigned char>(bytes.at(at))) << 8
        | static_cast<unsigned char>(bytes.at(at + 1));
    at += 2 + size;
    return bytes.substr(at - size, size);
}

} // namespace

RawPeer::RawPeer(int port)
{
    static std::atomic<int> made { 0 };
    m_connectionId = "raw-" + std::to_string(getpid()) + '-' + std::to_string(++made);
    m_socket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(m_socket, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
        throw std::runtime_error("no broker at that port");
    // Version 12, no options.
    const std::string hello = static_cast<char>(WireFormatInfo) + std::string("ActiveMQ")
        + number(12, 4) + flag(true) + number(4, 4) + number(0, 4);
    const std::string frame = number(hello.size(), 4) + hello;
    if (::send(m_socket, frame.data(), frame.size(), MSG_NOSIGNAL)
        != static_cast<ssize_t>(frame.size()))
        throw std::runtime_error("the broker does not listen");
}

RawPeer::~RawPeer()
{
    close(m_socket);
}

std::string RawPeer::connect(
    const std::string &clientId, const std::string &user, const std::string &password)
{
    const std::string refused = request(ConnectionInfo,
        object(120, text(m_connectionId)) + textOrAbsent(clientId) + textOrAbsent(password)
            + textOrAbsent(user) + absent + flag(false) + flag(false) + flag(true) + flag(false)
            + flag(false) + absent);
    if (!refused.empty())
        return refused;
    return request(SessionInfo, object(121, text(m_connectionId) + number(1, 8)));
}

std::string RawPeer::consume(const Wanted &wanted)
{
    const std::string id = object(122,
        text(m_connectionId) + number(1, 8) + number(static_cast<std::uint64_t>(++m_lastId), 8));
    return request(ConsumerInfo,
        id + flag(wanted.browser) + destination(wanted.kind, wanted.name) + number(1000, 4)
            + number(0, 4) + flag(wanted.dispatchAsync) + textOrAbsent(wanted.selector) + absent
            + textOrAbsent(wanted.subscription) + flag(false) + flag(false) + flag(false)
            + number(0, 1) + absent + absent + flag(wanted.network) + flag(false) + flag(false)
            + absent);
}

std::string RawPeer::produce(Kind kind, const std::string &name)
{
    const std::string id = object(123,
        text(m_connectionId) + number(static_cast<std::uint64_t>(++m_lastId), 8) + number(1, 8));
    return request(
        ProducerInfo, id + destination(kind, name) + absent + flag(false) + number(0, 4));
}

std::string RawPeer::addDestination(Kind kind, const std::string &name)
{
    return destinationInfo(0, kind, name);
}

std::string RawPeer::removeDestination(Kind kind, const std::string &name)
{
    return destinationInfo(1, kind, name);
}

std::string RawPeer::destinationInfo(std::uint8_t operation, Kind kind, const std::string &name)
{
    return request(DestinationInfo,
        object(120, text(m_connectionId)) + destination(kind, name) + number(operation, 1)
            + number(0, 8) + absent);
}

std::string RawPeer::send(Kind kind, const std::string &name, const std::string &body)
{
    const std::string producer = object(
        123, text(m_connectionId) + number(static_cast<std::uint64_t>(m_lastId), 8) + number(1, 8));
    const std::string id = object(110,
        absent + producer + number(static_cast<std::uint64_t>(++m_lastMessage), 8) + number(0, 8));
    const std::string content = number(body.size(), 4) + body;
    return request(TextMessage,
        producer + destination(kind, name) + absent + absent + id + absent + absent + number(0, 4)
            + absent + flag(false) + number(0, 8) + number(4, 1) + absent + number(0, 8) + absent
            + flag(true) + number(content.size(), 4) + content + absent + absent + absent
            + flag(false) + number(0, 4) + absent + number(0, 8) + absent + flag(false)
            + flag(false) + absent + number(0, 8) + number(0, 8) + flag(false));
}

int RawPeer::dispatched(int milliseconds)
{
    std::string frame;
    while (readFrame(milliseconds, frame)) { }
    return m_dispatched;
}

std::string RawPeer::request(std::uint8_t type, const std::string &fields)
{
    const auto command = static_cast<std::uint32_t>(++m_lastCommand);
    const std::string body = static_cast<char>(type) + number(command, 4) + flag(true) + fields;
    const std::string frame = number(body.size(), 4) + body;
    if (::send(m_socket, frame.data(), frame.size(), MSG_NOSIGNAL)
        != static_cast<ssize_t>(frame.size()))
        throw std::runtime_error("the broker has closed the connection");
    std::string answer;
    while (readFrame(answerLimit, answer)) {
        const auto kind = static_cast<std::uint8_t>(answer[0]);
        if ((kind != Response && kind != ExceptionResponse) || wholeNumber(answer, 6) != command)
            continue;
        if (kind == Response)
            return {};
        std::size_t at = 11; // behind the presence of the exception
        textAt(answer, at);
        return textAt(answer, at);
    }
    throw std::runtime_error("the broker does not answer");
}

bool RawPeer::readFrame(int milliseconds, std::string &frame)
{
    while (m_received.size() < 4 || m_received.size() < 4 + wholeNumber(m_received, 0)) {
        pollfd entry { m_socket, POLLIN, 0 };
        char bytes[4096];
        const ssize_t count
            = poll(&entry, 1, milliseconds) > 0 ? recv(m_socket, bytes, sizeof bytes, 0) : 0;
        if (count <= 0)
            return false;
        m_received.append(bytes, static_cast<std::size_t>(count));
    }
    const std::size_t size = wholeNumber(m_received, 0);
    frame = m_received.substr(4, size);
    m_received.erase(0, 4 + size);
    m_dispatched += !frame.empty() && static_cast<std::uint8_t>(frame[0]) == MessageDispatch;
    return true;
}

} // namespace kvx::test
