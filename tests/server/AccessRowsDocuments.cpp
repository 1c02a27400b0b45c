#include "AccessRows.h"
#include "AccessWorld.h"

namespace kvx::test {

void addTemplates(Rows &rows)
{
    const auto add = [&rows](const char *service, Make make, Judge judge) {
        rows.push_back({ service, "", "", std::move(make), std::move(judge), {}, "" });
    };
    const auto byId = [](const char *service) {
        return [=](const World &world, Caller, Object object) {
            return Message(service).set("templateID", world.templateId(object));
        };
    };
    add(
        "reportTemplateUpload",
        [](const World &world, Caller, Object object) {
            return Message("reportTemplateUpload")
                .set("name", world.templateName(object))
                .set("type", 1)
                .set("projectVersion", "2")
                .set("template", "eyJhIjoxfQ==")
                .set("author", "x")
                .set("authorEmail", "x@example.com");
        },
        [](const Person &who, Object object) {
            if (!who.may(Right::UploadTemplates))
                return Outcome { 300 };
            const bool free = object == Object::Missing
                || (object == Object::Own && who.caller() == Caller::Creator);
            return Outcome { free ? 1 : 641 };
        });
    add("reportTemplateDownload", byId("reportTemplateDownload"), thereOrNot(640));
    add("reportTemplateQuery", just("reportTemplateQuery"), always(unchanged));
    add(
        "reportTemplateDelete",
        [](const World &world, Caller, Object object) {
            return Message("reportTemplateDelete")
                .raw("templateIDArray", "[\"" + world.templateId(object) + "\"]");
        },
        ownersAndAdministrators(640));
    add(
        "reportTemplateRename",
        [](const World &world, Caller, Object object) {
            return Message("reportTemplateRename")
                .set("templateID", world.templateId(object))
                .set("name", "Another name");
        },
        ownersAndAdministrators(640));
    add(
        "reportTemplateExist",
        [](const World &world, Caller, Object object) {
            return Message("reportTemplateExist").set("name", world.templateName(object));
        },
        thereOrNot(640));
    add("reportTemplateExistByID", byId("reportTemplateExistByID"), thereOrNot(640));
}

/// Each to his own jobs, the administrator too; nobody without a role.
void addRecognition(Rows &rows)
{
    const auto byId = [](const char *service) {
        return [=](const World &world, Caller, Object object) {
            return Message(service).set("JobID", world.job(object)).set("After", 0).set("Wait", 0);
        };
    };
    const auto withRole = [](Outcome granted) {
        return [=](const Person &who, Object) { return who.hasRole() ? granted : Outcome { 300 }; };
    };
    const auto mine = [](Outcome granted) {
        return [=](const Person &who, Object object) {
            const bool his = who.caller() == Caller::Creator && object == Object::Own;
            return !who.hasRole() ? Outcome { 300 } : his ? granted : Outcome { 682 };
        };
    };
    rows.push_back({ "submit", "in a language that is not there", "",
        [](const World &, Caller, Object) {
            return Message("submit")
                .set("FileName", "scan.pdf")
                .raw("Languages", R"(["xyz"])")
                .set("ExportType", 0)
                .raw("PageIndexes", "[]");
        },
        withRole({ 681 }), {}, "a scan" });
    rows.push_back({ "state", "", "", byId("state"), mine(unchanged), {}, "" });
    rows.push_back({ "result", "of a job that waits", "",
        [](const World &world, Caller, Object object) {
            return Message("result").set("JobID", world.job(object)).set("PageIndex", 0);
        },
        withRole({ 682 }), {}, "" });
    rows.push_back({ "cancel", "", "", byId("cancel"), mine({}), {}, "" });
    rows.push_back({ "languages", "", "", just("languages"), withRole(unchanged), {}, "" });
}

} // namespace kvx::test
