#include "OcrClient.h"

#include "UnfinishedRuns.h"

#include <QMetaObject>
#include <QUrl>
#include <algorithm>

namespace kvx {

namespace {

constexpr std::chrono::seconds stopLimit { 1 };

} // namespace

OcrClient::OcrClient()
    : m_address(std::make_shared<Address>())
{
    m_address->client = this;
}

OcrClient::~OcrClient()
{
    {
        const std::lock_guard<std::mutex> lock(m_address->mutex);
        m_address->client = nullptr;
    }
    OcrClient::stop();
}

bool OcrClient::start(QList<KVXOCRParam *> jobs)
{
    std::vector<std::unique_ptr<KVXOCRParam>> owned;
    for (KVXOCRParam *job : jobs)
        owned.emplace_back(job);
    const bool whole
        = std::all_of(owned.begin(), owned.end(), [](const auto &job) { return job != nullptr; });
    if (!whole || (m_run && !m_run->isOver()) || QUrl(m_url).host().isEmpty())
        return false;
    if (owned.empty())
        return true;
    const auto stopped = std::make_shared<std::atomic<bool>>(false);
    m_run = std::make_shared<OcrRun>(
        m_url, m_waitingInterval, std::move(owned), listener(stopped), stopped);
    m_run->begin();
    return true;
}

bool OcrClient::stop()
{
    if (!m_run)
        return true;
    m_run->stop();
    const bool ended = m_run->waitForEnd(stopLimit);
    if (!ended)
        UnfinishedRuns::take(m_run);
    m_run.reset();
    return ended;
}

OcrRun::Listener OcrClient::listener(const OcrRun::StopFlag &stopped) const
{
    // What a stopped run has posted already is dropped where it arrives.
    const auto post
        = [address = m_address, stopped](const std::function<void(OcrClient &)> &emission) {
              const std::lock_guard<std::mutex> lock(address->mutex);
              OcrClient *client = address->client;
              if (!client)
                  return;
              const auto deliver = [client, stopped, emission] {
                  if (!*stopped)
                      emission(*client);
              };
              QMetaObject::invokeMethod(client, deliver, Qt::QueuedConnection);
          };
    OcrRun::Listener listener;
    listener.page = [post](const QString &file, int page, const QString &text) {
        post([=](OcrClient &client) { emit client.pageOcred(file, page, text); });
    };
    listener.finished = [post](const QString &file) {
        post([=](OcrClient &client) { emit client.finished(file); });
    };
    listener.error = [post](const QString &file, int code, const QString &message) {
        post([=](OcrClient &client) { emit client.error(file, code, message); });
    };
    listener.waiting = [post](int seconds) {
        post([=](OcrClient &client) { emit client.waitingTime(seconds); });
    };
    listener.uploaded = [post](const QString &file, qint64 done, qint64 total) {
        post([=](OcrClient &client) { emit client.uploadProgress(file, done, total); });
    };
    return listener;
}

} // namespace kvx
