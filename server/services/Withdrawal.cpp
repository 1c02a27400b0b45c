#include "services/Withdrawal.h"
#include "services/Announcements.h"
#include "store/AccessStore.h"
#include "store/Db.h"
#include "store/ItemStore.h"
#include "store/LogStore.h"
#include "store/OpenStore.h"
#include "store/ProjectStore.h"

namespace kvx::server {

namespace {

void freeItems(
    Db &db, Time now, std::int64_t projectId, const std::string &guid, std::int64_t userId)
{
    for (const std::int64_t module : ItemStore(db).checkInAll(projectId, userId, now))
        addAnnouncement(db, now, itemsAnnouncement(projectId, guid, "CheckIn", module));
}

} // namespace

bool withdraw(Db &db, Time now, std::int64_t projectId, const std::string &guid,
    std::int64_t userId, bool mayRead)
{
    const bool unlocked = LogStore(db).releaseOfUser(projectId, userId);
    ProjectStore(db).freeProjectLockOfUser(projectId, userId);
    if (!mayRead)
        OpenStore(db).closeAll(projectId, userId);
    freeItems(db, now, projectId, guid, userId);
    return unlocked;
}

void freeAllItems(Db &db, Time now, std::int64_t userId)
{
    for (const HeldProject &project : projectsHeldBy(db, userId))
        freeItems(db, now, project.id, project.guid, userId);
}

} // namespace kvx::server
