#include "AccessModel.h"
#include "AccessRows.h"
#include "AccessWorld.h"

namespace kvx::test {

Outcome Expectation::outcome(const Person &who, Object object) const
{
    if (hasSession(who.caller()))
        return withSession(who, object);
    return anonymous ? anonymous(object) : Outcome { 2 };
}

Judge needs(Level level, Outcome granted)
{
    return [=](const Person &who, Object object) {
        const Level has = who.level(object);
        if (has == Level::None)
            return Outcome { 310 };
        return has < level ? Outcome { 300 } : granted;
    };
}

Judge always(Outcome outcome)
{
    return [=](const Person &, Object) { return outcome; };
}

Judge ownersAndAdministrators(int missing, int refused)
{
    return [=](const Person &who, Object object) {
        if (object == Object::Missing)
            return Outcome { missing };
        const bool mine = who.caller() == Caller::Creator && object == Object::Own;
        return Outcome { mine || who.isAdministrator() ? 1 : refused };
    };
}

Judge thereOrNot(int missing)
{
    return [=](const Person &, Object object) {
        return object == Object::Missing ? Outcome { missing } : unchanged;
    };
}

const char *kindFor(Object object)
{
    return object == Object::Own ? "Tender" : object == Object::Foreign ? "BQLibrary" : "Castle";
}

Outcome mayCreate(const Person &who, Object object)
{
    if (object == Object::Missing)
        return { 319 };
    return { who.mayCreate(kindFor(object)) ? 1 : 300 };
}

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

const std::vector<Expectation> &accessModel()
{
    static const Rows model = [] {
        Rows rows;
        for (const auto add : { addAccounts, addProjects, addGroups, addSaving, addFiles, addItems,
                 addTemplates, addShared, addRecognition })
            add(rows);
        return rows;
    }();
    return model;
}

} // namespace kvx::test
