#include "KVXSQLite/Rebase.h"

#include "KVXSQLite/ChangesetValidator.h"
#include "KVXSQLite/RecordingSession.h"

#include <sqlite3.h>

namespace kvx::sqlite {

namespace {

std::size_t countRecords(const Bytes &changeset)
{
    ChangesetValidator validator;
    return validator.check(changeset.data(), changeset.size()) ? validator.records() : 0;
}

QString reasonOf(int conflict)
{
    switch (conflict) {
    case SQLITE_CHANGESET_NOTFOUND:
        return QStringLiteral("deleted by the other side");
    case SQLITE_CHANGESET_CONFLICT:
        return QStringLiteral("inserted by both sides");
    case SQLITE_CHANGESET_DATA:
        return QStringLiteral("changed by both sides");
    case SQLITE_CHANGESET_FOREIGN_KEY:
        return QStringLiteral("refers to a row that is missing, or is referred to");
    default:
        return QStringLiteral("violates a constraint of the table");
    }
}

} // namespace

Status Rebase::undo(std::int64_t sequence, Bytes *edits)
{
    Status status = PendingEdits(m_connection).concatenated(sequence, m_schema, edits);
    if (!status.ok() || edits->empty())
        return status;
    int size = 0;
    void *data = nullptr;
    const int code
        = sqlite3changeset_invert(static_cast<int>(edits->size()), edits->data(), &size, &data);
    if (code != SQLITE_OK)
        return { Failure::Internal,
            std::string("undoing the pending edits: ") + sqlite3_errstr(code) };
    const auto *begin = static_cast<const unsigned char *>(data);
    const Bytes inverse(begin, begin + size);
    sqlite3_free(data);
    Applied applied;
    status = applyChangeset(m_connection, inverse, countRecords(inverse), {}, &applied);
    if (applied.misfit)
        return { Failure::Damaged,
            "the pending edits do not match the project's content: " + applied.firstMisfit };
    return status;
}

Status Rebase::run(const Bytes &log, std::size_t records, Winner winner, ConflictsFile *conflicts)
{
    Bytes edits;
    Status status = undo(0, &edits);
    if (!status.ok())
        return status;
    Applied applied;
    status = applyChangeset(m_connection, log, records, {}, &applied);
    if (applied.misfit)
        return { Failure::Damaged,
            "the change log does not fit the project's content: " + applied.firstMisfit };
    if (!status.ok())
        return status;

    const RecordingSession session(m_connection);
    status = session.status();
    if (status.ok())
        status = redo(edits, winner, conflicts);
    Bytes changes;
    if (status.ok())
        status = session.changes(&changes);
    PendingEdits pending(m_connection);
    if (status.ok())
        status = pending.removeAll();
    if (status.ok() && !changes.empty())
        status = pending.append(changes.data(), changes.size());
    return status;
}

Status Rebase::redo(const Bytes &edits, Winner winner, ConflictsFile *conflicts)
{
    Applied applied;
    const Status whole = applyChangeset(m_connection, edits, countRecords(edits), {}, &applied);
    if (whole.ok() || !applied.misfit || winner == Winner::Nobody)
        return whole;
    return redoOneByOne(edits, winner, conflicts);
}

Status Rebase::redoOneByOne(const Bytes &edits, Winner winner, ConflictsFile *conflicts)
{
    // An item may need another one that comes later, the row it refers to for instance: what
    // fails is tried again until a pass makes no progress, and only then counts as a conflict.
    std::vector<bool> done(countRecords(edits), false);
    bool progress = true;
    bool lastPass = false;
    for (;;) {
        std::size_t left = 0;
        progress = false;
        ChangesetReader items(edits.data(), edits.size());
        for (std::size_t i = 0; items.next() == ChangesetReader::Step::Record; ++i) {
            if (done[i])
                continue;
            bool made = false;
            const Status status = redoItem(items, winner, lastPass, conflicts, &made);
            if (!status.ok())
                return status;
            done[i] = made;
            progress = progress || made;
            left += made ? 0U : 1U;
        }
        if (left == 0 || lastPass)
            return {};
        lastPass = !progress;
    }
}

Status Rebase::redoItem(
    const ChangesetReader &item, Winner winner, bool lastPass, ConflictsFile *conflicts, bool *done)
{
    const Table &table = *m_schema.find(item.table()); // checked when the edits were read
    Bytes one(item.header().begin(), item.header().end());
    one.insert(one.end(), item.record().begin(), item.record().end());

    QString reason;
    QJsonValue theirs;
    bool replaced = false;
    const FitRule rule = [&](int conflict, sqlite3_changeset_iter *change) {
        reason = reasonOf(conflict);
        if (conflict == SQLITE_CHANGESET_CONSTRAINT || conflict == SQLITE_CHANGESET_FOREIGN_KEY)
            return Fit::Abort;
        theirs = ConflictsFile::theirRow(table, conflict, change);
        replaced = winner == Winner::Mine && conflict != SQLITE_CHANGESET_NOTFOUND;
        return replaced ? Fit::Replace : Fit::Skip;
    };
    Applied applied;
    const Status status = applyChangeset(m_connection, one, 1, rule, &applied);
    if (!status.ok() && !applied.misfit)
        return status;
    *done = status.ok();
    if ((status.ok() && !reason.isEmpty()) || (!status.ok() && lastPass))
        conflicts->add(table, item, theirs, reason, status.ok() && replaced);
    return {};
}

} // namespace kvx::sqlite
