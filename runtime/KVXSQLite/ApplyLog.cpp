#include "KVXSQLite/ApplyLog.h"

#include "KVXSQLite/ChangesetValidator.h"

#include <FailPoint.h>
#include <QFile>
#include <sqlite3.h>

namespace kvx::sqlite {

namespace {

std::string logName(int version)
{
    return "change log " + std::to_string(version);
}

} // namespace

Status ApplyLog::currentSchema()
{
    Statement &cookie = m_connection.kept("PRAGMA schema_version");
    const bool read = cookie.step() == SQLITE_ROW;
    const std::int64_t value = read ? cookie.integer(0) : -1;
    cookie.reset();
    if (!read)
        return m_connection.error("reading the schema");
    if (value == m_schemaCookie)
        return {};
    const Status status = Schema::read(m_connection, &m_schema);
    m_schemaCookie = status.ok() ? value : -1;
    return status;
}

Status ApplyLog::execute(const CommandFile &log, const QString &projectFile, Rebase::Winner winner,
    QString *conflictsFile)
{
    if (!log.isLoaded())
        return { Failure::BadLog, "the change log was not loaded" };
    Status status = m_connection.begin();
    if (!status.ok()) {
        status.text = logName(log.header().version) + ": " + status.text;
        return status;
    }
    QString written;
    {
        const Deadline deadline(m_connection.handle(), m_timeLimit);
        status = transaction(log, projectFile, winner, &written);
    }
    if (status.ok())
        status = m_connection.commit();
    else
        m_connection.rollback();
    if (!status.ok() && !written.isEmpty())
        QFile::remove(written);
    else if (status.ok() && !written.isEmpty())
        *conflictsFile = written;
    if (status.failure == Failure::Interrupted)
        status.text = logName(log.header().version) + " took longer than "
            + std::to_string(m_timeLimit / 1000) + " s";
    return status;
}

Status ApplyLog::transaction(const CommandFile &log, const QString &projectFile,
    Rebase::Winner winner, QString *conflictsFile)
{
    Bookkeeping book(m_connection);
    const CommandHeader &header = log.header();
    std::string guid;
    Status status = book.text("project", &guid);
    if (!status.ok())
        return status;
    if (sqlite3_stricmp(guid.c_str(), header.projectGuid.c_str()) != 0)
        return { Failure::OtherProject,
            logName(header.version) + " belongs to project " + header.projectGuid + ", not to "
                + guid };
    bool sealed = false;
    int version = -1;
    status = book.version(&version);
    if (status.ok())
        status = book.sealed(&sealed);
    if (!status.ok())
        return status;
    if (!sealed)
        return { Failure::Refused, "the project is still being filled; its base was not sealed" };
    if (header.version <= version)
        return {};
    if (header.version != version + 1)
        return { Failure::Gap,
            logName(header.version) + " does not follow the project's version "
                + std::to_string(version) };

    std::optional<std::int64_t> own;
    status = book.publication(header.publishId, &own);
    if (!status.ok())
        return status;
    if (own)
        status = PendingEdits(m_connection).removeUpTo(*own);
    else
        status = applyOthers(log, projectFile, winner, conflictsFile);
    if (KVX_FAIL_POINT("apply/changes made"))
        return { Failure::Io, "applying changes: the disk failed" };
    return status.ok() ? book.raiseVersion(header.version) : status;
}

Status ApplyLog::applyOthers(const CommandFile &log, const QString &projectFile,
    Rebase::Winner winner, QString *conflictsFile)
{
    Status status = currentSchema();
    if (!status.ok())
        return status;
    const std::string name = logName(log.header().version);
    if (log.header().schema != m_schema.fingerprint())
        return { Failure::BadSchema, name + " was written for other tables than this project has" };
    ChangesetValidator validator;
    if (!validator.check(log.changeset().data(), log.changeset().size(), m_schema))
        return { Failure::BadLog, name + " is not usable: " + validator.error() };

    int pending = 0;
    status = PendingEdits(m_connection).count(&pending);
    if (status.ok() && pending > 0)
        status = m_connection.exec("SAVEPOINT kvx_log", "applying a change log");
    if (!status.ok())
        return status;
    Applied applied;
    status = applyChangeset(
        m_connection, log.changeset(), validator.records(), {}, &applied, Undo::ByCaller);
    if (!status.ok() && !applied.misfit)
        return status;
    if (pending == 0) {
        if (applied.misfit)
            return { Failure::Damaged,
                name + " does not fit the project's content (" + applied.firstMisfit
                    + "); the project file must be fetched anew" };
        return {};
    }
    // Nothing met the pending edits: they still count from the content without them.
    if (status.ok() && applied.alreadyThere == 0)
        return {};

    status = m_connection.exec("ROLLBACK TO kvx_log", "applying a change log");
    if (!status.ok())
        return status;
    ConflictsFile conflicts;
    status = Rebase(m_connection, m_schema)
                 .run(log.changeset(), validator.records(), winner, &conflicts);
    if (status.failure == Failure::Clash)
        status.text = name + " clashes with edits that are not published: " + status.text;
    if (status.ok() && !conflicts.isEmpty())
        status = conflicts.write(projectFile, log.header().version,
            QString::fromStdString(log.header().author), conflictsFile);
    return status;
}

Status ApplyLog::adopt()
{
    Status status = m_connection.begin();
    if (!status.ok())
        return status;
    {
        const Deadline deadline(m_connection.handle(), m_timeLimit);
        status = adoptInTransaction();
    }
    if (status.ok())
        return m_connection.commit();
    m_connection.rollback();
    return status;
}

Status ApplyLog::adoptInTransaction()
{
    Bookkeeping book(m_connection);
    bool sealed = false;
    int version = -1;
    std::optional<std::int64_t> published;
    Status status = book.sealed(&sealed);
    if (status.ok() && !sealed)
        status = { Failure::NotAProject, "the project file was uploaded before it was complete" };
    if (status.ok())
        status = book.version(&version);
    if (status.ok())
        status = book.latestPublication(&published);
    if (status.ok())
        status = currentSchema();
    // Edits that the publication does not hold are in no log: they do not belong to its version.
    Bytes unpublished;
    if (status.ok())
        status = Rebase(m_connection, m_schema).undo(published.value_or(0), &unpublished);
    if (status.ok())
        status = PendingEdits(m_connection).removeAll();
    // A copy of another project brings that one's.
    if (status.ok())
        status = book.forgetHistory();
    if (status.ok())
        status = book.raiseVersion(published ? version + 1 : version);
    return status;
}

} // namespace kvx::sqlite
