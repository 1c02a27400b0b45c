#include "admin/ProjectViews.h"
#include "admin/AdminSession.h"
#include "admin/Listing.h"
#include "base/JsonText.h"
#include "store/ItemStore.h"
#include "store/LockList.h"
#include "store/OpenStore.h"
#include "store/PermissionStore.h"
#include "store/ProjectHistory.h"

namespace kvx::server {

namespace {

int listRemoved(AdminSession &session)
{
    Listing listing({ { "guid", "GUID" }, { "name", "Name" }, { "kind", "Kind" },
        { "removed", "Removed" }, { "removedBy", "By" }, { "purged", "State" } });
    for (const auto &project : ProjectStore(session.db()).removed()) {
        listing.add({ project.guid, project.name, project.kind, Cell::time(project.at),
            project.byEmail, Cell::flag(project.purged, "purged", "kept") });
    }
    return session.done("projects", listing);
}

Listing editorsOf(Db &db, std::int64_t projectId)
{
    Listing listing({ { "email", "Open at" }, { "name", "Name" }, { "since", "Since" } });
    for (const auto &editor : OpenStore(db).opened(projectId))
        listing.add({ editor.email, editor.name, Cell::time(editor.since) });
    return listing;
}

Listing locksOf(Db &db, std::int64_t projectId)
{
    Listing listing({ { "kind", "Lock" }, { "email", "Holder" }, { "device", "Device" },
        { "since", "Since" }, { "until", "Until" } });
    for (const ListedLock &lock : listLocks(db, projectId)) {
        listing.add({ lock.kind == ListedLock::Kind::Save ? "save" : "project", lock.email,
            lock.device, Cell::time(lock.since), Cell::time(lock.until) });
    }
    return listing;
}

/// The values of one project, a line each for people.
Listing factsOf(AdminSession &session, const Project &project)
{
    Db &db = session.db();
    const auto shown = ProjectStore(db).shown(project.id).value();
    const ProjectSpace space = projectSpace(db, project.id);
    const auto items = static_cast<std::int64_t>(ItemStore(db).checkedOut(project.id).size());
    Listing facts({ { "guid", "GUID" }, { "name", "Name" }, { "kind", "Kind" },
        { "creator", "Creator" }, { "created", "Created" }, { "editor", "Last editor" },
        { "modified", "Modified" }, { "version", "Version" }, { "amount", "Amount" },
        { "state", "State" }, { "bidStatus", "Bid status" }, { "addendumOf", "Addendum of" },
        { "info", "Additional information" }, { "checkedOut", "Checked-out items" },
        { "logBytes", "In change logs" }, { "fileBytes", "In project files" },
        { "attachmentBytes", "In attachments" }, { "removed", "Removed" } });
    facts.add({ project.guid, project.name, project.kind, shown.creatorEmail,
        Cell::time(project.created), shown.editorEmail, Cell::time(project.modified),
        project.logVersion, project.amount, project.state, project.bidStatus, project.addendumOf,
        shown.info, items, Cell::bytes(space.logBytes), Cell::bytes(space.fileBytes),
        Cell::bytes(space.attachmentBytes), Cell::time(project.removedAt) });
    return facts;
}

} // namespace

Listing permissionsOf(Db &db, std::int64_t projectId)
{
    Listing listing({ { "email", "User" }, { "name", "Name" }, { "ProjectRW", "Project" },
        { "Money", "Money" }, { "Addendum", "Addendum" }, { "Report", "Report" } });
    for (const StoredLevels &row : PermissionStore(db).of(projectId)) {
        listing.add({ row.email, row.name, row.levels.projectRw, row.levels.money,
            row.levels.addendum, row.levels.report });
    }
    return listing;
}

int listProjects(AdminSession &session, const CommandArguments &arguments)
{
    const Transaction snapshot(session.db(), Transaction::Kind::Read);
    if (arguments.has("--removed"))
        return listRemoved(session);
    Listing listing(
        { { "guid", "GUID" }, { "name", "Name" }, { "kind", "Kind" }, { "creator", "Creator" },
            { "version", "Version" }, { "editor", "Last editor" }, { "modified", "Modified" } });
    ProjectStore(session.db()).eachShown([&listing](const ProjectStore::Shown &shown) {
        const Project &project = shown.project;
        listing.add({ project.guid, project.name, project.kind, shown.creatorEmail,
            project.logVersion, shown.editorEmail, Cell::time(project.modified) });
    });
    return session.done("projects", listing);
}

int showProject(AdminSession &session, const CommandArguments &arguments)
{
    const Transaction snapshot(session.db(), Transaction::Kind::Read);
    const Project project = session.anyProject(arguments.text("project"));
    const Listing facts = factsOf(session, project);
    const Listing users = permissionsOf(session.db(), project.id);
    const Listing editors = editorsOf(session.db(), project.id);
    const Listing locks = locksOf(session.db(), project.id);
    if (session.json()) {
        return session.done({},
            ",\"project\":" + facts.jsonOf(0) + ",\"users\":" + users.json()
                + ",\"open\":" + editors.json() + ",\"locks\":" + locks.json());
    }
    std::string text = facts.lines(0);
    for (const Listing *listing : { &users, &editors, &locks }) {
        if (!listing->isEmpty())
            text += "\n\n" + listing->table();
    }
    return session.done(text);
}

int showHistory(AdminSession &session, const CommandArguments &arguments)
{
    const Transaction snapshot(session.db(), Transaction::Kind::Read);
    const Project project = session.anyProject(arguments.text("project"));
    Listing listing({ { "version", "Version" }, { "at", "Saved" }, { "email", "By" },
        { "device", "Device" }, { "size", "Size" }, { "amount", "Amount" },
        { "sha256", "SHA-256 of the change log" }, { "chain", "Chain" } });
    for (const PublishedVersion &version : projectHistory(session.db(), project.id)) {
        listing.add({ version.version, Cell::time(version.at), version.email, version.device,
            Cell::bytes(version.size), version.amount, version.digest, version.chain });
    }
    return session.done("history", listing);
}

} // namespace kvx::server
