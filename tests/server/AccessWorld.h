#pragma once

#include "AccessModel.h"
#include "StoreImage.h"

#include <map>
#include <memory>
#include <string>

namespace kvx::test {

/// A server with one of everything, owned by a creator ("own") and by a stranger ("foreign"). Both
/// projects are saved once. A third project may be read by everybody. Roles and levels are those of
/// the plain scenario until another is given; an administrator who asks for nothing gives them.
class World {
public:
    World();
    const Scenario &scenario() const { return m_scenario; }
    /// Puts the database back, then gives everybody what the scenario says.
    void give(const Scenario &scenario);

    std::string email(Caller caller) const;
    std::string project(Object object) const;
    std::string projectName(Object object) const;
    std::string sharedProject() const;
    std::string group(Object object) const;
    std::string templateId(Object object) const;
    std::string templateName(Object object) const;
    int lockType(Object object) const;
    std::string job(Object object) const;
    std::string table(Object object) const;
    /// The role table as it is read; with a change that is right, and with an unknown user in it.
    std::string roles(Object object) const;

    int ask(Caller caller, const Expectation &row, Object object);
    int askAsAnother(Caller caller, const Expectation &row);

    /// Everything in the database but what every request may write.
    std::string digest();
    /// What the digest was when the scenario was given.
    const std::string &given() const { return m_given; }
    /// Puts the database back to what it was then.
    void restore();

    /// Maintenance, until the database is put back.
    void makeReadOnly();

    static constexpr const char *password = "the creator's password";

private:
    int send(Caller caller, const Expectation &row, Message message);
    void addTemplate(Object object, const Session &owner);
    void addJob(Object object, const Session &owner);
    void readRoles();
    void keep();

    ServiceHarness m_harness;
    Scenario m_scenario = Scenario::plain();
    Session m_giver;
    std::string m_given;
    std::map<Caller, Session> m_sessions;
    std::map<Object, std::string> m_templates;
    std::map<Object, std::string> m_roles;
    std::unique_ptr<StoreImage> m_image;
};

} // namespace kvx::test
