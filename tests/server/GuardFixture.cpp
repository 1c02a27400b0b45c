#include "GuardFixture.h"

namespace kvx::test {

namespace {

constexpr char guid[] = "\"{4b1d0c52-7e61-4c1f-9f0a-2d7b8a3c5e10}\"";

} // namespace

ServerGuard::ServerGuard(std::map<std::string, std::string> settings)
    : broker(guarded())
    , server(withAccount(std::move(settings)))
{
    server.addUser(anna, "Anna Weiss", password);
    server.addUser(ben, "Ben Ito", password);
    awaitGuard(server);
    // The new users were announced too; those messages are out before a test begins.
    const auto session = login(admin);
    const auto client = listen(admin);
    announceToAll();
    EXPECT_FALSE(client->awaitText(numbered(1)).empty());
    logout(*session, admin);
}

Broker::Options ServerGuard::guarded()
{
    Broker::Options options;
    options.guard = true;
    return options;
}

ServerProcess::Options ServerGuard::withAccount(std::map<std::string, std::string> settings) const
{
    ServerProcess::Options options;
    options.brokerUrl = broker.uri();
    options.settings = std::move(settings);
    options.settings.emplace("broker.user", Broker::guardedServer.name);
    options.settings.emplace("broker.password", Broker::guardedServer.password);
    return options;
}

void ServerGuard::awaitGuard(const ServerProcess &which) const
{
    HttpClient health(which.adminUrl());
    const bool good = eventually([&] {
        const std::string body = health.get("/readyz").body;
        return body.find("guard: ok") != std::string::npos
            && body.find("broker: ok") != std::string::npos;
    });
    EXPECT_TRUE(good) << which.logText() << broker.logText();
}

std::unique_ptr<HttpClient> ServerGuard::login(
    const std::string &email, const std::vector<std::string> &headers) const
{
    auto client = std::make_unique<HttpClient>(server.url());
    const std::string word = email == admin ? server.adminPassword() : password;
    const HttpReply reply = client->postTo("/kvx/service",
        jsonObject({ { "service", "\"login\"" }, { "Email", jsonQuoted(email) },
            { "Password", jsonQuoted(word) }, { "Version", "\"\"" }, { "FingerPrint", "\"\"" },
            { "serverApiVersion", "\"\"" }, { "productType", "\"\"" } }),
        "application/json", headers);
    EXPECT_EQ(reply.statusCode(), 1) << reply.json();
    return client;
}

std::unique_ptr<BrokerClient> ServerGuard::listen(const std::string &clientId) const
{
    return std::make_unique<BrokerClient>(broker.uri(), clientId);
}

void ServerGuard::logout(HttpClient &session, const std::string &email) const
{
    ask(session, email, "logout", {});
}

void ServerGuard::ask(HttpClient &session, const std::string &email, const std::string &service,
    std::vector<std::pair<std::string, std::string>> members)
{
    members.emplace_back("service", jsonQuoted(service));
    members.emplace_back("Email", jsonQuoted(email));
    const HttpReply reply = session.post(jsonObject(members));
    EXPECT_EQ(reply.statusCode(), 1) << service << ' ' << reply.json();
}

void ServerGuard::newProject(HttpClient &session, const std::string &email, const std::string &name)
{
    ask(session, email, "newproject",
        { { "Type", "\"Tender\"" }, { "Name", jsonQuoted(name) }, { "ProjectGUID", guid },
            { "CreatorName", "\"Anna Weiss\"" }, { "CreatorEmail", jsonQuoted(email) },
            { "Amount", "\"0.00\"" }, { "ProjectState", "0" } });
}

void ServerGuard::rename(HttpClient &session, const std::string &email, const std::string &oldName,
    const std::string &newName)
{
    ask(session, email, "renameproject",
        { { "OldName", jsonQuoted(oldName) }, { "NewName", jsonQuoted(newName) },
            { "ProjectGUID", guid } });
}

void ServerGuard::permit(HttpClient &session, const std::vector<std::string> &emails)
{
    std::string rows;
    for (const std::string &email : emails)
        rows += (rows.empty() ? "" : ",") + std::string("{\"Email\":") + jsonQuoted(email)
            + R"(,"ProjectRW":1,"Money":1,"Addendum":1,"Report":1})";
    ask(session, anna, "projectpermission",
        { { "ProjectGUID", guid }, { "userperms", '[' + rows + ']' } });
}

std::string ServerGuard::numbered(int n)
{
    constexpr int newUsers = 2;
    return "\"notifymsg_seq\":" + std::to_string(newUsers + n) + ',';
}

void ServerGuard::announceToAll()
{
    m_assigned = !m_assigned;
    const char *verb = m_assigned ? "assign" : "unassign";
    ASSERT_EQ(server.command({ "role", verb, "Reviewer", "admin@localhost" }).exitCode, 0);
}

} // namespace kvx::test
