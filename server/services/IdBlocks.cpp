#include "services/IdBlocks.h"
#include "base/Config.h"
#include "services/Access.h"
#include "store/BlockStore.h"
#include "store/Db.h"
#include "store/OpenStore.h"

#include <algorithm>

namespace kvx::server {

namespace {

constexpr Time growWindow = 10 * 60'000;

Reply range(const BlockStore::Block &block)
{
    return Reply::ok().set("MinID", block.minId).set("MaxID", block.maxId);
}

/// Another session of the same user and device works with the block.
bool isInUse(Call &call, const BlockStore::Block &block)
{
    if (block.sessionId == call.caller().sessionId)
        return false;
    const auto seen = OpenStore(call.db()).lastSeen(block.sessionId);
    return seen && call.now() - *seen < call.config().sessionPresence;
}

Reply allocateIdRange(Call &call)
{
    const bool wantsNew = call.request().flag("NewRange");
    const ProjectAccess &project = call.project();
    const Caller &caller = call.caller();
    if (auto refusal = refuseOpenElsewhere(call, project.id))
        return *refusal;

    BlockStore blocks(call.db());
    const auto newest = blocks.newest(project.id, caller.userId, caller.device);
    if (newest && !wantsNew && !isInUse(call, *newest)) {
        if (newest->sessionId != caller.sessionId)
            blocks.adopt(project.id, newest->minId, caller.sessionId);
        return range(*newest);
    }
    std::int64_t size = call.config().idBlock;
    if (newest && call.now() - newest->at < growWindow)
        size = std::min(2 * (newest->maxId - newest->minId + 1), call.config().idBlockMax);
    const auto block = blocks.allocate(
        { project.id, caller.userId, caller.device, caller.sessionId }, size, call.now());
    return block ? range(*block) : Reply::refused(StatusCode::NumbersExhausted);
}

} // namespace

const ServiceTable idBlockServices = {
    { "allocateidrange", allocateIdRange, ProjectWriter | NamesCaller | Writes },
};

} // namespace kvx::server
