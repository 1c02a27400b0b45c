#include "KVXSQLite/Bookkeeping.h"

#include <algorithm>
#include <sodium.h>
#include <sqlite3.h>

namespace kvx::sqlite {

const char *const Bookkeeping::metaTable
    = "CREATE TABLE kvx_meta(key TEXT PRIMARY KEY NOT NULL, value NOT NULL) WITHOUT ROWID";
const char *const Bookkeeping::pendingTable = "CREATE TABLE kvx_pending(sequence INTEGER PRIMARY "
                                              "KEY AUTOINCREMENT, changeset BLOB NOT NULL)";

namespace {

const char *const selectValue = "SELECT value FROM kvx_meta WHERE key = ?";
const char *const replaceValue = "INSERT OR REPLACE INTO kvx_meta(key, value) VALUES (?, ?)";

std::string publicationKey(const PublishId &id)
{
    char hex[2 * std::tuple_size<PublishId>::value + 1];
    return std::string("publish.") + sodium_bin2hex(hex, sizeof hex, id.data(), id.size());
}

} // namespace

Status Bookkeeping::create(const std::string &projectGuid, const Digest &schema)
{
    Status status = m_connection.exec(metaTable, "creating the bookkeeping");
    if (status.ok())
        status = m_connection.exec(pendingTable, "creating the bookkeeping");
    if (status.ok())
        status = put("format", formatVersion);
    if (status.ok())
        status = put("version", -1);
    if (status.ok())
        status = put("sealed", 0);
    if (!status.ok())
        return status;
    Statement &insert = m_connection.kept(replaceValue);
    if (!insert.bind("project").bind(projectGuid).run()
        || !insert.bind("schema").bind(Bytes(schema.begin(), schema.end())).run())
        return m_connection.error("writing the bookkeeping");
    return {};
}

Status Bookkeeping::missing(const char *key)
{
    return { Failure::Damaged, std::string("the project's bookkeeping lacks \"") + key + "\"" };
}

Status Bookkeeping::number(const char *key, std::int64_t *value)
{
    Statement &select = m_connection.kept(selectValue);
    const bool found = select.bind(key).step() == SQLITE_ROW && select.type(0) == SQLITE_INTEGER;
    *value = found ? select.integer(0) : 0;
    select.reset();
    return found ? Status() : missing(key);
}

Status Bookkeeping::text(const char *key, std::string *value)
{
    Statement &select = m_connection.kept(selectValue);
    const bool found = select.bind(key).step() == SQLITE_ROW && select.type(0) == SQLITE_TEXT;
    *value = found ? select.text(0) : std::string();
    select.reset();
    return found ? Status() : missing(key);
}

Status Bookkeeping::fingerprint(Digest *digest)
{
    Statement &select = m_connection.kept(selectValue);
    const Bytes stored = select.bind("schema").step() == SQLITE_ROW ? select.blob(0) : Bytes();
    select.reset();
    if (stored.size() != digest->size())
        return missing("schema");
    std::copy(stored.begin(), stored.end(), digest->begin());
    return {};
}

Status Bookkeeping::version(int *version)
{
    std::int64_t value = 0;
    Status status = number("version", &value);
    if (status.ok() && (value < -1 || value > 999'999'999))
        status = { Failure::Damaged, "the project's log version is out of range" };
    *version = status.ok() ? static_cast<int>(value) : -1;
    return status;
}

Status Bookkeeping::sealed(bool *sealed)
{
    std::int64_t value = 0;
    const Status status = number("sealed", &value);
    *sealed = value != 0;
    return status;
}

Status Bookkeeping::seal()
{
    return put("sealed", 1);
}

Status Bookkeeping::put(const char *key, std::int64_t value)
{
    return m_connection.kept(replaceValue).bind(key).bind(value).run()
        ? Status()
        : m_connection.error("writing the bookkeeping");
}

Status Bookkeeping::notePublication(const PublishId &id, std::int64_t lastSequence)
{
    const Status status = put(publicationKey(id).c_str(), lastSequence);
    if (!status.ok())
        return status;
    Statement &insert = m_connection.kept(replaceValue);
    if (!insert.bind("publishId").bind(Bytes(id.begin(), id.end())).run())
        return m_connection.error("writing the bookkeeping");
    return put("publishSequence", lastSequence);
}

Status Bookkeeping::publication(const PublishId &id, std::optional<std::int64_t> *lastSequence)
{
    Statement &select = m_connection.kept(selectValue);
    const std::string key = publicationKey(id);
    const int code = select.bind(std::string_view(key)).step();
    lastSequence->reset();
    if (code == SQLITE_ROW)
        *lastSequence = select.integer(0);
    select.reset();
    return code == SQLITE_ROW || code == SQLITE_DONE
        ? Status()
        : m_connection.error("reading the bookkeeping");
}

Status Bookkeeping::latestPublication(std::optional<std::int64_t> *lastSequence)
{
    Statement &select = m_connection.kept(selectValue);
    const int code = select.bind("publishSequence").step();
    lastSequence->reset();
    if (code == SQLITE_ROW)
        *lastSequence = select.integer(0);
    select.reset();
    return code == SQLITE_ROW || code == SQLITE_DONE
        ? Status()
        : m_connection.error("reading the bookkeeping");
}

Status Bookkeeping::noteHistory(int version, const std::string &chain)
{
    const Status status = put("historyVersion", version);
    if (!status.ok())
        return status;
    Statement &insert = m_connection.kept(replaceValue);
    return insert.bind("history").bind(chain).run() ? Status()
                                                    : m_connection.error("writing the bookkeeping");
}

Status Bookkeeping::history(int *version, std::string *chain)
{
    std::int64_t value = 0;
    const Status status = number("historyVersion", &value);
    if (!status.ok() || value < 0 || value > 999'999'999)
        return missing("historyVersion");
    *version = static_cast<int>(value);
    return text("history", chain);
}

Status Bookkeeping::forgetHistory()
{
    return m_connection.exec("DELETE FROM kvx_meta WHERE key IN ('history', 'historyVersion')",
        "writing the bookkeeping");
}

Status Bookkeeping::raiseVersion(int version)
{
    Statement &forget
        = m_connection.kept("DELETE FROM kvx_meta WHERE key >= 'publish' AND key < 'publisi'");
    if (!forget.run())
        return m_connection.error("writing the bookkeeping");
    return put("version", version);
}

} // namespace kvx::sqlite
