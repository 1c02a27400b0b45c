#include "AccessRows.h"
#include "AccessWorld.h"

namespace kvx::test {

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
        [=](const Person &, Object object) { return login(object); }, login, "" });
    rows.push_back({ "logout", "", "",
        [](const World &world, Caller caller, Object object) {
            return Message("logout").set("Email",
                object == Object::Own           ? world.email(caller)
                    : object == Object::Foreign ? "stranger@example.com"
                                                : "ghost@example.com");
        },
        [](const Person &, Object object) { return Outcome { object == Object::Own ? 1 : 301 }; },
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
        [](const Person &who, Object object) {
            if (object == Object::Own)
                return Outcome {};
            if (!who.isAdministrator())
                return Outcome { 300 };
            return Outcome { object == Object::Foreign ? 1 : 302 };
        },
        {}, "" });
    rows.push_back({ "getroles", "", "", just("getroles"), always(unchanged), {}, "" });
    rows.push_back({ "updateroles", "", "Email",
        [](const World &world, Caller, Object object) {
            return Message("updateroles").raw("Roles", world.roles(object));
        },
        [](const Person &who, Object object) {
            if (!who.isAdministrator())
                return Outcome { 300 };
            return object == Object::Own ? unchanged
                                         : Outcome { object == Object::Foreign ? 1 : 302 };
        },
        {}, "" });
    rows.push_back({ "server", "", "", just("server"), always(unchanged),
        [](Object) { return unchanged; }, "" });
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
        [](const Person &who, Object object) {
            const bool mine = who.caller() == Caller::Creator && object == Object::Own;
            return Outcome { mine || object == Object::Missing ? 1 : 650 };
        },
        {}, "" });
    rows.push_back({ "GlobalLock", "for another", "",
        [=](const World &world, Caller, Object) {
            return globalLock(world, "stranger@example.com", Object::Missing);
        },
        [](const Person &who, Object) { return Outcome { who.isAdministrator() ? 1 : 301 }; }, {},
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
    // The own table has a right of its own, that to upload templates; an administrator makes one.
    rows.push_back({ "updatetable", "", "Email",
        [](const World &world, Caller, Object object) {
            return Message("updatetable")
                .raw("Table",
                    "{\"tablename\":\"" + world.table(object) + "\",\"tabledata\":{\"a\":1}}");
        },
        [](const Person &who, Object object) {
            if (who.isAdministrator())
                return Outcome {};
            if (object == Object::Missing)
                return Outcome { 660 };
            const Right right
                = object == Object::Own ? Right::UploadTemplates : Right::WriteLibraries;
            return Outcome { who.may(right) ? 1 : 300 };
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

} // namespace kvx::test
