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

/// Every request may write these: when a session was heard of, and the lease that goes with it.
bool isVolatile(const std::string &table, const std::string &column)
{
    return (table == "session" && column == "last_seen")
        || (table == "project" && column == "lock_until");
}

/// A failed login is counted and recorded; keys that were given out are not taken back.
bool countsLogins(const std::string &table)
{
    return table == "login_failure" || table == "audit" || table == "counter";
}

std::string replaced(
    std::string text, const std::string &after, const std::string &from, const std::string &to)
{
    const auto at = text.find(from, text.find(after));
    return text.replace(at, from.size(), to);
}

} // namespace

World::World()
    // No page is recognised here.
    : m_harness([](Config &config) { config.ocrWorkers = 0; })
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
            { email(Caller::Writer), "0" }, { email(Caller::Creator), "0" } });
    {
        Transaction transaction(m_harness.db(), Transaction::Kind::Write);
        TableStore(m_harness.db()).setWriteRight(table(Object::Own), "UploadReportSetting");
        setPassword(m_harness.db(), creator.userId, hashPassword(password));
        setPassword(m_harness.db(), stranger.userId, hashPassword("another one"));
        transaction.commit();
    }
    const Answer read = administrator.askAs(Message("getroles"));
    const std::string text = read.json();
    const auto begin = text.find("\"Roles\":") + 8;
    m_roles[Object::Own] = text.substr(begin, text.rfind(']') - begin + 1);
    m_roles[Object::Foreign] = replaced(m_roles[Object::Own], "\"Name\":\"Reviewer\"",
        "\"ExportProject\":0", "\"ExportProject\":1");
    m_roles[Object::Missing] = replaced(m_roles[Object::Own], "\"Name\":\"Reviewer\"",
        "\"users\":[", "\"users\":[{\"Email\":\"ghost@example.com\"}");

    Session nobody = m_harness.login(creator.email, "a browser");
    nobody.ask(Message("logout"));
    m_sessions.emplace(Caller::LoggedOut, nobody);
    nobody.token.clear();
    m_sessions.emplace(Caller::Nobody, nobody);
    const Session expired = m_harness.login(creator.email, "a laptop");
    m_harness.db().run("UPDATE session SET last_seen = 0 WHERE id = :id", { { "id", expired.id } });
    m_sessions.emplace(Caller::Expired, expired);
    keepSnapshot();
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

void World::keepSnapshot()
{
    Db &db = m_harness.db();
    db.execute("PRAGMA synchronous = OFF");
    for (const auto &[name] : db.rows<std::string>(
             "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite%'"))
        m_tables.push_back(name);
    for (const std::string &table : m_tables) {
        std::string columns;
        for (const auto &[column] : db.rows<std::string>(
                 "SELECT name FROM pragma_table_info(:table)", { { "table", table } })) {
            if (!isVolatile(table, column))
                columns += (columns.empty() ? "" : "||','||") + ("quote(" + column + ')');
        }
        m_columns[table] = columns;
        db.execute("CREATE TABLE kept_" + table + " AS SELECT * FROM " + table);
    }
}

std::string World::digest()
{
    std::string all;
    for (const std::string &table : m_tables) {
        if (!countsLogins(table))
            all += table + '\n'
                + m_harness.db()
                      .value<std::string>("SELECT coalesce(group_concat(" + m_columns[table]
                          + ", x'0a'), '') FROM " + table)
                      .value()
                + '\n';
    }
    return all;
}

void World::restore()
{
    Db &db = m_harness.db();
    Transaction transaction(db, Transaction::Kind::Write);
    db.execute("PRAGMA defer_foreign_keys = ON");
    for (const std::string &table : m_tables)
        db.execute("DELETE FROM " + table);
    for (const std::string &table : m_tables)
        db.execute("INSERT INTO " + table + " SELECT * FROM kept_" + table);
    transaction.commit();
}

} // namespace kvx::test
