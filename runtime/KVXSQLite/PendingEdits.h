#pragma once

#include "KVXSQLite/Connection.h"

#include <cstdint>

namespace kvx::sqlite {

class Schema;

/// The user's edits since the published version, in the table kvx_pending: one changeset an edit.
/// Writers need an open transaction.
class PendingEdits {
public:
    explicit PendingEdits(Connection &connection)
        : m_connection(connection)
    {
    }

    Status append(const unsigned char *changeset, std::size_t size);
    Status count(int *count);
    Status lastSequence(std::int64_t *sequence);
    /// The edits after `after` as one changeset; each is checked against the schema first.
    Status concatenated(std::int64_t after, const Schema &schema, Bytes *changeset);
    Status removeUpTo(std::int64_t sequence);
    Status removeAll();

private:
    Connection &m_connection;
};

} // namespace kvx::sqlite
