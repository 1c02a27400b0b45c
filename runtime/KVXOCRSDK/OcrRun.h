#pragma once

#include <KVXOCRSDK/KVXOCRParam.h>
#include <QJsonObject>
#include <QString>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace kvx {

/// One list of recognition jobs on its way: uploads each document, follows its job, tells what
/// comes. A thread of its own; the members are for the client's thread.
class OcrRun {
public:
    /// Called on the run's thread.
    struct Listener {
        std::function<void(const QString &file, int page, const QString &text)> page;
        std::function<void(const QString &file)> finished;
        std::function<void(const QString &file, int code, const QString &message)> error;
        std::function<void(int seconds)> waiting;
        std::function<void(const QString &file, qint64 done, qint64 total)> uploaded;
    };

    /// Set by stop(); outlives the run where what was told is still on its way.
    using StopFlag = std::shared_ptr<std::atomic<bool>>;

    OcrRun(const QString &url, int waitingInterval, std::vector<std::unique_ptr<KVXOCRParam>> jobs,
        Listener listener, StopFlag stopped);
    ~OcrRun(); ///< waits for the thread
    OcrRun(const OcrRun &) = delete;
    OcrRun &operator=(const OcrRun &) = delete;

    void begin();
    /// Nothing more is told, and the server is asked to end the job. Returns at once.
    void stop();
    /// True as soon as the last thing has been told or is about to be.
    bool isOver() const { return m_over; }
    /// Until no thread of it runs.
    bool waitForEnd(std::chrono::milliseconds limit);
    /// The process ends: no more requests.
    void giveUp() { m_givenUp = true; }

private:
    class Job;

    void run();
    QJsonObject post(const QJsonObject &request, bool &carried) const;
    void submit(Job &job);
    void follow(Job &job);
    bool takeNews(Job &job, const QJsonObject &reply);
    void fetchDocument(Job &job);
    void tellWaiting(Job &job, int seconds);
    void fail(const Job &job, int code, const QString &message);
    void finish(const Job &job);
    void cancelOnServer(const QString &jobId) const;
    void noteJob(const QString &jobId);
    bool pause(std::chrono::milliseconds time);

    const QString m_url;
    const int m_waitingInterval;
    std::vector<std::unique_ptr<KVXOCRParam>> m_jobs;
    const Listener m_listener;
    const StopFlag m_stopped;
    std::atomic<bool> m_over { false };
    std::atomic<bool> m_givenUp { false };

    std::mutex m_mutex; ///< guards what follows
    std::condition_variable m_changed;
    QString m_jobId; ///< the job that the server works on
    bool m_ended = false;
    bool m_cancelling = false;

    std::thread m_thread;
    std::thread m_canceller;
};

} // namespace kvx
