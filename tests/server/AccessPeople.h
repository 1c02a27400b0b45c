#pragma once

#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace kvx::test {

/// Who asks. The first three are without a live session. The others are named after what they may
/// in the project called "own" as it stands at first: nothing, read, write; its creator; an
/// administrator.
enum class Caller { Nobody, Expired, LoggedOut, Other, Reader, Writer, Creator, Administrator };

/// What is asked about: an object of the creator's, one of a stranger's, none at all.
enum class Object { Own, Foreign, Missing };

const char *nameOf(Caller caller);
const char *nameOf(Object object);
bool hasSession(Caller caller);

/// What a role permits.
enum class Right {
    WriteAllProjects,
    ReadAllProjects,
    ExportProjects,
    ExportRates,
    UploadTemplates,
    ReadLibraries,
    WriteLibraries,
    WriteBillLibraries,
    Administrate
};
constexpr int rightCount = 9;
/// Its key in a role.
const char *nameOf(Right right);

/// What is stored of one person in one project.
struct Levels {
    int projectRw = -1;
    int addendum = -1;
};

/// Who was given what.
struct Scenario {
    struct Role {
        std::string name;
        std::set<Right> rights;
        std::set<Caller> members;
    };
    std::vector<Role> roles; ///< in order: the first that has somebody is his only one
    std::map<Object, std::string> kinds; ///< of the two projects
    std::map<Object, std::map<Caller, Levels>> levels;

    /// The one that the callers are named after.
    static Scenario plain();
    static Scenario random(std::mt19937 &source);
    /// For the message of a failed case.
    std::string text() const;
};

/// What somebody may in a project.
enum class Level { None, Read, Write, Owner };

/// A caller in a scenario: the rules about rights, as users are told them.
class Person {
public:
    Person(const Scenario &scenario, Caller caller);

    Caller caller() const { return m_caller; }
    bool hasRole() const { return m_role != nullptr; }
    bool isAdministrator() const { return has(Right::Administrate); }
    /// An administrator may whatever a role can permit.
    bool may(Right right) const { return has(right) || isAdministrator(); }
    bool mayCreate(const std::string &kind) const;
    Level level(Object project) const;
    bool mayAmend(Object project) const;
    /// The creator of a project keeps what he has checked out as long as he may write there.
    static bool creatorHolds(const Scenario &scenario, Object project);
    const Scenario &scenario() const { return m_scenario; }

private:
    bool has(Right right) const { return m_role && m_role->rights.count(right) > 0; }
    Level levelByRole(const std::string &kind) const;
    Levels stored(Object project) const;

    const Scenario &m_scenario;
    const Caller m_caller;
    const Scenario::Role *m_role = nullptr;
};

} // namespace kvx::test
