#include "client/OpenProject.h"

#include "client/FailureMemory.h"
#include "client/SaveContribution.h"
#include "content/Schema.h"

#include <KVXCollaboration/KVXCWFileService.h>
#include <KVXCollaboration/KVXCWIDManager.h>
#include <KVXCollaboration/KVXCWLogin.h>
#include <KVXCollaboration/KVXCWProjectList.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCollaboration/KVXUser.h>
#include <KVXCommon/KVXZipFile.h>
#include <KVXSQLite/IKVXSQLiteModel.h>
#include <KVXSQLite/IKVXSQLiteModelCommandFile.h>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryFile>
#include <QUuid>

namespace kvx::host {

namespace {

using DatabaseFailure = kvx::sqlite::Failure;

constexpr const char *copyName = "/project.kvx";

KVXCollaborator *registry()
{
    return KVXCollaborator::getInstance();
}

} // namespace

OpenProject::OpenProject(const QString &guid, const QString &folder, Histories &histories)
    : m_guid(guid)
    , m_folder(folder)
    , m_histories(histories)
{
}

OpenProject::~OpenProject() = default;

QString OpenProject::projectFile() const
{
    return m_folder + QLatin1String(copyName);
}

KVXCWProjectData *OpenProject::synchronizer() const
{
    return registry()->projectDataSynchronizer(m_guid);
}

KVXCWIDManager *OpenProject::ids() const
{
    return registry()->idManager(m_guid);
}

int OpenProject::newId()
{
    return ids()->newItemId(m_database.get());
}

bool OpenProject::lockFolder(Failure *failure)
{
    if (!QDir().mkpath(m_folder)) {
        *failure = { 0, QStringLiteral("the folder %1 cannot be made").arg(m_folder) };
        return false;
    }
    m_lock = std::make_unique<QLockFile>(m_folder + QLatin1String("/lock"));
    m_lock->setStaleLockTime(0);
    if (m_lock->tryLock(0)) {
        sweepDownloads();
        return true;
    }
    if (m_lock->error() == QLockFile::LockFailedError) {
        *failure = { 0, QStringLiteral("the project is open in another window on this machine") };
        return false;
    }
    // The lock itself does not know why it could not be written.
    QTemporaryFile probe(m_folder + QLatin1String("/probe"));
    if (probe.open() && probe.write("probe", 5) == 5)
        probe.flush();
    *failure = {
        0,
        QStringLiteral("the folder %1 cannot be written to: %2").arg(m_folder, probe.errorString())
    };
    return false;
}

/// A process that is killed while it downloads leaves up to a whole project file beside the copy.
void OpenProject::sweepDownloads()
{
    static const QRegularExpression unfinished(
        QRegularExpression::anchoredPattern(QStringLiteral("project\\.kvx\\.[0-9a-f]{8}")));
    QDir folder(m_folder);
    for (const QString &name : folder.entryList(QDir::Files | QDir::Hidden | QDir::NoSymLinks)) {
        if (unfinished.match(name).hasMatch())
            folder.remove(name);
    }
}

std::unique_ptr<OpenProject> OpenProject::createBase(const QString &name, const QString &guid,
    const QString &folder, const content::Bill &bill, Histories &histories, Failure *failure)
{
    std::unique_ptr<OpenProject> project(new OpenProject(guid, folder, histories));
    if (!project->lockFolder(failure))
        return nullptr;
    QString error;
    project->m_database = KVXProjectDatabase::create(
        project->projectFile(), guid, content::projectSchema(), &error);
    if (!project->m_database) {
        *failure = { 0, error };
        return nullptr;
    }
    project->attach();
    const bool filled = project->m_database->edit([&](sqlite3 *connection) {
        return content::BillStore(connection).append(bill, [&] { return project->newId(); });
    });
    if (!filled || !project->m_database->sealBase()) {
        *failure = { 0, project->m_database->errorText() };
        return nullptr;
    }
    if (!registry()->fileService()->upload(name, guid, project->projectFile(), {})) {
        *failure
            = { 0, failureReason(QStringLiteral("the server did not accept the project file")) };
        return nullptr;
    }
    // The manager that numbered the rows takes them for unsaved creations of this user. The base is
    // published: new managers see them as free.
    registry()->reset(true, guid);
    project->attach();
    return project;
}

std::unique_ptr<OpenProject> OpenProject::open(const QString &name, const QString &guid,
    const QString &folder, KVXProjectDatabase::ClashChoice clash, Histories &histories,
    Failure *failure)
{
    *failure = {}; // an earlier one would be taken for one of this copy
    std::unique_ptr<OpenProject> project(new OpenProject(guid, folder, histories));
    if (!project->lockFolder(failure))
        return nullptr;
    Histories::Point point;
    const bool known
        = KVXProjectDatabase::history(project->projectFile(), &point.version, &point.chain);
    histories.know(guid, known ? std::optional(point) : std::nullopt);
    // First the server, then the file: it is then never older than what the synchroniser counts.
    const int status = registry()->projectListManager()->openProject(guid);
    if (status != 1) {
        *failure = { status, failureReason(ErrorCodeToString(static_cast<KVXErrorCode>(status))) };
        return nullptr;
    }
    if (!project->openLocalCopy(clash, failure)
        && (!failure->text.isEmpty() || !project->fetch(name, failure))) {
        registry()->projectListManager()->closeProject(guid);
        return nullptr;
    }
    project->attach();
    if (project->synchronizer()->logVersion() >= project->m_database->logVersion()) {
        project->noteHistory();
        return project;
    }
    // The synchroniser was not told the version: nobody knows how old the copy is.
    const KVXCWProjectData::ErrorCode code = project->sync();
    const int server = project->synchronizer()->logVersion();
    const int local = project->m_database->logVersion();
    if (code == KVXCWProjectData::Success && server >= local)
        return project; // sync noted it
    // Saved from here, a log that nobody else can apply would take the next version's place.
    *failure = code == KVXCWProjectData::Success
        ? Failure { 0,
              QStringLiteral("The server is at version %1 and your copy at %2: the server was put "
                             "back to an earlier state. Your copy is kept; \"discard\" puts it "
                             "aside and fetches the server's.")
                  .arg(QString::number(server), QString::number(local)) }
        : Failure { 0, textOf(code) + project->reasonOf(code) };
    registry()->projectListManager()->closeProject(guid);
    return nullptr;
}

/// True when a kept copy serves. False without a text: there is none, or it was put aside.
bool OpenProject::openLocalCopy(KVXProjectDatabase::ClashChoice clash, Failure *failure)
{
    if (!QFile::exists(projectFile()))
        return false;
    QString error;
    DatabaseFailure why = DatabaseFailure::None;
    m_database = KVXProjectDatabase::open(projectFile(), m_guid, KVXProjectDatabase::Origin::Local,
        content::projectSchema(), &error, &why);
    const bool damaged = why == DatabaseFailure::NotAProject || why == DatabaseFailure::Damaged
        || why == DatabaseFailure::BadSchema || why == DatabaseFailure::OtherProject;
    if (!m_database && !damaged) {
        *failure = { 0, error };
        return false;
    }
    QString reason;
    if (m_database) {
        m_database->setClashChoice(clash);
        if (catchUp(synchronizer()->logVersion(), &reason)) {
            if (!m_database->conflictsFile().isEmpty())
                m_notice = QStringLiteral("What gave way is kept in %1")
                               .arg(m_database->conflictsFile());
            return true;
        }
    }
    // What keeps it from catching up may pass: a full disk, a torn connection, a clash to decide.
    if (m_database && m_database->pendingCount() > 0) {
        *failure = { 0,
            QStringLiteral("The local copy has unsaved edits and could not be brought up to date: "
                           "%1 Its edits are kept.")
                .arg(reason),
            m_database->failure() == DatabaseFailure::Clash };
        return false;
    }

    m_database.reset();
    QString where;
    if (!putAside(m_folder, &where))
        *failure = { 0, QStringLiteral("%1 cannot be renamed").arg(projectFile()) };
    else if (damaged)
        m_notice
            = QStringLiteral("The local copy was damaged; it is kept with what it holds as %1.")
                  .arg(where);
    else
        QFile::remove(where);
    return false;
}

/// Applies the server's logs up to the version. An older copy keeps its unsaved edits that way.
bool OpenProject::catchUp(int version, QString *reason)
{
    const std::unique_ptr<IKVXSQLiteModelCommandFile> command(CreateSQLiteModelCommandFile());
    for (int next = m_database->logVersion() + 1; next <= version; ++next) {
        const QString name = m_guid + QLatin1String("_log") + QString::number(next);
        const QString base = QDir::tempPath() + QLatin1Char('/') + QUuid::createUuid().toString();
        QMap<QString, QString> files;
        reason->clear();
        if (!registry()->fileService()->download(name, base + QLatin1String(".zip"),
                static_cast<KVXCWFileServiceProgress *>(nullptr)))
            *reason = QStringLiteral("change log %1: %2")
                          .arg(QString::number(next),
                              failureReason(QStringLiteral("it cannot be downloaded.")));
        else if (!KVXZipFile::extractFiles(base + QLatin1String(".zip"), base, files, QString())
            || files.isEmpty() || !command->loadFromFile(files.first()))
            *reason = QStringLiteral("change log %1 is damaged or cannot be stored.").arg(next);
        else if (m_database->model()->execute(command.get(), 0) == 0)
            *reason = m_database->errorText();
        QFile::remove(base + QLatin1String(".zip"));
        QDir(base).removeRecursively();
        if (!reason->isEmpty())
            return false;
    }
    return true;
}

bool OpenProject::putAside(const QString &folder, QString *where)
{
    const QString file = folder + QLatin1String(copyName);
    *where = folder + QLatin1String("/unsaved-")
        + QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd-hhmmss-zzz"))
        + QLatin1String(".kvx");
    for (const char *suffix : { "-wal", "-shm" }) {
        const QString beside = file + QLatin1String(suffix);
        if (QFile::exists(beside) && !QFile::rename(beside, *where + QLatin1String(suffix)))
            return false;
    }
    return QFile::rename(file, *where);
}

bool OpenProject::fetch(const QString &name, Failure *failure)
{
    if (!registry()->fileService()->download(name, m_guid, projectFile())) {
        *failure
            = { 0, failureReason(QStringLiteral("the server has no project file to download")) };
        return false;
    }
    QString error;
    m_database = KVXProjectDatabase::open(projectFile(), m_guid,
        KVXProjectDatabase::Origin::Downloaded, content::projectSchema(), &error);
    m_histories.know(m_guid, std::nullopt);
    if (m_database)
        return true;
    QFile::remove(projectFile());
    *failure = { 0, error };
    return false;
}

void OpenProject::attach()
{
    synchronizer()->setProjectDatabase(m_database.get());
    ids()->setProjectDatabase(m_database.get());
    ids()->attachDatabase(m_database.get());
    // The first question about a module reads its whole picture. Asked now: a check-out would enter
    // its own items only, and the others would count as free.
    KVXItemCheckState holder;
    for (const int module : { content::ItemModule, content::ChapterModule })
        ids()->checkState(module, 0, holder);
}

OpenProject::SaveResult OpenProject::save()
{
    KVXUser *user = registry()->loginManager()->currentUser();
    SaveContribution contribution(*m_database, user ? user->email() : QString());
    SaveResult result;
    result.code = synchronizer()->saveProject(&contribution);
    const bool accepted = result.code == KVXCWProjectData::Success
        || result.code == KVXCWProjectData::CheckOutFailed;
    result.version = synchronizer()->logVersion();
    result.published = accepted && contribution.wasAsked();
    if (!result.published) {
        result.text = accepted
            ? QStringLiteral("Nothing was published: the server could not be asked for the save "
                             "lock. Your edits are kept; save again.")
            : textOf(result.code);
        if (!contribution.error().isEmpty())
            result.text = contribution.error();
        else
            result.text += reasonOf(result.code);
        return result;
    }
    const bool noted = m_database->published(result.version);
    noteHistory();
    if (!noted)
        result.text = QStringLiteral("The save is published, but the local copy could not note it "
                                     "(%1); the next synchronisation does.")
                          .arg(m_database->errorText());
    return result;
}

KVXCWProjectData::ErrorCode OpenProject::sync()
{
    if (!m_database->settle())
        return KVXCWProjectData::MergeLogsFailed;
    const KVXCWProjectData::ErrorCode code = synchronizer()->syncLogs();
    noteHistory();
    return code;
}

void OpenProject::noteHistory()
{
    const auto point = m_histories.latest(m_guid);
    const auto known = m_histories.known(m_guid);
    if (!point || (known && known->version == point->version)
        || point->version != m_database->logVersion())
        return;
    // A copy that cannot note it keeps what it knew of an earlier version.
    if (m_database->noteHistory(point->version, point->chain))
        m_histories.know(m_guid, point);
}

QString OpenProject::reasonOf(KVXCWProjectData::ErrorCode code) const
{
    const QString reason = code == KVXCWProjectData::MergeLogsFailed ? m_database->errorText()
                                                                     : failureReason(QString());
    return reason.isEmpty() ? reason : QStringLiteral(" (%1)").arg(reason);
}

QString OpenProject::textOf(KVXCWProjectData::ErrorCode code)
{
    switch (code) {
    case KVXCWProjectData::Success:
        return QStringLiteral("Done.");
    case KVXCWProjectData::GetLogVersionFailed:
        return QStringLiteral(
            "The server did not tell the project's version. Your edits are kept.");
    case KVXCWProjectData::DownloadLogsFailed:
        return QStringLiteral("A change log could not be downloaded. Your edits are kept.");
    case KVXCWProjectData::MergeLogsFailed:
        return QStringLiteral("A colleague's change could not be applied. Your edits are kept.");
    case KVXCWProjectData::CheckOutFailed:
        return QStringLiteral("The check-outs could not be read.");
    case KVXCWProjectData::UploadFailed:
        return QStringLiteral("The save could not be uploaded. Your edits are kept; save again.");
    case KVXCWProjectData::SendToMergeFailed:
        return QStringLiteral(
            "The server did not accept the save. Your edits are kept; save again.");
    case KVXCWProjectData::LockWaitExhausted:
        return QStringLiteral(
            "A colleague is still saving. Your edits are kept; save again later.");
    case KVXCWProjectData::AdditionalInfoNotReady:
        return QStringLiteral("The change log could not be written. Your edits are kept.");
    case KVXCWProjectData::SaveCancelled:
        return QStringLiteral("The save was cancelled. Your edits are kept.");
    }
    return QStringLiteral("The save failed (%1). Your edits are kept.").arg(static_cast<int>(code));
}

} // namespace kvx::host
