#include "../Require.h"
#include "CookieJar.h"
#include "CurlHandle.h"
#include "ResponseHead.h"

#include <arpa/inet.h>
#include <cstdint>
#include <mutex>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using namespace kvx;
using kvx::test::require;

namespace {

/// Answers one connection after the other with what it was told, whatever it is asked.
class Server {
public:
    Server()
        : m_listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto *where = reinterpret_cast<sockaddr *>(&address);
        require(bind(m_listener, where, size) == 0 && listen(m_listener, 16) == 0
                && getsockname(m_listener, where, &size) == 0,
            "there is a port");
        port = ntohs(address.sin_port);
        std::thread([this] { serve(); }).detach(); // to the end of the process
    }

    void answer(const QByteArray &response)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_response = response;
    }

    int port = 0;

private:
    void serve()
    {
        for (;;) {
            const int peer = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
            QByteArray response;
            {
                const std::lock_guard<std::mutex> lock(m_mutex);
                response = m_response;
            }
            const auto size = static_cast<std::size_t>(response.size());
            static_cast<void>(send(peer, response.constData(), size, MSG_NOSIGNAL));
            shutdown(peer, SHUT_WR);
            char rest[4096];
            while (recv(peer, rest, sizeof rest, 0) > 0) { }
            close(peer);
        }
    }

    const int m_listener;
    std::mutex m_mutex;
    QByteArray m_response;
};

std::size_t readHeader(char *line, std::size_t size, std::size_t count, void *head)
{
    const auto bytes = static_cast<qint64>(size * count);
    return static_cast<ResponseHead *>(head)->add(line, bytes) ? size * count : 0;
}

std::size_t dropBody(char *, std::size_t size, std::size_t count, void *)
{
    return size * count;
}

/// Closed at once: thousands of connections a second would use up the ports.
int closeHard(void *, curl_socket_t socket, curlsocktype)
{
    const linger none { 1, 0 };
    setsockopt(socket, SOL_SOCKET, SO_LINGER, &none, sizeof none);
    return CURL_SOCKOPT_OK;
}

class Client {
public:
    Client()
    {
        const QByteArray host
            = "kvx.example.com:" + QByteArray::number(m_server.port) + ":127.0.0.1";
        m_hosts = curl_slist_append(nullptr, host.constData());
    }

    QByteArray url(const char *host, int portAbove = 0) const
    {
        return "http://" + QByteArray(host) + ':' + QByteArray::number(m_server.port + portAbove)
            + "/kvx/service";
    }

    void exchange(CookieJar &jar, const QByteArray &response, ResponseHead &head)
    {
        m_server.answer(response);
        m_handle.rearm();
        const QByteArray server = url("kvx.example.com");
        CURL *const easy = m_handle.easy();
        const CookieJar::Loan loan = jar.lend(easy, server);
        curl_easy_setopt(easy, CURLOPT_URL, server.constData());
        curl_easy_setopt(easy, CURLOPT_RESOLVE, m_hosts);
        curl_easy_setopt(easy, CURLOPT_SOCKOPTFUNCTION, closeHard);
        curl_easy_setopt(easy, CURLOPT_FORBID_REUSE, 1L);
        curl_easy_setopt(easy, CURLOPT_TIMEOUT, 4L);
        curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, readHeader);
        curl_easy_setopt(easy, CURLOPT_HEADERDATA, &head);
        curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, dropBody);
        require(m_handle.run() != CURLE_OPERATION_TIMEDOUT, "an exchange ends");
        jar.takeBack(easy, loan);
    }

    QVector<QByteArray> linesFor(CookieJar &jar, const QByteArray &url)
    {
        const CookieJar::Loan loan = jar.lend(m_handle.easy(), url);
        jar.takeBack(m_handle.easy(), loan);
        return loan.lines;
    }

private:
    Server m_server;
    CurlHandle m_handle; // as the transport's own, used again and again
    curl_slist *m_hosts = nullptr;
};

} // namespace

/// A response as it comes from the server: its head is read, its cookies go into the jar and to no
/// other server, and the next exchange keeps them.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static auto *const client = new Client; // to the end of the process
    if (size > 60'000)
        return 0;
    const QByteArray response(reinterpret_cast<const char *>(data), static_cast<int>(size));
    CookieJar jar;
    ResponseHead head;
    client->exchange(jar, response, head);
    require(head.contentLength() >= -1 || !head.tellsEnd(), "no end behind a negative length");
    require(head.sha256().isEmpty() || (head.hasDigest() && head.sha256().size() == 32),
        "a digest is whole");
    require(head.hasFileReply() || head.fileReply().isEmpty(), "a file's reply is there");

    require(client->linesFor(jar, client->url("kvx.example.com", 1)).isEmpty(),
        "another port gets nothing");
    require(client->linesFor(jar, client->url("files.example.com")).isEmpty(),
        "another host gets nothing");
    const bool held = jar.holds("kvxsid");
    ResponseHead plain;
    client->exchange(jar, "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", plain);
    require(plain.complete() && plain.status() == 200, "the next exchange works");
    require(jar.holds("kvxsid") == held, "an exchange without news keeps the session");
    jar.clear();
    require(
        client->linesFor(jar, client->url("kvx.example.com")).isEmpty(), "a cleared jar is empty");
    return 0;
}
