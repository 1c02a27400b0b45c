#include "services/ProjectRecord.h"
#include "base/JsonText.h"
#include "services/Call.h"
#include "store/Db.h"
#include "store/RoleStore.h"

#include <algorithm>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <set>

namespace kvx::server {

namespace {

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

void put(Writer &writer, const char *key, const std::string &text)
{
    writer.Key(key);
    writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

void put(Writer &writer, const char *key, std::int64_t number)
{
    writer.Key(key);
    writer.Int64(number);
}

void putFields(Writer &writer, const ProjectStore::Shown &shown)
{
    const Project &project = shown.project;
    put(writer, "ProjectGUID", project.guid);
    put(writer, "Description", project.name);
    put(writer, "Type", project.kind);
    put(writer, "CreatorName", shown.creatorName);
    put(writer, "CreatorEmail", shown.creatorEmail);
    put(writer, "CreateDate", minuteText(project.created));
    put(writer, "LastEditorName", shown.editorName);
    put(writer, "LastEditorEmail", shown.editorEmail);
    put(writer, "LastModifyDate", minuteText(project.modified));
    put(writer, "LogVersion", project.logVersion);
    put(writer, "Amount", project.amount);
    put(writer, "ProjectState", std::to_string(project.state));
    put(writer, "BidStatus", project.bidStatus);
    put(writer, "AddendumProjectGUID", project.addendumOf);
}

void putUser(
    Writer &writer, const std::string &name, const std::string &email, const Levels &levels)
{
    writer.StartObject();
    put(writer, "Name", name);
    put(writer, "Email", email);
    writer.Key("Permission");
    writer.StartArray();
    const std::pair<const char *, int> entries[] = { { "ProjectRW", levels.projectRw },
        { "Money", levels.money }, { "Addendum", levels.addendum }, { "Report", levels.report } };
    for (const auto &[key, level] : entries) {
        writer.StartObject();
        put(writer, key, std::int64_t { level });
        writer.EndObject();
    }
    writer.EndArray();
    writer.EndObject();
}

std::string userJson(const std::string &name, const std::string &email, const Levels &levels)
{
    rapidjson::StringBuffer buffer;
    Writer writer(buffer);
    putUser(writer, name, email, levels);
    return { buffer.GetString(), buffer.GetSize() };
}

/// The users array goes on growing: every entry brings its comma.
class UserList {
public:
    UserList(std::string &json, bool hasUsers)
        : m_json(json)
        , m_hasUsers(hasUsers)
    {
    }
    void add(const std::string &user)
    {
        if (m_hasUsers)
            m_json += ',';
        m_json += user;
        m_hasUsers = true;
    }

private:
    std::string &m_json;
    bool m_hasUsers;
};

Levels byRole(int level)
{
    return { level, 9, 9, 9 };
}

} // namespace

RecordCache::Record RecordCache::find(std::int64_t projectId, std::int64_t revision) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_records.find(projectId);
    return found != m_records.end() && found->second->revision == revision ? found->second
                                                                           : nullptr;
}

void RecordCache::keep(std::int64_t projectId, Record record)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    Record &kept = m_records[projectId];
    if (!kept || kept->revision < record->revision)
        kept = std::move(record);
}

RenderedRecord renderRecord(
    const ProjectStore::Shown &shown, const std::vector<StoredLevels> &users)
{
    RenderedRecord record;
    record.revision = shown.project.revision;
    rapidjson::StringBuffer buffer;
    Writer writer(buffer);
    writer.StartObject();
    putFields(writer, shown);
    put(writer, "AdditionalInfo", shown.info);
    record.head.assign(buffer.GetString(), buffer.GetSize());
    record.head += ",\"users\":[";

    UserList list(record.head, false);
    for (const StoredLevels &user : users) {
        std::string json = userJson(user.name, user.email, user.levels);
        if (user.levels.projectRw < 0) {
            record.hidden.emplace_back(user.userId, std::move(json));
        } else {
            list.add(json);
            record.listed.push_back(user.userId);
        }
    }
    return record;
}

void appendRecord(
    std::string &json, const RenderedRecord &record, const std::string &kind, const Caller &caller)
{
    json += record.head;
    UserList list(json, !record.listed.empty());
    const int level = levelByRole(caller.rights, kind);
    for (const auto &[userId, entry] : record.hidden) {
        if (level < 0 || userId != caller.userId)
            list.add(entry);
    }
    // Who stands there with a stored level keeps that entry; the rights are the higher of the two.
    const auto &listed = record.listed;
    if (level >= 0 && std::find(listed.begin(), listed.end(), caller.userId) == listed.end())
        list.add(userJson(caller.name, caller.email, byRole(level)));
    json += "]}";
}

std::optional<std::string> announcedRecord(
    Db &db, Time now, std::int64_t projectId, const std::string &command)
{
    ProjectStore projects(db);
    const auto project = projects.find(projectId);
    const auto shown = projects.shown(projectId);
    if (!shown || project->isRemoved())
        return std::nullopt;
    PermissionStore permissions(db);
    const std::vector<StoredLevels> stored = permissions.of(projectId);

    std::unordered_map<std::int64_t, int> levels;
    for (const Role &role : loadRoles(db))
        levels[role.id] = levelByRole(role.rights, shown->project.kind);
    std::vector<PermissionStore::WithRole> seers = permissions.usersWithRole();
    const auto blind = [&levels](const auto &user) { return levels[user.roleId] < 0; };
    seers.erase(std::remove_if(seers.begin(), seers.end(), blind), seers.end());
    if (seers.size() > 4000) {
        const Time yesterday = now - 24 * 3'600'000;
        const auto away = [&](const auto &user) { return user.lastLogin.value_or(0) < yesterday; };
        seers.erase(std::remove_if(seers.begin(), seers.end(), away), seers.end());
    }

    const RenderedRecord record = renderRecord(*shown, stored);
    std::set<std::int64_t> listed(record.listed.begin(), record.listed.end());
    std::string json = record.head;
    if (!command.empty())
        json = "{\"Command\":" + jsonText(command) + ',' + json.substr(1);
    UserList list(json, !record.listed.empty());
    for (const auto &user : seers) {
        if (listed.insert(user.userId).second)
            list.add(userJson(user.name, user.email, byRole(levels[user.roleId])));
    }
    for (const auto &[userId, entry] : record.hidden) {
        if (listed.insert(userId).second)
            list.add(entry);
    }
    return json + "]}";
}

std::string shortRecord(Db &db, std::int64_t projectId, const std::string &command)
{
    const auto shown = ProjectStore(db).shown(projectId);
    if (!shown)
        throw DbError(DbError::Kind::Other, "a record was asked for that does not exist");
    rapidjson::StringBuffer buffer;
    Writer writer(buffer);
    writer.StartObject();
    put(writer, "Command", command);
    putFields(writer, *shown);
    writer.EndObject();
    return { buffer.GetString(), buffer.GetSize() };
}

} // namespace kvx::server
