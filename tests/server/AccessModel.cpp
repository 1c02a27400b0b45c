#include "AccessModel.h"
#include "AccessWorld.h"

namespace kvx::test {

const char *nameOf(Caller caller)
{
    static const char *const names[] = { "no session", "expired session", "logged out",
        "other user", "reader", "writer", "creator", "administrator" };
    return names[static_cast<int>(caller)];
}

const char *nameOf(Object object)
{
    static const char *const names[] = { "own", "foreign", "missing" };
    return names[static_cast<int>(object)];
}

bool hasSession(Caller caller)
{
    return caller >= Caller::Other;
}

Outcome Expectation::outcome(Caller caller, Object object) const
{
    if (hasSession(caller))
        return withSession(caller, object);
    return anonymous ? anonymous(object) : Outcome { 2 };
}

namespace {

using Make = std::function<Message(const World &, Caller, Object)>;
using Judge = std::function<Outcome(Caller, Object)>;

const Outcome unchanged { 1, false };

bool isAdministrator(Caller caller)
{
    return caller == Caller::Administrator;
}

// Rights in a project.

enum class Level { None, Read, Write, Owner };

Level levelOf(Caller caller, Object object)
{
    if (object == Object::Missing)
        return Level::None;
    if (isAdministrator(caller))
        return Level::Owner;
    if (object == Object::Foreign)
        return Level::None;
    switch (caller) {
    case Caller::Reader:
        return Level::Read;
    case Caller::Writer:
        return Level::Write;
    case Caller::Creator:
        return Level::Owner;
    default:
        return Level::None;
    }
}

/// Who may not read a project does not learn whether it is there.
Judge needs(Level level, Outcome granted = {})
{
    return [=](Caller caller, Object object) {
        const Level has = levelOf(caller, object);
        if (has == Level::None)
            return Outcome { 310 };
        return has < level ? Outcome { 300 } : granted;
    };
}

Judge always(Outcome outcome = {})
{
    return [=](Caller, Object) { return outcome; };
}

/// A thing that belongs to the creator, to a stranger, or is not there.
Judge ownersAndAdministrators(int missing, int refused = 300)
{
    return [=](Caller caller, Object object) {
        if (object == Object::Missing)
            return Outcome { missing };
        const bool mine = caller == Caller::Creator && object == Object::Own;
        return Outcome { mine || isAdministrator(caller) ? 1 : refused };
    };
}

Judge thereOrNot(int missing)
{
    return [=](Caller, Object object) {
        return object == Object::Missing ? Outcome { missing } : unchanged;
    };
}

// Requests.

Make just(const char *service)
{
    return [=](const World &, Caller, Object) { return Message(service); };
}

Message about(const char *service, const World &world, Object object)
{
    return Message(service).set("ProjectGUID", world.project(object));
}

Make onProject(const char *service)
{
    return [=](const World &world, Caller, Object object) { return about(service, world, object); };
}

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

/// What a role lets its users create: no library, for anybody but the administrator.
const char *kindFor(Object object)
{
    return object == Object::Own ? "Tender" : object == Object::Foreign ? "BQLibrary" : "Castle";
}

Outcome mayCreate(Caller caller, Object object)
{
    if (object == Object::Missing)
        return { 319 };
    return { object == Object::Own || isAdministrator(caller) ? 1 : 300 };
}

std::string ownFile(Object object)
{
    return object == Object::Own    ? "mine.txt"
        : object == Object::Foreign ? "theirs.txt"
                                    : "nobodys.txt";
}

using Rows = std::vector<Expectation>;

void addAccounts(Rows &rows)
{
    const auto login = [](Object object) { return Outcome { object == Object::Own ? 1 : 235 }; };
    rows.push_back({ "login", "", "",
        [](const World &, Caller, Object object) {
            const char *who = object == Object::Own ? "creator@example.com"
                : object == Object::Foreign         ? "stranger@example.com"
                                                    : "ghost@example.com";
            return Message("login")
                .set("Email", who)
                .set("Password", World::password)
                .set("Version", "")
                .set("FingerPrint", "")
                .set("serverApiVersion", "")
                .set("productType", "");
        },
        [=](Caller, Object object) { return login(object); }, login, "" });
    rows.push_back({ "logout", "", "",
        [](const World &world, Caller caller, Object object) {
            return Message("logout").set("Email",
                object == Object::Own           ? world.email(caller)
                    : object == Object::Foreign ? "stranger@example.com"
                                                : "ghost@example.com");
        },
        [](Caller, Object object) { return Outcome { object == Object::Own ? 1 : 301 }; },
        [](Object) { return unchanged; }, "" });
    rows.push_back({ "keepactive", "", "Email", just("keepactive"), always(unchanged), {}, "" });
    rows.push_back({ "updateuserproductversion", "", "",
        [](const World &world, Caller caller, Object object) {
            return Message("updateuserproductversion")
                .set("UserProductVersion", 2)
                .set("Email",
                    object == Object::Own           ? world.email(caller)
                        : object == Object::Foreign ? "stranger@example.com"
                                                    : "ghost@example.com");
        },
        [](Caller caller, Object object) {
            if (object == Object::Own)
                return Outcome {};
            if (!isAdministrator(caller))
                return Outcome { 300 };
            return Outcome { object == Object::Foreign ? 1 : 302 };
        },
        {}, "" });
    rows.push_back({ "getroles", "", "", just("getroles"), always(unchanged), {}, "" });
    rows.push_back({ "updateroles", "", "Email",
        [](const World &world, Caller, Object object) {
            return Message("updateroles").raw("Roles", world.roles(object));
        },
        [](Caller caller, Object object) {
            if (!isAdministrator(caller))
                return Outcome { 300 };
            return object == Object::Own ? unchanged
                                         : Outcome { object == Object::Foreign ? 1 : 302 };
        },
        {}, "" });
    rows.push_back({ "server", "", "", just("server"), always(unchanged),
        [](Object) { return unchanged; }, "" });
}

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
        [](Caller caller, Object object) {
            if (levelOf(caller, object) == Level::None)
                return Outcome { 310 };
            return Outcome { caller == Caller::Writer ? 300 : 1 }; // he lacks "Addendum"
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
        [](Caller caller, Object object) {
            const Outcome outcome = needs(Level::Owner)(caller, object);
            return outcome.status == 1 && !isAdministrator(caller) ? Outcome { 320 } : outcome;
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
        [](Caller caller, Object object) {
            return levelOf(caller, object) == Level::Read ? unchanged
                                                          : needs(Level::Write)(caller, object);
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
    const auto readable = [](Caller caller, Object object) {
        return levelOf(caller, object) == Level::None ? Outcome { 606 } : unchanged;
    };
    const auto mine = [](Caller caller, Object object) {
        return caller == Caller::Creator && object == Object::Own ? unchanged : Outcome { 606 };
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

void addItems(Rows &rows)
{
    const auto add = [&rows](const char *service, Make make, Judge judge, const char *variant = "",
                         const char *identity = "Email") {
        rows.push_back({ service, variant, identity, std::move(make), std::move(judge), {}, "" });
    };
    const auto checkOut = [](const char *ids, bool notify) {
        return [=](const World &world, Caller, Object object) {
            return about("checkout", world, object)
                .set("ModuleType", 9)
                .set("NotifyOther", notify)
                .set("IDs", ids);
        };
    };
    const auto checkIn = [](const char *ids) {
        return [=](const World &world, Caller, Object object) {
            return about("checkin", world, object).set("ModuleType", 9).set("IDs", ids);
        };
    };
    /// Item 50 is checked out by the project's creator.
    const auto held = [](int refused, bool administrators) {
        return [=](Caller caller, Object object) {
            const Outcome outcome = needs(Level::Write)(caller, object);
            const bool mine
                = caller == Caller::Creator || (administrators && isAdministrator(caller));
            return outcome.status == 1 && !mine ? Outcome { refused } : outcome;
        };
    };
    add("checkout", checkOut("7;8;", false), needs(Level::Write));
    add("checkout", checkOut("50;", false), held(620, false), "of an item that is taken");
    add("checkout", checkOut("", false), needs(Level::Read, unchanged), "of nothing");
    add(
        "checkout", checkOut("", true),
        [](Caller caller, Object object) {
            return levelOf(caller, object) == Level::Read ? unchanged
                                                          : needs(Level::Read)(caller, object);
        },
        "of nothing, announced");
    add("checkin", checkIn("7;"), needs(Level::Write));
    add("checkin", checkIn("50;"), held(621, true), "of an item that is taken");
    add("checkinall", onProject("checkinall"), needs(Level::Read));
    add(
        "allocateidrange",
        [](const World &world, Caller, Object object) {
            return about("allocateidrange", world, object).set("NewRange", true);
        },
        needs(Level::Write));
    const auto copy = [](const std::string &from, const std::string &to) {
        return Message("copycheckstate").set("oldProjectGuid", from).set("newProjectGuid", to);
    };
    add(
        "copycheckstate",
        [=](const World &world, Caller, Object object) {
            return copy(world.sharedProject(), world.project(object));
        },
        needs(Level::Owner), "to it", "");
    add(
        "copycheckstate",
        [=](const World &world, Caller, Object object) {
            return copy(world.project(object), world.project(Object::Own));
        },
        [](Caller caller, Object object) {
            if (levelOf(caller, object) == Level::None)
                return Outcome { 310 };
            return needs(Level::Owner)(caller, Object::Own);
        },
        "from it", "");
}

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
        [](Caller caller, Object object) {
            const bool author = caller == Caller::Creator || isAdministrator(caller);
            if (!author)
                return Outcome { 300 };
            const bool free
                = object == Object::Missing || (object == Object::Own && caller == Caller::Creator);
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

void addShared(Rows &rows)
{
    const auto globalLock = [](const World &world, const std::string &email, Object object) {
        return Message("GlobalLock")
            .set("lockType", world.lockType(object))
            .set("lockedAuthorName", "x")
            .set("lockedAuthorEmail", email)
            .set("autoUnlockTime", 5)
            .set("logoutUnlock", false);
    };
    rows.push_back({ "GlobalLock", "", "",
        [=](const World &world, Caller caller, Object object) {
            return globalLock(world, world.email(caller), object);
        },
        [](Caller caller, Object object) {
            const bool mine = caller == Caller::Creator && object == Object::Own;
            return Outcome { mine || object == Object::Missing ? 1 : 650 };
        },
        {}, "" });
    rows.push_back({ "GlobalLock", "for another", "",
        [=](const World &world, Caller, Object) {
            return globalLock(world, "stranger@example.com", Object::Missing);
        },
        [](Caller caller, Object) { return Outcome { isAdministrator(caller) ? 1 : 301 }; }, {},
        "" });
    rows.push_back({ "GlobalUnlock", "", "",
        [](const World &world, Caller, Object object) {
            return Message("GlobalUnlock").set("lockType", world.lockType(object));
        },
        ownersAndAdministrators(651, 652), {}, "" });
    rows.push_back({ "gettable", "", "Email",
        [](const World &world, Caller, Object object) {
            return Message("gettable").set("tablename", world.table(object));
        },
        always(unchanged), {}, "" });
    // The own table may be written with the right to upload templates; the administrator makes one.
    rows.push_back({ "updatetable", "", "Email",
        [](const World &world, Caller, Object object) {
            return Message("updatetable")
                .raw("Table",
                    "{\"tablename\":\"" + world.table(object) + "\",\"tabledata\":{\"a\":1}}");
        },
        [](Caller caller, Object object) {
            if (isAdministrator(caller))
                return Outcome {};
            if (object == Object::Missing)
                return Outcome { 660 };
            return Outcome { caller == Caller::Creator && object == Object::Own ? 1 : 300 };
        },
        {}, "" });
    rows.push_back({ "logworkingtime", "", "email",
        [](const World &, Caller, Object) {
            return Message("logworkingtime").set("workingTime", 5);
        },
        always(), {}, "" });
    rows.push_back({ "comresource/version", "", "", just("comresource/version"), always({ 670 }),
        [](Object) { return Outcome { 670 }; }, "" });
    rows.push_back(
        { "comresource/download", "", "", just("comresource/download"), always({ 670 }), {}, "" });
}

/// Each to his own jobs, the administrator too.
void addRecognition(Rows &rows)
{
    const auto byId = [](const char *service) {
        return [=](const World &world, Caller, Object object) {
            return Message(service).set("JobID", world.job(object)).set("After", 0).set("Wait", 0);
        };
    };
    const auto mine = [](Outcome granted) {
        return [=](Caller caller, Object object) {
            return caller == Caller::Creator && object == Object::Own ? granted : Outcome { 682 };
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
        always({ 681 }), {}, "a scan" });
    rows.push_back({ "state", "", "", byId("state"), mine(unchanged), {}, "" });
    rows.push_back({ "result", "of a job that waits", "",
        [](const World &world, Caller, Object object) {
            return Message("result").set("JobID", world.job(object)).set("PageIndex", 0);
        },
        always({ 682 }), {}, "" });
    rows.push_back({ "cancel", "", "", byId("cancel"), mine({}), {}, "" });
    rows.push_back({ "languages", "", "", just("languages"), always(unchanged), {}, "" });
}

} // namespace

const std::vector<Expectation> &accessModel()
{
    static const Rows model = [] {
        Rows rows;
        addAccounts(rows);
        addProjects(rows);
        addGroups(rows);
        addSaving(rows);
        addFiles(rows);
        addItems(rows);
        addTemplates(rows);
        addShared(rows);
        addRecognition(rows);
        return rows;
    }();
    return model;
}

} // namespace kvx::test
