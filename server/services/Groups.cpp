#include "services/Groups.h"
#include "base/Text.h"
#include "services/Access.h"
#include "services/ProjectFields.h"
#include "store/Db.h"
#include "store/GroupStore.h"
#include "store/ProjectStore.h"

#include <rapidjson/document.h>

namespace kvx::server {

namespace {

constexpr std::size_t mostRenamed = 1000;

/// The group that the additional information names, when it is the wanted one.
Json *groupIn(rapidjson::Document &info, const std::string &groupKey)
{
    if (!info.IsObject())
        return nullptr;
    const auto member = info.FindMember("Group");
    if (member == info.MemberEnd() || !member->value.IsString())
        return nullptr;
    const std::string_view name(member->value.GetString(), member->value.GetStringLength());
    return foldedKey(name) == groupKey ? &member->value : nullptr;
}

/// The living projects of the group.
std::vector<std::int64_t> membersOf(Db &db, const std::string &group)
{
    const std::string key = foldedKey(group);
    std::vector<std::int64_t> members;
    GroupStore(db).eachCandidate("\"Group\"", [&](std::int64_t id, const std::string &text) {
        rapidjson::Document info;
        info.Parse(text.data(), text.size());
        if (groupIn(info, key))
            members.push_back(id);
    });
    return members;
}

/// The project's additional information, naming the group by that name from now on.
std::string renamedIn(const std::string &text, const std::string &oldKey, const std::string &name)
{
    rapidjson::Document info;
    info.Parse(text.data(), text.size());
    groupIn(info, oldKey)
        ->SetString(
            name.data(), static_cast<rapidjson::SizeType>(name.size()), info.GetAllocator());
    return compactJson(info);
}

Reply newGroup(Call &call)
{
    const std::string name = nameOf(call.request(), "Name", 100);
    const std::string kind = call.request().text("Type", 100);
    GroupStore groups(call.db());
    if (const auto existing = groups.find(name)) {
        const bool repeat = existing->kind == kind && existing->creatorId == call.caller().userId;
        return repeat ? Reply::ok() : Reply::refused(StatusCode::NameTaken, { name });
    }
    groups.insert(name, kind, call.caller().userId);
    return Reply::ok();
}

Reply removeGroup(Call &call)
{
    const std::string name = call.request().text("Name");
    GroupStore groups(call.db());
    const auto group = groups.find(name);
    if (!group)
        return Reply::refused(StatusCode::NoSuchGroup, { name });
    if (!mayChange(call, group->creatorId))
        return Reply::refused(StatusCode::NotAllowed);
    if (const std::size_t members = projectsInGroup(call.db(), name))
        return Reply::refused(StatusCode::GroupNotEmpty, { std::to_string(members) });
    groups.remove(group->id);
    return Reply::ok();
}

Reply renameGroup(Call &call)
{
    const std::string oldName = call.request().text("OldName");
    const std::string newName = nameOf(call.request(), "NewName", 100);
    GroupStore groups(call.db());
    const auto group = groups.find(oldName);
    const auto other = groups.find(newName);
    if (!group) {
        const bool done = other && mayChange(call, other->creatorId);
        return done ? Reply::ok() : Reply::refused(StatusCode::NoSuchGroup, { oldName });
    }
    if (!mayChange(call, group->creatorId))
        return Reply::refused(StatusCode::NotAllowed);
    if (other && other->id != group->id)
        return Reply::refused(StatusCode::NameTaken, { newName });
    if (group->name == newName)
        return Reply::ok();
    const std::vector<std::int64_t> members = membersOf(call.db(), oldName);
    if (members.size() > mostRenamed)
        return Reply::refused(StatusCode::TooLarge, { "a group of 1,000 projects" });

    groups.rename(group->id, newName);
    ProjectStore projects(call.db());
    const std::string oldKey = foldedKey(oldName);
    for (const std::int64_t id : members) {
        const std::string text = renamedIn(projects.info(id), oldKey, newName);
        projects.setInfo(id, text);
        announceInfo(call, id, projects.find(id)->guid, text);
    }
    return Reply::ok();
}

Reply existsGroup(Call &call)
{
    const bool taken = GroupStore(call.db()).find(call.request().text("Name")).has_value();
    return taken ? Reply::ok() : Reply::refused(StatusCode::NameFree);
}

} // namespace

std::size_t projectsInGroup(Db &db, const std::string &group)
{
    return membersOf(db, group).size();
}

const ServiceTable groupServices = {
    { "newprojectgroup", newGroup, CreatesKind | Writes },
    { "removeprojectgroup", removeGroup, NeedsUser | Writes },
    { "renameprojectgroup", renameGroup, NeedsUser | Writes },
    { "existsprojectgroup", existsGroup, NeedsUser | NameQuestion },
};

} // namespace kvx::server
