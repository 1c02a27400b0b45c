#include "KVXSQLite/PendingEdits.h"

#include "KVXSQLite/ChangesetReader.h"
#include "KVXSQLite/ChangesetValidator.h"

#include <limits>
#include <memory>
#include <sqlite3.h>

namespace kvx::sqlite {

namespace {

struct GroupEnd {
    void operator()(sqlite3_changegroup *group) const { sqlite3changegroup_delete(group); }
};

Status outOfMemory(int code)
{
    return { Failure::Internal, std::string("joining the pending edits: ") + sqlite3_errstr(code) };
}

} // namespace

Status PendingEdits::append(const unsigned char *changeset, std::size_t size)
{
    if (size > ChangesetReader::maxBytes)
        return { Failure::Refused, "the edit changes more than 256 MiB" };
    Statement &insert = m_connection.kept("INSERT INTO kvx_pending(changeset) VALUES (?)");
    return insert.bind(Bytes(changeset, changeset + size)).run()
        ? Status()
        : m_connection.error("recording the edit");
}

Status PendingEdits::count(int *count)
{
    Statement &select = m_connection.kept("SELECT count(*) FROM kvx_pending");
    const bool found = select.step() == SQLITE_ROW;
    *count = found ? static_cast<int>(select.integer(0)) : 0;
    select.reset();
    return found ? Status() : m_connection.error("counting the pending edits");
}

Status PendingEdits::lastSequence(std::int64_t *sequence)
{
    Statement &select = m_connection.kept("SELECT coalesce(max(sequence), 0) FROM kvx_pending");
    const bool found = select.step() == SQLITE_ROW;
    *sequence = found ? select.integer(0) : 0;
    select.reset();
    return found ? Status() : m_connection.error("reading the pending edits");
}

Status PendingEdits::concatenated(std::int64_t after, const Schema &schema, Bytes *changeset)
{
    changeset->clear();
    sqlite3_changegroup *rawGroup = nullptr;
    int code = sqlite3changegroup_new(&rawGroup);
    const std::unique_ptr<sqlite3_changegroup, GroupEnd> group(rawGroup);
    if (code != SQLITE_OK)
        return outOfMemory(code);

    Statement rows(m_connection.handle(),
        "SELECT changeset FROM kvx_pending WHERE sequence > ? ORDER BY sequence");
    rows.bind(after);
    int step = rows.step();
    for (; step == SQLITE_ROW; step = rows.step()) {
        Bytes one = rows.blob(0);
        ChangesetValidator validator;
        if (!validator.check(one.data(), one.size(), schema))
            return { Failure::Damaged, "a pending edit is damaged: " + validator.error() };
        code = sqlite3changegroup_add(group.get(), static_cast<int>(one.size()), one.data());
        if (code != SQLITE_OK)
            return outOfMemory(code);
    }
    if (step != SQLITE_DONE)
        return m_connection.error("reading the pending edits");

    int size = 0;
    void *data = nullptr;
    code = sqlite3changegroup_output(group.get(), &size, &data);
    if (code != SQLITE_OK)
        return outOfMemory(code);
    const auto *begin = static_cast<const unsigned char *>(data);
    if (size > 0)
        changeset->assign(begin, begin + size);
    sqlite3_free(data);
    return {};
}

Status PendingEdits::removeUpTo(std::int64_t sequence)
{
    return m_connection.kept("DELETE FROM kvx_pending WHERE sequence <= ?").bind(sequence).run()
        ? Status()
        : m_connection.error("removing published edits");
}

Status PendingEdits::removeAll()
{
    return removeUpTo(std::numeric_limits<std::int64_t>::max());
}

} // namespace kvx::sqlite
