#pragma once

#include "KVXSQLite/Connection.h"

#include <functional>
#include <string>

struct sqlite3_changeset_iter;

namespace kvx::sqlite {

class Schema;

/// Answer to a change that does not fit the content.
enum class Fit { Skip, Replace, Abort };
/// Decides about a change that is not already there; `conflict` is SQLite's SQLITE_CHANGESET_ code.
using FitRule = std::function<Fit(int conflict, sqlite3_changeset_iter *change)>;

struct Applied {
    std::size_t skipped = 0; ///< changes not made: held by the content already, or by the rule
    std::size_t alreadyThere = 0; ///< changes that the content held already, wholly or partly
    std::string firstMisfit; ///< the change that ended the application, for an error text
    bool misfit
        = false; ///< the failure is a change that does not fit, not an error of the database
};

/// Who takes back the changes that were made before one failed.
enum class Undo { Itself, ByCaller };

/// Applies a checked changeset inside the open transaction of the connection. A change whose
/// result is already there is skipped, column by column; any other misfit goes to `rule`, or ends
/// it all. On success every one of the `records` changes was made or skipped, and the transaction
/// is open. On failure nothing of the changeset is left, but with Undo::ByCaller, and SQLite may
/// have rolled back the transaction.
Status applyChangeset(Connection &connection, const Bytes &changeset, std::size_t records,
    const FitRule &rule, Applied *applied, Undo undo = Undo::Itself);

} // namespace kvx::sqlite
