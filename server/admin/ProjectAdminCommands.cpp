#include "admin/ProjectAdminCommands.h"
#include "admin/AdminSession.h"
#include "admin/Listing.h"
#include "admin/ProjectLevels.h"
#include "admin/ProjectViews.h"
#include "base/Config.h"
#include "base/JsonText.h"
#include "base/Text.h"
#include "services/Access.h"
#include "services/ProjectCommands.h"
#include "store/AccessStore.h"
#include "store/ItemStore.h"
#include "store/LockList.h"
#include "store/LogStore.h"
#include "store/PermissionStore.h"

#include <set>

namespace kvx::server {

namespace {

constexpr std::size_t longestProjectName = 200;

std::string guidMember(const Project &project)
{
    return ",\"ProjectGUID\":" + jsonText(project.guid) + ",\"name\":" + jsonText(project.name);
}

std::string quoted(const std::string &name)
{
    return '"' + name + '"';
}

/// The project as an administrator sees it who holds no lock himself.
ProjectAccess accessTo(AdminChange &change, const Project &project)
{
    RoleRights rights;
    rights.administrator = true;
    return findProject(change.db(), change.call().config(), change.now(), project.guid, 0, rights)
        .value();
}

int discardProject(AdminSession &session, const CommandArguments &arguments)
{
    AdminChange change(session);
    const Project project = session.project(arguments.text("project"));
    if (const auto refusal = refuseRemoval(change.call(), accessTo(change, project)))
        throw CommandRefused(
            refusal->sentence() + " Free it first: session end, or project unlock.");
    removeProject(change.call(), project.id, std::nullopt);
    change.audit(project.guid, project.name, project.id);
    change.commit();
    return session.done(quoted(project.name) + " is removed; project restore brings it back for "
            + std::to_string(session.config().trashDays) + " days.",
        guidMember(project));
}

Project keptInTrash(AdminSession &session, const CommandArguments &arguments)
{
    Project project = session.removedProject(arguments.text("project"));
    if (PermissionStore(session.db()).of(project.id).empty())
        throw CommandRefused(quoted(project.name) + " is purged: nothing of it is left");
    return project;
}

int restoreProject(AdminSession &session, const CommandArguments &arguments)
{
    AdminChange change(session);
    Project project = keptInTrash(session, arguments);
    if (arguments.has("--name")) {
        const auto name = displayName(arguments.text("--name"), longestProjectName);
        if (!name)
            throw CommandRefused("the name must have 1 to 200 characters");
        project.name = *name;
    }
    try {
        ProjectStore(change.db()).restore(project.id, project.name);
    } catch (const DbError &error) {
        if (!error.isUnique())
            throw;
        throw CommandRefused("there is a project " + quoted(project.name)
            + " by now; give another name with --name");
    }
    announceWholeRecord(change.call(), project.id, "New");
    change.audit(project.guid, project.name, project.id);
    change.commit();
    return session.done(quoted(project.name) + " is back.", guidMember(project));
}

int purgeProject(AdminSession &session, const CommandArguments &arguments)
{
    AdminChange change(session);
    const Project project = keptInTrash(session, arguments);
    ProjectStore(change.db()).purge(project.id);
    change.audit(project.guid, project.name, project.id);
    change.commit();
    return session.done(
        "The contents of " + quoted(project.name) + " are gone for ever.", guidMember(project));
}

int unlockProject(AdminSession &session, const CommandArguments &arguments)
{
    AdminChange change(session);
    const Project project = session.project(arguments.text("project"));
    std::string sentence;
    std::string freed;
    std::string detail;
    for (const ListedLock &lock : listLocks(change.db(), project.id)) {
        const std::string kind = lock.kind == ListedLock::Kind::Save ? "save" : "project";
        sentence += (sentence.empty() ? "" : "\n") + std::string("The ") + kind + " lock of "
            + lock.email + " on " + quoted(project.name) + " is free.";
        freed += (freed.empty() ? "" : ",") + std::string("{\"kind\":") + jsonText(kind)
            + ",\"email\":" + jsonText(lock.email) + '}';
        detail += (detail.empty() ? "" : ", ") + kind + " lock of " + lock.email;
    }
    const std::string members = guidMember(project) + ",\"freed\":[" + freed + ']';
    if (freed.empty())
        return session.done(quoted(project.name) + " is not locked.", members);
    LogStore(change.db()).revoke(project.id);
    ProjectStore(change.db()).freeProjectLock(project.id);
    change.audit(project.guid, detail, project.id);
    change.commit();
    return session.done(sentence, members);
}

int checkInProject(AdminSession &session, const CommandArguments &arguments)
{
    AdminChange change(session);
    const Project project = session.project(arguments.text("project"));
    std::optional<User> user;
    if (arguments.has("--user"))
        user = session.user(arguments.text("--user"));
    ItemStore items(change.db());
    std::set<std::int64_t> modules;
    std::size_t count = 0;
    for (const auto &item : items.checkedOut(project.id)) {
        if (user && item.userId != user->id)
            continue;
        modules.insert(item.module);
        ++count;
    }
    if (user)
        items.checkInAll(project.id, user->id, change.now());
    else if (count > 0)
        items.checkInProject(project.id, change.now());
    for (const std::int64_t module : modules)
        announceItems(change.call(), project.id, project.guid, "CheckIn", module);
    if (count > 0) {
        change.audit(project.guid,
            std::to_string(count) + " items" + (user ? " of " + user->email : ""), project.id);
        change.commit();
    }
    return session.done(
        std::to_string(count) + " items of " + quoted(project.name) + " were checked in.",
        guidMember(project) + ",\"items\":" + std::to_string(count));
}

const CommandOption projectWord { "project", "GUID or name of the project" };

} // namespace

const AdminCommandTable projectAdminCommands = {
    { "project", "list", "list the projects",
        { { "--removed", "those that were removed", CommandOption::Flag } }, listProjects },
    { "project", "show", "show all about a project", { projectWord }, showProject },
    { "project", "history", "list the versions of a project", { projectWord }, showHistory },
    { "project", "remove", "remove a project; it can be restored", { projectWord },
        discardProject },
    { "project", "restore", "bring a removed project back",
        { projectWord, { "--name", "under this name" } }, restoreProject },
    { "project", "purge", "forget the contents of a removed project", { projectWord },
        purgeProject },
    { "project", "permissions", "show or change who may do what in a project",
        { projectWord,
            { "--set",
                "EMAIL=PROJECT,MONEY,ADDENDUM,REPORT, each -1 (none) to 8; what is left out "
                "at the end is none",
                CommandOption::Texts },
            { "--remove", "e-mail of a user to leave out", CommandOption::Texts } },
        editPermissions },
    { "project", "unlock", "free the save lock and the project lock; a save under way is refused",
        { projectWord }, unlockProject },
    { "project", "checkin", "check in all items of a project",
        { projectWord, { "--user", "of this e-mail only" } }, checkInProject },
};

} // namespace kvx::server
