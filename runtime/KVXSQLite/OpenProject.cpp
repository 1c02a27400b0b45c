#include "KVXSQLite/OpenProject.h"

#include "KVXSQLite/ChangesetValidator.h"
#include "KVXSQLite/ProjectFile.h"

#include <ctime>
#include <sodium.h>
#include <sqlite3.h>

namespace kvx::sqlite {

OpenProject::OpenProject(const QString &file)
    : path(file)
    , edits(host)
    , log(apply)
    , model(host, schema,
          [this](CommandFile *commandFile, int mode) { return execute(commandFile, mode); })
{
}

Status OpenProject::open(const QString &projectGuid, bool downloaded, const QString &schemaSql)
{
    if (sodium_init() < 0)
        return { Failure::Internal, "the random source of the system is not usable" };
    Status status = ProjectFile::checkOutside(path, downloaded);
    if (status.ok())
        status = ProjectFile::open(&host, path, projectGuid, schemaSql, &schema);
    if (status.ok())
        status = apply.open(path.toStdString(), Connection::Role::Apply);
    if (status.ok() && downloaded)
        status = log.adopt();
    std::string stored;
    if (status.ok())
        status = Bookkeeping(host).text("project", &stored);
    guid = QString::fromStdString(stored);
    return status.ok() ? edits.start() : status;
}

Status OpenProject::edit(const std::function<bool(sqlite3 *)> &function)
{
    Status status = usable();
    bool sealed = false;
    if (status.ok())
        status = Bookkeeping(host).sealed(&sealed);
    return status.ok() ? edits.edit(function, sealed) : status;
}

Status OpenProject::seal()
{
    Status status = usable();
    if (status.ok())
        status = edits.internal([this] { return Bookkeeping(host).seal(); });
    return status.ok() ? checkpoint() : status;
}

bool OpenProject::note(const Status &status)
{
    last = status;
    if (!status.ok())
        qWarning("%s (%s)", status.text.c_str(), qUtf8Printable(path));
    return status.ok();
}

void OpenProject::noteFailure(const Status &status)
{
    if (!status.ok())
        note(status);
}

Status OpenProject::usable() const
{
    return closed ? Status { Failure::Refused, "the project is closed" } : Status();
}

bool OpenProject::execute(CommandFile *commandFile, int mode)
{
    Status status = usable();
    if (!status.ok())
        return note(status);
    if (!commandFile)
        return note({ Failure::Refused, "no change log was given" });
    if (mode != 0)
        status = { Failure::Refused, "execution mode " + std::to_string(mode) + " is not known" };
    if (status.ok() && edits.isOpen())
        status = { Failure::Refused,
            "a change log cannot be executed while an edit transaction is open" };
    if (status.ok())
        status = settle();
    if (!status.ok())
        return note(status);
    return note(log.execute(*commandFile, path, winner, &conflictsFile));
}

Status OpenProject::prepareSave(const QString &commandFile, const QString &author)
{
    const Status settled = settle();
    if (!settled.ok())
        return settled;
    CommandHeader header;
    header.author = author.toStdString();
    if (header.author.size() > CommandFile::maxAuthor)
        return { Failure::Refused, "the author's e-mail is longer than 254 bytes" };
    header.projectGuid = guid.toStdString();
    header.schema = schema.fingerprint();
    header.time = std::time(nullptr);
    randombytes_buf(header.publishId.data(), header.publishId.size());

    const Status status = edits.internal([&] { return writeSave(commandFile, &header); });
    return status.ok() ? checkpoint() : status;
}

Status OpenProject::writeSave(const QString &commandFile, CommandHeader *header)
{
    Bookkeeping book(host);
    PendingEdits pending(host);
    bool sealed = false;
    std::int64_t sequence = 0;
    Bytes changes;
    Status step = book.sealed(&sealed);
    if (step.ok() && !sealed)
        step = { Failure::Refused, "the project is still being filled; seal its base first" };
    if (step.ok())
        step = book.version(&header->version);
    if (step.ok())
        step = pending.lastSequence(&sequence);
    if (step.ok())
        step = pending.concatenated(0, schema, &changes);
    // A log that colleagues could not apply would stop them all.
    ChangesetValidator validator;
    if (step.ok() && !validator.check(changes.data(), changes.size(), schema))
        step = { Failure::Refused, "the edits are too much for one save: " + validator.error() };
    ++header->version;
    if (step.ok())
        step = book.notePublication(header->publishId, sequence);
    return step.ok() ? CommandFile::write(commandFile, *header, changes) : step;
}

Status OpenProject::published(int version)
{
    Status status = usable();
    if (status.ok())
        status = notePublished(version);
    // Else edits that are published already would go into the next save, too.
    if (status.ok() || status.failure == Failure::Refused)
        unnoted.reset();
    else
        unnoted = version;
    return status;
}

Status OpenProject::settle()
{
    Status status = usable();
    if (status.ok() && unnoted)
        status = published(*unnoted);
    return status;
}

Status OpenProject::notePublished(int version)
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
            return { Failure::Refused,
                "version " + std::to_string(version) + " was not prepared; the project stands at "
                    + std::to_string(current) };
        status = PendingEdits(host).removeUpTo(*sequence);
        return status.ok() ? book.raiseVersion(version) : status;
    });
}

Status OpenProject::noteHistory(int version, const std::string &chain)
{
    const Status status = usable();
    if (!status.ok())
        return status;
    return edits.internal([&]() -> Status {
        Bookkeeping book(host);
        int current = -1;
        const Status read = book.version(&current);
        if (read.ok() && version != current)
            return { Failure::Refused,
                "the project stands at version " + std::to_string(current) + ", not "
                    + std::to_string(version) };
        return read.ok() ? book.noteHistory(version, chain) : read;
    });
}

Status OpenProject::checkpoint()
{
    const Status open = usable();
    if (!open.ok())
        return open;
    if (edits.isOpen())
        return { Failure::Refused, "an edit transaction is open" };
    if (sqlite3_txn_state(host.handle(), "main") != SQLITE_TXN_NONE)
        return { Failure::Busy,
            "a query of the host is still running on the project's connection" };
    // Not TRUNCATE: nothing of the log is needed after FULL, and the next change would only grow it
    // again, with the disk waited for once more.
    const int code = sqlite3_wal_checkpoint_v2(
        host.handle(), "main", SQLITE_CHECKPOINT_FULL, nullptr, nullptr);
    return code == SQLITE_OK ? Status() : host.error("completing the project file");
}

Status OpenProject::close()
{
    const Status open = usable();
    if (!open.ok())
        return open;
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

} // namespace kvx::sqlite
