#include "AccessWorld.h"

#include "base/JsonText.h"
#include "services/FileNames.h"
#include "services/Password.h"
#include "store/OcrStore.h"
#include "store/TableStore.h"
#include "store/UserStore.h"

#include <algorithm>

namespace kvx::test {

using namespace kvx::server;

namespace {

/// A role as an administrator's client sends it.
std::string roleJson(
    const std::string &name, const std::set<Right> &rights, const std::vector<std::string> &members)
{
    std::string json = "{\"Name\":" + jsonText(name);
    for (int i = 0; i < rightCount; ++i)
        json += ",\"" + std::string(nameOf(static_cast<Right>(i)))
            + "\":" + (rights.count(static_cast<Right>(i)) > 0 ? '1' : '0');
    json += ",\"users\":[";
    for (const std::string &member : members)
        json += (json.back() == '[' ? "" : ",") + ("{\"Email\":" + jsonText(member) + '}');
    return json + "]}";
}

} // namespace

World::World()
    // No page is recognised here. A long run puts the sessions back to what they were at its
    // beginning; they are not to run out by that.
    : m_harness([](Config &config) {
        config.ocrWorkers = 0;
        config.sessionIdle = 24 * 3'600'000;
        config.sessionAbsolute = 48 * 3'600'000;
    })
    , m_giver(m_harness.join("keeper@example.com", "Administrator"))
{
    RoleRights author;
    author.uploadReportSetting = true;
    {
        Transaction transaction(m_harness.db(), Transaction::Kind::Write);
        addRole(m_harness.db(), "Author", author);
        transaction.commit();
    }
    const auto join = [&](Caller caller, const char *role) {
        m_sessions.emplace(caller, m_harness.join(email(caller), role));
    };
    join(Caller::Other, "Estimator");
    join(Caller::Reader, "Estimator");
    join(Caller::Writer, "Estimator");
    join(Caller::Creator, "Author");
    join(Caller::Administrator, "Administrator");
    const Session stranger = m_harness.join("stranger@example.com", "Author");
    const Session &creator = m_sessions.at(Caller::Creator);
    const Session &administrator = m_sessions.at(Caller::Administrator);

    for (const auto &[object, owner] :
        { std::pair(Object::Own, &creator), { Object::Foreign, &stranger } }) {
        const std::string guid = project(object);
        owner->ask(newProject(*owner, guid, projectName(object)));
        save(*owner, guid, -1);
        owner->upload(guid + "_plan.pdf", "a plan");
        owner->upload(object == Object::Own ? "mine.txt" : "theirs.txt", "a file");
        owner->ask(Message("checkout")
                       .set("ProjectGUID", guid)
                       .set("ModuleType", 9)
                       .set("NotifyOther", false)
                       .set("IDs", "50;"));
        owner->askAs(Message("newprojectgroup").set("Name", group(object)).set("Type", "Tender"));
        addTemplate(object, *owner);
        addJob(object, *owner);
        owner->askAs(Message("GlobalLock")
                         .set("lockType", lockType(object))
                         .set("lockedAuthorName", "somebody")
                         .set("lockedAuthorEmail", owner->email)
                         .set("autoUnlockTime", 0)
                         .set("logoutUnlock", false));
        administrator.ask(
            Message("updatetable")
                .raw("Table", "{\"tablename\":\"" + table(object) + "\",\"tabledata\":{}}"));
    }
    permit(creator, project(Object::Own),
        { { email(Caller::Reader), "0,1,1,1" }, { email(Caller::Writer), "1,1,-1,1" } });
    stranger.ask(newProject(stranger, sharedProject(), "For all"));
    permit(stranger, sharedProject(),
        { { email(Caller::Other), "0" }, { email(Caller::Reader), "0" },
            { email(Caller::Writer), "0" }, { email(Caller::Creator), "0" },
            { email(Caller::Administrator), "0" } });
    {
        Transaction transaction(m_harness.db(), Transaction::Kind::Write);
        TableStore(m_harness.db()).setWriteRight(table(Object::Own), "UploadReportSetting");
        setPassword(m_harness.db(), creator.userId, hashPassword(password));
        setPassword(m_harness.db(), stranger.userId, hashPassword("another one"));
        transaction.commit();
    }
    Session nobody = m_harness.login(creator.email, "a browser");
    nobody.ask(Message("logout"));
    m_sessions.emplace(Caller::LoggedOut, nobody);
    nobody.token.clear();
    m_sessions.emplace(Caller::Nobody, nobody);
    const Session expired = m_harness.login(creator.email, "a laptop");
    m_harness.db().run("UPDATE session SET last_seen = 0 WHERE id = :id", { { "id", expired.id } });
    m_sessions.emplace(Caller::Expired, expired);
    readRoles();
    m_image = std::make_unique<StoreImage>(m_harness.db());
    m_image->keep("first");
    keep();
}

void World::give(const Scenario &scenario)
{
    m_image->putBack("first");
    m_scenario = scenario;
    std::string roles = '[' + roleJson("Keeper", { Right::Administrate }, { m_giver.email });
    for (const Scenario::Role &role : scenario.roles) {
        std::vector<std::string> members;
        for (const Caller member : role.members)
            members.push_back(email(member));
        roles += ',' + roleJson(role.name, role.rights, members);
    }
    EXPECT_EQ(m_giver.ask(Message("updateroles").raw("Roles", roles + ']')).status(), 1);
    for (const auto &[object, kind] : scenario.kinds) {
        m_harness.db().run("UPDATE project SET kind = :kind WHERE guid = :guid",
            { { "kind", kind }, { "guid", project(object) } });
        std::vector<std::pair<std::string, std::string>> levels;
        if (object == Object::Foreign)
            levels.emplace_back("stranger@example.com", "1,1,1,1");
        const auto given = scenario.levels.find(object);
        if (given != scenario.levels.end()) {
            for (const auto &[caller, level] : given->second)
                levels.emplace_back(email(caller),
                    std::to_string(level.projectRw) + ",1," + std::to_string(level.addendum)
                        + ",1");
        }
        EXPECT_EQ(permit(m_giver, project(object), levels).status(), 1);
    }
    readRoles();
    keep();
}

void World::keep()
{
    m_image->keep("kept");
    m_given = digest();
}

void World::readRoles()
{
    const std::string text = m_giver.askAs(Message("getroles")).json();
    const auto begin = text.find("\"Roles\":") + 8;
    const std::string all = text.substr(begin, text.rfind(']') - begin + 1);
    const std::string others = all.substr(0, all.size() - 1) + ',';
    m_roles[Object::Own] = all;
    m_roles[Object::Foreign] = others + roleJson("New", { Right::ExportProjects }, {}) + ']';
    m_roles[Object::Missing]
        = others + roleJson("New", { Right::ExportProjects }, { "ghost@example.com" }) + ']';
}

std::string World::email(Caller caller) const
{
    switch (caller) {
    case Caller::Other:
        return "other@example.com";
    case Caller::Reader:
        return "reader@example.com";
    case Caller::Writer:
        return "writer@example.com";
    case Caller::Administrator:
        return "root@example.com";
    default:
        return "creator@example.com"; // the dead sessions are his
    }
}

std::string World::project(Object object) const
{
    return guidOf(1 + static_cast<int>(object));
}

std::string World::sharedProject() const
{
    return guidOf(9);
}

std::string World::projectName(Object object) const
{
    return std::string("Project ") + nameOf(object);
}

std::string World::group(Object object) const
{
    return std::string("Group ") + nameOf(object);
}

std::string World::templateName(Object object) const
{
    return std::string("Template ") + nameOf(object);
}

std::string World::templateId(Object object) const
{
    const auto found = m_templates.find(object);
    return found == m_templates.end() ? "00000000-0000-0000-0000-000000000000" : found->second;
}

int World::lockType(Object object) const
{
    return 1 + static_cast<int>(object);
}

std::string World::job(Object object) const
{
    return std::string("job-") + nameOf(object);
}

std::string World::table(Object object) const
{
    return std::string("Table_") + nameOf(object);
}

std::string World::roles(Object object) const
{
    return m_roles.at(object);
}

void World::addTemplate(Object object, const Session &owner)
{
    const Answer made = owner.askAs(Message("reportTemplateUpload")
                                        .set("name", templateName(object))
                                        .set("type", 1)
                                        .set("projectVersion", "1")
                                        .set("template", "e30=")
                                        .set("author", "A")
                                        .set("authorEmail", owner.email));
    m_templates[object] = made.text("templateID");
}

void World::addJob(Object object, const Session &owner)
{
    Db &db = m_harness.db();
    Transaction transaction(db, Transaction::Kind::Write);
    db.run("INSERT INTO blob (sha256, size, created) VALUES (:blob, 1, 1)",
        { { "blob", job(object) } });
    OcrStore(db).add({ job(object), owner.userId, job(object), "scan.pdf", "eng", 0,
                         OcrStore::JobState::Queued, 1 },
        { 0 });
    transaction.commit();
}

int World::send(Caller caller, const Expectation &row, Message message)
{
    const Session &session = m_sessions.at(caller);
    return (row.file.empty() ? session.askAs(std::move(message))
                             : session.upload(std::move(message), row.file))
        .status();
}

int World::ask(Caller caller, const Expectation &row, Object object)
{
    Message message = row.request(*this, caller, object);
    if (!row.identity.empty())
        message.set(row.identity.c_str(), email(caller));
    return send(caller, row, std::move(message));
}

int World::askAsAnother(Caller caller, const Expectation &row)
{
    Message message = row.request(*this, caller, Object::Own);
    return send(caller, row, message.set(row.identity.c_str(), "stranger@example.com"));
}

std::string World::digest()
{
    return m_image->digest();
}

void World::makeReadOnly()
{
    m_harness.db().execute("INSERT INTO meta (name, value) VALUES ('read_only', '1')");
}

void World::restore()
{
    m_image->putBack("kept");
}

} // namespace kvx::test
