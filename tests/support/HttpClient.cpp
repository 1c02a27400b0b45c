#include "support/HttpClient.h"

#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <cstring>
#include <curl/curl.h>
#include <netinet/in.h>
#include <poll.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace kvx::test {

namespace {

std::size_t takeBody(char *bytes, std::size_t size, std::size_t count, void *reply)
{
    static_cast<HttpReply *>(reply)->body.append(bytes, size * count);
    return size * count;
}

std::size_t takeHeader(char *bytes, std::size_t size, std::size_t count, void *reply)
{
    const std::string line(bytes, size * count);
    const std::size_t colon = line.find(':');
    if (line.rfind("HTTP/", 0) == 0) {
        static_cast<HttpReply *>(reply)->headers.clear();
    } else if (colon != std::string::npos) {
        std::string name = line.substr(0, colon);
        std::transform(name.begin(), name.end(), name.begin(), ::tolower);
        const std::size_t begin = line.find_first_not_of(' ', colon + 1);
        const std::size_t end = line.find_last_not_of("\r\n");
        static_cast<HttpReply *>(reply)->headers[name]
            = begin > end ? std::string() : line.substr(begin, end + 1 - begin);
    }
    return size * count;
}

int millisecondsLeft(std::chrono::steady_clock::time_point end)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    return static_cast<int>(std::max<long>(0, left.count()));
}

} // namespace

const std::string &HttpReply::json() const
{
    const auto found = headers.find("kvx-reply");
    return found == headers.end() ? body : found->second;
}

int HttpReply::statusCode() const
{
    const std::string text = member("statuscode");
    return text.empty() ? -1 : std::atoi(text.c_str());
}

std::string HttpReply::member(const std::string &key) const
{
    rapidjson::Document document;
    document.Parse(json().data(), json().size());
    if (document.HasParseError() || !document.IsObject() || !document.HasMember(key.c_str()))
        return {};
    const auto &value = document[key.c_str()];
    if (value.IsString())
        return { value.GetString(), value.GetStringLength() };
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    value.Accept(writer);
    return buffer.GetString();
}

std::string HttpReply::header(const std::string &name) const
{
    const auto found = headers.find(name);
    return found == headers.end() ? std::string() : found->second;
}

struct HttpClient::State {
    std::string url;
    CURL *curl = nullptr;
    curl_mime *form = nullptr;
};

HttpClient::HttpClient(std::string url)
    : m_state(std::make_unique<State>())
{
    static const CURLcode ready = curl_global_init(CURL_GLOBAL_DEFAULT);
    m_state->url = std::move(url);
    m_state->curl = ready == CURLE_OK ? curl_easy_init() : nullptr;
    if (!m_state->curl)
        throw std::runtime_error("the HTTP client cannot be made");
    curl_easy_setopt(m_state->curl, CURLOPT_COOKIEFILE, "");
    curl_easy_setopt(m_state->curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(m_state->curl, CURLOPT_TIMEOUT_MS, 30'000L);
}

HttpClient::~HttpClient()
{
    curl_easy_cleanup(m_state->curl);
}

HttpReply HttpClient::post(const std::string &json)
{
    return postTo("/kvx/service", json);
}

HttpReply HttpClient::postTo(const std::string &path, const std::string &body,
    const std::string &contentType, const std::vector<std::string> &headers)
{
    CURL *curl = m_state->curl;
    curl_easy_setopt(curl, CURLOPT_URL, (m_state->url + path).c_str());
    curl_easy_setopt(curl, CURLOPT_POST, 1L);
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
    std::vector<std::string> all = headers;
    all.push_back("Content-Type: " + contentType);
    all.push_back("Expect:");
    return perform(all);
}

HttpReply HttpClient::get(const std::string &path, const std::vector<std::string> &headers)
{
    curl_easy_setopt(m_state->curl, CURLOPT_URL, (m_state->url + path).c_str());
    curl_easy_setopt(m_state->curl, CURLOPT_HTTPGET, 1L);
    return perform(headers);
}

HttpReply HttpClient::upload(const std::string &requestJson, const std::string &bytes)
{
    CURL *curl = m_state->curl;
    curl_mime *form = curl_mime_init(curl);
    curl_mimepart *part = curl_mime_addpart(form);
    curl_mime_name(part, "jsonPart");
    curl_mime_type(part, "application/json");
    curl_mime_data(part, requestJson.data(), requestJson.size());
    part = curl_mime_addpart(form);
    curl_mime_name(part, "dataPart");
    curl_mime_filename(part, "data");
    curl_mime_data(part, bytes.data(), bytes.size());
    curl_easy_setopt(curl, CURLOPT_URL, (m_state->url + "/kvx/service").c_str());
    curl_easy_setopt(curl, CURLOPT_MIMEPOST, form);
    HttpReply reply = perform({});
    curl_easy_setopt(curl, CURLOPT_MIMEPOST, nullptr);
    curl_mime_free(form);
    return reply;
}

HttpReply HttpClient::uploadFile(const std::string &requestJson, const std::string &path)
{
    CURL *curl = m_state->curl;
    curl_mime *form = curl_mime_init(curl);
    curl_mimepart *part = curl_mime_addpart(form);
    curl_mime_name(part, "jsonPart");
    curl_mime_data(part, requestJson.data(), requestJson.size());
    part = curl_mime_addpart(form);
    curl_mime_name(part, "dataPart");
    curl_mime_filedata(part, path.c_str());
    curl_easy_setopt(curl, CURLOPT_URL, (m_state->url + "/kvx/service").c_str());
    curl_easy_setopt(curl, CURLOPT_MIMEPOST, form);
    HttpReply reply = perform({});
    curl_easy_setopt(curl, CURLOPT_MIMEPOST, nullptr);
    curl_mime_free(form);
    return reply;
}

HttpReply HttpClient::download(
    const std::string &requestJson, const std::vector<std::string> &headers)
{
    return postTo("/kvx/service", requestJson, "application/json", headers);
}

HttpReply HttpClient::login(
    const std::string &email, const std::string &password, const std::string &fingerPrint)
{
    return post(jsonObject({ { "service", "\"login\"" }, { "Email", jsonQuoted(email) },
        { "Password", jsonQuoted(password) }, { "Version", "\"1.0\"" },
        { "FingerPrint", jsonQuoted(fingerPrint) }, { "serverApiVersion", "\"1\"" },
        { "productType", "\"\"" } }));
}

HttpReply HttpClient::perform(const std::vector<std::string> &headers)
{
    HttpReply reply;
    curl_slist *list = nullptr;
    for (const std::string &header : headers)
        list = curl_slist_append(list, header.c_str());
    CURL *curl = m_state->curl;
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, list);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, takeBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply);
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, takeHeader);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &reply);
    const CURLcode result = curl_easy_perform(curl);
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    reply.status = result == CURLE_OK ? static_cast<int>(status) : 0;
    if (result != CURLE_OK)
        reply.error = curl_easy_strerror(result);
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, nullptr);
    curl_slist_free_all(list);
    return reply;
}

std::string HttpClient::cookie() const
{
    curl_slist *cookies = nullptr;
    curl_easy_getinfo(m_state->curl, CURLINFO_COOKIELIST, &cookies);
    std::string value;
    for (const curl_slist *one = cookies; one; one = one->next) {
        const std::string line = one->data;
        const std::size_t name = line.find("\tkvxsid\t");
        if (name != std::string::npos)
            value = line.substr(name + 8);
    }
    curl_slist_free_all(cookies);
    return value;
}

void HttpClient::setCookie(const std::string &value)
{
    const std::string line = "Set-Cookie: kvxsid=" + value + "; Path=/kvx; Domain=127.0.0.1";
    curl_easy_setopt(m_state->curl, CURLOPT_COOKIELIST, line.c_str());
}

void HttpClient::setTimeout(int milliseconds)
{
    curl_easy_setopt(m_state->curl, CURLOPT_TIMEOUT_MS, static_cast<long>(milliseconds));
}

RawConnection::RawConnection(const std::string &host, int port)
    : m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    inet_pton(AF_INET, host.c_str(), &address.sin_addr);
    if (connect(m_socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        close(m_socket);
        throw std::runtime_error(std::string("connect: ") + std::strerror(errno));
    }
}

RawConnection::~RawConnection()
{
    close(m_socket);
}

bool RawConnection::send(const std::string &bytes)
{
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count
            = ::send(m_socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

std::string RawConnection::readUntil(const std::string &text, int milliseconds)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while (text.empty() || m_received.find(text) == std::string::npos) {
        pollfd ready { m_socket, POLLIN, 0 };
        if (poll(&ready, 1, millisecondsLeft(end)) <= 0)
            break;
        char bytes[4096];
        const ssize_t count = recv(m_socket, bytes, sizeof bytes, 0);
        if (count <= 0)
            break;
        m_received.append(bytes, static_cast<std::size_t>(count));
    }
    std::string result;
    result.swap(m_received);
    return result;
}

std::string RawConnection::readAll(int milliseconds)
{
    return readUntil({}, milliseconds);
}

bool RawConnection::waitForClose(int milliseconds)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while (true) {
        pollfd ready { m_socket, POLLIN, 0 };
        if (poll(&ready, 1, millisecondsLeft(end)) <= 0)
            return false;
        char bytes[4096];
        if (recv(m_socket, bytes, sizeof bytes, 0) <= 0)
            return true;
    }
}

void RawConnection::closeSending()
{
    shutdown(m_socket, SHUT_WR);
}

std::string jsonObject(const std::vector<std::pair<std::string, std::string>> &members)
{
    std::string json = "{";
    for (const auto &[key, value] : members)
        json += (json.size() > 1 ? "," : "") + jsonQuoted(key) + ':' + value;
    return json + '}';
}

std::string jsonQuoted(const std::string &text)
{
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
    return buffer.GetString();
}

} // namespace kvx::test
