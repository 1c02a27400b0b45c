#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kvx::server {

class Db;

/// Named files outside the save: attachments of a project, and each user's own area.
class FileStore {
public:
    explicit FileStore(Db &db)
        : m_db(db)
    {
    }

    struct Owner {
        enum class Kind { Project, User } kind;
        std::int64_t id;
    };
    struct File {
        std::string blob;
        std::string md5;
        std::int64_t size = 0;
    };
    /// Names are compared without regard to case.
    std::optional<File> find(Owner owner, std::string_view name);
    /// Replaces a file of that name.
    void put(Owner owner, std::string_view name, const File &file, std::int64_t userId, Time now);
    /// The bytes of all files of the owner.
    std::int64_t usedBytes(Owner owner);

private:
    Db &m_db;
};

} // namespace kvx::server
