#include "OcrRun.h"

#include <KVXNetwork/KVXNetwork.h>
#include <QFileInfo>
#include <QJsonArray>
#include <algorithm>

namespace kvx {

namespace {

constexpr qint64 largestDocument = 50LL << 20;
constexpr int heldSeconds = 5;
/// A server that restarts is waited for; a job survives that.
constexpr std::chrono::seconds firstPause { 1 };
constexpr int mostPauses = 6; // doubling: about a minute in all

enum Code { Failed = 0, Ok = 1, TooLarge = 102, BadDocument = 680, PageFailed = 683 };

int statusOf(const QJsonObject &reply)
{
    return reply.value(QLatin1String("statuscode")).toInt(Failed);
}

/// A refusal says it under "message"; a page or a job that failed under "Message".
QString messageOf(const QJsonObject &reply)
{
    const QString refusal = reply.value(QLatin1String("message")).toString();
    const QString message
        = refusal.isEmpty() ? reply.value(QLatin1String("Message")).toString() : refusal;
    return message.isEmpty() ? QStringLiteral("The server refused the recognition.") : message;
}

QJsonArray indexesOf(const QList<int> &pages)
{
    QJsonArray array;
    for (const int page : pages)
        array.append(page);
    return array;
}

} // namespace

/// One job as far as it has come.
class OcrRun::Job {
public:
    Job(const KVXOCRParam &job, bool isLast)
        : param(job)
        , last(isLast)
    {
    }
    const KVXOCRParam &param;
    const bool last;
    QString id;
    int seen = 0; ///< page results
    int waiting = -1; ///< last told
    std::chrono::steady_clock::time_point told {};
    OcrRun *run = nullptr;
};

OcrRun::OcrRun(const QString &url, int waitingInterval,
    std::vector<std::unique_ptr<KVXOCRParam>> jobs, Listener listener, StopFlag stopped)
    : m_url(url)
    , m_waitingInterval(waitingInterval)
    , m_jobs(std::move(jobs))
    , m_listener(std::move(listener))
    , m_stopped(std::move(stopped))
{
}

OcrRun::~OcrRun()
{
    if (m_thread.joinable())
        m_thread.join();
    if (m_canceller.joinable())
        m_canceller.join();
}

void OcrRun::begin()
{
    m_thread = std::thread([this] { run(); });
}

void OcrRun::stop()
{
    if (m_stopped->exchange(true))
        return;
    QString jobId;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        jobId = m_jobId;
        m_cancelling = !jobId.isEmpty();
    }
    m_changed.notify_all();
    if (jobId.isEmpty())
        return;
    // The server then answers at once what the run's own thread waits for.
    m_canceller = std::thread([this, jobId] {
        cancelOnServer(jobId);
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_cancelling = false;
        m_changed.notify_all();
    });
}

bool OcrRun::waitForEnd(std::chrono::milliseconds limit)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, limit, [this] { return m_ended && !m_cancelling; });
}

void OcrRun::run()
{
    for (const auto &param : m_jobs) {
        if (*m_stopped)
            break;
        Job job(*param, param == m_jobs.back());
        job.run = this;
        submit(job);
    }
    m_over = true;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_ended = true;
    m_changed.notify_all();
}

QJsonObject OcrRun::post(const QJsonObject &request, bool &carried) const
{
    QJsonObject reply;
    carried = KVXNetwork::getInstance()->post(m_url, request, reply, nullptr, nullptr);
    return reply;
}

void OcrRun::submit(Job &job)
{
    const QFileInfo file(job.param.filePath);
    if (!file.isFile() || !file.isReadable()) {
        fail(job, BadDocument,
            QStringLiteral("%1: there is no such file, or it cannot be read.")
                .arg(file.filePath()));
        return;
    }
    if (file.size() > largestDocument) {
        fail(job, TooLarge,
            QStringLiteral("%1 is larger than the server accepts (%2 MiB).")
                .arg(file.filePath(), QString::number(largestDocument >> 20)));
        return;
    }
    const QJsonObject request { { QStringLiteral("service"), QStringLiteral("submit") },
        { QStringLiteral("LocalFileName"), file.filePath() },
        { QStringLiteral("FileName"), file.fileName() },
        { QStringLiteral("Languages"), QJsonArray::fromStringList(job.param.languages) },
        { QStringLiteral("ExportType"), int(job.param.exportType) },
        { QStringLiteral("PageIndexes"), indexesOf(job.param.pageIndexes) } };
    QJsonObject reply;
    const auto progress = [](void *receiver, qint64 done, qint64 total) {
        const Job &sent = *static_cast<Job *>(receiver);
        if (!*sent.run->m_stopped)
            sent.run->m_listener.uploaded(sent.param.filePath, done, total);
    };
    if (!KVXNetwork::getInstance()->post(m_url, request, reply, &job, progress)) {
        fail(job, Failed, KVXNetwork::getInstance()->lastError());
        return;
    }
    if (statusOf(reply) != Ok) {
        fail(job, statusOf(reply), messageOf(reply));
        return;
    }
    job.id = reply.value(QLatin1String("JobID")).toString();
    noteJob(job.id);
    if (*m_stopped) {
        cancelOnServer(job.id);
    } else {
        tellWaiting(job, reply.value(QLatin1String("WaitingTime")).toInt());
        follow(job);
    }
    noteJob(QString());
}

/// Asks for news until the job is over; the server holds each question back until there are some.
void OcrRun::follow(Job &job)
{
    int pauses = 0;
    while (!*m_stopped) {
        bool carried = false;
        const QJsonObject reply
            = post({ { QStringLiteral("service"), QStringLiteral("state") },
                       { QStringLiteral("JobID"), job.id }, { QStringLiteral("After"), job.seen },
                       { QStringLiteral("Wait"), heldSeconds } },
                carried);
        if (*m_stopped)
            return;
        if (!carried && pauses < mostPauses) {
            if (!pause(firstPause * (1 << pauses++)))
                return;
            continue;
        }
        if (!carried) {
            fail(job, Failed, KVXNetwork::getInstance()->lastError());
            return;
        }
        pauses = 0;
        if (statusOf(reply) != Ok) {
            fail(job, statusOf(reply), messageOf(reply));
            return;
        }
        if (!takeNews(job, reply))
            return;
    }
}

/// False when that was the end of the job.
bool OcrRun::takeNews(Job &job, const QJsonObject &reply)
{
    const QString state = reply.value(QLatin1String("State")).toString();
    tellWaiting(job, reply.value(QLatin1String("WaitingTime")).toInt());
    const QJsonArray results = reply.value(QLatin1String("Results")).toArray();
    for (const QJsonValue &value : results) {
        const QJsonObject result = value.toObject();
        ++job.seen;
        if (*m_stopped)
            return false;
        if (result.value(QLatin1String("Ok")).toBool())
            m_listener.page(job.param.filePath, result.value(QLatin1String("PageIndex")).toInt(),
                result.value(QLatin1String("Text")).toString());
        else
            m_listener.error(job.param.filePath,
                result.value(QLatin1String("Code")).toInt(PageFailed), messageOf(result));
    }
    if (state == QLatin1String("queued") || state == QLatin1String("running"))
        return true;
    // What did not fit into this reply is asked for before the end is told.
    if (!results.isEmpty())
        return true;
    if (state == QLatin1String("finished") && job.param.exportType == KVXOCRParam::SearchablePdf)
        fetchDocument(job);
    else if (state == QLatin1String("finished"))
        finish(job);
    else if (state == QLatin1String("cancelled"))
        fail(job, Failed, QStringLiteral("The recognition was cancelled."));
    else
        fail(job, reply.value(QLatin1String("Code")).toInt(BadDocument), messageOf(reply));
    return false;
}

void OcrRun::fetchDocument(Job &job)
{
    bool carried = false;
    const QJsonObject reply = post({ { QStringLiteral("service"), QStringLiteral("result") },
                                       { QStringLiteral("JobID"), job.id },
                                       { QStringLiteral("LocalFileName"),
                                           KVXOCRParam::searchablePdfPath(job.param.filePath) } },
        carried);
    if (!carried)
        fail(job, Failed, KVXNetwork::getInstance()->lastError());
    else if (statusOf(reply) != Ok)
        fail(job, statusOf(reply), messageOf(reply));
    else
        finish(job);
}

void OcrRun::tellWaiting(Job &job, int seconds)
{
    const auto now = std::chrono::steady_clock::now();
    const bool changed = seconds != job.waiting;
    const bool due = m_waitingInterval == 0
        ? changed
        : (seconds > 0 && now - job.told >= std::chrono::seconds(m_waitingInterval))
            || (changed && seconds == 0) || job.waiting < 0;
    if (!due || *m_stopped)
        return;
    job.waiting = seconds;
    job.told = now;
    m_listener.waiting(seconds);
}

// Who hears of the last job's end may start the next list at once.
void OcrRun::fail(const Job &job, int code, const QString &message)
{
    if (*m_stopped)
        return;
    if (job.last)
        m_over = true;
    m_listener.error(job.param.filePath, code, message);
}

void OcrRun::finish(const Job &job)
{
    if (*m_stopped)
        return;
    if (job.last)
        m_over = true;
    m_listener.finished(job.param.filePath);
}

void OcrRun::cancelOnServer(const QString &jobId) const
{
    if (m_givenUp)
        return;
    bool carried = false;
    post({ { QStringLiteral("service"), QStringLiteral("cancel") },
             { QStringLiteral("JobID"), jobId } },
        carried);
}

void OcrRun::noteJob(const QString &jobId)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_jobId = jobId;
}

/// False when stopped meanwhile.
bool OcrRun::pause(std::chrono::milliseconds time)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return !m_changed.wait_for(lock, time, [this] { return m_stopped->load(); });
}

} // namespace kvx
