#include "StoreChecks.h"

#include "store/BlobStore.h"
#include "store/Db.h"
#include "store/StoreCheck.h"

#include <QCryptographicHash>
#include <QDirIterator>
#include <algorithm>

namespace kvx::test {

namespace {

using I = std::int64_t;
using S = std::string;
using Text = std::optional<std::string>;

QString text(const std::string &value)
{
    return QString::fromStdString(value);
}

QString databaseOf(const QString &data)
{
    return data + QLatin1String("/db/kvx.sqlite");
}

/// Which promise a sentence of the server's own judgement is about.
Invariant invariantOf(const QString &fault)
{
    if (fault.contains(QLatin1String("item numbers")))
        return Invariant::NumbersDisjoint;
    if (fault.contains(QLatin1String("lock")))
        return Invariant::OneLockHolder;
    if (fault.startsWith(QLatin1String("content ")))
        return Invariant::FilesWhole;
    return Invariant::VersionsDense;
}

bool sameGuid(const QString &a, const QString &b)
{
    return a.compare(b, Qt::CaseInsensitive) == 0;
}

} // namespace

StoreChecks::StoreChecks(
    const RunTraces &traces, const QVector<Event> &events, const Report &report)
    : m_traces(traces)
    , m_events(events)
    , m_report(report)
{
}

StoreChecks::~StoreChecks() = default;

void StoreChecks::run()
{
    try {
        m_db = std::make_unique<kvx::server::Db>(databaseOf(m_traces.data).toStdString());
        judgeStore();
        readProjects();
    } catch (const std::exception &error) {
        m_report(Invariant::VersionsDense,
            QStringLiteral("the store cannot be read: %1").arg(QLatin1String(error.what())));
        return;
    }
    if (m_traces.deep)
        checkBlobNames();
    checkArchives();
    checkRanges();
    for (Project &project : m_projects) {
        checkGenerations(project);
        checkFiles(project);
    }
    checkSaves();
    checkCopies();
}

void StoreChecks::judgeStore()
{
    const auto add
        = [this](const std::string &fault) { m_report(invariantOf(text(fault)), text(fault)); };
    kvx::server::StoreCheck(*m_db, m_traces.data.toStdString(), add).run(m_traces.deep);
}

void StoreChecks::readProjects()
{
    const kvx::server::Transaction snapshot(*m_db, kvx::server::Transaction::Kind::Read);
    QMap<I, int> places;
    m_db->each<I, S, I, Text>(
        "SELECT id, guid, log_version, file_blob FROM project WHERE removed_at IS NULL", {},
        [&](I id, const S &guid, I version, const Text &file) {
            const bool wanted = m_traces.projects.isEmpty()
                || std::any_of(m_traces.projects.begin(), m_traces.projects.end(),
                    [&guid](const QString &one) { return sameGuid(one, text(guid)); });
            if (!wanted)
                return;
            places.insert(id, m_projects.size());
            Project project;
            project.guid = text(guid);
            project.version = static_cast<int>(version);
            project.file = text(file.value_or(""));
            m_projects.append(project);
        });
    m_db->each<I, I>("SELECT project_id, max(version) FROM barrier GROUP BY project_id", {},
        [&](I id, I version) {
            if (places.contains(id))
                m_projects[places[id]].barrier = version;
        });
    m_db->each<I, I, S, Text, S, I, I>(
        "SELECT l.project_id, l.version, l.blob, l.file_blob, u.email, l.session_id, l.lock_gen"
        " FROM project_log l JOIN users u ON u.id = l.user_id",
        {},
        [&](I id, I version, const S &blob, const Text &file, const S &email, I session, I gen) {
            if (places.contains(id))
                m_projects[places[id]].logs.insert(static_cast<int>(version),
                    { text(blob), text(file.value_or("")), text(email), session, gen });
        });
}

/// Every content has the digest that it is named after, whether a row names it or not.
void StoreChecks::checkBlobNames()
{
    QDirIterator files(
        m_traces.data + QLatin1String("/blobs"), QDir::Files, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        QFile file(files.next());
        const QString name = files.fileName().section(QLatin1Char('.'), 0, 0);
        QCryptographicHash hash(QCryptographicHash::Sha256);
        if (!file.open(QIODevice::ReadOnly) || !hash.addData(&file)
            || QString::fromLatin1(hash.result().toHex()) != name)
            m_report(Invariant::FilesWhole,
                QStringLiteral("%1 is not what its name says").arg(file.fileName()));
    }
}

StoreChecks::Project *StoreChecks::find(const QString &guid)
{
    const auto found = std::find_if(m_projects.begin(), m_projects.end(),
        [&guid](const Project &project) { return sameGuid(project.guid, guid); });
    return found == m_projects.end() ? nullptr : &*found;
}

QString StoreChecks::pathOf(const QString &sha256) const
{
    return text(kvx::server::BlobStore(m_traces.data.toStdString()).path(sha256.toStdString()));
}

void StoreChecks::checkArchives()
{
    for (const Event &event : m_events) {
        const Project *project
            = event.name == QLatin1String("archive") ? find(event.text("project")) : nullptr;
        if (!project)
            continue;
        const auto version = static_cast<int>(event.number("version"));
        const QString now = project->logs.value(version).sha256;
        if (now != event.text("sha256"))
            m_report(Invariant::VersionsDense,
                QStringLiteral("project %1: log %2 was %3 and is %4")
                    .arg(project->guid)
                    .arg(version)
                    .arg(event.text("sha256"), now.isEmpty() ? QStringLiteral("gone") : now));
    }
}

/// Generations of the lock never go back, and each belongs to one session.
void StoreChecks::checkGenerations(const Project &project)
{
    const Log *before = nullptr;
    for (auto log = project.logs.begin(); log != project.logs.end(); ++log) {
        if (before
            && (log->generation < before->generation
                || (log->generation == before->generation && log->session != before->session)))
            m_report(Invariant::OneLockHolder,
                QStringLiteral("project %1: log %2 was saved under the lock of another (%3)")
                    .arg(project.guid)
                    .arg(log.key())
                    .arg(log->generation));
        before = &*log;
    }
}

void StoreChecks::checkRanges()
{
    for (const Event &event : m_events) {
        const Project *project
            = event.name == QLatin1String("range") ? find(event.text("project")) : nullptr;
        if (!project)
            continue;
        const auto owner = m_db->value<S>(
            "SELECT u.email FROM item_block b JOIN project p ON p.id = b.project_id"
            " JOIN users u ON u.id = b.user_id"
            " WHERE p.guid = :guid AND b.min_id = :min AND b.max_id = :max",
            { { "guid", project->guid.toStdString() }, { "min", event.number("min") },
                { "max", event.number("max") } });
        if (owner != event.text("user").toStdString())
            m_report(Invariant::NumbersDisjoint,
                QStringLiteral("project %1: %2 to %3 were given to %4, the store has %5 for them")
                    .arg(project->guid)
                    .arg(event.number("min"))
                    .arg(event.number("max"))
                    .arg(event.text("user"), owner ? text(*owner) : QStringLiteral("nobody")));
    }
}

/// Base and logs against the project files that the server keeps.
void StoreChecks::checkFiles(Project &project)
{
    QString base;
    for (const Event &event : m_events) {
        if (event.name == QLatin1String("base") && sameGuid(event.text("project"), project.guid))
            base = event.text("file");
    }
    // A file of a later version stands for the base where nobody kept that.
    QMap<int, QString> files;
    for (auto log = project.logs.begin(); log != project.logs.end(); ++log) {
        if (!log->file.isEmpty() && log.key() > project.barrier)
            files.insert(log.key(), pathOf(log->file));
    }
    if (!project.file.isEmpty() && project.barrier < project.version)
        files.insert(project.version, pathOf(project.file));
    if (base.isEmpty() && !files.isEmpty())
        base = files.first();
    if (base.isEmpty())
        return;
    QMap<int, QString> logs;
    for (auto log = project.logs.begin(); log != project.logs.end(); ++log)
        logs.insert(log.key(), pathOf(log->sha256));
    const ProjectReplay replay(base, logs);
    project.digests = replay.digests();
    if (!replay.fault().isEmpty())
        m_report(Invariant::FileIsBaseAndLogs,
            QStringLiteral("project %1: %2").arg(project.guid, replay.fault()));
    for (auto file = files.begin(); file != files.end(); ++file) {
        const ProjectContent content = ProjectContent::ofUpload(file.value());
        QString fault = content.fault;
        if (fault.isEmpty() && content.version != file.key())
            fault = QStringLiteral("it says that it is version %1").arg(content.version);
        else if (fault.isEmpty() && content.published != project.digests.value(file.key()))
            fault = QStringLiteral("its content is not that of base and logs");
        if (!fault.isEmpty())
            m_report(Invariant::FileIsBaseAndLogs,
                QStringLiteral("project %1: the file of version %2: %3")
                    .arg(project.guid)
                    .arg(file.key())
                    .arg(fault));
    }
}

void StoreChecks::checkSaves()
{
    for (const Event &event : m_events) {
        const bool saved = event.name == QLatin1String("saved");
        if (!saved && event.name != QLatin1String("synced"))
            continue;
        const Project *project = find(event.text("project"));
        if (!project)
            continue;
        const auto version = static_cast<int>(event.number("version"));
        const Log log = project->logs.value(version);
        if (saved && log.sha256.isEmpty())
            m_report(Invariant::SavesKept,
                QStringLiteral("project %1: version %2, which was acknowledged to %3, is gone")
                    .arg(project->guid)
                    .arg(version)
                    .arg(event.text("user")));
        else if (saved && log.user != event.text("user"))
            m_report(Invariant::SavesKept,
                QStringLiteral("project %1: version %2, which was acknowledged to %3, is of %4")
                    .arg(project->guid)
                    .arg(version)
                    .arg(event.text("user"), log.user));
        else
            checkDigest(event, *project);
    }
}

void StoreChecks::checkDigest(const Event &event, const Project &project)
{
    const auto version = static_cast<int>(event.number("version"));
    const QByteArray digest = project.digests.value(version);
    if (digest.isEmpty() || !event.has("digest")
        || event.text("digest") == QString::fromLatin1(digest))
        return;
    const bool saved = event.name == QLatin1String("saved");
    m_report(saved ? Invariant::SavesKept : Invariant::CopiesEqual,
        QStringLiteral("project %1: %2 had another content at version %3 than base and logs make")
            .arg(project.guid, event.text("user"))
            .arg(version));
}

void StoreChecks::checkCopies()
{
    for (const QString &home : m_traces.homes) {
        QDirIterator files(
            home, { QStringLiteral("project.kvx") }, QDir::Files, QDirIterator::Subdirectories);
        while (files.hasNext())
            checkCopy(files.next());
    }
}

void StoreChecks::checkCopy(const QString &file)
{
    const ProjectContent content = ProjectContent::ofCopy(file);
    const Project *project = find(content.guid);
    if (!project && !content.guid.isEmpty())
        return; // another server's, or not asked for
    if (!content.fault.isEmpty()) {
        m_report(Invariant::CopiesSound, QStringLiteral("%1: %2").arg(file, content.fault));
        return;
    }
    if (!project)
        return;
    const QByteArray expected = project->digests.value(content.version);
    if (!expected.isEmpty() && content.published != expected)
        m_report(Invariant::CopiesSound,
            QStringLiteral("%1: its content is not that of version %2")
                .arg(file)
                .arg(content.version));
    const bool converged
        = std::any_of(m_events.begin(), m_events.end(), [project](const Event &event) {
              return event.name == QLatin1String("converged")
                  && sameGuid(event.text("project"), project->guid);
          });
    const auto differs = [&](const QString &how) {
        m_report(Invariant::CopiesEqual, QStringLiteral("%1: %2").arg(file, how));
    };
    if (content.version > project->version)
        differs(QStringLiteral("it is at version %1, the server at %2")
                    .arg(content.version)
                    .arg(project->version));
    else if (converged && content.version != project->version)
        differs(QStringLiteral("it stayed at version %1, the server is at %2")
                    .arg(content.version)
                    .arg(project->version));
    if (converged && content.pending > 0)
        differs(QStringLiteral("%1 edits were never published").arg(content.pending));
}

void noteArchives(const QString &data, History &history)
{
    kvx::server::Db db(databaseOf(data).toStdString());
    db.each<S, I, S>("SELECT p.guid, l.version, l.blob FROM project_log l"
                     " JOIN project p ON p.id = l.project_id WHERE p.removed_at IS NULL",
        {}, [&history](const S &guid, I version, const S &blob) {
            history.note("archive",
                { { QStringLiteral("project"), text(guid) },
                    { QStringLiteral("version"), static_cast<int>(version) },
                    { QStringLiteral("sha256"), text(blob) } });
        });
}

} // namespace kvx::test
