#include "ServiceHarness.h"
#include "base/Log.h"
#include "services/TemplateDocument.h"
#include "store/GlobalLockStore.h"
#include "support/WaitFor.h"

#include <filesystem>

using namespace kvx::test;
using namespace kvx::server;

namespace {

struct Templates : testing::Test {
    ServiceHarness harness;
    Session admin = harness.join("root@example.com", "Administrator");
    Session anna = harness.join("anna@example.com", "Everything");
    Session ben = harness.join("ben@example.com", "Everything");
    Session reader = harness.join("rita@example.com", "Reviewer");

    static Message uploadOf(const std::string &name, const std::string &document)
    {
        return Message("reportTemplateUpload")
            .set("name", name)
            .set("type", 3)
            .set("projectVersion", "12.1")
            .set("template", base64(document))
            .set("author", "Anna W.")
            .set("authorEmail", "anna@elsewhere.example");
    }
    Answer upload(const Session &who, const std::string &name, const std::string &document = "{}")
    {
        return who.askAs(uploadOf(name, document));
    }
    std::string idOf(const std::string &name)
    {
        return anna
            .askAs(Message("reportTemplateExist")
                       .set("name", name))["reportTemplateInfo"]["templateID"]
            .GetString();
    }
    Answer download(const std::string &id)
    {
        return reader.askAs(Message("reportTemplateDownload").set("templateID", id));
    }
    Answer remove(const Session &who, const std::string &ids)
    {
        return who.askAs(Message("reportTemplateDelete").raw("templateIDArray", ids));
    }
    Answer rename(const Session &who, const std::string &id, const std::string &name)
    {
        return who.askAs(Message("reportTemplateRename").set("templateID", id).set("name", name));
    }
};

} // namespace

TEST_F(Templates, AreListedByNameWithEverythingThatWasSent)
{
    EXPECT_EQ(reader.askAs(Message("reportTemplateQuery")).json(),
        R"({"statuscode":1,"reportTemplateArray":[]})");
    const Answer first = upload(anna, "Zwischensumme");
    EXPECT_EQ(first.keys(), "statuscode templateID md5 createDate lastModifyDate");
    EXPECT_EQ(first.text("md5"), "99914b932bd37a50b983c5e7c90ae93b");
    EXPECT_EQ(first.text("createDate").size(), 19U);
    ASSERT_EQ(upload(ben, "Angebot").status(), 1);
    const Answer list = reader.askAs(Message("reportTemplateQuery"));
    ASSERT_EQ(list["reportTemplateArray"].Size(), 2U);
    EXPECT_STREQ(list["reportTemplateArray"][0]["name"].GetString(), "Angebot");
    const auto &info = list["reportTemplateArray"][1];
    EXPECT_EQ(info["templateID"].GetString(), first.text("templateID"));
    EXPECT_EQ(info["type"].GetInt(), 3);
    EXPECT_STREQ(info["author"].GetString(), "Anna W.");
    EXPECT_STREQ(info["authorEmail"].GetString(), "anna@elsewhere.example");
    EXPECT_STREQ(info["projectVersion"].GetString(), "12.1");
}

TEST_F(Templates, ComeBackToTheByte)
{
    const std::string document = "{\n    \"Überschrift\": \"Preis \\u20ac \xF0\x9F\x8F\x97\"\n}\n";
    const Answer sent = upload(anna, "Unicode", document);
    ASSERT_EQ(sent.status(), 1);
    EXPECT_EQ(download(sent.text("templateID")).text("template"), base64(document));

    const std::string large = "{\"text\":\"" + std::string(5'000'000, 'x') + "\"}";
    const Answer five = upload(anna, "Large", large);
    ASSERT_EQ(five.status(), 1);
    EXPECT_EQ(download(five.text("templateID")).text("template"), base64(large));
}

TEST_F(Templates, ThatAreNoDocumentAreRefused)
{
    const auto tryText = [&](const std::string &text) {
        return anna
            .askAs(Message("reportTemplateUpload")
                       .set("name", "Bad")
                       .set("type", 1)
                       .set("projectVersion", "")
                       .set("template", text)
                       .set("author", "")
                       .set("authorEmail", ""))
            .status();
    };
    EXPECT_EQ(tryText("not base64!"), 642);
    EXPECT_EQ(tryText("e30"), 642) << "padding is missing";
    EXPECT_EQ(tryText("e3\n0="), 642);
    EXPECT_EQ(tryText(""), 642);
    EXPECT_EQ(tryText(base64("[1,2]")), 642) << "an array";
    EXPECT_EQ(tryText(base64("7")), 642);
    EXPECT_EQ(tryText(base64("{")), 642);
    EXPECT_EQ(tryText(base64("{} {}")), 642);
    EXPECT_EQ(tryText(base64("{\"a\":\"\xFF\"}")), 642) << "not UTF-8";
    std::string deep;
    for (int i = 0; i < 600; ++i)
        deep += "{\"a\":";
    EXPECT_EQ(tryText(base64(deep + "1" + std::string(600, '}'))), 642);
    EXPECT_EQ(tryText(base64("{\"a\":\"" + std::string((8U << 20) + 1, 'x') + "\"}")), 642);
    EXPECT_EQ(tryText(base64("{}")), 1);
    // The last one's temporary file goes with the request, a moment after the reply.
    EXPECT_TRUE(waitFor([&] { return std::filesystem::is_empty(harness.folder() + "/tmp"); }));
}

TEST_F(Templates, NeedTheRightToUpload)
{
    EXPECT_EQ(upload(reader, "Mine").status(), 300);
    EXPECT_EQ(upload(admin, "Mine").status(), 1);
    EXPECT_EQ(upload(anna, std::string(201, 'n')).status(), 100);
    EXPECT_EQ(upload(anna, " ").status(), 100);
}

TEST_F(Templates, OfOneNameBelongToOneOwnerAndKeepTenVersions)
{
    const Answer first = upload(anna, "Summary", R"({"v":0})");
    const std::string id = first.text("templateID");
    const Answer other = upload(ben, "SUMMARY");
    EXPECT_EQ(other.status(), 641);
    EXPECT_EQ(other.text("message"), "A template of this name by Anna W. exists already.");
    EXPECT_EQ(other.text(""), other.text("message")) << "where clients look for it";
    for (int version = 1; version <= 12; ++version) {
        const Answer next = upload(anna, "Summary", "{\"v\":" + std::to_string(version) + '}');
        ASSERT_EQ(next.status(), 1);
        EXPECT_EQ(next.text("templateID"), id);
        EXPECT_EQ(next.text("createDate"), first.text("createDate"));
    }
    EXPECT_EQ(download(id).text("template"), base64(R"({"v":12})"));
    EXPECT_EQ(*harness.db().value<std::int64_t>("SELECT COUNT(*) FROM template_version"), 10);
}

TEST_F(Templates, AreFoundByNameAndById)
{
    const std::string id = upload(anna, "Summary").text("templateID");
    const Answer byName = reader.askAs(Message("reportTemplateExist").set("name", "summary"));
    EXPECT_EQ(byName["reportTemplateInfo"]["templateID"].GetString(), id);
    const Answer byId = reader.askAs(Message("reportTemplateExistByID").set("templateID", id));
    EXPECT_STREQ(byId["reportTemplateInfo"]["name"].GetString(), "Summary");
    EXPECT_EQ(reader.askAs(Message("reportTemplateExist").set("name", "x")).status(), 640);
    EXPECT_EQ(
        reader.askAs(Message("reportTemplateExistByID").set("templateID", "x")).status(), 640);
    EXPECT_EQ(download("x").status(), 640);
}

TEST_F(Templates, AreRenamedByTheirOwnerToAFreeName)
{
    const std::string id = upload(anna, "Summary").text("templateID");
    upload(ben, "Offer");
    harness.takeSent();
    EXPECT_EQ(rename(ben, id, "Mine").status(), 300);
    EXPECT_EQ(rename(anna, id, "offer").status(), 641);
    EXPECT_EQ(rename(anna, "x", "Mine").status(), 640);
    EXPECT_EQ(rename(anna, id, "Summary").status(), 1);
    EXPECT_TRUE(harness.takeSent().empty());
    EXPECT_EQ(rename(anna, id, "SUMMARY").status(), 1) << "only the case";
    EXPECT_EQ(rename(admin, id, "Total").status(), 1);
    EXPECT_EQ(idOf("Total"), id);
    EXPECT_EQ(reader.askAs(Message("reportTemplateExist").set("name", "Summary")).status(), 640);
    const auto sent = harness.takeSent();
    ASSERT_EQ(sent.size(), 2U);
    EXPECT_EQ(sent[1].type, "notifymsg_reportTemplate");
    EXPECT_EQ(sent[1].command, "Update");
    EXPECT_EQ(sent[1].sender, "root@example.com");
    EXPECT_NE(sent[1].content.find(R"("name":"Total")"), std::string::npos);
}

TEST_F(Templates, AreDeletedAllOrNone)
{
    const std::string first = upload(anna, "One").text("templateID");
    const std::string second = upload(ben, "Two").text("templateID");
    harness.takeSent();
    const auto list = [](const std::string &a, const std::string &b) {
        return "[\"" + a + "\",\"" + b + "\"]";
    };
    EXPECT_EQ(remove(anna, "[]").status(), 1);
    EXPECT_EQ(remove(anna, list(first, second)).status(), 300);
    EXPECT_EQ(remove(anna, list(first, "unknown")).status(), 640);
    EXPECT_EQ(idOf("One"), first) << "nothing has gone";
    EXPECT_TRUE(harness.takeSent().empty());
    EXPECT_EQ(remove(admin, list(first, second)).status(), 1);
    EXPECT_EQ(remove(anna, list(first, first)).status(), 1) << "deleted before";
    const auto sent = harness.takeSent();
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].content,
        R"({"Command":"Update","reportTemplateArray":[],"removedTemplateIDs":)"
            + list(first, second) + '}');
    EXPECT_NE(upload(ben, "One").text("templateID"), first) << "the name is free again";
}

TEST_F(Templates, UploadsAreAnnounced)
{
    upload(anna, "Summary");
    const auto sent = harness.takeSent();
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(
        sent[0].content.find(R"({"Command":"Update","reportTemplateArray":[{"templateID":)"), 0U);
}

namespace {

struct GlobalLocks : testing::Test {
    ServiceHarness harness;
    Session admin = harness.join("root@example.com", "Administrator");
    Session anna = harness.join("anna@example.com");
    Session ben = harness.join("ben@example.com");

    static Message lockOf(const Session &who, int type, int minutes = 0, bool logout = false)
    {
        return Message("GlobalLock")
            .set("lockType", type)
            .set("lockedAuthorName", "Name of " + who.email)
            .set("lockedAuthorEmail", who.email)
            .set("autoUnlockTime", minutes)
            .set("logoutUnlock", logout);
    }
    Answer lock(const Session &who, int type, int minutes = 0, bool logout = false)
    {
        return who.askAs(lockOf(who, type, minutes, logout));
    }
    Answer unlock(const Session &who, int type)
    {
        return who.askAs(Message("GlobalUnlock").set("lockType", type));
    }
    void expire(int type)
    {
        harness.db().run("UPDATE global_lock SET until = :until WHERE type = :type",
            { { "until", harness.environment().clock.now() - 1 }, { "type", type } });
    }
    Time untilOf(int type) { return GlobalLockStore(harness.db()).find(type)->until; }
};

} // namespace

TEST_F(GlobalLocks, AreHeldByOneUserAtATime)
{
    const Answer taken = lock(anna, 7, 30);
    EXPECT_EQ(taken.keys(), "statuscode lockedAuthorName lockedAuthorEmail expires");
    EXPECT_EQ(taken.text("lockedAuthorName"), "Name of anna@example.com");
    const Answer held = lock(ben, 7);
    EXPECT_EQ(held.status(), 650);
    EXPECT_EQ(held.text("lockedAuthorEmail"), "anna@example.com");
    EXPECT_EQ(held.text("message"),
        "This is locked by Name of anna@example.com until " + taken.text("expires") + ".");
    EXPECT_EQ(held.text(""), held.text("message"));
    EXPECT_EQ(lock(ben, 8).status(), 1) << "another type";
    EXPECT_EQ(lock(anna, 7).status(), 1) << "renewed";
}

TEST_F(GlobalLocks, EndWhenTheirTimeIsOver)
{
    const Time now = harness.environment().clock.now();
    ASSERT_EQ(lock(anna, 1, 5).status(), 1);
    EXPECT_NEAR(static_cast<double>(untilOf(1) - now), 5 * 60'000, 30'000);
    ASSERT_EQ(lock(anna, 1, 0).status(), 1);
    EXPECT_NEAR(static_cast<double>(untilOf(1) - now), 1440 * 60'000, 30'000);
    ASSERT_EQ(lock(anna, 1, 1441).status(), 1);
    EXPECT_NEAR(static_cast<double>(untilOf(1) - now), 1440 * 60'000, 30'000);
    EXPECT_EQ(lock(anna, 1, -1).status(), 100);
    expire(1);
    EXPECT_EQ(unlock(anna, 1).status(), 651);
    EXPECT_FALSE(GlobalLockStore(harness.db()).find(1)) << "judged once, and gone";
    ASSERT_EQ(lock(anna, 1).status(), 1);
    expire(1);
    EXPECT_EQ(lock(ben, 1).status(), 1);
}

TEST_F(GlobalLocks, EndWithOneLineInTheLog)
{
    ASSERT_EQ(lock(anna, 7).status(), 1);
    ASSERT_EQ(lock(ben, 8).status(), 1);
    expire(7);
    harness.config().logLevel = "info";
    openLog(harness.config());
    testing::internal::CaptureStderr();
    EXPECT_EQ(unlock(anna, 7).status(), 651);
    EXPECT_EQ(unlock(anna, 7).status(), 651);
    EXPECT_EQ(lock(ben, 7).status(), 1);
    const std::string log = testing::internal::GetCapturedStderr();
    harness.config().logLevel = "error";
    openLog(harness.config());
    const std::string line = " info global lock expired type=7 user=anna@example.com\n";
    const std::size_t at = log.find(line);
    EXPECT_NE(at, std::string::npos) << log;
    EXPECT_EQ(log.find("global lock expired", at + line.size()), std::string::npos) << log;
}

TEST_F(GlobalLocks, AreReleasedByTheirHolderOrAnAdministrator)
{
    EXPECT_EQ(unlock(anna, 1).status(), 651);
    lock(anna, 1);
    const Answer refused = unlock(ben, 1);
    EXPECT_EQ(refused.status(), 652);
    EXPECT_EQ(refused.text("lockedAuthorName"), "Name of anna@example.com");
    const Session elsewhere = harness.login("anna@example.com", "laptop");
    EXPECT_EQ(unlock(elsewhere, 1).status(), 1) << "any of his sessions";
    lock(anna, 1);
    EXPECT_EQ(unlock(admin, 1).status(), 1);
}

TEST_F(GlobalLocks, AreTakenInTheOwnNameUnlessByAnAdministrator)
{
    EXPECT_EQ(anna.askAs(lockOf(ben, 1)).status(), 301);
    EXPECT_EQ(admin.askAs(lockOf(ben, 1)).status(), 1);
    EXPECT_EQ(lock(anna, 1).status(), 650);
    EXPECT_EQ(lock(ben, 1).status(), 1) << "it is his";
    EXPECT_EQ(admin
                  .askAs(Message("GlobalLock")
                             .set("lockType", 2)
                             .set("lockedAuthorName", "Nobody")
                             .set("lockedAuthorEmail", "nobody@example.com")
                             .set("autoUnlockTime", 0)
                             .set("logoutUnlock", false))
                  .status(),
        302);
}

TEST_F(GlobalLocks, BoundToASessionEndWithTheOneThatTookThemLast)
{
    const Session laptop = harness.login("anna@example.com", "laptop");
    lock(anna, 1, 0, true);
    lock(anna, 2, 0, false);
    lock(anna, 3, 0, true);
    lock(laptop, 3, 0, true);
    EXPECT_EQ(anna.ask(Message("logout")).status(), 1);
    EXPECT_EQ(lock(ben, 1).status(), 1);
    EXPECT_EQ(lock(ben, 2).status(), 650);
    EXPECT_EQ(lock(ben, 3).status(), 650);
    EXPECT_EQ(laptop.ask(Message("logout")).status(), 1);
    EXPECT_EQ(lock(ben, 3).status(), 1);
}
