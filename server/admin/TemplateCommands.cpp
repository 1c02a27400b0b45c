#include "admin/TemplateCommands.h"
#include "admin/AdminSession.h"
#include "admin/Listing.h"
#include "base/JsonText.h"
#include "services/Templates.h"
#include "store/TemplateStore.h"

namespace kvx::server {

namespace {

int listTemplates(AdminSession &session, const CommandArguments &)
{
    const Transaction snapshot(session.db(), Transaction::Kind::Read);
    Listing listing({ { "templateID", "ID" }, { "name", "Name" }, { "type", "Type" },
        { "owner", "Owner" }, { "version", "Version" }, { "modified", "Modified" } });
    for (const Template &one : TemplateStore(session.db()).all()) {
        const auto owner = findUser(session.db(), one.ownerId);
        listing.add({ one.id, one.name, one.type, owner ? owner->email : "", one.version,
            Cell::time(one.modified) });
    }
    return session.done("templates", listing);
}

int removeTemplate(AdminSession &session, const CommandArguments &arguments)
{
    const std::string wanted = arguments.text("template");
    AdminChange change(session);
    TemplateStore templates(change.db());
    auto found = templates.find(wanted);
    if (!found)
        found = templates.findByName(wanted);
    if (!found)
        throw CommandRefused("there is no template \"" + wanted + '"');
    removeTemplates(change.call(), { *found });
    change.audit(found->id, found->name);
    change.commit();
    return session.done("The template \"" + found->name + "\" is removed.",
        ",\"templateID\":" + jsonText(found->id) + ",\"name\":" + jsonText(found->name));
}

} // namespace

const AdminCommandTable templateCommands = {
    { "template", "list", "list the shared report templates", {}, listTemplates },
    { "template", "remove", "remove a template for everybody", { { "template", "its ID or name" } },
        removeTemplate },
};

} // namespace kvx::server
