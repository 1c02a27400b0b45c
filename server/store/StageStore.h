#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kvx::server {

class Db;

/// What the holder of a log lock has uploaded and not merged yet. It belongs to the lock's
/// generation and goes with it; no download sees it.
class StageStore {
public:
    explicit StageStore(Db &db)
        : m_db(db)
    {
    }

    enum class Part { Log, File };
    struct Staged {
        std::int64_t generation = 0;
        std::int64_t sessionId = 0;
        std::string blob;
        std::string md5;
        std::int64_t size = 0;
    };

    /// Replaces what was staged as this part.
    void put(std::int64_t projectId, Part part, const Staged &staged, Time now);
    /// The part, if it was staged in that generation.
    std::optional<Staged> get(std::int64_t projectId, Part part, std::int64_t generation);
    void drop(std::int64_t projectId);

private:
    Db &m_db;
};

} // namespace kvx::server
