#include "services/Templates.h"
#include "base/Config.h"
#include "base/Text.h"
#include "services/Access.h"
#include "services/StoredBytes.h"
#include "services/TemplateDocument.h"
#include "store/BlobStore.h"
#include "store/Db.h"
#include "store/TemplateStore.h"

#include <limits>
#include <set>

namespace kvx::server {

namespace {

constexpr std::size_t longestName = 200; // characters
constexpr std::size_t longestText = 1000; // bytes, of what is only displayed

std::string nameIn(const Request &request)
{
    const auto name = displayName(request.text("name"), longestName);
    if (!name)
        throw BadRequest("\"name\" must have 1 to 200 characters, none of them a control "
                         "character");
    return *name;
}

std::string infoJson(const Template &of)
{
    std::string json = "{\"templateID\":" + jsonText(of.id);
    const auto add = [&json](const char *key, const std::string &value) {
        json += std::string(",\"") + key + "\":" + value;
    };
    add("type", std::to_string(of.type));
    add("name", jsonText(of.name));
    add("author", jsonText(of.author));
    add("authorEmail", jsonText(of.authorEmail));
    add("projectVersion", jsonText(of.projectVersion));
    add("md5", jsonText(of.md5));
    add("createDate", jsonText(secondText(of.created)));
    add("lastModifyDate", jsonText(secondText(of.modified)));
    return json + '}';
}

void announceTemplates(Call &call, const std::string &changed, const std::string &removed = {})
{
    Announcement announcement;
    announcement.type = "notifymsg_reportTemplate";
    announcement.command = "Update";
    announcement.topic = "templates";
    announcement.content = "{\"Command\":\"Update\",\"reportTemplateArray\":[" + changed + ']';
    if (!removed.empty())
        announcement.content += ",\"removedTemplateIDs\":[" + removed + ']';
    announcement.content += '}';
    call.announce(announcement);
}

/// What stands against an upload under that name.
std::optional<Reply> refuseUpload(Call &call, const std::optional<Template> &existing)
{
    if (existing && existing->ownerId != call.caller().userId)
        return Reply::refused(StatusCode::TemplateNameTaken, { existing->author });
    return std::nullopt;
}

Reply keepTemplate(Call &call, const ReceivedFile &bytes)
{
    const Request &request = call.request();
    TemplateStore templates(call.db());
    Template wanted;
    wanted.name = nameIn(request);
    const auto existing = templates.findByName(wanted.name);
    if (const auto refusal = refuseUpload(call, existing))
        return *refusal;
    wanted.type = request.integer(
        "type", std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max());
    wanted.author = request.text("author", longestText);
    wanted.authorEmail = request.text("authorEmail", longestText);
    wanted.projectVersion = request.text("projectVersion", longestText);
    wanted.ownerId = call.caller().userId;
    wanted.blob = bytes.sha256;
    wanted.md5 = bytes.md5;
    wanted.modified = wallTime();
    BlobStore(call.config().data)
        .record(call.db(), bytes.path, bytes.sha256, bytes.size, call.now());
    if (existing) {
        wanted.id = existing->id;
        wanted.version = existing->version + 1;
        wanted.created = existing->created;
        templates.addVersion(wanted);
    } else {
        wanted.id = newUuid();
        wanted.created = wanted.modified;
        templates.add(wanted);
    }
    call.audit(static_cast<int>(StatusCode::Ok), wanted.id, wanted.name);
    announceTemplates(call, infoJson(wanted));
    return Reply::ok()
        .set("templateID", wanted.id)
        .set("md5", wanted.md5)
        .set("createDate", secondText(wanted.created))
        .set("lastModifyDate", secondText(wanted.modified));
}

Reply uploadTemplate(Call &call)
{
    const std::string name = nameIn(call.request());
    if (const auto refusal = refuseUpload(call, TemplateStore(call.db()).findByName(name)))
        return *refusal;
    return Reply::after([&config = call.config(), text = call.request().text("template")] {
        const auto document = templateDocument(text);
        if (!document) {
            return Reply::Continuation(
                [](Call &) { return Reply::refused(StatusCode::BadTemplate); });
        }
        return storeThen(config, *document, keepTemplate);
    });
}

Reply downloadTemplate(Call &call)
{
    const auto found = TemplateStore(call.db()).find(call.request().text("templateID"));
    if (!found)
        return Reply::refused(StatusCode::NoSuchTemplate);
    return Reply::ok().set("template", base64(loadBytes(call.config(), found->blob)));
}

Reply queryTemplates(Call &call)
{
    std::string infos;
    for (const Template &one : TemplateStore(call.db()).all())
        infos += (infos.empty() ? "" : ",") + infoJson(one);
    return Reply::ok().setJson("reportTemplateArray", '[' + infos + ']');
}

Reply deleteTemplates(Call &call)
{
    TemplateStore templates(call.db());
    std::vector<Template> removed;
    std::set<std::string> seen;
    for (const std::string &id : call.request().texts("templateIDArray")) {
        const auto found = templates.find(id);
        if (!found && !templates.wasDeleted(id))
            return Reply::refused(StatusCode::NoSuchTemplate);
        if (found && !mayChange(call, found->ownerId))
            return Reply::refused(StatusCode::NotAllowed);
        if (found && seen.insert(id).second)
            removed.push_back(*found);
    }
    for (const Template &one : removed)
        call.audit(static_cast<int>(StatusCode::Ok), one.id, one.name);
    removeTemplates(call, removed);
    return Reply::ok();
}

Reply renameTemplate(Call &call)
{
    const std::string name = nameIn(call.request());
    TemplateStore templates(call.db());
    auto found = templates.find(call.request().text("templateID"));
    if (!found)
        return Reply::refused(StatusCode::NoSuchTemplate);
    if (!mayChange(call, found->ownerId))
        return Reply::refused(StatusCode::NotAllowed);
    const auto other = templates.findByName(name);
    if (other && other->id != found->id)
        return Reply::refused(StatusCode::TemplateNameTaken, { other->author });
    if (found->name == name)
        return Reply::ok();
    found->modified = wallTime();
    templates.rename(found->id, name, found->modified);
    call.audit(static_cast<int>(StatusCode::Ok), found->id, name);
    found->name = name;
    announceTemplates(call, infoJson(*found));
    return Reply::ok();
}

Reply existing(const std::optional<Template> &found)
{
    return found ? Reply::ok().setJson("reportTemplateInfo", infoJson(*found))
                 : Reply::refused(StatusCode::NoSuchTemplate);
}

Reply existsByName(Call &call)
{
    return existing(TemplateStore(call.db()).findByName(call.request().text("name")));
}

Reply existsById(Call &call)
{
    return existing(TemplateStore(call.db()).find(call.request().text("templateID")));
}

} // namespace

void removeTemplates(Call &call, const std::vector<Template> &removed)
{
    std::string ids;
    for (const Template &one : removed) {
        TemplateStore(call.db()).remove(one.id, wallTime());
        ids += (ids.empty() ? "" : ",") + jsonText(one.id);
    }
    if (!removed.empty())
        announceTemplates(call, {}, ids);
}

const ServiceTable templateServices = {
    { "reportTemplateUpload", uploadTemplate,
        UploadsTemplates | Writes | HugeBody | RepeatsSentence },
    { "reportTemplateDownload", downloadTemplate, NeedsUser | RepeatsSentence },
    { "reportTemplateQuery", queryTemplates, NeedsUser | RepeatsSentence },
    { "reportTemplateDelete", deleteTemplates, NeedsUser | Writes | RepeatsSentence },
    { "reportTemplateRename", renameTemplate, NeedsUser | Writes | RepeatsSentence },
    { "reportTemplateExist", existsByName, NeedsUser | RepeatsSentence },
    { "reportTemplateExistByID", existsById, NeedsUser | RepeatsSentence },
};

} // namespace kvx::server
