#include "BareCopy.h"
#include "BareDownloads.h"
#include "ChangeLogs.h"
#include "Memory.h"
#include "Report.h"
#include "Stand.h"
#include "Workloads.h"

#include "KVXSQLite/KVXProjectDatabase.h"
#include "content/Schema.h"

#include <KVXCollaboration/KVXCWProjectData.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXSQLite/IKVXSQLiteModel.h>
#include <KVXSQLite/IKVXSQLiteModelCommandFile.h>
#include <QFile>
#include <unistd.h>

namespace kvx::bench {

namespace {

/// The version that a synchroniser believes to be at: told anew for a copy that was put back.
struct Standing : KVXCWProjectData {
    using KVXCWProjectData::m_logVersion;
};

QString freshCopy(Stand &stand, const QString &of)
{
    const QString path = stand.path(QStringLiteral("behind.kvx"));
    for (const char *suffix : { "", "-wal", "-shm" })
        QFile::remove(path + QLatin1String(suffix));
    require(QFile::copy(of, path), of);
    QFile copy(path);
    require(
        copy.open(QIODevice::ReadWrite) && fsync(copy.handle()) == 0, path); // not the work's part
    return path;
}

double applyBarely(const QString &path, const QList<QByteArray> &changesets)
{
    BareCopy copy(path);
    return milliseconds([&] { copy.apply(changesets); });
}

std::unique_ptr<KVXProjectDatabase> openBehind(const QString &path, const QString &guid)
{
    QString error;
    auto database = KVXProjectDatabase::open(
        path, guid, KVXProjectDatabase::Origin::Local, content::projectSchema(), &error);
    require(database != nullptr, error);
    return database;
}

double executeLogs(KVXProjectDatabase &database, const QStringList &files)
{
    return milliseconds([&] {
        for (const QString &file : files) {
            const std::unique_ptr<IKVXSQLiteModelCommandFile> log(CreateSQLiteModelCommandFile());
            require(log->loadFromFile(file) && database.model()->execute(log.get(), 0) != 0,
                database.errorText());
        }
        require(database.checkpoint(), database.errorText());
    });
}

double synchronise(KVXProjectDatabase &database, const QString &guid, int from)
{
    KVXCWProjectData *synchronizer = KVXCollaborator::getInstance()->projectDataSynchronizer(guid);
    synchronizer->setProjectDatabase(&database);
    synchronizer->*(&Standing::m_logVersion) = from;
    KVXCWProjectData::ErrorCode code = KVXCWProjectData::Success;
    const double time = milliseconds([&] { code = synchronizer->syncLogs(); });
    synchronizer->setProjectDatabase(nullptr);
    require(
        code == KVXCWProjectData::Success && database.logVersion() == synchronizer->logVersion(),
        QStringLiteral("the synchronisation ended with %1 at version %2")
            .arg(static_cast<int>(code))
            .arg(database.logVersion()));
    return time;
}

void measureBehind(Stand &stand, Report &report, const ChangeLogs &logs, int from, double limit)
{
    const QStringList files = logs.files.mid(from + 1);
    QList<QByteArray> changesets;
    for (const QString &file : files)
        changesets.append(changesetOf(file));
    BareDownloads downloads(stand, files);
    std::vector<double> floor;
    std::vector<double> fetched;
    std::vector<double> executed;
    std::vector<double> synchronised;
    for (int i = 0; i < stand.repeats(files.size() > 100 ? 5 : 9); ++i) {
        floor.push_back(applyBarely(freshCopy(stand, logs.copies[from]), changesets));
        fetched.push_back(milliseconds([&] {
            require(
                downloads.synchronise().size() == files.size(), QStringLiteral("logs are missing"));
        }));
        executed.push_back(
            executeLogs(*openBehind(freshCopy(stand, logs.copies[from]), logs.guid), files));
        const auto database = openBehind(freshCopy(stand, logs.copies[from]), logs.guid);
        synchronised.push_back(synchronise(*database, logs.guid, from));
    }
    // Apart from the timed ones: a heap that was trimmed costs time to grow again.
    const auto database = openBehind(freshCopy(stand, logs.copies[from]), logs.guid);
    const MemoryPeak peak;
    synchronise(*database, logs.guid, from);
    const double memory = peak.growth();
    const QString count = QStringLiteral("%1 of %2 rows").arg(files.size()).arg(logs.rows);
    report.note(QStringLiteral("%1 bytes of changeset a log").arg(changesets.first().size()));
    report.addRatio(QStringLiteral("catch-up by applying, logs: %1").arg(count), median(floor),
        median(executed), limit);
    report.addRatio(QStringLiteral("catch-up by synchronising, logs: %1").arg(count),
        median(floor) + median(fetched), median(synchronised), limit);
    report.add({ QStringLiteral("catch-up by synchronising, logs: %1, memory").arg(count), 0,
        memory, QStringLiteral("at most 32 MB"), memory <= 32, QStringLiteral("MB") });
}

void publishAll(Stand &stand, const ChangeLogs &logs)
{
    const QString file = openForPublishing(stand, logs);
    for (int version = 0; version < logs.files.size(); ++version)
        stand.publish(logs.guid, version - 1, logs.files.at(version), file);
}

} // namespace

double measureCatchUpByOne(Stand &stand, const ChangeLogs &logs)
{
    publishAll(stand, logs);
    std::vector<double> times;
    for (int i = 0; i < stand.repeats(); ++i)
        times.push_back(
            synchronise(*openBehind(freshCopy(stand, logs.copies[-1]), logs.guid), logs.guid, -1));
    return median(times);
}

void measureCatchUp(Stand &stand, Report &report)
{
    const ChangeLogs large
        = writeChangeLogs(stand, QStringLiteral("large-log"), mediumTender, 1, 1'000, { -1 });
    publishAll(stand, large);
    measureBehind(stand, report, large, -1, 1.3);

    const int count = stand.isQuick() ? 200 : 1'000;
    const QList<int> marks { count - 2, count - 101, -1 };
    const ChangeLogs small
        = writeChangeLogs(stand, QStringLiteral("small-logs"), mediumTender, count, 10, marks);
    publishAll(stand, small);
    for (const int from : marks)
        measureBehind(stand, report, small, from, from == count - 2 ? 1.3 : 3);
}

} // namespace kvx::bench
