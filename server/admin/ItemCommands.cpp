#include "admin/ItemCommands.h"
#include "admin/AdminSession.h"
#include "admin/Listing.h"
#include "base/JsonText.h"
#include "services/Access.h"
#include "store/ItemStore.h"

#include <algorithm>
#include <map>

namespace kvx::server {

namespace {

int listItems(AdminSession &session, const CommandArguments &arguments)
{
    const Transaction snapshot(session.db(), Transaction::Kind::Read);
    const Project project = session.project(arguments.text("project"));
    std::optional<std::int64_t> user;
    if (arguments.has("--user"))
        user = session.user(arguments.text("--user")).id;
    Listing listing({ { "module", "Module" }, { "id", "Item" }, { "email", "User" },
        { "name", "Name" }, { "since", "Since" } });
    std::map<std::int64_t, User> users;
    for (const auto &item : ItemStore(session.db()).checkedOut(project.id)) {
        if ((user && item.userId != *user)
            || (arguments.has("--module") && item.module != arguments.number("--module")))
            continue;
        const auto [holder, isNew] = users.try_emplace(item.userId);
        if (isNew)
            holder->second = findUser(session.db(), item.userId).value();
        listing.add({ item.module, item.id, holder->second.email, holder->second.name,
            Cell::time(item.at) });
    }
    return session.done("items", listing);
}

int releaseItems(AdminSession &session, const CommandArguments &arguments)
{
    AdminChange change(session);
    const Project project = session.project(arguments.text("project"));
    const std::int64_t module = arguments.number("--module");
    std::vector<std::int64_t> ids = arguments.numbers("item");
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());

    ItemStore items(change.db());
    std::vector<std::int64_t> held;
    std::string list;
    for (const auto &item : items.of({ project.id, module }, ids)) {
        if (!item.checkedOut)
            continue;
        held.push_back(item.id);
        list += (list.empty() ? "" : ",") + std::to_string(item.id);
    }
    const std::string count = std::to_string(held.size()) + " of " + std::to_string(ids.size());
    if (!held.empty()) {
        items.checkIn({ project.id, module }, held, change.now());
        announceItems(change.call(), project.id, project.guid, "CheckIn", module);
        change.audit(project.guid, "module " + std::to_string(module) + ": " + list, project.id);
        change.commit();
    }
    return session.done(count + " items were checked out and are free now.",
        ",\"ProjectGUID\":" + jsonText(project.guid) + ",\"module\":" + std::to_string(module)
            + ",\"released\":[" + list + ']');
}

const CommandOption itemProject { "project", "GUID or name of the project" };

} // namespace

const AdminCommandTable itemCommands = {
    { "item", "list", "list the items of a project that are checked out",
        { itemProject, { "--module", "of this module only", CommandOption::Number },
            { "--user", "of this e-mail only" } },
        listItems },
    { "item", "release", "check in items, whoever holds them",
        { itemProject,
            { "--module", "the items' module", CommandOption::Number, CommandOption::Required },
            { "item", "their numbers", CommandOption::Numbers } },
        releaseItems },
};

} // namespace kvx::server
