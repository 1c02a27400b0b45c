#include "admin/LockCommands.h"
#include "admin/AdminSession.h"
#include "admin/Listing.h"
#include "base/JsonText.h"
#include "store/GlobalLockStore.h"
#include "store/LockList.h"

namespace kvx::server {

namespace {

int listAllLocks(AdminSession &session, const CommandArguments &)
{
    const Transaction snapshot(session.db(), Transaction::Kind::Read);
    Listing listing({ { "kind", "Kind" }, { "guid", "Project" }, { "name", "Name" },
        { "type", "Type" }, { "email", "Holder" }, { "device", "Device" }, { "session", "Session" },
        { "since", "Since" }, { "until", "Until" } });
    for (const ListedLock &lock : listLocks(session.db())) {
        listing.add({ lock.kind == ListedLock::Kind::Save ? "save" : "project", lock.projectGuid,
            lock.projectName, "", lock.email, lock.device, lock.sessionId, Cell::time(lock.since),
            Cell::time(lock.until) });
    }
    for (const GlobalLock &lock : GlobalLockStore(session.db()).all()) {
        if (lock.until > session.now())
            listing.add({ "global", "", "", lock.type, lock.email, "",
                lock.sessionId ? Cell(*lock.sessionId) : Cell(""), "", Cell::time(lock.until) });
    }
    return session.done("locks", listing);
}

int freeLock(AdminSession &session, const CommandArguments &arguments)
{
    const std::int64_t type = arguments.number("type");
    AdminChange change(session);
    GlobalLockStore locks(change.db());
    const auto held = locks.find(type);
    if (!held || held->until <= change.now())
        throw CommandRefused("there is no global lock of type " + std::to_string(type)
            + "; the locks of a project are freed with project unlock");
    locks.remove(type);
    change.audit("global lock " + std::to_string(type), held->email);
    change.commit();
    return session.done(
        "The global lock of type " + std::to_string(type) + " of " + held->email + " is free.",
        ",\"type\":" + std::to_string(type) + ",\"email\":" + jsonText(held->email));
}

} // namespace

const AdminCommandTable lockCommands = {
    { "lock", "list", "list the locks of saves, projects and the whole server", {}, listAllLocks },
    { "lock", "free", "free a global lock",
        { { "type", "its type, a number", CommandOption::Number } }, freeLock },
};

} // namespace kvx::server
