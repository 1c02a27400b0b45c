#include "admin/ReportCommands.h"
#include "admin/AdminSession.h"
#include "admin/Listing.h"
#include "base/Config.h"
#include "store/ProjectHistory.h"
#include "store/WorkingTimeStore.h"

#include <sys/statvfs.h>

namespace kvx::server {

namespace {

std::int64_t freeBytes(const Config &config)
{
    struct statvfs space { };
    if (statvfs(config.blobFolder().c_str(), &space) != 0)
        throw DbError(DbError::Kind::Other, config.blobFolder() + ": cannot be read");
    return static_cast<std::int64_t>(space.f_bavail) * static_cast<std::int64_t>(space.f_frsize);
}

void addProject(Listing &listing, Db &db, const char *what, std::int64_t id,
    const std::string &guid, const std::string &name)
{
    const ProjectSpace space = projectSpace(db, id);
    listing.add({ what, name, guid, space.logs, Cell::bytes(space.logBytes),
        Cell::bytes(space.fileBytes), space.attachments,
        Cell::bytes(space.attachmentBytes + space.stagedBytes), Cell::bytes(space.total()) });
}

int reportStorage(AdminSession &session, const CommandArguments &arguments)
{
    const Transaction snapshot(session.db(), Transaction::Kind::Read);
    Db &db = session.db();
    Listing listing({ { "what", "What" }, { "name", "Name" }, { "guid", "GUID" },
        { "logs", "Logs" }, { "logBytes", "In logs" }, { "fileBytes", "Project files" },
        { "files", "Files" }, { "otherBytes", "In files" }, { "bytes", "Total" } });
    ProjectStore(db).eachShown([&](const ProjectStore::Shown &shown) {
        addProject(
            listing, db, "project", shown.project.id, shown.project.guid, shown.project.name);
    });
    for (const auto &removed : ProjectStore(db).removed()) {
        if (!removed.purged)
            addProject(listing, db, "removed", removed.id, removed.guid, removed.name);
    }
    for (const UserSpace &user : userSpace(db)) {
        listing.add({ "user", user.email, "", 0, Cell::bytes(0), Cell::bytes(0), user.files,
            Cell::bytes(user.bytes), Cell::bytes(user.bytes) });
    }
    const StoreSpace stored = storeSpace(db);
    const std::int64_t free = freeBytes(session.config());
    if (arguments.has("--csv"))
        return session.done(listing.csv());
    if (session.json())
        return session.done({},
            ",\"rows\":" + listing.json() + ",\"stored\":" + std::to_string(stored.bytes)
                + ",\"contents\":" + std::to_string(stored.blobs)
                + ",\"free\":" + std::to_string(free));
    return session.done(listing.table() + "\n\n" + std::to_string(stored.blobs)
        + " contents, each stored once: " + sizeForPeople(stored.bytes)
        + ". Free: " + sizeForPeople(free) + '.');
}

int reportWorkingTime(AdminSession &session, const CommandArguments &arguments)
{
    if (arguments.day("--from") > arguments.day("--to"))
        throw CommandUsage("--from must not be later than --to");
    const Transaction snapshot(session.db(), Transaction::Kind::Read);
    Listing listing(
        { { "day", "Day" }, { "email", "User" }, { "name", "Name" }, { "minutes", "Minutes" } });
    for (const auto &row :
        WorkingTimeStore(session.db()).between(arguments.text("--from"), arguments.text("--to")))
        listing.add({ row.day, row.email, row.name, row.minutes });
    return arguments.has("--csv") ? session.done(listing.csv())
                                  : session.done("workingTime", listing);
}

} // namespace

const AdminCommandTable reportCommands = {
    { "report", "working-time", "minutes worked, by user and day",
        { { "--from", "first day, as in 2026-11-01", CommandOption::Text, CommandOption::Required },
            { "--to", "last day", CommandOption::Text, CommandOption::Required },
            { "--csv", "as CSV", CommandOption::Flag } },
        reportWorkingTime },
    { "report", "storage", "what takes up how much space",
        { { "--csv", "as CSV", CommandOption::Flag } }, reportStorage },
};

} // namespace kvx::server
