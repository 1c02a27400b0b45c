#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kvx::server {

class Db;

/// Ranges of item numbers. A number is given out once for ever: the project's counter only rises.
class BlockStore {
public:
    explicit BlockStore(Db &db)
        : m_db(db)
    {
    }

    struct Block {
        std::int64_t minId = 0;
        std::int64_t maxId = 0;
        std::int64_t sessionId = 0; ///< that asked for it last
        Time at = 0; ///< of that
    };
    /// The user's newest block on this device in this project.
    std::optional<Block> newest(
        std::int64_t projectId, std::int64_t userId, const std::string &device);

    struct Owner {
        std::int64_t projectId, userId;
        std::string device;
        std::int64_t sessionId;
    };
    /// A new block of `size` numbers above all earlier ones, or of what is left, but at least two;
    /// nothing when the project has no numbers left.
    std::optional<Block> allocate(const Owner &owner, std::int64_t size, Time now);
    /// Notes that another session of the owner uses the block from now on.
    void adopt(std::int64_t projectId, std::int64_t minId, std::int64_t sessionId);

    static constexpr std::int64_t highestNumber = 2147483647;

private:
    Db &m_db;
};

} // namespace kvx::server
