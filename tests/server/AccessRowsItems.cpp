#include "AccessRows.h"
#include "AccessWorld.h"

namespace kvx::test {

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
        return [=](const Person &who, Object object) {
            const Outcome outcome = needs(Level::Write)(who, object);
            const bool mine = (who.caller() == Caller::Creator && object == Object::Own)
                || (administrators && who.isAdministrator())
                || !Person::creatorHolds(who.scenario(), object);
            return outcome.status == 1 && !mine ? Outcome { refused } : outcome;
        };
    };
    add("checkout", checkOut("7;8;", false), needs(Level::Write));
    add("checkout", checkOut("50;", false), held(620, false), "of an item that is taken");
    add("checkout", checkOut("", false), needs(Level::Read, unchanged), "of nothing");
    add(
        "checkout", checkOut("", true),
        [](const Person &who, Object object) {
            return who.level(object) == Level::Read ? unchanged : needs(Level::Read)(who, object);
        },
        "of nothing, announced");
    add("checkin", checkIn("7;"), needs(Level::Write));
    add("checkin", checkIn("50;"), held(621, true), "of an item that is taken");
    add("checkinall", onProject("checkinall"), [](const Person &who, Object object) {
        // He has held an item, and may leave it behind when the project is no longer his to see.
        const bool held = who.caller() == Caller::Creator && object == Object::Own;
        return held ? Outcome {} : needs(Level::Read)(who, object);
    });
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
        [](const Person &who, Object object) {
            if (who.level(object) == Level::None)
                return Outcome { 310 };
            return needs(Level::Owner)(who, Object::Own);
        },
        "from it", "");
}

} // namespace kvx::test
