#include "AccessRows.h"
#include "AccessWorld.h"

namespace kvx::test {

namespace {

std::string ownFile(Object object)
{
    return object == Object::Own    ? "mine.txt"
        : object == Object::Foreign ? "theirs.txt"
                                    : "nobodys.txt";
}

} // namespace

void addSaving(Rows &rows)
{
    rows.push_back({ "getlogversion", "", "Email", onProject("getlogversion"),
        needs(Level::Read, unchanged), {}, "" });
    const auto logLock = [](bool release) {
        return [=](const World &world, Caller, Object object) {
            return about("loglock", world, object).set("LogVersion", 0).set("ReleaseLock", release);
        };
    };
    // A reader is told 1 and gets no lock; his upload is refused then.
    rows.push_back({ "loglock", "", "Email", logLock(false),
        [](const Person &who, Object object) {
            return who.level(object) == Level::Read ? unchanged : needs(Level::Write)(who, object);
        },
        {}, "" });
    rows.push_back(
        { "loglock", "release", "Email", logLock(true), needs(Level::Read, unchanged), {}, "" });
    rows.push_back({ "sendservertomerge", "without the lock", "Email",
        [](const World &world, Caller, Object object) {
            return about("sendservertomerge", world, object)
                .set("LogVersion", 0)
                .set("LogFilename", world.project(object) + "_log1")
                .set("Amount", "");
        },
        needs(Level::Read, { 600 }), {}, "" });
}

void addFiles(Rows &rows)
{
    using Name = std::function<std::string(const World &, Object)>;
    const auto named = [](const char *service, Name name) {
        return [=](const World &world, Caller, Object object) {
            return Message(service).set("FileName", name(world, object));
        };
    };
    const auto ofProject = [](const char *rest) {
        return [=](const World &world, Object object) { return world.project(object) + rest; };
    };
    const Name own = [](const World &, Object object) { return ownFile(object); };
    const auto readable = [](const Person &who, Object object) {
        return who.level(object) == Level::None ? Outcome { 606 } : unchanged;
    };
    const auto mine = [](const Person &who, Object object) {
        return who.caller() == Caller::Creator && object == Object::Own ? unchanged
                                                                        : Outcome { 606 };
    };
    rows.push_back(
        { "upload", "into the own area", "Email", named("upload", own), always(), {}, "content" });
    rows.push_back({ "upload", "of an attachment", "Email", named("upload", ofProject("_list.pdf")),
        needs(Level::Write), {}, "content" });
    for (const char *file : { "_log1", ".KVX" })
        rows.push_back({ "upload", std::string("of ") + file + " without the lock", "Email",
            named("upload", ofProject(file)), needs(Level::Write, { 600 }), {}, "content" });
    for (const char *service : { "download", "hasupload" }) {
        for (const char *file : { "_log0", ".KVX", "_plan.pdf" })
            rows.push_back({ service, std::string("of ") + file, "",
                named(service, ofProject(file)), readable, {}, "" });
        rows.push_back({ service, "of an own file", "", named(service, own), mine, {}, "" });
    }
}

} // namespace kvx::test
