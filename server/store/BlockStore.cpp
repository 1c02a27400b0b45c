#include "store/BlockStore.h"
#include "store/Db.h"

#include <algorithm>

namespace kvx::server {

using I = std::int64_t;

std::optional<BlockStore::Block> BlockStore::newest(
    std::int64_t projectId, std::int64_t userId, const std::string &device)
{
    std::optional<Block> found;
    m_db.each<I, I, I, I>(
        "SELECT min_id, max_id, session_id, at FROM item_block WHERE project_id = :project"
        " AND user_id = :user AND device = :device ORDER BY min_id DESC LIMIT 1",
        { { "project", projectId }, { "user", userId }, { "device", device } },
        [&found](I minId, I maxId, I session, I at) {
            found = Block { minId, maxId, session, at };
        });
    return found;
}

std::optional<BlockStore::Block> BlockStore::allocate(
    const Owner &owner, std::int64_t size, Time now)
{
    const auto next = m_db.value<I>(
        "UPDATE project SET next_item = next_item + :size WHERE id = :id AND next_item < :highest"
        " RETURNING next_item",
        { { "size", size }, { "id", owner.projectId }, { "highest", highestNumber } });
    if (!next)
        return std::nullopt;
    const Block block { *next - size, std::min(*next - 1, highestNumber), owner.sessionId, now };
    m_db.run("INSERT INTO item_block (project_id, min_id, max_id, user_id, device, session_id, at)"
             " VALUES (:project, :min, :max, :user, :device, :session, :now)",
        { { "project", owner.projectId }, { "min", block.minId }, { "max", block.maxId },
            { "user", owner.userId }, { "device", owner.device }, { "session", owner.sessionId },
            { "now", now } });
    return block;
}

void BlockStore::adopt(std::int64_t projectId, std::int64_t minId, std::int64_t sessionId)
{
    m_db.run(
        "UPDATE item_block SET session_id = :session WHERE project_id = :project AND min_id = :min",
        { { "session", sessionId }, { "project", projectId }, { "min", minId } });
}

} // namespace kvx::server
