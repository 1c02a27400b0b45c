#include "services/GlobalLocks.h"
#include "base/Log.h"
#include "base/Text.h"
#include "services/Access.h"
#include "store/Db.h"
#include "store/GlobalLockStore.h"
#include "store/UserStore.h"

#include <limits>

namespace kvx::server {

namespace {

constexpr Time minute = 60'000;
constexpr std::int64_t longestMinutes = 24 * 60;
constexpr std::size_t longestText = 1000; // bytes

/// Removal is what makes the line come once.
void endExpired(Db &db, Time now)
{
    for (const GlobalLock &lock : GlobalLockStore(db).removeExpired(now)) {
        logLine(LogLevel::Info, "global lock expired",
            { { "type", std::to_string(lock.type) }, { "user", lock.email } });
    }
}

std::int64_t lockType(const Request &request)
{
    return request.integer("lockType", std::numeric_limits<std::int32_t>::min(),
        std::numeric_limits<std::int32_t>::max());
}

Reply withHolder(Reply reply, const GlobalLock &lock)
{
    return reply.set("lockedAuthorName", lock.name).set("lockedAuthorEmail", lock.email);
}

Reply globalLock(Call &call)
{
    const Request &request = call.request();
    const Caller &caller = call.caller();
    GlobalLock wanted;
    wanted.type = lockType(request);
    wanted.name = request.text("lockedAuthorName", longestText);
    wanted.email = request.text("lockedAuthorEmail", longestText);
    const std::int64_t minutes
        = request.integer("autoUnlockTime", 0, std::numeric_limits<std::int32_t>::max());
    const bool bound = request.flag("logoutUnlock");
    const std::string email = canonicalEmail(wanted.email);
    if (email != caller.email && !isAdministrator(call))
        return Reply::refused(StatusCode::WrongIdentity);
    const auto holder = findUser(call.db(), email);
    if (!holder)
        return Reply::refused(StatusCode::NoSuchUser, { email });

    call.keepChanges(); // a lock that has expired is gone, whatever the answer
    endExpired(call.db(), call.now());
    GlobalLockStore locks(call.db());
    const auto held = locks.find(wanted.type);
    if (held && held->userId != holder->id) {
        return withHolder(
            Reply::refused(StatusCode::GlobalLockHeld, { held->name, minuteText(held->until) }),
            *held);
    }
    wanted.userId = holder->id;
    if (bound)
        wanted.sessionId = caller.sessionId;
    const bool whole = minutes == 0 || minutes > longestMinutes;
    wanted.until = call.now() + (whole ? longestMinutes : minutes) * minute;
    locks.put(wanted, call.now());
    return withHolder(Reply::ok(), wanted).set("expires", minuteText(wanted.until));
}

Reply globalUnlock(Call &call)
{
    const std::int64_t type = lockType(call.request());
    call.keepChanges();
    endExpired(call.db(), call.now());
    GlobalLockStore locks(call.db());
    const auto held = locks.find(type);
    if (!held)
        return Reply::refused(StatusCode::GlobalLockNotHeld);
    if (!mayChange(call, held->userId))
        return withHolder(Reply::refused(StatusCode::NotLockHolder, { held->name }), *held);
    locks.remove(type);
    if (held->userId != call.caller().userId)
        call.audit(static_cast<int>(StatusCode::Ok), std::to_string(type), held->email);
    return Reply::ok();
}

} // namespace

void endGlobalLocks(const Environment &environment, Db &db)
{
    endExpired(db, environment.clock.now());
}

const ServiceTable globalLockServices = {
    { "GlobalLock", globalLock, NeedsUser | Writes | RepeatsSentence },
    { "GlobalUnlock", globalUnlock, NeedsUser | Writes | InMaintenance | RepeatsSentence },
};

} // namespace kvx::server
