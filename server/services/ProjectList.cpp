#include "services/ProjectList.h"
#include "base/Config.h"
#include "base/Text.h"
#include "services/ServiceMemory.h"
#include "store/Db.h"
#include "store/GroupStore.h"
#include "store/PermissionStore.h"
#include "store/ProjectStore.h"

#include <algorithm>
#include <unordered_map>

namespace kvx::server {

namespace {

constexpr std::size_t renderSingly = 64;

/// The projects the caller may read.
std::vector<ProjectStore::Listed> visibleProjects(Call &call)
{
    std::unordered_map<std::int64_t, int> stored;
    for (const auto &row : PermissionStore(call.db()).ofUser(call.caller().userId))
        stored[row.projectId] = row.levels.projectRw;
    const RoleRights &rights = call.caller().rights;
    std::vector<ProjectStore::Listed> projects = ProjectStore(call.db()).listed();
    const auto hidden = [&](const ProjectStore::Listed &project) {
        const auto row = stored.find(project.id);
        return levelByRole(rights, project.kind) < 0 && (row == stored.end() || row->second < 0);
    };
    projects.erase(std::remove_if(projects.begin(), projects.end(), hidden), projects.end());
    return projects;
}

RecordCache::Record recordOf(Call &call, std::int64_t id)
{
    const auto shown = ProjectStore(call.db()).shown(id);
    auto record = std::make_shared<const RenderedRecord>(
        renderRecord(*shown, PermissionStore(call.db()).of(id)));
    call.memory().records.keep(id, record);
    return record;
}

/// Renders every project in two statements: after a start all of them are missing.
void fillCache(Call &call)
{
    const auto permissions = PermissionStore(call.db()).all();
    std::vector<StoredLevels> users;
    ProjectStore(call.db()).eachShown([&](const ProjectStore::Shown &shown) {
        const std::int64_t id = shown.project.id;
        users.clear();
        auto row = std::lower_bound(permissions.begin(), permissions.end(), id,
            [](const auto &candidate, std::int64_t wanted) {
                return candidate.projectId < wanted;
            });
        for (; row != permissions.end() && row->projectId == id; ++row)
            users.push_back(row->stored);
        call.memory().records.keep(
            id, std::make_shared<const RenderedRecord>(renderRecord(shown, users)));
    });
}

Reply projectList(Call &call)
{
    const auto projects = visibleProjects(call);
    RecordCache &records = call.memory().records;
    const auto missing = std::count_if(projects.begin(), projects.end(),
        [&records](const auto &project) { return !records.find(project.id, project.revision); });
    if (static_cast<std::size_t>(missing) > renderSingly)
        fillCache(call);

    std::string json = "{\"Projects\":[";
    json.reserve(projects.size() * 700 + 100);
    for (const auto &project : projects) {
        auto record = records.find(project.id, project.revision);
        if (!record)
            record = recordOf(call, project.id);
        if (json.back() != '[')
            json += ',';
        appendRecord(json, *record, project.kind, call.caller());
    }
    json += "],\"ProjectGroups\":[";
    for (const ProjectGroup &group : GroupStore(call.db()).all()) {
        if (json.back() != '[')
            json += ',';
        json += "{\"Name\":" + jsonText(group.name) + ",\"Type\":" + jsonText(group.kind) + '}';
    }
    json += "]}";
    return Reply::ok().setJson("data", json);
}

Reply getProject(Call &call)
{
    const ProjectAccess &project = call.project();
    auto record = call.memory().records.find(project.id, project.revision);
    if (!record)
        record = recordOf(call, project.id);
    std::string json;
    appendRecord(json, *record, project.kind, call.caller());
    return Reply::ok().setJson("Project", json);
}

Reply genProjectName(Call &call)
{
    ProjectStore projects(call.db());
    for (;;) {
        std::string name = call.config().projectNamePattern;
        const std::string number = std::to_string(projects.nextNameNumber());
        const auto place = name.find("%n");
        if (place == std::string::npos)
            name += ' ' + number;
        else
            name.replace(place, 2, number);
        if (!projects.isNameTaken(name))
            return Reply::ok().set("Name", name);
    }
}

Reply existsProject(Call &call)
{
    const bool taken = ProjectStore(call.db()).isNameTaken(call.request().text("Name"));
    return taken ? Reply::ok() : Reply::refused(StatusCode::NameFree);
}

} // namespace

const ServiceTable projectListServices = {
    { "projectlistsynctolocal", projectList, NeedsUser | NamesCaller },
    { "getproject", getProject, ProjectReader },
    { "genprojectname", genProjectName, NeedsUser | Writes | NameQuestion },
    { "existsproject", existsProject, NeedsUser | NameQuestion },
};

} // namespace kvx::server
