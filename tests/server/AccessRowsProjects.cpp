#include "AccessRows.h"
#include "AccessWorld.h"

namespace kvx::test {

namespace {

Message creation(const char *service, const World &world, Caller caller, const char *kind)
{
    return Message(service)
        .set("Type", kind)
        .set("Name", "A new one")
        .set("ProjectGUID", guidOf(50))
        .set("CreatorName", "x")
        .set("CreatorEmail", world.email(caller))
        .set("Amount", "")
        .set("ProjectState", 0);
}

} // namespace

void addProjects(Rows &rows)
{
    const auto add = [&rows](const char *service, Make make, Judge judge, const char *variant = "",
                         const char *identity = "Email") {
        rows.push_back({ service, variant, identity, std::move(make), std::move(judge), {}, "" });
    };
    add("projectlistsynctolocal", just("projectlistsynctolocal"), always(unchanged));
    add("getproject", onProject("getproject"), needs(Level::Read, unchanged), "", "");
    add("genprojectname", just("genprojectname"), always(), "", "");
    add(
        "existsproject",
        [](const World &world, Caller, Object object) {
            return Message("existsproject").set("Name", world.projectName(object));
        },
        thereOrNot(316), "", "");
    add(
        "newproject",
        [](const World &world, Caller caller, Object object) {
            return creation("newproject", world, caller, kindFor(object));
        },
        mayCreate);
    add(
        "newproject",
        [](const World &world, Caller, Object) {
            // The creator's e-mail of a caller who is nobody's.
            Message message("newproject");
            return message.set("Type", "Tender")
                .set("Name", "A new one")
                .set("ProjectGUID", world.project(Object::Missing))
                .set("CreatorName", "x")
                .set("CreatorEmail", "stranger@example.com")
                .set("Amount", "")
                .set("ProjectState", 0);
        },
        always({ 301 }), "with another as its creator");
    add(
        "addendumproject",
        [](const World &world, Caller caller, Object object) {
            return creation("addendumproject", world, caller, "Addendum")
                .set("BidStatus", 0)
                .set("AddendumProjectGUID", world.project(object));
        },
        [](const Person &who, Object object) {
            if (who.mayCreate("Addendum") && who.level(object) == Level::None)
                return Outcome { 310 };
            return Outcome { who.mayAmend(object) ? 1 : 300 };
        });
    add("removeproject", onProject("removeproject"), needs(Level::Owner));
    add(
        "updateproject",
        [](const World &world, Caller, Object object) {
            return about("updateproject", world, object).set("Amount", "7");
        },
        needs(Level::Write));
    add(
        "renameproject",
        [](const World &world, Caller, Object object) {
            return about("renameproject", world, object)
                .set("OldName", world.projectName(object))
                .set("NewName", "Another name");
        },
        needs(Level::Write));
    add(
        "updateprojectadditionalinfo",
        [](const World &world, Caller, Object object) {
            return about("updateprojectadditionalinfo", world, object)
                .raw("AdditionalInfo", R"({"client":"City"})");
        },
        needs(Level::Write));
    add(
        "projectpermission",
        [](const World &world, Caller, Object object) {
            return about("projectpermission", world, object).raw("userperms", "[]");
        },
        needs(Level::Owner));
    add(
        "projectpermission",
        [](const World &world, Caller, Object object) {
            const char *creator
                = object == Object::Own ? "creator@example.com" : "stranger@example.com";
            return about("projectpermission", world, object)
                .raw("userperms",
                    std::string(R"([{"Email":")") + creator
                        + R"(","ProjectRW":0,"Money":1,"Addendum":1,"Report":1}])");
        },
        [](const Person &who, Object object) {
            const Outcome outcome = needs(Level::Owner)(who, object);
            return outcome.status == 1 && !who.isAdministrator() ? Outcome { 320 } : outcome;
        },
        "that takes the creator's access");
    add("openproject", onProject("openproject"), needs(Level::Read));
    add("closeproject", onProject("closeproject"), always(unchanged));
    for (const bool release : { false, true }) {
        add(
            "projectlock",
            [=](const World &world, Caller, Object object) {
                return about("projectlock", world, object).set("ReleaseLock", release);
            },
            needs(Level::Write, release ? unchanged : Outcome {}), release ? "release" : "");
    }
    add("onlineeditors", onProject("onlineeditors"), needs(Level::Read, unchanged));
}

void addGroups(Rows &rows)
{
    const auto add = [&rows](const char *service, Make make, Judge judge) {
        rows.push_back({ service, "", "", std::move(make), std::move(judge), {}, "" });
    };
    add(
        "newprojectgroup",
        [](const World &, Caller, Object object) {
            return Message("newprojectgroup").set("Name", "A new one").set("Type", kindFor(object));
        },
        mayCreate);
    add(
        "removeprojectgroup",
        [](const World &world, Caller, Object object) {
            return Message("removeprojectgroup").set("Name", world.group(object));
        },
        ownersAndAdministrators(317));
    add(
        "renameprojectgroup",
        [](const World &world, Caller, Object object) {
            return Message("renameprojectgroup")
                .set("OldName", world.group(object))
                .set("NewName", "Another name");
        },
        ownersAndAdministrators(317));
    add(
        "existsprojectgroup",
        [](const World &world, Caller, Object object) {
            return Message("existsprojectgroup").set("Name", world.group(object));
        },
        thereOrNot(316));
}

} // namespace kvx::test
