#include "Exchange.h"

#include "DownloadTarget.h"
#include "ExchangeError.h"
#include "LocalFile.h"
#include "ProgressReport.h"
#include "ProxyOptions.h"

#include <QJsonDocument>
#include <QUrl>
#include <QUuid>
#include <algorithm>
#include <cstdio>

namespace kvx {

namespace {

const long TransferBuffer = 256 * 1024;
const long SlowestTransfer = 1024; // bytes a second
// The server keeps an idle connection for 60 s; one unused this long is not trusted any more.
const long OldestConnection = 15; // s
const long JustUsed = 1; // s; libcurl counts whole ones
const qint64 SmallUpload = 1024 * 1024; // asking before such a body costs more than it saves
const long ContinueWait = 1000; // ms
const int LoginRequired = 401;
const int ProxyLoginRequired = 407;
const qint64 BodyReserve = 1024 * 1024;

} // namespace

Exchange::Exchange(const QString &url, const Limits &limits)
    : m_url(url.toUtf8())
    , m_limits(limits)
    , m_mark(QUuid::createUuid().toByteArray(QUuid::WithoutBraces))
    , m_server(QUrl(url).authority())
{
    if (m_server.isEmpty())
        m_server = url;
}

Exchange::~Exchange()
{
    curl_mime_free(m_mime);
    curl_slist_free_all(m_headers);
}

void Exchange::sendJson(const QJsonObject &request)
{
    m_post = true;
    m_json = QJsonDocument(request).toJson(QJsonDocument::Compact);
}

void Exchange::sendFile(const QJsonObject &request, LocalFile *file)
{
    sendJson(request);
    m_file = file;
}

bool Exchange::prepare(CURL *easy, const KVXNetworkProxy &proxy)
{
    const bool proxied
        = proxy.type == KVXNetworkProxy::HttpProxy || proxy.type == KVXNetworkProxy::Socks5Proxy;
    m_proxy = proxied ? proxyText(proxy) : QString();
    if (!applyProxy(easy, proxy)) {
        m_error = QStringLiteral("\"%1\" is not a valid proxy address.").arg(m_proxy);
        return false;
    }
    curl_easy_setopt(easy, CURLOPT_URL, m_url.constData());
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(easy, CURLOPT_DISALLOW_USERNAME_IN_URL, 1L);
    curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_QUICK_EXIT, 1L); // never wait for a name server that hangs
    curl_easy_setopt(easy, CURLOPT_TCP_KEEPALIVE, 1L);
    curl_easy_setopt(easy, CURLOPT_MAXAGE_CONN, m_proven ? JustUsed : OldestConnection);
    curl_easy_setopt(easy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, m_detail);
    curl_easy_setopt(easy, CURLOPT_PREREQFUNCTION, &Exchange::onPrerequisite);
    curl_easy_setopt(easy, CURLOPT_PREREQDATA, this);
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &Exchange::onHeader);
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, this);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Exchange::onBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, this);
    if (m_progress) {
        curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);
        curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, &Exchange::onProgress);
        curl_easy_setopt(easy, CURLOPT_XFERINFODATA, this);
    }
    prepareLimits(easy);
    if (m_file) {
        // Simple HTTP proxies take the interim response for the final one.
        prepareParts(
            easy, m_file->size() > SmallUpload && proxy.type != KVXNetworkProxy::HttpProxy);
    } else if (m_post) {
        prepareJson(easy);
    }
    m_headers = curl_slist_append(m_headers, ("Kvx-Exchange: " + m_mark).constData());
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, m_headers);
    return true;
}

void Exchange::prepareLimits(CURL *easy) const
{
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(m_limits.connectMs));
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, static_cast<long>(m_limits.totalMs));
    if (m_limits.stallMs > 0) {
        curl_easy_setopt(easy, CURLOPT_LOW_SPEED_LIMIT, SlowestTransfer);
        curl_easy_setopt(
            easy, CURLOPT_LOW_SPEED_TIME, static_cast<long>((m_limits.stallMs + 999) / 1000));
        curl_easy_setopt(easy, CURLOPT_BUFFERSIZE, TransferBuffer);
        curl_easy_setopt(easy, CURLOPT_UPLOAD_BUFFERSIZE, TransferBuffer);
    }
}

void Exchange::prepareJson(CURL *easy)
{
    m_headers = curl_slist_append(m_headers, "Content-Type: application/json");
    m_headers = curl_slist_append(m_headers, "Expect:"); // the answer comes at once anyway
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(m_json.size()));
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, m_json.constData());
}

void Exchange::prepareParts(CURL *easy, bool askFirst)
{
    m_headers = curl_slist_append(m_headers, askFirst ? "Expect: 100-continue" : "Expect:");
    curl_easy_setopt(easy, CURLOPT_EXPECT_100_TIMEOUT_MS, ContinueWait);
    m_mime = curl_mime_init(easy);
    curl_mimepart *part = curl_mime_addpart(m_mime);
    curl_mime_name(part, "jsonPart");
    curl_mime_type(part, "application/json");
    curl_mime_data(part, m_json.constData(), static_cast<size_t>(m_json.size()));
    part = curl_mime_addpart(m_mime);
    curl_mime_name(part, "dataPart");
    curl_mime_type(part, "application/octet-stream");
    curl_mime_data_cb(part, m_file->size(), &Exchange::onRead, &Exchange::onSeek, nullptr, this);
    curl_easy_setopt(easy, CURLOPT_MIMEPOST, m_mime);
}

void Exchange::finish(CURL *easy, CURLcode result)
{
    curl_easy_reset(easy); // lets go of everything that lies in this object
    if (!m_refusal.isEmpty())
        m_error = m_refusal;
    else if (m_head.complete() && (status() == LoginRequired || status() == ProxyLoginRequired))
        m_error.clear(); // however its page ended: proxies close over a request they do not read
    else if (result != CURLE_OK)
        m_error = exchangeError(result, m_server, m_proxy, QString::fromLocal8Bit(m_detail));
    else if (!m_head.complete())
        m_error = exchangeError(CURLE_GOT_NOTHING, m_server, m_proxy, QString());
    else if (status() == 200 && !m_head.tellsEnd())
        m_error = QStringLiteral("The answer of %1 does not tell its length.").arg(m_server);
    if (!m_error.isEmpty())
        m_body.clear();
}

bool Exchange::leavesConnectionClean() const
{
    return m_error.isEmpty() && (!m_file || m_file->position() == m_file->size());
}

bool Exchange::refuse(const QString &error)
{
    if (m_refusal.isEmpty())
        m_refusal = error;
    return false;
}

bool Exchange::bodyIsFile() const
{
    return m_target && m_head.status() == 200 && m_head.hasFileReply();
}

int Exchange::onPrerequisite(void *self, char *, char *, int, int)
{
    auto *exchange = static_cast<Exchange *>(self);
    const bool unanswered = exchange->m_attempts > 0 && !exchange->m_answered;
    ++exchange->m_attempts;
    exchange->m_answered = false;
    if (!unanswered || exchange->m_repeatable)
        return CURL_PREREQFUNC_OK;
    exchange->refuse(
        exchangeError(CURLE_GOT_NOTHING, exchange->m_server, exchange->m_proxy, QString()));
    return CURL_PREREQFUNC_ABORT;
}

size_t Exchange::onHeader(char *line, size_t size, size_t count, void *self)
{
    auto *exchange = static_cast<Exchange *>(self);
    const bool wasComplete = exchange->m_head.complete();
    exchange->m_answered = true;
    if (!exchange->m_head.add(line, static_cast<qint64>(size) * static_cast<qint64>(count))) {
        exchange->refuse(QStringLiteral("The answer of %1 is too large.").arg(exchange->m_server));
        return 0;
    }
    if (!wasComplete && exchange->m_head.complete() && !exchange->headerEnded())
        return 0;
    return size * count;
}

bool Exchange::headerEnded()
{
    m_body.clear();
    if (!m_head.exchange().isEmpty() && m_head.exchange() != m_mark)
        return refuse(QStringLiteral("The answer of %1 belongs to another request.").arg(m_server));
    if (!bodyIsFile()) {
        if (m_head.contentLength() > m_limits.replyBytes)
            return refuse(QStringLiteral("The answer of %1 is too large.").arg(m_server));
        m_body.reserve(
            static_cast<int>(std::clamp<qint64>(m_head.contentLength(), 0, BodyReserve)));
        return true;
    }
    if (m_head.hasDigest() && m_head.sha256().isEmpty())
        return refuse(QStringLiteral("The answer of %1 names no valid digest.").arg(m_server));
    m_target->expectDigest(m_head.sha256());
    return true;
}

size_t Exchange::onBody(char *bytes, size_t size, size_t count, void *self)
{
    auto *exchange = static_cast<Exchange *>(self);
    const auto length = static_cast<qint64>(size) * static_cast<qint64>(count);
    exchange->m_head.bodyBegan();
    if (exchange->bodyIsFile()) {
        if (exchange->m_target->write(bytes, length))
            return size * count;
        exchange->refuse(exchange->m_target->error());
        return 0;
    }
    if (exchange->m_body.size() + length > exchange->m_limits.replyBytes) {
        exchange->refuse(QStringLiteral("The answer of %1 is too large.").arg(exchange->m_server));
        return 0;
    }
    exchange->m_body.append(bytes, static_cast<int>(length));
    return size * count;
}

int Exchange::onProgress(void *self, curl_off_t, curl_off_t done, curl_off_t, curl_off_t)
{
    auto *exchange = static_cast<Exchange *>(self);
    if (exchange->m_file)
        exchange->m_progress->moved(exchange->m_file->position(), exchange->m_file->size());
    else if (done > 0 && (!exchange->m_target || exchange->bodyIsFile()))
        exchange->m_progress->moved(done, std::max<qint64>(0, exchange->m_head.contentLength()));
    return 0;
}

size_t Exchange::onRead(char *buffer, size_t size, size_t count, void *self)
{
    auto *exchange = static_cast<Exchange *>(self);
    const qint64 got
        = exchange->m_file->read(buffer, static_cast<qint64>(size) * static_cast<qint64>(count));
    if (got >= 0)
        return static_cast<size_t>(got);
    exchange->refuse(QStringLiteral("The file became shorter or unreadable while it was sent."));
    return CURL_READFUNC_ABORT;
}

int Exchange::onSeek(void *self, curl_off_t offset, int origin)
{
    auto *exchange = static_cast<Exchange *>(self);
    const bool done = origin == SEEK_SET && exchange->m_file->seek(offset);
    return done ? CURL_SEEKFUNC_OK : CURL_SEEKFUNC_CANTSEEK;
}

} // namespace kvx
