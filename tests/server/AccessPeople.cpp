#include "AccessPeople.h"

#include <algorithm>

namespace kvx::test {

namespace {

constexpr Caller peopleWithSession[]
    = { Caller::Other, Caller::Reader, Caller::Writer, Caller::Creator, Caller::Administrator };

bool isLibrary(const std::string &kind)
{
    return kind == "BQLibrary" || kind == "ResourceLibrary";
}

Level levelFor(int projectRw)
{
    return projectRw < 0 ? Level::None : projectRw == 0 ? Level::Read : Level::Write;
}

} // namespace

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

const char *nameOf(Right right)
{
    static const char *const names[rightCount] = { "AllProjectReadWrite", "AllProjectReview",
        "ExportProject", "ExportUnitRate", "UploadReportSetting", "ReadOnlyRateLibrary",
        "ReadWriteRateLibrary", "ReadWriteBQLibrary", "Administrator" };
    return names[static_cast<int>(right)];
}

bool hasSession(Caller caller)
{
    return caller >= Caller::Other;
}

Scenario Scenario::plain()
{
    Scenario plain;
    plain.roles = { { "Administrator", { Right::Administrate }, { Caller::Administrator } },
        { "Author", { Right::UploadTemplates }, { Caller::Creator } },
        { "Estimator", {}, { Caller::Other, Caller::Reader, Caller::Writer } } };
    plain.kinds = { { Object::Own, "Tender" }, { Object::Foreign, "Tender" } };
    plain.levels[Object::Own] = { { Caller::Reader, { 0, 1 } }, { Caller::Writer, { 1, -1 } },
        { Caller::Creator, { 1, 1 } } };
    return plain;
}

Scenario Scenario::random(std::mt19937 &source)
{
    const auto below = [&source](int n) { return static_cast<int>(source() % unsigned(n)); };
    Scenario made;
    const int roles = 2 + below(5);
    for (int i = 0; i < roles; ++i) {
        Role role { "Role " + std::to_string(i), {}, {} };
        for (int right = 0; right < rightCount; ++right) {
            // An administrator hides what the other rights do.
            if (below(static_cast<Right>(right) == Right::Administrate ? 10 : 4) == 0)
                role.rights.insert(static_cast<Right>(right));
        }
        for (const Caller caller : peopleWithSession) {
            if (below(3) == 0)
                role.members.insert(caller);
        }
        made.roles.push_back(role);
    }
    static const char *const kinds[] = { "Estimate", "Tender", "BQLibrary", "ResourceLibrary" };
    static const int levels[] = { -1, -1, 0, 1, 8 };
    static const int grants[] = { -1, 0, 1 };
    for (const Object project : { Object::Own, Object::Foreign }) {
        made.kinds[project] = kinds[below(4)];
        for (const Caller caller : peopleWithSession) {
            // A creator loses his access now and then, by an administrator.
            const bool kept = project == Object::Own && caller == Caller::Creator && below(4) != 0;
            made.levels[project][caller]
                = kept ? Levels { 1, 1 } : Levels { levels[below(5)], grants[below(3)] };
        }
    }
    return made;
}

std::string Scenario::text() const
{
    std::string text;
    for (const Role &role : roles) {
        text += role.name + " may";
        for (const Right right : role.rights)
            text += std::string(" ") + nameOf(right);
        text += "; has";
        for (const Caller caller : role.members)
            text += std::string(" ") + nameOf(caller) + ',';
        text += '\n';
    }
    for (const auto &[project, people] : levels) {
        text += nameOf(project) + std::string(" (") + kinds.at(project) + "):";
        for (const auto &[caller, given] : people)
            text += std::string(" ") + nameOf(caller) + ' ' + std::to_string(given.projectRw) + '/'
                + std::to_string(given.addendum);
        text += '\n';
    }
    return text;
}

Person::Person(const Scenario &scenario, Caller caller)
    : m_scenario(scenario)
    , m_caller(caller)
{
    for (const Scenario::Role &role : scenario.roles) {
        if (!m_role && role.members.count(caller) > 0)
            m_role = &role;
    }
}

bool Person::mayCreate(const std::string &kind) const
{
    if (kind == "BQLibrary")
        return may(Right::WriteLibraries) || may(Right::WriteBillLibraries);
    if (kind == "ResourceLibrary")
        return may(Right::WriteLibraries);
    return hasRole();
}

Levels Person::stored(Object project) const
{
    const auto people = m_scenario.levels.find(project);
    if (people == m_scenario.levels.end())
        return {};
    const auto found = people->second.find(m_caller);
    return found == people->second.end() ? Levels {} : found->second;
}

Level Person::levelByRole(const std::string &kind) const
{
    const bool bills = kind == "BQLibrary" && may(Right::WriteBillLibraries);
    if (may(Right::WriteAllProjects) || bills || (isLibrary(kind) && may(Right::WriteLibraries)))
        return Level::Write;
    if (may(Right::ReadAllProjects) || (isLibrary(kind) && may(Right::ReadLibraries)))
        return Level::Read;
    return Level::None;
}

Level Person::level(Object project) const
{
    if (project == Object::Missing)
        return Level::None;
    if (isAdministrator())
        return Level::Owner;
    const Level level
        = std::max(levelFor(stored(project).projectRw), levelByRole(m_scenario.kinds.at(project)));
    const bool created = project == Object::Own && m_caller == Caller::Creator;
    return created && level == Level::Write ? Level::Owner : level;
}

bool Person::mayAmend(Object project) const
{
    if (project == Object::Missing)
        return false;
    const bool byRole = levelByRole(m_scenario.kinds.at(project)) != Level::None;
    return mayCreate("Addendum") && (byRole || stored(project).addendum != -1);
}

bool Person::creatorHolds(const Scenario &scenario, Object project)
{
    return project == Object::Foreign
        || Person(scenario, Caller::Creator).level(project) >= Level::Write;
}

} // namespace kvx::test
