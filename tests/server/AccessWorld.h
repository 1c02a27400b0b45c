#pragma once

#include "AccessModel.h"

#include <map>
#include <string>
#include <vector>

namespace kvx::test {

/// A server with one of everything, owned by a creator ("own") and by a stranger ("foreign").
/// Projects are saved once; the reader and the writer have their levels in the own one, the writer
/// without "Addendum". A third project may be read by everybody.
class World {
public:
    World();

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
    /// The role table as it is read; with a change that is right, and with an unknown user.
    std::string roles(Object object) const;

    int ask(Caller caller, const Expectation &row, Object object);
    int askAsAnother(Caller caller, const Expectation &row);

    /// Everything in the database but what every request may write: when a session was heard of,
    /// and failed logins with their audit rows.
    std::string digest();
    /// Puts the database back to what it was at the beginning.
    void restore();

    static constexpr const char *password = "the creator's password";

private:
    int send(Caller caller, const Expectation &row, Message message);
    void addTemplate(Object object, const Session &owner);
    void addJob(Object object, const Session &owner);
    void keepSnapshot();

    ServiceHarness m_harness;
    std::map<Caller, Session> m_sessions;
    std::map<Object, std::string> m_templates;
    std::map<Object, std::string> m_roles;
    std::vector<std::string> m_tables;
    std::map<std::string, std::string> m_columns;
};

} // namespace kvx::test
