#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kvx::test {

/// One HTTP exchange as it went. Header names are in lower case.
struct HttpReply {
    int status = 0; ///< 0: no exchange; `error` says why
    std::string error;
    std::map<std::string, std::string> headers;
    std::string body;

    /// The body, or of a download the header "Kvx-Reply", is a JSON object: its "statuscode", else
    /// -1.
    int statusCode() const;
    /// A member of that object: text as it is, numbers and flags as JSON, objects and arrays as
    /// compact JSON; empty when it is missing.
    std::string member(const std::string &key) const;
    std::string header(const std::string &name) const;
    const std::string &json() const;
};

/// A client of the server with its own cookies and connections. One thread at a time.
class HttpClient {
public:
    /// `url`: "http://127.0.0.1:8090".
    explicit HttpClient(std::string url);
    ~HttpClient();
    HttpClient(const HttpClient &) = delete;
    HttpClient &operator=(const HttpClient &) = delete;

    /// POST of JSON text to /kvx/service.
    HttpReply post(const std::string &json);
    HttpReply postTo(const std::string &path, const std::string &body,
        const std::string &contentType = "application/json",
        const std::vector<std::string> &headers = {});
    HttpReply get(const std::string &path, const std::vector<std::string> &headers = {});

    /// The form of an upload: request part, then the file's bytes.
    HttpReply upload(const std::string &requestJson, const std::string &bytes);
    /// The same from a file, as a stream.
    HttpReply uploadFile(const std::string &requestJson, const std::string &path);
    /// POST whose reply may be a file.
    HttpReply download(
        const std::string &requestJson, const std::vector<std::string> &headers = {});

    /// "login" with the usual keys; the reply.
    HttpReply login(const std::string &email, const std::string &password,
        const std::string &fingerPrint = "device-1");

    /// The session cookie, empty without.
    std::string cookie() const;
    void setCookie(const std::string &value);
    void setTimeout(int milliseconds);

private:
    struct State;
    HttpReply perform(const std::vector<std::string> &headers);
    std::unique_ptr<State> m_state;
};

/// Bytes over a socket, as no client library would send them.
class RawConnection {
public:
    /// Throws std::runtime_error when it cannot connect.
    RawConnection(const std::string &host, int port);
    ~RawConnection();
    RawConnection(const RawConnection &) = delete;
    RawConnection &operator=(const RawConnection &) = delete;

    /// False when the peer has closed.
    bool send(const std::string &bytes);
    /// What comes until `text` is in it, the peer closes, or the time is over.
    std::string readUntil(const std::string &text, int milliseconds = 10'000);
    /// What comes until the peer closes.
    std::string readAll(int milliseconds = 10'000);
    /// Whether the peer closes within that time.
    bool waitForClose(int milliseconds = 10'000);
    void closeSending();

private:
    int m_socket = -1;
    std::string m_received;
};

/// JSON text of an object from key and ready-made JSON values: {{"service", "\"login\""}, …}.
std::string jsonObject(const std::vector<std::pair<std::string, std::string>> &members);
std::string jsonQuoted(const std::string &text);

} // namespace kvx::test
