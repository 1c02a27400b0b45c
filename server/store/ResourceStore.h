#pragma once

#include "base/Clock.h"

#include <optional>
#include <string>
#include <vector>

namespace kvx::server {

class Db;

/// A published package of common resources.
struct ResourcePackage {
    std::string version;
    std::string blob;
    Time at = 0; ///< wall clock
    bool current = false;
};

class ResourceStore {
public:
    explicit ResourceStore(Db &db)
        : m_db(db)
    {
    }

    std::optional<ResourcePackage> current();
    /// All that were ever published, the newest first.
    std::vector<ResourcePackage> all();
    /// Makes it the current one; a version published before is replaced.
    void publish(const std::string &version, const std::string &blob, Time now);

private:
    Db &m_db;
};

} // namespace kvx::server
