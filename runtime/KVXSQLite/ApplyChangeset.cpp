#include "KVXSQLite/ApplyChangeset.h"

#include <cstdint>
#include <cstring>
#include <sqlite3.h>

namespace kvx::sqlite {

namespace {

struct Application {
    const FitRule &rule;
    Applied &applied;
    bool replaced = false;
};

/// As they are stored: zero has a sign, and no number is unequal to itself.
std::uint64_t bits(double number)
{
    std::uint64_t result = 0;
    std::memcpy(&result, &number, sizeof result);
    return result;
}

bool sameValue(sqlite3_value *a, sqlite3_value *b)
{
    const int type = sqlite3_value_type(a);
    if (type != sqlite3_value_type(b))
        return false;
    switch (type) {
    case SQLITE_INTEGER:
        return sqlite3_value_int64(a) == sqlite3_value_int64(b);
    case SQLITE_FLOAT:
        return bits(sqlite3_value_double(a)) == bits(sqlite3_value_double(b));
    case SQLITE_NULL:
        return true;
    default: {
        const void *left = sqlite3_value_blob(a);
        const void *right = sqlite3_value_blob(b);
        const int size = sqlite3_value_bytes(a);
        return size == sqlite3_value_bytes(b)
            && (size == 0 || std::memcmp(left, right, static_cast<std::size_t>(size)) == 0);
    }
    }
}

/// How much of a change the row at hand holds already. Partly: every column that the change names
/// has either its old or its new value, so making the change overwrites nothing.
enum class Present { No, Partly, Wholly };

Present presenceOf(int conflict, sqlite3_changeset_iter *change)
{
    const char *table = nullptr;
    int columns = 0;
    int operation = 0;
    if (sqlite3changeset_op(change, &table, &columns, &operation, nullptr) != SQLITE_OK)
        return Present::No;
    if (operation == SQLITE_DELETE)
        return conflict == SQLITE_CHANGESET_NOTFOUND ? Present::Wholly : Present::No;
    if (conflict != SQLITE_CHANGESET_DATA && conflict != SQLITE_CHANGESET_CONFLICT)
        return Present::No;
    Present result = Present::Wholly;
    for (int i = 0; i < columns; ++i) {
        sqlite3_value *wanted = nullptr;
        sqlite3_value *present = nullptr;
        if (sqlite3changeset_new(change, i, &wanted) != SQLITE_OK
            || sqlite3changeset_conflict(change, i, &present) != SQLITE_OK)
            return Present::No;
        if (!wanted || sameValue(wanted, present))
            continue;
        sqlite3_value *before = nullptr;
        if (operation != SQLITE_UPDATE || sqlite3changeset_old(change, i, &before) != SQLITE_OK
            || !before || !sameValue(before, present))
            return Present::No;
        result = Present::Partly;
    }
    return result;
}

std::string keyText(sqlite3_changeset_iter *change, int columns, int operation)
{
    unsigned char *key = nullptr;
    int size = 0;
    std::string text;
    if (sqlite3changeset_pk(change, &key, &size) != SQLITE_OK)
        return text;
    for (int i = 0; i < columns && i < size; ++i) {
        sqlite3_value *value = nullptr;
        if (key[i] == 0)
            continue;
        if (operation == SQLITE_INSERT)
            sqlite3changeset_new(change, i, &value);
        else
            sqlite3changeset_old(change, i, &value);
        if (sqlite3_value_type(value) == SQLITE_BLOB)
            return "with a binary key";
        const auto *part = reinterpret_cast<const char *>(sqlite3_value_text(value));
        text += (text.empty() ? "" : ", ") + std::string(part ? part : "");
    }
    return text;
}

std::string misfitText(int conflict, sqlite3_changeset_iter *change)
{
    if (conflict == SQLITE_CHANGESET_FOREIGN_KEY)
        return "a reference to a row that would be missing";
    const char *table = "";
    int columns = 0;
    int operation = 0;
    sqlite3changeset_op(change, &table, &columns, &operation, nullptr);
    const std::string row
        = "table \"" + std::string(table) + "\", row " + keyText(change, columns, operation);
    switch (conflict) {
    case SQLITE_CHANGESET_NOTFOUND:
        return row + ": changed there, deleted here";
    case SQLITE_CHANGESET_CONFLICT:
        return row + ": inserted on both sides";
    case SQLITE_CHANGESET_DATA:
        return row
            + (operation == SQLITE_DELETE ? ": deleted there, changed here"
                                          : ": changed on both sides");
    default:
        return row + ": a constraint of the table is violated";
    }
}

int onConflict(void *context, int conflict, sqlite3_changeset_iter *change)
{
    auto *application = static_cast<Application *>(context);
    const Present present = presenceOf(conflict, change);
    if (present != Present::No)
        ++application->applied.alreadyThere;
    if (present == Present::Partly)
        return SQLITE_CHANGESET_REPLACE;
    Fit fit = Fit::Abort;
    if (present == Present::Wholly)
        fit = Fit::Skip;
    else if (application->rule)
        fit = application->rule(conflict, change);
    if (fit == Fit::Abort) {
        application->applied.misfit = true;
        application->applied.firstMisfit = misfitText(conflict, change);
        return SQLITE_CHANGESET_ABORT;
    }
    if (fit == Fit::Replace) {
        application->replaced = true;
        return SQLITE_CHANGESET_REPLACE;
    }
    ++application->applied.skipped;
    return SQLITE_CHANGESET_OMIT;
}

} // namespace

Status applyChangeset(Connection &connection, const Bytes &changeset, std::size_t records,
    const FitRule &rule, Applied *applied, Undo undo)
{
    *applied = {};
    if (changeset.empty())
        return {};
    Application application { rule, *applied };
    const sqlite3_int64 before = sqlite3_total_changes64(connection.handle());
    const int code
        = sqlite3changeset_apply_v2(connection.handle(), static_cast<int>(changeset.size()),
            const_cast<unsigned char *>(changeset.data()), nullptr, onConflict, &application,
            nullptr, nullptr, undo == Undo::ByCaller ? SQLITE_CHANGESETAPPLY_NOSAVEPOINT : 0);
    if (code != SQLITE_OK) {
        if (applied->misfit)
            return { Failure::Clash, applied->firstMisfit };
        return Connection::error("applying changes", code);
    }
    // A full disk or an I/O error can end the outer transaction without an error code here.
    if (!connection.inTransaction())
        return { Failure::Io, "applying changes: the transaction was ended by an error" };
    const auto made
        = static_cast<std::size_t>(sqlite3_total_changes64(connection.handle()) - before);
    if (!application.replaced && made + applied->skipped != records)
        return { Failure::BadLog,
            "applying changes: " + std::to_string(made + applied->skipped) + " of "
                + std::to_string(records) + " changes were handled" };
    return {};
}

} // namespace kvx::sqlite
