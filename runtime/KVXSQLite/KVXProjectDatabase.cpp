#include "KVXSQLite/KVXProjectDatabase.h"

#include "KVXSQLite/ApplyLog.h"
#include "KVXSQLite/ChangesetValidator.h"
#include "KVXSQLite/ContentDigest.h"
#include "KVXSQLite/EditSession.h"
#include "KVXSQLite/Model.h"
#include "KVXSQLite/ProjectFile.h"

#include <ctime>
#include <sodium.h>
#include <sqlite3.h>

using namespace kvx::sqlite;

struct KVXProjectDatabase::State {
    explicit State(const QString &file)
        : path(file)
        , edits(host)
        , log(apply)
        , model(host, schema,
              [this](CommandFile *commandFile, int mode) { return execute(commandFile, mode); })
    {
    }

    bool execute(CommandFile *commandFile, int mode);
    Status prepareSave(const QString &commandFile, const QString &author);
    Status published(int version);
    Status checkpoint();
    Status close();
    /// Keeps the outcome for errorText and failure.
    bool note(const Status &status);
    /// The same for a getter: a success does not wipe out an earlier failure.
    void noteFailure(const Status &status);
    Status notOpen() const;

    QString path;
    QString guid;
    Connection host;
    Connection apply;
    Schema schema;
    EditSession edits;
    ApplyLog log;
    Model model;
    Status last;
    ClashChoice choice = ClashChoice::Refuse;
    QString conflictsFile;
    bool closed = false;
};

bool KVXProjectDatabase::State::note(const Status &status)
{
    last = status;
    if (!status.ok())
        qWarning("%s (%s)", status.text.c_str(), qUtf8Printable(path));
    return status.ok();
}

void KVXProjectDatabase::State::noteFailure(const Status &status)
{
    if (!status.ok())
        note(status);
}

Status KVXProjectDatabase::State::notOpen() const
{
    return closed ? Status { Failure::Refused, "the project is closed" } : Status();
}

bool KVXProjectDatabase::State::execute(CommandFile *commandFile, int mode)
{
    Status status = notOpen();
    if (status.ok() && !commandFile)
        status = { Failure::Refused, "no change log was given" };
    if (status.ok() && mode != 0)
        status = { Failure::Refused, "execution mode " + std::to_string(mode) + " is not known" };
    if (status.ok() && edits.isOpen())
        status = { Failure::Refused, "a change log cannot be executed while an edit transaction is open" };
    if (!status.ok())
        return note(status);
    const Rebase::Winner winner = choice == ClashChoice::Mine ? Rebase::Winner::Mine
        : choice == ClashChoice::Theirs                       ? Rebase::Winner::Theirs
                                                              : Rebase::Winner::Nobody;
    return note(log.execute(*commandFile, path, winner, &conflictsFile));
}

Status KVXProjectDatabase::State::prepareSave(const QString &commandFile, const QString &author)
{
    CommandHeader header;
    header.author = author.toStdString();
    if (header.author.size() > CommandFile::maxAuthor)
        return { Failure::Refused, "the author's e-mail is longer than 254 bytes" };
    header.projectGuid = guid.toStdString();
    header.schema = schema.fingerprint();
    header.time = std::time(nullptr);
    randombytes_buf(header.publishId.data(), header.publishId.size());

    const Status status = edits.internal([&]() -> Status {
        Bookkeeping book(host);
        PendingEdits pending(host);
        bool sealed = false;
        std::int64_t sequence = 0;
        Bytes changes;
        Status step = book.sealed(&sealed);
        if (step.ok() && !sealed)
            step = { Failure::Refused, "the project is still being filled; seal its base first" };
        if (step.ok())
            step = book.version(&header.version);
        if (step.ok())
            step = pending.lastSequence(&sequence);
        if (step.ok())
            step = pending.concatenated(0, schema, &changes);
        // A log that colleagues could not apply would stop them all.
        ChangesetValidator validator;
        if (step.ok() && !validator.check(changes.data(), changes.size(), schema))
            step = { Failure::Refused, "the edits are too much for one save: " + validator.error() };
        ++header.version;
        if (step.ok())
            step = book.notePublication(header.publishId, sequence);
        return step.ok() ? CommandFile::write(commandFile, header, changes) : step;
    });
    return status.ok() ? checkpoint() : status;
}

Status KVXProjectDatabase::State::published(int version)
{
    return edits.internal([&]() -> Status {
        Bookkeeping book(host);
        int current = -1;
        std::optional<std::int64_t> sequence;
        Status status = book.version(&current);
        if (status.ok())
            status = book.latestPublication(&sequence);
        if (!status.ok() || version == current)
            return status; // a synchronisation met the own log already
        if (!sequence || version != current + 1)
            return { Failure::Refused, "version " + std::to_string(version)
                    + " was not prepared; the project stands at " + std::to_string(current) };
        status = PendingEdits(host).removeUpTo(*sequence);
        return status.ok() ? book.raiseVersion(version) : status;
    });
}

Status KVXProjectDatabase::State::checkpoint()
{
    if (edits.isOpen())
        return { Failure::Refused, "an edit transaction is open" };
    if (sqlite3_txn_state(host.handle(), "main") != SQLITE_TXN_NONE)
        return { Failure::Busy, "a query of the host is still running on the project's connection" };
    const int code = sqlite3_wal_checkpoint_v2(
        host.handle(), "main", SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
    return code == SQLITE_OK ? Status() : host.error("completing the project file");
}

Status KVXProjectDatabase::State::close()
{
    const Status complete = checkpoint();
    if (edits.isOpen())
        return complete;
    edits.stop();
    const Status status = host.close();
    if (!status.ok()) {
        static_cast<void>(edits.start());
        return status;
    }
    closed = true;
    const Status applyClosed = apply.close();
    return complete.ok() ? applyClosed : complete;
}

KVXProjectDatabase::KVXProjectDatabase(std::unique_ptr<State> state)
    : m_state(std::move(state))
{
}

KVXProjectDatabase::~KVXProjectDatabase()
{
    if (!m_state->closed)
        m_state->note(m_state->close());
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
    if (sodium_init() < 0)
        qFatal("the random source of the system is not usable");
    auto state = std::make_unique<State>(path);
    Status status = ProjectFile::checkOutside(path, origin == Origin::Downloaded);
    if (status.ok())
        status = ProjectFile::open(&state->host, path, projectGuid, schemaSql, &state->schema);
    if (status.ok())
        status = state->apply.open(path.toStdString(), Connection::Role::Apply);
    if (status.ok() && origin == Origin::Downloaded)
        status = state->log.adopt();
    std::string guid;
    if (status.ok())
        status = Bookkeeping(state->host).text("project", &guid);
    state->guid = QString::fromStdString(guid);
    if (status.ok())
        status = state->edits.start();
    if (failure)
        *failure = status.failure;
    if (status.ok())
        return std::unique_ptr<KVXProjectDatabase>(new KVXProjectDatabase(std::move(state)));
    *error = QString::fromStdString(status.text);
    return nullptr;
}

IKVXSQLiteModel *KVXProjectDatabase::model()
{
    return &m_state->model;
}

QString KVXProjectDatabase::path() const
{
    return m_state->path;
}

QString KVXProjectDatabase::projectGuid() const
{
    return m_state->guid;
}

int KVXProjectDatabase::logVersion() const
{
    int version = -1;
    Status status = m_state->notOpen();
    if (status.ok())
        status = Bookkeeping(m_state->host).version(&version);
    m_state->noteFailure(status);
    return version;
}

bool KVXProjectDatabase::isSealed() const
{
    bool sealed = false;
    Status status = m_state->notOpen();
    if (status.ok())
        status = Bookkeeping(m_state->host).sealed(&sealed);
    m_state->noteFailure(status);
    return sealed;
}

sqlite3 *KVXProjectDatabase::connection() const
{
    return m_state->host.handle();
}

bool KVXProjectDatabase::edit(const Edit &function)
{
    Status status = m_state->notOpen();
    bool sealed = false;
    if (status.ok())
        status = Bookkeeping(m_state->host).sealed(&sealed);
    if (status.ok())
        status = m_state->edits.edit(function, sealed);
    return m_state->note(status);
}

int KVXProjectDatabase::pendingCount() const
{
    int count = 0;
    Status status = m_state->notOpen();
    if (status.ok())
        status = PendingEdits(m_state->host).count(&count);
    m_state->noteFailure(status);
    return count;
}

bool KVXProjectDatabase::sealBase()
{
    Status status = m_state->notOpen();
    if (status.ok())
        status = m_state->edits.internal([this] { return Bookkeeping(m_state->host).seal(); });
    if (status.ok())
        status = m_state->checkpoint();
    return m_state->note(status);
}

bool KVXProjectDatabase::prepareSave(const QString &commandFile, const QString &author)
{
    const Status status = m_state->notOpen();
    return m_state->note(status.ok() ? m_state->prepareSave(commandFile, author) : status);
}

bool KVXProjectDatabase::published(int version)
{
    const Status status = m_state->notOpen();
    return m_state->note(status.ok() ? m_state->published(version) : status);
}

void KVXProjectDatabase::setClashChoice(ClashChoice choice)
{
    m_state->choice = choice;
}

QString KVXProjectDatabase::conflictsFile() const
{
    return m_state->conflictsFile;
}

bool KVXProjectDatabase::checkpoint()
{
    const Status status = m_state->notOpen();
    return m_state->note(status.ok() ? m_state->checkpoint() : status);
}

bool KVXProjectDatabase::close()
{
    const Status status = m_state->notOpen();
    return m_state->note(status.ok() ? m_state->close() : status);
}

QByteArray KVXProjectDatabase::contentDigest() const
{
    Digest digest {};
    Status status = m_state->notOpen();
    if (status.ok())
        status = kvx::sqlite::contentDigest(m_state->host, m_state->schema, &digest);
    m_state->noteFailure(status);
    if (!status.ok())
        return {};
    return QByteArray(reinterpret_cast<const char *>(digest.data()), static_cast<int>(digest.size()));
}

QString KVXProjectDatabase::errorText() const
{
    return QString::fromStdString(m_state->last.text);
}

Failure KVXProjectDatabase::failure() const
{
    return m_state->last.failure;
}
