#include "store/FileStore.h"
#include "base/Text.h"
#include "store/Db.h"

namespace kvx::server {

using I = std::int64_t;

static const char *kindText(FileStore::Owner owner)
{
    return owner.kind == FileStore::Owner::Kind::Project ? "project" : "user";
}

std::optional<FileStore::File> FileStore::find(Owner owner, std::string_view name)
{
    std::optional<File> found;
    m_db.each<std::string, std::string, I>(
        "SELECT blob, md5, size FROM file WHERE owner_kind = :kind AND owner_id = :owner"
        " AND name_key = :key",
        { { "kind", kindText(owner) }, { "owner", owner.id }, { "key", foldedKey(name) } },
        [&found](std::string blob, std::string md5, I size) {
            found = File { std::move(blob), std::move(md5), size };
        });
    return found;
}

void FileStore::put(
    Owner owner, std::string_view name, const File &file, std::int64_t userId, Time now)
{
    m_db.run("INSERT INTO file (owner_kind, owner_id, name_key, name, blob, md5, size, at, user_id)"
             " VALUES (:kind, :owner, :key, :name, :blob, :md5, :size, :now, :user)"
             " ON CONFLICT (owner_kind, owner_id, name_key) DO UPDATE SET name = excluded.name,"
             " blob = excluded.blob, md5 = excluded.md5, size = excluded.size, at = excluded.at,"
             " user_id = excluded.user_id",
        { { "kind", kindText(owner) }, { "owner", owner.id }, { "key", foldedKey(name) },
            { "name", name }, { "blob", file.blob }, { "md5", file.md5 }, { "size", file.size },
            { "now", now }, { "user", userId } });
}

std::int64_t FileStore::usedBytes(Owner owner)
{
    return m_db
        .value<I>("SELECT COALESCE(SUM(size), 0) FROM file WHERE owner_kind = :kind"
                  " AND owner_id = :owner",
            { { "kind", kindText(owner) }, { "owner", owner.id } })
        .value_or(0);
}

} // namespace kvx::server
