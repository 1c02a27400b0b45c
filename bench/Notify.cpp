#include "BareCopy.h"
#include "BareDownloads.h"
#include "ChangeLogs.h"
#include "Report.h"
#include "Stand.h"
#include "Topic.h"
#include "Workloads.h"

#include "KVXSQLite/KVXProjectDatabase.h"
#include "client/ShellProcess.h"

#include <KVXCollaboration/KVXCWProjectList.h>
#include <KVXCollaboration/KVXCWProjectPermission.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <QFile>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace kvx::bench {

namespace {

constexpr int messagesOfRound = 20;

/// What the clients have reported: a version that is in their copy, and when.
struct Arrivals {
    std::mutex mutex;
    std::condition_variable changed;
    std::map<int, std::vector<Moment>> moments;
};

/// A kvx process with the project open. A thread of its own listens to what it says.
class Colleague {
public:
    Colleague(demo::Site &site, const QString &email, const QString &project, Arrivals &arrivals)
        : m_thread(
            [this, &site, email, project, &arrivals] { work(site, email, project, arrivals); })
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_started.wait(lock, [this] { return m_ready || !m_error.isEmpty(); });
    }
    ~Colleague()
    {
        m_stop = true;
        m_thread.join();
    }
    Colleague(const Colleague &) = delete;
    Colleague &operator=(const Colleague &) = delete;

    const QString &error() const { return m_error; }

private:
    void work(demo::Site &site, const QString &email, const QString &project, Arrivals &arrivals)
    {
        host::ShellProcess shell;
        QString error;
        if (!shell.start(site.kvx(), site.server(), site.account(email)))
            error = shell.error();
        else if (shell.run(QStringLiteral("open ") + project).value(QLatin1String("exit")).toInt(-1)
            != 0)
            error = QStringLiteral("%1 cannot open the project").arg(email);
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_error = error;
            m_ready = true;
        }
        m_started.notify_one();
        while (!m_stop && error.isEmpty()) {
            if (shell.waitForEvent(QStringLiteral("projectSaved"), 200))
                report(shell.takeEvents(), arrivals);
        }
    }

    static void report(const QList<QJsonObject> &events, Arrivals &arrivals)
    {
        const Moment now = std::chrono::steady_clock::now();
        const std::lock_guard<std::mutex> lock(arrivals.mutex);
        for (const QJsonObject &event : events) {
            if (event.value(QLatin1String("event")).toString() == QLatin1String("projectSaved"))
                arrivals.moments[event.value(QLatin1String("version")).toInt()].push_back(now);
        }
        arrivals.changed.notify_one();
    }

    std::mutex m_mutex;
    std::condition_variable m_started;
    QString m_error;
    bool m_ready = false;
    std::atomic<bool> m_stop { false };
    std::thread m_thread;
};

QString emailOf(std::size_t number)
{
    return QStringLiteral("colleague%1@example.com").arg(number);
}

void invite(Stand &stand, const QString &guid, std::size_t count)
{
    KVXCollaborator *managers = KVXCollaborator::getInstance();
    KVXProjectInfo project(*managers->projectListManager()->getProjectInfoByGUID(guid));
    for (std::size_t i = 0; i < count; ++i) {
        require(stand.site().addUser(emailOf(i), QStringLiteral("Colleague %1").arg(i)),
            stand.site().error());
        project.setPermission(KVXUser(QString(), emailOf(i)), KVXProjectInfo::ProjectRW, 1);
    }
    require(managers->projectPermissionManager()->updatePermissions(&project),
        QStringLiteral("the permissions were refused"));
}

/// What nobody could leave out: a message through a broker of the same kind, and at its receipt a
/// synchronisation's requests with bare libcurl and the log applied with one sync.
std::vector<double> followBarely(Stand &stand, const ChangeLogs &logs, std::size_t crowd)
{
    const QStringList files = logs.files.mid(0, messagesOfRound);
    QList<QByteArray> changesets;
    for (const QString &file : files)
        changesets.append(changesetOf(file));
    std::vector<std::unique_ptr<BareDownloads>> downloads;
    std::vector<std::unique_ptr<BareCopy>> copies;
    std::vector<Receiver> receivers;
    for (std::size_t i = 0; i < crowd; ++i) {
        const QString path = stand.path(QStringLiteral("bare-%1-%2.kvx").arg(crowd).arg(i));
        require(QFile::copy(logs.copies[-1], path), path);
        downloads.push_back(std::make_unique<BareDownloads>(stand, files));
        copies.push_back(std::make_unique<BareCopy>(path));
        receivers.emplace_back(
            [&download = *downloads.back(), &copy = *copies.back(), &changesets](int message) {
                download.synchronise(message, 1);
                copy.apply({ changesets.at(message) });
            });
    }
    return bareNotifications(stand.bareBrokerPort(), receivers, messagesOfRound);
}

} // namespace

/// Ours begins when the merge was acknowledged and ends when a client says that its copy has it.
void measureNotify(Stand &stand, Report &report)
{
    const std::vector<std::size_t> crowds = stand.isQuick()
        ? std::vector<std::size_t> { 10, 1 }
        : std::vector<std::size_t> { 50, 10, 1 };
    const int versions = messagesOfRound * static_cast<int>(crowds.size());
    const QString name = QStringLiteral("notify");
    const ChangeLogs logs = writeChangeLogs(stand, name, smallTender, versions, 10, { -1 });
    invite(stand, logs.guid, crowds.front());
    const QString file = openForPublishing(stand, logs);

    Arrivals arrivals;
    std::vector<std::unique_ptr<Colleague>> colleagues;
    // They all begin with the base: nobody comes later, when only the logs are genuine.
    for (std::size_t i = 0; i < crowds.front(); ++i) {
        colleagues.push_back(std::make_unique<Colleague>(stand.site(), emailOf(i), name, arrivals));
        require(colleagues.back()->error().isEmpty(), colleagues.back()->error());
    }
    int version = 0;
    for (const std::size_t crowd : crowds) {
        while (colleagues.size() > crowd)
            colleagues.pop_back();
        const std::vector<double> floor = followBarely(stand, logs, crowd);
        std::vector<double> ours;
        for (int i = 0; i < messagesOfRound; ++i, ++version) {
            const Moment merged
                = stand.publish(logs.guid, version - 1, logs.files.at(version), file);
            std::unique_lock<std::mutex> lock(arrivals.mutex);
            require(arrivals.changed.wait_for(lock, std::chrono::seconds(60),
                        [&] { return arrivals.moments[version].size() == crowd; }),
                QStringLiteral("version %1 did not reach every client").arg(version));
            for (const Moment moment : arrivals.moments[version])
                ours.push_back(std::chrono::duration<double, std::milli>(moment - merged).count());
        }
        const QString line = QStringLiteral("notification to applied, clients: %1, ").arg(crowd);
        const bool judged = crowd == 50;
        for (const auto &[percent, limit] : { std::pair(50, 20), std::pair(99, 60) })
            report.add({ line + QStringLiteral("p%1").arg(percent), percentile(floor, percent),
                percentile(ours, percent),
                judged ? QStringLiteral("at most %1 ms").arg(limit) : QString(),
                !judged || percentile(ours, percent) <= limit });
    }
}

} // namespace kvx::bench
