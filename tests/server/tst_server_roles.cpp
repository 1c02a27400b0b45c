#include "ServiceHarness.h"

#include "services/RoleChange.h"
#include "services/Withdrawal.h"
#include "store/UserStore.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

using namespace kvx::test;
using namespace kvx::server;

namespace {

using Json = rapidjson::Value;

std::string textOf(const Json &value)
{
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    value.Accept(writer);
    return buffer.GetString();
}

/// The role table as a client holds it: read, changed, sent back.
class Table {
public:
    explicit Table(const Session &reader)
    {
        m_roles.CopyFrom(reader.askAs(Message("getroles"))["Roles"], m_roles.GetAllocator());
    }
    Json &role(const char *name)
    {
        for (Json &role : m_roles.GetArray()) {
            if (role["Name"] == Json(rapidjson::StringRef(name)))
                return role;
        }
        throw std::runtime_error(std::string("there is no role ") + name);
    }
    Table &set(const char *role, const char *key, int value)
    {
        this->role(role)[key].SetInt(value);
        return *this;
    }
    Table &rename(const char *from, const char *to)
    {
        role(from)["Name"].SetString(to, m_roles.GetAllocator());
        return *this;
    }
    Table &put(const char *role, const std::string &email)
    {
        Json user(rapidjson::kObjectType);
        user.AddMember(
            "Email", Json(email.c_str(), m_roles.GetAllocator()), m_roles.GetAllocator());
        this->role(role)["users"].PushBack(user, m_roles.GetAllocator());
        return *this;
    }
    Table &take(const char *role, const std::string &email)
    {
        Json &users = this->role(role)["users"];
        for (auto user = users.Begin(); user != users.End(); ++user) {
            if (email == (*user)["Email"].GetString()) {
                users.Erase(user);
                return *this;
            }
        }
        throw std::runtime_error(email + " does not have that role");
    }
    Table &remove(const char *name)
    {
        for (auto role = m_roles.Begin(); role != m_roles.End(); ++role) {
            if (std::string(name) == (*role)["Name"].GetString()) {
                m_roles.Erase(role);
                return *this;
            }
        }
        throw std::runtime_error(std::string("there is no role ") + name);
    }
    /// A role that the client has made itself: without a key and without a revision.
    Table &add(const char *name)
    {
        Json role(rapidjson::kObjectType);
        role.CopyFrom(m_roles[0], m_roles.GetAllocator());
        role["Name"].SetString(name, m_roles.GetAllocator());
        role["RoleID"].SetInt(0);
        role.RemoveMember("Revision");
        role["users"].Clear();
        for (const RightName &right : rightNames)
            role[right.key].SetInt(0);
        m_roles.PushBack(role, m_roles.GetAllocator());
        return *this;
    }
    Table &first(const char *name)
    {
        Json moved;
        moved.CopyFrom(role(name), m_roles.GetAllocator());
        remove(name);
        rapidjson::Document rest;
        rest.SetArray();
        rest.PushBack(Json(moved, rest.GetAllocator()), rest.GetAllocator());
        for (const Json &other : m_roles.GetArray())
            rest.PushBack(Json(other, rest.GetAllocator()), rest.GetAllocator());
        m_roles.CopyFrom(rest, m_roles.GetAllocator());
        return *this;
    }
    Table &without(const char *key)
    {
        for (Json &role : m_roles.GetArray())
            role.RemoveMember(key);
        return *this;
    }
    std::string json() const { return textOf(m_roles); }

private:
    rapidjson::Document m_roles;
};

struct Roles : testing::Test {
    ServiceHarness harness;
    Session root = harness.join("root@example.com", "Administrator");
    Session anna = harness.join("anna@example.com");
    Session ben = harness.join("ben@example.com", "Everything");
    const std::string guid = guidOf(1);

    static Answer send(const Session &session, const std::string &roles)
    {
        return session.ask(Message("updateroles").raw("Roles", roles));
    }
    static Answer send(const Session &session, const Table &table)
    {
        return send(session, table.json());
    }
    /// "Administrator 000000001 root; …": the whole table as everybody reads it.
    std::string table()
    {
        std::string all;
        const Answer answer = anna.askAs(Message("getroles"));
        for (const auto &role : answer["Roles"].GetArray()) {
            all += (all.empty() ? "" : "; ") + std::string(role["Name"].GetString()) + ' ';
            for (const RightName &right : rightNames)
                all += std::to_string(role[right.key].GetInt());
            for (const auto &user : role["users"].GetArray()) {
                const std::string email = user["Email"].GetString();
                all += ' ' + email.substr(0, email.find('@'));
            }
        }
        return all;
    }
    Message on(const char *service) { return Message(service).set("ProjectGUID", guid); }
    Answer lockLog(const Session &session)
    {
        return session.ask(on("loglock").set("LogVersion", -1).set("ReleaseLock", false));
    }
    Answer checkOut(const Session &session, int module, const char *ids)
    {
        return session.ask(
            on("checkout").set("ModuleType", module).set("NotifyOther", false).set("IDs", ids));
    }
    std::int64_t count(const char *sql) { return harness.db().value<std::int64_t>(sql).value(); }
    /// Type, command, sender and content of what was announced.
    std::vector<std::string> sent()
    {
        std::vector<std::string> all;
        for (const auto &one : harness.takeSent())
            all.push_back(one.type.substr(10) + ' ' + one.command + " by \"" + one.sender + "\" "
                + one.content);
        return all;
    }
    static std::string roleUpdate(const std::string &users)
    {
        return R"(role Update by "root@example.com" {"Command":"Update","Users":[)" + users + "]}";
    }
    std::string checkIn(int module)
    {
        return R"(checkout CheckIn by "" {"Command":"CheckIn","ProjectGUID":")" + guid
            + R"(","ModuleType":)" + std::to_string(module) + '}';
    }
};

const std::string fresh = "Administrator 000000001 root; Everything 100010000 ben; "
                          "Reviewer 010000000; Estimator 000000000 anna; "
                          "Library reader 000001000; Library writer 000000100; "
                          "Bill writer 000000010";

} // namespace

TEST_F(Roles, OrderNamesPermissionsAndMembersAreTakenAsSent)
{
    ASSERT_EQ(table(), fresh);
    Table table(root);
    table.first("Estimator")
        .set("Reviewer", "ExportUnitRate", 1)
        .set("Reviewer", "ExportProject", 1);
    table.put("Reviewer", " ANNA@Example.com").take("Everything", "ben@example.com");
    table.rename("Library reader", "x").rename("Library writer", "Library reader");
    table.rename("x", "Library writer").remove("Bill writer").add("Trainees");
    table.put("Trainees", "ben@example.com");
    const Answer answer = send(root, table);
    EXPECT_EQ(answer.json(), R"({"statuscode":1,"Revision":1})");
    EXPECT_EQ(this->table(),
        "Estimator 000000000 anna; Administrator 000000001 root; Everything 100010000; "
        "Reviewer 011100000 anna; Library writer 000001000; Library reader 000000100; "
        "Trainees 000000000 ben");
    EXPECT_EQ(count("SELECT count(*) FROM audit WHERE service = 'updateroles' AND status = 1"), 1);
    EXPECT_EQ(harness.db().value<std::string>("SELECT detail FROM audit"),
        R"({"Revision":1,"Roles":[{"Name":"Reviewer","Rights":["AllProjectReview","ExportProject",)"
        R"("ExportUnitRate"]},{"Name":"Library writer","Rights":["ReadOnlyRateLibrary"]},)"
        R"({"Name":"Library reader","Rights":["ReadWriteRateLibrary"]},)"
        R"({"Name":"Trainees","Rights":[]}],"Removed":["Bill writer"],)"
        R"("Users":[{"Email":"anna@example.com","Role":"Estimator"},)"
        R"({"Email":"ben@example.com","Role":"Trainees"}]})");
}

TEST_F(Roles, WithoutKeyARoleIsFoundByItsName)
{
    const auto before = count("SELECT id FROM role WHERE name = 'Reviewer'");
    Table table(root);
    table.rename("Reviewer", " REVIEWER ").without("RoleID").put(" REVIEWER ", "anna@example.com");
    ASSERT_EQ(send(root, table).status(), 1);
    EXPECT_EQ(count("SELECT id FROM role WHERE name = 'REVIEWER'"), before);
    EXPECT_EQ(count("SELECT count(*) FROM role"), 7);

    // The name belongs to another one now; the role without a key is a new one.
    Table renamed(root);
    renamed.rename("REVIEWER", "Examiner").add("Reviewer");
    ASSERT_EQ(send(root, renamed).status(), 1);
    EXPECT_EQ(count("SELECT id FROM role WHERE name = 'Examiner'"), before);
    EXPECT_NE(count("SELECT id FROM role WHERE name = 'Reviewer'"), before);
}

TEST_F(Roles, TheSameTableAgainChangesAndAnnouncesNothing)
{
    EXPECT_EQ(send(root, Table(root)).json(), R"({"statuscode":1,"Revision":0})");
    Table table(root);
    table.set("Reviewer", "ExportProject", 1);
    ASSERT_EQ(send(root, table).integer("Revision"), 1);
    EXPECT_EQ(sent().size(), 1u);
    EXPECT_EQ(send(root, table).json(), R"({"statuscode":1,"Revision":1})") << "the reply was lost";
    const Session other = harness.join("rita@example.com", "Administrator");
    table.put("Administrator", "rita@example.com");
    EXPECT_EQ(send(other, table).integer("Revision"), 1) << "whatever its revision, whoever asks";
    EXPECT_TRUE(sent().empty());
    EXPECT_EQ(count("SELECT count(*) FROM audit"), 1);
}

TEST_F(Roles, ChangedMeanwhileByAnotherSessionAreNotOverwritten)
{
    const Session other = harness.login("root@example.com", "laptop");
    Table stale(root);
    stale.set("Reviewer", "ExportProject", 1);
    Table first(other);
    first.set("Estimator", "ExportProject", 1);
    ASSERT_EQ(send(other, first).status(), 1);
    const std::string table = this->table();
    EXPECT_EQ(send(root, stale).status(), 690);
    EXPECT_EQ(this->table(), table);
    EXPECT_EQ(send(root, stale.without("Revision")).status(), 1) << "the last writer wins then";
    EXPECT_EQ(send(other, first).status(), 690);

    Table future(root);
    future.set("Reviewer", "ExportUnitRate", 1);
    for (const char *name : { "Administrator", "Everything", "Reviewer", "Estimator" })
        future.set(name, "Revision", 99);
    for (const char *name : { "Library reader", "Library writer", "Bill writer" })
        future.set(name, "Revision", 99);
    EXPECT_EQ(send(root, future).status(), 690) << "read before the data was put back";
}

TEST_F(Roles, ChangedByTheSameSessionNeedNotBeReadAgain)
{
    Table table(root);
    for (int value : { 1, 0, 1 })
        ASSERT_EQ(send(root, table.set("Reviewer", "ExportProject", value)).status(), 1) << value;
    const Session other = harness.login("root@example.com", "laptop");
    ASSERT_EQ(send(other, Table(other).set("Reviewer", "ExportUnitRate", 1)).status(), 1);
    EXPECT_EQ(send(root, table.set("Reviewer", "ExportProject", 0)).status(), 690);
    Table again(root);
    EXPECT_EQ(send(root, again.set("Reviewer", "ExportProject", 0)).status(), 1);
    EXPECT_EQ(send(root, again.set("Reviewer", "ExportProject", 1)).status(), 1);
    EXPECT_EQ(send(root, table.set("Estimator", "ExportProject", 1)).status(), 690)
        << "from before the other's change";
}

TEST_F(Roles, ChangedByACommandAreNotOverwritten)
{
    Table table(root);
    ASSERT_EQ(send(root, table.set("Reviewer", "ExportProject", 1)).status(), 1);
    {
        Transaction transaction(harness.db(), Transaction::Kind::Write);
        RoleChange change(harness.db());
        assignRole(harness.db(), findRole(harness.db(), "Reviewer").value(), anna.userId);
        ASSERT_TRUE(change.finish(1).has_value());
        transaction.commit();
    }
    EXPECT_EQ(send(root, table.set("Reviewer", "ExportProject", 0)).status(), 690);
}

TEST_F(Roles, ARoleThatWasRemovedMeanwhileDoesNotComeBack)
{
    Table table(root);
    const Session other = harness.login("root@example.com", "laptop");
    ASSERT_EQ(send(other, Table(other).remove("Reviewer")).status(), 1);
    EXPECT_EQ(send(root, table.without("Revision")).status(), 690);
    EXPECT_EQ(this->table().find("Reviewer"), std::string::npos);
}

TEST_F(Roles, OfTwoAdministratorsAtOnceOneIsRefused)
{
    const Session other = harness.login("root@example.com", "laptop");
    for (int round = 0; round < 10; ++round) {
        Table mine(root);
        Table his(other);
        mine.set("Reviewer", "ExportProject", (round + 1) % 2);
        his.set("Estimator", "ExportProject", (round + 1) % 2);
        const auto ask = [](const Session &session, const Table &table) {
            return session.askLater(
                Message("updateroles").set("Email", session.email).raw("Roles", table.json()));
        };
        auto one = ask(root, mine);
        auto two = ask(other, his);
        const int first = one.get().status();
        const int second = two.get().status();
        ASSERT_TRUE((first == 1 && second == 690) || (first == 690 && second == 1))
            << first << ' ' << second;
        ASSERT_EQ(send(first == 1 ? other : root,
                      first == 1 ? Table(other).set("Estimator", "ExportProject", (round + 1) % 2)
                                 : Table(root).set("Reviewer", "ExportProject", (round + 1) % 2))
                      .status(),
            1);
    }
}

TEST_F(Roles, BadTablesAreNamedAndChangeNothing)
{
    const auto fault = [this](const std::string &roles) {
        const Answer answer = send(root, roles);
        EXPECT_EQ(answer.status(), 100) << roles;
        return answer.text("message");
    };
    const std::string rights
        = R"("AllProjectReadWrite":0,"AllProjectReview":0,"ExportProject":0,"ExportUnitRate":0,)"
          R"("UploadReportSetting":0,"ReadOnlyRateLibrary":0,"ReadWriteRateLibrary":0,)"
          R"("ReadWriteBQLibrary":0,"Administrator":1,"users":[{"Email":"root@example.com"}]})";
    const auto role = [&rights](const std::string &head) { return '{' + head + ',' + rights; };
    const std::string good = role(R"("RoleID":1,"Name":"Administrator")");
    const auto with = [&good](const std::string &more) { return '[' + good + ',' + more + ']'; };
    const auto replaced = [&good](const std::string &from, const std::string &to) {
        std::string text = good;
        return '[' + text.replace(text.find(from), from.size(), to) + ']';
    };
    EXPECT_EQ(fault("7"), "The request is not valid: \"Roles\" must be an array.");
    EXPECT_EQ(fault("[7]"), "The request is not valid: \"Roles[0]\" must be an object.");
    EXPECT_EQ(fault("[{}]"), "The request is not valid: \"Roles[0].Name\" is missing.");
    for (const char *name : { R"("")", R"("  ")", R"("a\nb")" })
        EXPECT_NE(fault('[' + role(std::string(R"("Name":)") + name) + ']').find("Roles[0].Name"),
            std::string::npos);
    EXPECT_NE(
        fault('[' + role(R"("Name":")" + std::string(101, 'x') + '"') + ']').find("Roles[0].Name"),
        std::string::npos);
    EXPECT_NE(fault(with(role(R"("Name":" ADMINISTRATOR ")"))).find("two roles named"),
        std::string::npos);
    EXPECT_NE(fault(with(role(R"("RoleID":1,"Name":"Other")"))).find("the role 1 twice"),
        std::string::npos);
    EXPECT_NE(fault(replaced("\"RoleID\":1", "\"RoleID\":-1")).find("Roles[0].RoleID"),
        std::string::npos);
    EXPECT_NE(fault(replaced("\"RoleID\":1", "\"RoleID\":\"1\"")).find("Roles[0].RoleID"),
        std::string::npos);
    EXPECT_NE(fault(replaced("\"RoleID\":1", "\"Revision\":\"1\"")).find("Roles[0].Revision"),
        std::string::npos);
    EXPECT_NE(fault(replaced("\"ExportUnitRate\":0,", "")).find("ExportUnitRate\" is missing"),
        std::string::npos);
    for (const char *value : { "2", "-1", "true", "\"1\"", "0.5", "null" })
        EXPECT_NE(fault(replaced("\"ExportProject\":0", std::string("\"ExportProject\":") + value))
                      .find("Roles[0].ExportProject"),
            std::string::npos)
            << value;
    EXPECT_NE(fault(replaced("\"users\":[{\"Email\":\"root@example.com\"}]", "\"x\":1"))
                  .find("Roles[0].users\" is missing"),
        std::string::npos);
    EXPECT_NE(fault(replaced("{\"Email\":\"root@example.com\"}", "{\"Name\":\"Root\"}"))
                  .find("Roles[0].users[0].Email\" is missing"),
        std::string::npos);
    EXPECT_NE(fault(replaced("[{", "[{\"Email\":\"ROOT@example.com\"},{")).find("twice"),
        std::string::npos);
    std::string many = good;
    for (int i = 1; i <= 500; ++i)
        many += ',' + role("\"Name\":\"" + std::to_string(i) + '"');
    EXPECT_NE(fault('[' + many + ']').find("Roles"), std::string::npos);
    EXPECT_EQ(root.ask(Message("updateroles")).status(), 100);
    EXPECT_EQ(table(), fresh);
    EXPECT_TRUE(sent().empty());
}

TEST_F(Roles, AnUnknownUserIsNamedAndNothingChanges)
{
    const Answer answer = send(
        root, Table(root).set("Reviewer", "ExportProject", 1).put("Reviewer", "ghost@example.com"));
    EXPECT_EQ(answer.status(), 302);
    EXPECT_EQ(answer.text("message"), "There is no user \"ghost@example.com\".");
    EXPECT_EQ(table(), fresh);
}

TEST_F(Roles, AnEnabledAdministratorRemains)
{
    EXPECT_EQ(send(root, "[]").status(), 303);
    EXPECT_EQ(send(root, Table(root).take("Administrator", "root@example.com")).status(), 303);
    EXPECT_EQ(send(root, Table(root).set("Administrator", "Administrator", 0)).status(), 303);
    EXPECT_EQ(send(root, Table(root).remove("Administrator")).status(), 303);
    EXPECT_EQ(
        send(root, Table(root).first("Reviewer").put("Reviewer", "root@example.com")).status(), 303)
        << "his first role would be another one";
    harness.addUser("rita@example.com", "Rita", "Administrator");
    setDisabled(harness.db(), findUser(harness.db(), "rita@example.com")->id, true);
    EXPECT_EQ(send(root, Table(root).take("Administrator", "root@example.com")).status(), 303)
        << "a disabled one does not count";
    EXPECT_EQ(table(),
        "Administrator 000000001 rita root"
            + fresh.substr(std::string("Administrator 000000001 root").size()));
    EXPECT_TRUE(sent().empty());

    setDisabled(harness.db(), findUser(harness.db(), "rita@example.com")->id, false);
    EXPECT_EQ(send(root, Table(root).take("Administrator", "root@example.com")).status(), 1);
    EXPECT_EQ(send(root, Table(root)).status(), 300) << "his own right went with it, at once";
    EXPECT_EQ(root.askAs(Message("getroles")).status(), 1) << "his session did not end";
}

TEST_F(Roles, AreAnnouncedWithThoseConcerned)
{
    ASSERT_EQ(send(root, Table(root).set("Everything", "ExportProject", 1)).status(), 1);
    EXPECT_EQ(sent(), std::vector { roleUpdate(R"("ben@example.com")") }) << "another right";
    ASSERT_EQ(send(root, Table(root).set("Reviewer", "ExportProject", 1)).status(), 1);
    EXPECT_EQ(sent(), std::vector { roleUpdate("") }) << "nobody has the role";
    ASSERT_EQ(send(root, Table(root).put("Reviewer", "ben@example.com")).status(), 1);
    EXPECT_EQ(sent(), std::vector { roleUpdate(R"("ben@example.com")") }) << "a further role";
    ASSERT_EQ(send(root, Table(root).first("Reviewer")).status(), 1);
    EXPECT_EQ(sent(), std::vector { roleUpdate(R"("ben@example.com")") }) << "another one counts";
    ASSERT_EQ(send(root, Table(root).first("Bill writer")).status(), 1);
    EXPECT_EQ(sent(), std::vector { roleUpdate("") }) << "an order that concerns nobody";
    ASSERT_EQ(send(root, Table(root).rename("Estimator", "Calculator")).status(), 1);
    EXPECT_EQ(sent(), std::vector { roleUpdate(R"("anna@example.com")") });
}

TEST_F(Roles, AMessageNamesAThousandUsersAtMost)
{
    {
        Transaction transaction(harness.db(), Transaction::Kind::Write);
        const auto reviewer = findRole(harness.db(), "Reviewer").value();
        for (int i = 0; i < 1001; ++i) {
            const std::string email = "u" + std::to_string(i) + "@example.com";
            assignRole(harness.db(), reviewer, addUser(harness.db(), 1, email, email, "none"));
        }
        transaction.commit();
    }
    ASSERT_EQ(send(root, Table(root).set("Reviewer", "ExportProject", 1)).status(), 1);
    EXPECT_EQ(sent(), std::vector { roleUpdate("") });
    ASSERT_EQ(
        send(root,
            Table(root).take("Reviewer", "u7@example.com").set("Reviewer", "ExportProject", 0))
            .status(),
        1);
    EXPECT_EQ(sent(), std::vector { roleUpdate("") });
}

TEST_F(Roles, FiveHundredWithThousandsOfMembersAreTaken)
{
    std::string users;
    {
        Transaction transaction(harness.db(), Transaction::Kind::Write);
        for (int i = 0; i < 4000; ++i) {
            const std::string email = "u" + std::to_string(i) + "@example.com";
            addUser(harness.db(), 1, email, email, "none");
            users += (users.empty() ? "" : ",") + ("{\"Email\":\"" + email + "\"}");
        }
        transaction.commit();
    }
    std::string roles = Table(root).json();
    roles.pop_back();
    std::string rights;
    for (const RightName &right : rightNames)
        rights += std::string("\"") + right.key + "\":0,";
    for (int i = 8; i <= 500; ++i)
        roles += ",{\"Name\":\"Role " + std::to_string(i) + "\"," + rights + "\"users\":["
            + (i % 50 == 0 ? users : "") + "]}";
    ASSERT_GT(roles.size(), std::size_t { 1 } << 20) << "more than an ordinary request may hold";
    ASSERT_EQ(send(root, roles + ']').status(), 1);
    EXPECT_EQ(count("SELECT count(*) FROM role"), 500);
    EXPECT_EQ(count("SELECT count(*) FROM role_user"), 10 * 4000 + 3);
}

TEST_F(Roles, TheFirstInOrderDecidesAlone)
{
    ASSERT_EQ(anna.ask(newProject(anna, guid, "School")).status(), 1);
    ASSERT_EQ(send(root, Table(root).put("Reviewer", "ben@example.com")).status(), 1);
    const auto rename = [&](const char *from, const char *to) {
        return ben.ask(on("renameproject").set("OldName", from).set("NewName", to)).status();
    };
    EXPECT_EQ(rename("School", "School 2"), 1);
    ASSERT_EQ(send(root, Table(root).first("Reviewer")).status(), 1);
    EXPECT_EQ(rename("School 2", "School 3"), 300) << "a reviewer reads, whatever the other role";
    ASSERT_EQ(
        send(root, Table(root).first("Estimator").put("Estimator", "ben@example.com")).status(), 1);
    EXPECT_EQ(rename("School 2", "School 3"), 310);
}

TEST_F(Roles, RightsThatAreLostFreeWhatIsHeld)
{
    ASSERT_EQ(anna.ask(newProject(anna, guid, "School")).status(), 1);
    ASSERT_EQ(ben.ask(on("openproject")).status(), 1);
    ASSERT_EQ(checkOut(ben, 3, "1;2;").status(), 1);
    ASSERT_EQ(checkOut(ben, 5, "7;").status(), 1);
    ASSERT_EQ(checkOut(anna, 5, "8;").status(), 1);
    ASSERT_EQ(lockLog(ben).integer("Lock"), 1);
    ASSERT_EQ(ben.upload(guid + ".KVX", "x").status(), 1);
    auto waiting = anna.askLater(
        on("loglock").set("LogVersion", -1).set("ReleaseLock", false).set("Email", anna.email));
    sent();

    ASSERT_EQ(send(root, Table(root).take("Everything", "ben@example.com")).status(), 1);
    EXPECT_EQ(sent(), (std::vector { roleUpdate(R"("ben@example.com")"), checkIn(3), checkIn(5) }));
    EXPECT_EQ(waiting.get().integer("Lock"), 1) << "who waits for the lock has it at once";
    EXPECT_EQ(count("SELECT count(*) FROM stage"), 0);
    EXPECT_EQ(count("SELECT count(*) FROM project_open"), 0);
    EXPECT_EQ(count("SELECT count(*) FROM item WHERE state = 1"), 1) << "Anna's";
    EXPECT_EQ(ben.askAs(on("getproject")).status(), 310);
    EXPECT_EQ(ben.askAs(Message("getroles")).status(), 1) << "his session goes on";
    EXPECT_EQ(ben.ask(on("sendservertomerge")
                          .set("LogVersion", -1)
                          .set("LogFilename", guid + "_log0")
                          .set("Amount", ""))
                  .status(),
        310);
}

TEST_F(Roles, WhoMayStillReadKeepsTheProjectOpen)
{
    ASSERT_EQ(anna.ask(newProject(anna, guid, "School")).status(), 1);
    ASSERT_EQ(ben.ask(on("openproject")).status(), 1);
    ASSERT_EQ(checkOut(ben, 3, "1;").status(), 1);
    ASSERT_EQ(ben.ask(on("projectlock").set("ReleaseLock", false)).status(), 1);
    sent();
    ASSERT_EQ(send(root,
                  Table(root)
                      .set("Everything", "AllProjectReadWrite", 0)
                      .set("Everything", "AllProjectReview", 1))
                  .status(),
        1);
    EXPECT_EQ(sent(), (std::vector { roleUpdate(R"("ben@example.com")"), checkIn(3) }));
    EXPECT_EQ(count("SELECT count(*) FROM project_open"), 1);
    EXPECT_EQ(count("SELECT count(*) FROM project WHERE plock_session IS NOT NULL"), 0);
    EXPECT_EQ(checkOut(ben, 3, "1;").status(), 300);
}

TEST_F(Roles, StoredLevelsOutliveARole)
{
    ASSERT_EQ(anna.ask(newProject(anna, guid, "School")).status(), 1);
    ASSERT_EQ(permit(anna, guid, { { "ben@example.com", "1,1,1,1" } }).status(), 1);
    ASSERT_EQ(checkOut(ben, 3, "1;").status(), 1);
    ASSERT_EQ(lockLog(ben).integer("Lock"), 1);
    sent();
    ASSERT_EQ(send(root, Table(root).remove("Everything")).status(), 1);
    EXPECT_EQ(sent(), std::vector { roleUpdate(R"("ben@example.com")") });
    EXPECT_EQ(count("SELECT count(*) FROM item WHERE state = 1"), 1);
    EXPECT_EQ(count("SELECT count(*) FROM project WHERE lock_session IS NOT NULL"), 1);
}

TEST_F(Roles, OnlyProjectsOfTheKindsConcernedAreTouched)
{
    const Session lena = harness.join("lena@example.com", "Library writer");
    ASSERT_EQ(lena.ask(newProject(lena, guid, "Bills", "BQLibrary")).status(), 1);
    ASSERT_EQ(permit(root, guid, { { "lena@example.com", "-1" } }).status(), 1);
    ASSERT_EQ(lena.ask(newProject(lena, guidOf(2), "Tender")).status(), 1);
    const auto checkOutIn = [&](const std::string &project) {
        return lena.ask(Message("checkout")
                            .set("ProjectGUID", project)
                            .set("ModuleType", 4)
                            .set("NotifyOther", false)
                            .set("IDs", "5;"));
    };
    ASSERT_EQ(checkOutIn(guid).status(), 1);
    ASSERT_EQ(checkOutIn(guidOf(2)).status(), 1);
    sent();
    ASSERT_EQ(send(root,
                  Table(root)
                      .set("Library writer", "ReadWriteRateLibrary", 0)
                      .set("Library writer", "ReadWriteBQLibrary", 1))
                  .status(),
        1);
    EXPECT_EQ(sent().size(), 1u) << "bills are still hers to write";
    ASSERT_EQ(send(root, Table(root).set("Library writer", "ReadWriteBQLibrary", 0)).status(), 1);
    EXPECT_EQ(sent(), (std::vector { roleUpdate(R"("lena@example.com")"), checkIn(4) }));
    EXPECT_EQ(count("SELECT count(*) FROM item WHERE state = 1"), 1) << "in her own tender";
}

TEST_F(Roles, AnAccountThatGoesFreesAllItsItems)
{
    ASSERT_EQ(anna.ask(newProject(anna, guid, "School")).status(), 1);
    ASSERT_EQ(checkOut(ben, 3, "1;").status(), 1);
    ASSERT_EQ(checkOut(anna, 3, "2;").status(), 1);
    sent();
    Transaction transaction(harness.db(), Transaction::Kind::Write);
    freeAllItems(harness.db(), 1, ben.userId);
    transaction.commit();
    EXPECT_EQ(sent(), std::vector { checkIn(3) });
    EXPECT_EQ(count("SELECT user_id FROM item WHERE state = 1"), anna.userId);
}
