#pragma once

#include "ResponseHead.h"

#include <KVXNetwork/KVXNetworkProxy.h>
#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <curl/curl.h>

namespace kvx {

class DownloadTarget;
class LocalFile;
class ProgressReport;

/// One HTTP exchange: what is sent, within which limits, and what came back. Describes itself to
/// a libcurl handle (prepare) and is told how that ended (finish). Used by one thread, once.
///
/// A request that changes something is never sent twice: libcurl repeats a request by itself when
/// a kept connection turns out to be dead, and the server may have acted on the first one.
/// Each request has a mark of its own, which our server repeats. A reply with another one was left
/// on the connection by an earlier request; it is refused and the connection given up.
class Exchange {
public:
    struct Limits {
        int connectMs = 0;
        int totalMs = 0; ///< 0: none
        int stallMs = 0; ///< below 1 KiB/s for this long fails; 0: none
        qint64 replyBytes = 0; ///< of a body that is kept in memory
    };

    /// A GET unless one of the following says otherwise.
    Exchange(const QString &url, const Limits &limits);
    ~Exchange();
    Exchange(const Exchange &) = delete;
    Exchange &operator=(const Exchange &) = delete;

    void sendJson(const QJsonObject &request);
    /// The request as "jsonPart", the file (borrowed, open) as "dataPart".
    void sendFile(const QJsonObject &request, LocalFile *file);
    /// A body that comes with a file reply goes to the target (borrowed, open).
    void receiveFile(DownloadTarget *target) { m_target = target; }
    void reportTo(ProgressReport *progress) { m_progress = progress; }
    /// A kept connection serves only if it was used less than two seconds ago.
    void useProvenConnection() { m_proven = true; }
    /// The request changes nothing, so it may be repeated.
    void mayRepeat() { m_repeatable = true; }

    /// False with error() when nothing can be sent. The handle must have been reset.
    bool prepare(CURL *easy, const KVXNetworkProxy &proxy);
    void finish(CURL *easy, CURLcode result);

    /// Empty when a complete response came, whatever its status.
    const QString &error() const { return m_error; }
    /// Replaces the error; for what is found out about the response afterwards.
    void fail(const QString &error) { m_error = error; }
    int status() const { return m_head.status(); }
    const ResponseHead &head() const { return m_head; }
    const QByteArray &body() const { return m_body; }
    const QByteArray &url() const { return m_url; }
    const QString &server() const { return m_server; }
    const QString &proxy() const { return m_proxy; }
    /// False when the server may still be waiting for the rest of the request.
    bool leavesConnectionClean() const;

private:
    static int onPrerequisite(void *self, char *, char *, int, int);
    static size_t onHeader(char *line, size_t size, size_t count, void *self);
    static size_t onBody(char *bytes, size_t size, size_t count, void *self);
    static int onProgress(void *self, curl_off_t total, curl_off_t done, curl_off_t, curl_off_t);
    static size_t onRead(char *buffer, size_t size, size_t count, void *self);
    static int onSeek(void *self, curl_off_t offset, int origin);

    void prepareJson(CURL *easy);
    void prepareParts(CURL *easy, bool askFirst);
    void prepareLimits(CURL *easy) const;
    bool headerEnded();
    bool refuse(const QString &error);
    bool bodyIsFile() const;

    const QByteArray m_url;
    const Limits m_limits;
    const QByteArray m_mark;
    QString m_server;
    QString m_proxy;
    QByteArray m_json;
    LocalFile *m_file = nullptr;
    DownloadTarget *m_target = nullptr;
    ProgressReport *m_progress = nullptr;
    bool m_post = false;
    bool m_proven = false;
    bool m_repeatable = false;

    curl_slist *m_headers = nullptr;
    curl_mime *m_mime = nullptr;
    int m_attempts = 0;
    bool m_answered = false; ///< since the last attempt
    ResponseHead m_head;
    QByteArray m_body;
    QString m_refusal; ///< why we ended the exchange ourselves
    QString m_error;
    char m_detail[CURL_ERROR_SIZE] = {};
};

} // namespace kvx
