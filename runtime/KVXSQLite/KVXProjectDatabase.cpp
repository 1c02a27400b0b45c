#include "KVXSQLite/KVXProjectDatabase.h"

#include "KVXSQLite/Bookkeeping.h"
#include "KVXSQLite/Connection.h"
#include "KVXSQLite/ContentDigest.h"
#include "KVXSQLite/OpenProject.h"
#include "KVXSQLite/ProjectFile.h"

#include <QFile>
#include <QFileInfo>

using namespace kvx::sqlite;

namespace {

/// A verdict for which a host puts the file aside, with the edits in it.
bool condemns(Failure failure)
{
    return failure == Failure::NotAProject || failure == Failure::Damaged
        || failure == Failure::BadSchema;
}

/// A disk that cannot be read says nothing of the file.
Status readThrough(const QString &path)
{
    for (const char *part : { "", "-wal" }) {
        QFile file(path + QLatin1String(part));
        if (!file.exists())
            continue;
        bool read = file.open(QIODevice::ReadOnly | QIODevice::Unbuffered);
        char chunk[65536];
        qint64 got = 1;
        while (read && got > 0) {
            got = file.read(chunk, sizeof chunk);
            read = got >= 0;
        }
        if (!read)
            return { Failure::Io,
                "reading " + file.fileName().toStdString() + ": "
                    + file.errorString().toStdString() };
    }
    return {};
}

} // namespace

KVXProjectDatabase::KVXProjectDatabase(std::unique_ptr<OpenProject> project)
    : m_project(std::move(project))
{
}

KVXProjectDatabase::~KVXProjectDatabase()
{
    if (!m_project->closed)
        m_project->note(m_project->close());
}

std::unique_ptr<KVXProjectDatabase> KVXProjectDatabase::create(
    const QString &path, const QString &projectGuid, const QString &schemaSql, QString *error)
{
    const Status status = ProjectFile::create(path, projectGuid, schemaSql);
    if (status.ok())
        return open(path, projectGuid, Origin::Local, schemaSql, error);
    *error = QString::fromStdString(status.text);
    return nullptr;
}

std::unique_ptr<KVXProjectDatabase> KVXProjectDatabase::open(const QString &path,
    const QString &projectGuid, Origin origin, const QString &schemaSql, QString *error,
    Failure *failure)
{
    auto project = std::make_unique<OpenProject>(path);
    const bool downloaded = origin == Origin::Downloaded;
    Status status = project->open(projectGuid, downloaded, schemaSql);
    const QFileInfo info(path);
    if (condemns(status.failure) && info.isFile() && !info.isSymLink()) {
        // One read that failed on the way may look like damage.
        project = std::make_unique<OpenProject>(path);
        status = readThrough(path);
        if (status.ok())
            status = project->open(projectGuid, downloaded, schemaSql);
    }
    if (failure)
        *failure = status.failure;
    if (status.ok())
        return std::unique_ptr<KVXProjectDatabase>(new KVXProjectDatabase(std::move(project)));
    *error = QString::fromStdString(status.text);
    return nullptr;
}

IKVXSQLiteModel *KVXProjectDatabase::model()
{
    return &m_project->model;
}

QString KVXProjectDatabase::path() const
{
    return m_project->path;
}

QString KVXProjectDatabase::projectGuid() const
{
    return m_project->guid;
}

int KVXProjectDatabase::logVersion() const
{
    int version = -1;
    Status status = m_project->usable();
    if (status.ok())
        status = Bookkeeping(m_project->host).version(&version);
    m_project->noteFailure(status);
    return version;
}

bool KVXProjectDatabase::isSealed() const
{
    bool sealed = false;
    Status status = m_project->usable();
    if (status.ok())
        status = Bookkeeping(m_project->host).sealed(&sealed);
    m_project->noteFailure(status);
    return sealed;
}

sqlite3 *KVXProjectDatabase::connection() const
{
    return m_project->host.handle();
}

bool KVXProjectDatabase::edit(const Edit &function)
{
    return m_project->note(m_project->edit(function));
}

int KVXProjectDatabase::pendingCount() const
{
    int count = 0;
    Status status = m_project->usable();
    if (status.ok())
        status = PendingEdits(m_project->host).count(&count);
    m_project->noteFailure(status);
    return count;
}

bool KVXProjectDatabase::sealBase()
{
    return m_project->note(m_project->seal());
}

bool KVXProjectDatabase::prepareSave(const QString &commandFile, const QString &author)
{
    return m_project->note(m_project->prepareSave(commandFile, author));
}

bool KVXProjectDatabase::published(int version)
{
    return m_project->note(m_project->published(version));
}

bool KVXProjectDatabase::settle()
{
    return m_project->note(m_project->settle());
}

void KVXProjectDatabase::setClashChoice(ClashChoice choice)
{
    m_project->winner = choice == ClashChoice::Mine ? Rebase::Winner::Mine
        : choice == ClashChoice::Theirs             ? Rebase::Winner::Theirs
                                                    : Rebase::Winner::Nobody;
}

QString KVXProjectDatabase::conflictsFile() const
{
    return m_project->conflictsFile;
}

bool KVXProjectDatabase::noteHistory(int version, const QString &chain)
{
    return m_project->note(m_project->noteHistory(version, chain.toStdString()));
}

bool KVXProjectDatabase::history(const QString &path, int *version, QString *chain)
{
    kvx::sqlite::Connection connection;
    std::string text;
    if (!QFile::exists(path)
        || !connection.open(path.toStdString(), kvx::sqlite::Connection::Role::Host).ok()
        || !kvx::sqlite::Bookkeeping(connection).history(version, &text).ok())
        return false;
    *chain = QString::fromStdString(text);
    return true;
}

bool KVXProjectDatabase::checkpoint()
{
    return m_project->note(m_project->checkpoint());
}

bool KVXProjectDatabase::close()
{
    return m_project->note(m_project->close());
}

QByteArray KVXProjectDatabase::contentDigest() const
{
    Digest digest {};
    Status status = m_project->usable();
    if (status.ok())
        status = kvx::sqlite::contentDigest(m_project->host, m_project->schema, &digest);
    m_project->noteFailure(status);
    if (!status.ok())
        return {};
    return QByteArray(
        reinterpret_cast<const char *>(digest.data()), static_cast<int>(digest.size()));
}

QString KVXProjectDatabase::errorText() const
{
    return QString::fromStdString(m_project->last.text);
}

Failure KVXProjectDatabase::failure() const
{
    return m_project->last.failure;
}
