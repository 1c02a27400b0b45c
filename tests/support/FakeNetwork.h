#pragma once

#include <KVXNetwork/KVXNetwork.h>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <functional>
#include <mutex>

namespace kvx::test {

/// A transport that records requests and gives scripted answers. A service without an answer gets
/// {"statuscode": 1}. Callable from several threads.
class FakeNetwork : public KVXNetwork {
public:
    /// Fills the reply and returns the transport's own result.
    using Handler = std::function<bool(const QJsonObject &request, QJsonObject &reply)>;

    /// One file operation of the raw kind.
    struct Transfer {
        bool upload;
        QString url;
        QString localFileName;
        QString serverFileName;
        void *receiver;
        ProgressFunction progress;
    };

    /// From now on.
    void answer(const QString &service, const QJsonObject &reply);
    /// Once, before the standing answer; several form a queue.
    void answerOnce(const QString &service, const QJsonObject &reply);
    /// From now on, computed; replaces the standing answer.
    void handle(const QString &service, Handler handler);
    /// From now on the post itself fails with an empty reply.
    void failPost(const QString &service);
    /// Fails the post with this number (0 is the next one); others are answered as usual.
    void failRequest(int number);

    /// The oldest request that was not taken yet; an empty object when there is none.
    QJsonObject takeRequest();
    /// All requests that were not taken yet.
    QList<QJsonObject> takeRequests();
    /// Their "service" words.
    QStringList takeServices();
    /// How many posts were made since the start, in all or of one service.
    int postCount(const QString &service = {}) const;
    /// URL, receiver and callback of the last post.
    QString lastUrl() const { return m_lastUrl; }
    void *lastReceiver() const { return m_lastReceiver; }
    ProgressFunction lastProgress() const { return m_lastProgress; }

    // Results of the operations besides post.
    bool transferResult = true;
    QList<Transfer> transfers;
    int httpStatus = 200;
    QByteArray httpBody;
    QList<QPair<QString, QJsonObject>> httpRequests; ///< URL and body of httpGet and httpPost
    QString serverVersionResult;
    bool pingResult = false;
    QStringList calls; ///< names of the pass-through operations in call order
    QList<KVXNetworkProxy> proxies;

    void setProxy(const KVXNetworkProxy &proxy) override;
    KVXNetworkProxy proxy() const override;
    int httpGet(const QString &url, QByteArray &body) override;
    int httpPost(const QString &url, const QJsonObject &request) override;
    void setTimeouts(const Timeouts &timeouts) override;
    void clearSession() override;
    bool hasSession() const override;
    void abort() override;
    QString lastError() const override;
    void searchServer(
        const QStringList &addresses, int port, void *receiver, SearchFunction progress) override;
    bool ping(const QString &host, int port) override;
    QString serverVersion(const QString &host, int port) override;
    void cancelSearch() override;
    bool post(const QString &url, const QJsonObject &request, QJsonObject &reply, void *receiver,
        ProgressFunction progress) override;
    bool uploadFile(const QString &url, const QString &localFileName, const QString &serverFileName,
        void *receiver, ProgressFunction progress) override;
    bool downloadFile(const QString &url, const QString &serverFileName,
        const QString &localFileName, void *receiver, ProgressFunction progress) override;

private:
    mutable std::mutex m_mutex;
    QMap<QString, Handler> m_handlers;
    QMap<QString, QList<QJsonObject>> m_once;
    QList<QJsonObject> m_requests;
    QMap<QString, int> m_counts;
    int m_failAt = -1;
    int m_posts = 0;
    QString m_lastUrl;
    void *m_lastReceiver = nullptr;
    ProgressFunction m_lastProgress = nullptr;
};

} // namespace kvx::test
