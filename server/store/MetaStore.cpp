#include "store/MetaStore.h"
#include "store/Db.h"

namespace kvx::server {

std::optional<std::string> metaValue(Db &db, const std::string &name)
{
    return db.value<std::string>("SELECT value FROM meta WHERE name = :name", { { "name", name } });
}

void setMetaValue(Db &db, const std::string &name, const std::string &value)
{
    db.run("INSERT INTO meta (name, value) VALUES (:name, :value) "
           "ON CONFLICT (name) DO UPDATE SET value = excluded.value",
        { { "name", name }, { "value", value } });
}

} // namespace kvx::server
