#pragma once

#include <KVXExport.h>
#include <KVXNetwork/KVXNetworkProxy.h>
#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

/// The host's HTTP transport. Synchronous: every operation returns when the exchange is over and
/// never runs an event loop. Callable from several threads; progress is reported on the calling
/// thread. All operations share one session (cookies, proxy, time limits).
/// The order of the virtual operations is binding.
class KVXNETWORK_API KVXNetwork {
public:
    /// Bytes moved so far and in all (total 0: not known).
    using ProgressFunction = void (*)(void *receiver, qint64 done, qint64 total);
    /// One probed address: its text ("host:port name" when a server answered, else the address),
    /// how many have been probed, how many there are.
    using SearchFunction = void (*)(void *receiver, const QString &text, int done, int total);

    /// Limits in milliseconds; 0 keeps the default.
    struct Timeouts {
        int connectMs = 0; ///< default 10 s
        int requestMs = 0; ///< whole JSON exchange; default 60 s
        int mergeMs = 0; ///< "sendservertomerge"; default 600 s
        int stallMs = 0; ///< a file transfer below 1 KiB/s for this long fails; default 30 s
    };

    virtual ~KVXNetwork() = default;

    /// Replaces the proxy; the very next request uses it.
    virtual void setProxy(const KVXNetworkProxy &proxy) = 0;
    virtual KVXNetworkProxy proxy() const = 0;

    /// Plain GET. Returns the HTTP status, 0 when the exchange failed; fills body.
    virtual int httpGet(const QString &url, QByteArray &body) = 0;
    /// Plain POST of a JSON object. Returns the HTTP status, 0 when the exchange failed.
    virtual int httpPost(const QString &url, const QJsonObject &request) = 0;

    virtual void setTimeouts(const Timeouts &timeouts) = 0;
    /// Forgets cookies and kept connections.
    virtual void clearSession() = 0;
    /// True while a session cookie is held.
    virtual bool hasSession() const = 0;
    /// Ends all exchanges under way with failure. Meant for another thread.
    virtual void abort() = 0;
    /// What went wrong in the calling thread's last exchange; empty after a success.
    virtual QString lastError() const = 0;

    /// Probes the port on every address ("host" or "host:port") in parallel for a server.
    virtual void searchServer(
        const QStringList &addresses, int port, void *receiver, SearchFunction progress)
        = 0;
    /// True when a server of this product answers there.
    virtual bool ping(const QString &host, int port) = 0;
    /// The API versions that the server offers, joined by ","; empty when none answers.
    virtual QString serverVersion(const QString &host, int port) = 0;
    /// Ends a search that runs on another thread.
    virtual void cancelSearch() = 0;

    /// Posts a JSON request and fills the reply. True exactly for HTTP 200 with a complete JSON
    /// object. A request whose "service" is "upload" also sends the file named by
    /// "LocalFileName"; one whose "service" is "download" stores the received file there (written
    /// beside it, synced, renamed: a refused or torn download leaves no file). "HttpMethod" "0"
    /// makes it a GET. The local path itself is not sent. The recognition service's "submit" and
    /// "result" count as upload and download when they name a local file. A file that is a link,
    /// not regular or another user's is neither sent nor replaced. A post other than a download is
    /// never repeated, also not on a kept connection that turns out to be dead.
    virtual bool post(const QString &url, const QJsonObject &request, QJsonObject &reply,
        void *receiver, ProgressFunction progress)
        = 0;
    /// Raw transfer of a whole file; true when the server accepted or delivered it.
    virtual bool uploadFile(const QString &url, const QString &localFileName,
        const QString &serverFileName, void *receiver, ProgressFunction progress)
        = 0;
    virtual bool downloadFile(const QString &url, const QString &serverFileName,
        const QString &localFileName, void *receiver, ProgressFunction progress)
        = 0;

    /// The transport of this process; created on first use.
    static KVXNetwork *getInstance();
    /// Installs another transport (borrowed; null: the built-in one again). Not while a request
    /// is under way.
    static void setInstance(KVXNetwork *instance);
};
