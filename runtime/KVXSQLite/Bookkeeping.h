#pragma once

#include "KVXSQLite/Connection.h"
#include "KVXSQLite/Schema.h"

#include <array>
#include <cstdint>
#include <optional>

namespace kvx::sqlite {

using PublishId = std::array<unsigned char, 16>;

/// What a project file knows about itself, in its table kvx_meta. Every call reads or writes the
/// file; writers need an open transaction.
class Bookkeeping {
public:
    static constexpr int formatVersion = 1;
    /// The statements that create kvx_meta and kvx_pending, as the file keeps them.
    static const char *const metaTable;
    static const char *const pendingTable;

    explicit Bookkeeping(Connection &connection)
        : m_connection(connection)
    {
    }

    Status create(const std::string &projectGuid, const Digest &schema);

    Status number(const char *key, std::int64_t *value);
    Status text(const char *key, std::string *value);
    Status fingerprint(Digest *digest);
    Status version(int *version);
    Status sealed(bool *sealed);
    Status seal();

    /// Notes a publication that is about to be sent: its ID and the last pending edit in it.
    /// Earlier ones stay known until the version rises, since their requests may still arrive.
    Status notePublication(const PublishId &id, std::int64_t lastSequence);
    /// The last edit of a noted publication, if the ID is known.
    Status publication(const PublishId &id, std::optional<std::int64_t> *lastSequence);
    /// The last edit of the publication noted last, if any.
    Status latestPublication(std::optional<std::int64_t> *lastSequence);

    /// The server's digest over all versions up to this one.
    Status noteHistory(int version, const std::string &chain);
    /// Damaged when none was noted.
    Status history(int *version, std::string *chain);
    Status forgetHistory();

    /// The content has reached this version; all noted publications are decided by that.
    Status raiseVersion(int version);

private:
    Status put(const char *key, std::int64_t value);
    Status missing(const char *key);

    Connection &m_connection;
};

} // namespace kvx::sqlite
