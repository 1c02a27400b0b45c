#include "store/ResourceStore.h"
#include "store/Db.h"

#include <algorithm>

namespace kvx::server {

std::vector<ResourcePackage> ResourceStore::all()
{
    std::vector<ResourcePackage> packages;
    m_db.each<std::string, std::string, Time, bool>(
        "SELECT version, blob, at, current FROM resource_package ORDER BY at DESC, version", {},
        [&packages](std::string version, std::string blob, Time at, bool current) {
            packages.push_back({ std::move(version), std::move(blob), at, current });
        });
    return packages;
}

std::optional<ResourcePackage> ResourceStore::current()
{
    const std::vector<ResourcePackage> packages = all();
    const auto found = std::find_if(packages.begin(), packages.end(),
        [](const ResourcePackage &package) { return package.current; });
    return found == packages.end() ? std::nullopt : std::optional(*found);
}

void ResourceStore::publish(const std::string &version, const std::string &blob, Time now)
{
    m_db.run("UPDATE resource_package SET current = 0 WHERE current <> 0");
    m_db.run("INSERT INTO resource_package (version, blob, at, current)"
             " VALUES (:version, :blob, :now, 1)"
             " ON CONFLICT (version) DO UPDATE SET blob = :blob, at = :now, current = 1",
        { { "version", version }, { "blob", blob }, { "now", now } });
}

} // namespace kvx::server
