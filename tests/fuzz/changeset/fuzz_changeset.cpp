#include "../Require.h"
#include "RandomChangeset.h"

#include "KVXSQLite/ApplyChangeset.h"
#include "KVXSQLite/ChangesetValidator.h"
#include "KVXSQLite/CommandFile.h"
#include "KVXSQLite/Schema.h"
#include "services/CommandFile.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sqlite3.h>

using namespace kvx::sqlite;

namespace {

const char *const fuzzedSchema
    = "CREATE TABLE t(a INTEGER NOT NULL, b TEXT NOT NULL, c REAL, d BLOB, PRIMARY KEY(b, a));"
      "CREATE TABLE u(id INTEGER PRIMARY KEY, x REFERENCES u(id) DEFERRABLE INITIALLY DEFERRED);"
      "INSERT INTO t VALUES (1, 'k', 1.5, x'0102'), (2, 'l', NULL, NULL);"
      "INSERT INTO u VALUES (1, NULL), (2, 1), (3, NULL)";

struct Target {
    Target()
    {
        if (!connection.open(":memory:", Connection::Role::Apply).ok()
            || !connection.exec(fuzzedSchema, "setting up").ok()
            || !Schema::read(connection, &schema).ok())
            std::abort();
    }
    Connection connection;
    Schema schema;
};

/// Whether the server that reads changesets takes this one.
bool serverAccepts(const Bytes &changeset)
{
    CommandHeader header;
    header.version = 1;
    header.projectGuid = "{00000000-0000-0000-0000-000000000001}";
    const Bytes file = CommandFile::encode(header, changeset);
    std::size_t at = 0;
    const auto read = [&](char *buffer, std::size_t size) {
        const std::size_t count = std::min(size, file.size() - at);
        std::copy_n(file.data() + at, count, buffer);
        at += count;
        return count;
    };
    return !kvx::server::faultOfCommandFile(read, header.projectGuid, header.version);
}

} // namespace

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t *data, std::size_t size, std::size_t maxSize);

/// One input in four is what a colleague could have made, since blind changes seldom pass the
/// validator.
extern "C" std::size_t LLVMFuzzerCustomMutator(
    std::uint8_t *data, std::size_t size, std::size_t maxSize, unsigned int seed)
{
    if (seed % 4 != 0)
        return LLVMFuzzerMutate(data, size, maxSize);
    const std::string made = kvx::test::randomChangeset(fuzzedSchema, seed / 4);
    if (made.empty() || made.size() > maxSize)
        return LLVMFuzzerMutate(data, size, maxSize);
    std::memcpy(data, made.data(), made.size());
    return made.size();
}

/// What the validator accepts SQLite must be able to apply: no crash, no hang, and either every
/// change is accounted for or nothing is left of it. The server accepts what a project can apply,
/// and nothing that every client refuses.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, std::size_t size)
{
    static Target target;
    ChangesetValidator validator;
    const Bytes changeset(data, data + size);
    const bool server = serverAccepts(changeset);
    kvx::test::require(
        validator.check(data, size) || !server, "clients accept what the server accepts");
    if (!validator.check(data, size, target.schema))
        return 0;
    kvx::test::require(server, "the server accepts what a project accepts");
    if (!target.connection.begin().ok())
        std::abort();
    const sqlite3_int64 before = sqlite3_total_changes64(target.connection.handle());
    Applied applied;
    const Status status
        = applyChangeset(target.connection, changeset, validator.records(), {}, &applied);
    const auto made
        = static_cast<std::size_t>(sqlite3_total_changes64(target.connection.handle()) - before);
    if (status.ok()
        && (!target.connection.inTransaction() || made + applied.skipped != validator.records()))
        std::abort();
    if (status.failure == Failure::BadLog)
        std::abort(); // something was passed over in silence
    target.connection.rollback();
    return 0;
}
