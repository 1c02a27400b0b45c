#pragma once

#include "ServiceHarness.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <set>

namespace kvx::test {

inline std::string textOf(const rapidjson::Value &value)
{
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    value.Accept(writer);
    return buffer.GetString();
}

/// An administrator and two estimators.
struct Projects : testing::Test {
    const std::string guid = guidOf(1);
    ServiceHarness harness;
    Session admin = harness.join("root@example.com", "Administrator");
    Session anna = harness.join("anna@example.com");
    Session ben = harness.join("ben@example.com");

    int create(
        const Session &session, int n, const std::string &name, const std::string &kind = "Tender")
    {
        return session.ask(newProject(session, guidOf(n), name, kind)).status();
    }
    std::set<std::string> listed(const Session &session)
    {
        const Answer list = session.ask(Message("projectlistsynctolocal"));
        std::set<std::string> names;
        for (const auto &project : list["data"]["Projects"].GetArray())
            names.insert(project["Description"].GetString());
        return names;
    }
    Message on(const char *service, int n = 1)
    {
        return Message(service).set("ProjectGUID", guidOf(n));
    }
    void makeReadOnly()
    {
        harness.db().execute("INSERT INTO meta (name, value) VALUES ('read_only', '1')");
    }
};

} // namespace kvx::test
