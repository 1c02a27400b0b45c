#include "ServiceHarness.h"
#include "base/Digest.h"
#include "services/FileNames.h"
#include "services/LogArchive.h"
#include "store/LogStore.h"
#include "support/Watchdog.h"

#include <algorithm>
#include <map>
#include <set>
#include <thread>

using namespace kvx::test;
using namespace kvx::server;

namespace {

const std::string guid = guidOf(1);

struct Save : testing::Test {
    ServiceHarness harness;
    Session anna = harness.join("anna@example.com");
    Session ben = harness.join("ben@example.com");

    void SetUp() override
    {
        ASSERT_EQ(anna.ask(newProject(anna, guid, "School Nordring")).status(), 1);
        ASSERT_EQ(permit(anna, guid, { { "ben@example.com", "1,1,1,1" } }).status(), 1);
        harness.takeSent();
    }
    Message on(const char *service) { return Message(service).set("ProjectGUID", guid); }
    std::int64_t version(const Session &session)
    {
        return session.ask(on("getlogversion")).integer("LogVersion");
    }
    std::int64_t lock(const Session &session, std::int64_t version, bool release = false)
    {
        return session.ask(on("loglock").set("LogVersion", version).set("ReleaseLock", release))
            .integer("Lock");
    }
    Answer stageLog(const Session &session, std::int64_t version, const std::string &content = "x")
    {
        const std::string log = logName(guid, version);
        return session.upload(log, logArchive(log, content));
    }
    Answer merge(const Session &session, std::int64_t version, const std::string &log,
        const std::string &amount = "99")
    {
        return session.ask(on("sendservertomerge")
                               .set("LogVersion", version)
                               .set("LogFilename", log)
                               .set("Amount", amount));
    }
    Answer download(const Session &session, const std::string &name)
    {
        return session.askAs(Message("download").set("FileName", name));
    }
    std::int64_t number(const char *sql) { return harness.db().value<std::int64_t>(sql).value(); }
    std::string amount()
    {
        return harness.db().value<std::string>("SELECT amount FROM project").value();
    }
};

} // namespace

TEST_F(Save, PublishesLogFileVersionAndRecordTogether)
{
    const Answer merged = save(anna, guid, -1, "first");
    EXPECT_EQ(merged.status(), 1) << merged.json();
    EXPECT_EQ(merged.keys(), "statuscode LogVersion Chain");
    EXPECT_EQ(merged.integer("LogVersion"), 0);
    const Answer state = ben.ask(on("getlogversion"));
    EXPECT_EQ(state.keys(), "statuscode LogVersion Chain Epoch");
    EXPECT_EQ(state.integer("LogVersion"), 0);
    EXPECT_EQ(state.text("Chain"), merged.text("Chain"));

    const Answer file = download(ben, guid + ".KVX");
    EXPECT_EQ(file.fileBytes(), "file with first");
    EXPECT_EQ(file.integer("LogVersion"), 0);
    EXPECT_EQ(download(ben, guid + "_log0").fileBytes(), logArchive(guid + "_log0", "first"));
    EXPECT_EQ(number("SELECT count(*) FROM stage"), 0);

    const auto sent = harness.takeSent();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].type, "notifymsg_projectlist");
    EXPECT_EQ(sent[0].command, "Save");
    EXPECT_EQ(sent[0].sender, "anna@example.com");
    rapidjson::Document content;
    content.Parse(sent[0].content.c_str());
    EXPECT_STREQ(content["Command"].GetString(), "Save");
    EXPECT_EQ(content["LogVersion"].GetInt(), 0);
    EXPECT_STREQ(content["Amount"].GetString(), "99");
    EXPECT_STREQ(content["LastEditorEmail"].GetString(), "anna@example.com");
    EXPECT_FALSE(content.HasMember("users"));
    EXPECT_FALSE(content.HasMember("AdditionalInfo"));
}

TEST_F(Save, WhoKnowsOtherVersionsThanTheServerHasIsTold)
{
    const std::string first = save(anna, guid, -1, "first").text("Chain");
    const std::string second = save(ben, guid, 0, "second").text("Chain");
    ASSERT_NE(first, second);
    const auto known = [&](std::int64_t version, const std::string &chain) {
        return ben.ask(on("getlogversion").set("KnownVersion", version).set("KnownChain", chain));
    };
    EXPECT_EQ(known(1, second).integer("LogVersion"), 1);
    EXPECT_EQ(known(0, first).integer("LogVersion"), 1) << "behind, and on the same way";
    EXPECT_EQ(known(1, first).status(), 608);
    EXPECT_EQ(known(0, second).status(), 608);
    EXPECT_EQ(known(0, "").status(), 608);
    EXPECT_EQ(known(7, "anything").integer("LogVersion"), 1) << "ahead: judged by its number";
    EXPECT_EQ(ben.ask(on("getlogversion").set("KnownVersion", 1)).status(), 100) << "half of it";
    EXPECT_EQ(known(-1, first).status(), 100);
}

TEST_F(Save, StagedBytesAreSeenByNobody)
{
    ASSERT_EQ(save(anna, guid, -1, "first").status(), 1);
    const std::string log = logName(guid, 1);
    ASSERT_EQ(lock(anna, 0), 1);
    ASSERT_EQ(stageLog(anna, 1).status(), 1);
    ASSERT_EQ(anna.upload(guid + ".KVX", "file with second").status(), 1);
    for (const Session &session : { anna, ben }) {
        EXPECT_EQ(download(session, log).status(), 606);
        EXPECT_EQ(download(session, guid + ".KVX").fileBytes(), "file with first");
        EXPECT_EQ(session.askAs(Message("hasupload").set("FileName", log)).status(), 606);
        EXPECT_EQ(version(session), 0);
    }
    lock(anna, 0, true);
    EXPECT_EQ(number("SELECT count(*) FROM stage"), 0) << "the release drops the stage";
    EXPECT_EQ(download(anna, guid + ".KVX").fileBytes(), "file with first");
}

TEST_F(Save, AFirstSaveOfItsCreatorStagesTheFileToo)
{
    ASSERT_EQ(lock(anna, -1), 1);
    ASSERT_EQ(anna.upload(guid + ".KVX", "file").status(), 1);
    EXPECT_EQ(download(anna, guid + ".KVX").status(), 606) << "with the lock it is part of a save";
    ASSERT_EQ(stageLog(anna, 0).status(), 1);
    EXPECT_EQ(merge(anna, -1, guid + "_log0").status(), 1);
}

TEST_F(Save, UploadsOfLogsAreJudged)
{
    ASSERT_EQ(save(anna, guid, -1).status(), 1);
    EXPECT_EQ(stageLog(ben, 1).status(), 600) << "without the lock";
    ASSERT_EQ(lock(ben, 0), 1);
    EXPECT_EQ(stageLog(ben, 0).status(), 601);
    EXPECT_EQ(stageLog(ben, 2).status(), 602);
    EXPECT_EQ(ben.upload(guid + "_log01", "x").status(), 604);
    EXPECT_EQ(stageLog(anna, 1).status(), 600) << "somebody else's lock";
    const Answer bad = ben.upload(guid + "_log1", "no archive");
    EXPECT_EQ(bad.status(), 605);
    EXPECT_EQ(
        bad.text("message"), "The change log is not a valid archive: it is not a zip archive.");
    EXPECT_EQ(ben.upload(guid + "_log1", logArchive(guid + "_log2", "x")).status(), 605);
    EXPECT_EQ(number("SELECT count(*) FROM stage"), 0);
    EXPECT_EQ(stageLog(ben, 1).json(), R"({"statuscode":1})");
    EXPECT_EQ(stageLog(ben, 1, "better").status(), 1) << "a second upload replaces the first";
    ASSERT_EQ(ben.upload(guid + ".KVX", "f").status(), 1);
    ASSERT_EQ(merge(ben, 0, guid + "_log1").status(), 1);
    EXPECT_EQ(download(anna, guid + "_log1").fileBytes(), logArchive(guid + "_log1", "better"));
}

TEST_F(Save, LogsAreNotLookedIntoWhereThatIsSwitchedOff)
{
    harness.config().logsCheck = "none";
    ASSERT_EQ(lock(anna, -1), 1);
    EXPECT_EQ(anna.upload(guid + "_log0", "anything").status(), 1);
}

TEST_F(Save, AMergeIsRefusedInThisOrder)
{
    ASSERT_EQ(save(anna, guid, -1).status(), 1);
    EXPECT_EQ(merge(ben, 7, "nonsense").status(), 600);
    ASSERT_EQ(lock(ben, 0), 1);
    EXPECT_EQ(merge(ben, -1, "nonsense").status(), 601);
    EXPECT_EQ(merge(ben, 1, "nonsense").status(), 602);
    for (const std::string &name : { std::string("nonsense"), guid + "_log0", guid + "_log2",
             guid + "_log01", guidOf(2) + "_log1", guid + ".KVX", std::string() })
        EXPECT_EQ(merge(ben, 0, name).status(), 604) << name;
    EXPECT_EQ(merge(ben, 0, guid + "_log1").status(), 603);
    ASSERT_EQ(stageLog(ben, 1).status(), 1);
    EXPECT_EQ(merge(ben, 0, guid + "_log1").status(), 603) << "the project file is missing";
    ASSERT_EQ(ben.upload(guid + ".KVX", "f").status(), 1);
    EXPECT_EQ(version(anna), 0);
    EXPECT_EQ(merge(ben, 0, guid + "_log1").status(), 1);
    const Session stranger = harness.join("sam@example.com");
    EXPECT_EQ(merge(stranger, 0, guid + "_log1").status(), 310);
    EXPECT_EQ(harness.takeSent().size(), 2u) << "one for each save, none for a refusal";
}

TEST_F(Save, TheAmountIsNoReasonToRefuse)
{
    int version = -1;
    const auto saved = [&](const std::string &json) {
        const std::string log = logName(guid, version + 1);
        EXPECT_EQ(lock(anna, version), 1);
        EXPECT_EQ(stageLog(anna, version + 1).status(), 1);
        EXPECT_EQ(anna.upload(guid + ".KVX", "f").status(), 1);
        Message message
            = on("sendservertomerge").set("LogVersion", version).set("LogFilename", log);
        if (!json.empty())
            message.raw("Amount", json);
        EXPECT_EQ(anna.ask(message).status(), 1);
        ++version;
        return amount();
    };
    EXPECT_EQ(saved("\"1234.50\""), "1234.50");
    EXPECT_EQ(saved("\"\""), "1234.50") << "empty keeps";
    EXPECT_EQ(saved(""), "1234.50");
    EXPECT_EQ(saved("\"" + std::string(65, '1') + "\""), "1234.50");
    EXPECT_EQ(saved("\"" + std::string(64, '1') + "\""), std::string(64, '1'));
    EXPECT_EQ(saved("77.5"), "77.5");
    EXPECT_EQ(saved("null"), "77.5");
    EXPECT_EQ(saved("[1]"), "77.5");
}

TEST_F(Save, ARepeatedMergeIsAnsweredOneAndPublishesOnce)
{
    ASSERT_EQ(lock(anna, -1), 1);
    ASSERT_EQ(stageLog(anna, 0).status(), 1);
    ASSERT_EQ(anna.upload(guid + ".KVX", "f").status(), 1);
    const Answer first = merge(anna, -1, guid + "_log0");
    ASSERT_EQ(first.status(), 1);
    const Answer again = merge(anna, -1, guid + "_log0");
    EXPECT_EQ(again.json(), first.json());
    EXPECT_EQ(version(anna), 0);
    EXPECT_EQ(harness.takeSent().size(), 1u);
    lock(anna, 0, true);
    EXPECT_EQ(merge(anna, -1, guid + "_log0").json(), first.json()) << "also without the lock";
    EXPECT_EQ(merge(ben, -1, guid + "_log0").status(), 600) << "he published nothing";
    EXPECT_EQ(merge(anna, 0, guid + "_log1").status(), 600) << "nor did she publish that";
    const Session annasLaptop = harness.login("anna@example.com", "laptop");
    EXPECT_EQ(merge(annasLaptop, -1, guid + "_log0").status(), 600) << "another session";
    ASSERT_EQ(lock(anna, 0), 1);
    EXPECT_EQ(merge(anna, -1, guid + "_log0").status(), 601) << "another generation";
    EXPECT_EQ(version(anna), 0);
    EXPECT_TRUE(harness.takeSent().empty());
}

TEST_F(Save, ARepeatedMergeIsNotAnsweredOneOnceAnotherTookTheLock)
{
    ASSERT_EQ(save(anna, guid, -1).status(), 1);
    EXPECT_EQ(merge(anna, -1, guid + "_log0").status(), 1);
    ASSERT_EQ(lock(ben, 0), 1);
    EXPECT_EQ(merge(anna, -1, guid + "_log0").status(), 600);
    lock(ben, 0, true);
    EXPECT_EQ(merge(anna, -1, guid + "_log0").status(), 600);
    ASSERT_EQ(save(ben, guid, 0).status(), 1);
    EXPECT_EQ(merge(anna, -1, guid + "_log0").status(), 600);
    EXPECT_EQ(merge(ben, 0, guid + "_log1").status(), 1) << "his own";
    EXPECT_EQ(version(anna), 1);
}

TEST_F(Save, ALogIsJudgedByTheSizeThatItsArchiveStates)
{
    ASSERT_EQ(lock(anna, -1), 1);
    const auto sayingSize = [](std::uint32_t size) {
        std::string archive = logArchive(guid + "_log0", std::string(300, 'x'));
        for (const auto &[header, place] : { std::pair("PK\1\2", 24u), { "PK\3\4", 22u } }) {
            const std::size_t at = archive.find(header) + place;
            for (unsigned i = 0; i < 4; ++i)
                archive.at(at + i) = static_cast<char>(size >> (8 * i));
        }
        return archive;
    };
    constexpr std::uint32_t limit = 256u << 20;
    const auto answer = [&](std::uint32_t size) {
        const Answer refused = anna.upload(guid + "_log0", sayingSize(size));
        EXPECT_EQ(refused.status(), 605);
        return refused.text("message");
    };
    EXPECT_EQ(answer(limit + 1),
        "The change log is not a valid archive: its entry is larger than 256 MiB.");
    EXPECT_EQ(answer(0xfffffffe),
        "The change log is not a valid archive: its entry is larger than 256 MiB.");
    EXPECT_EQ(answer(limit),
        "The change log is not a valid archive: its entry unpacks to more than 200 times its "
        "size.");
}

TEST_F(Save, SeveralSavesUnderOneLockEachNeedTheirUploads)
{
    ASSERT_EQ(lock(anna, -1), 1);
    ASSERT_EQ(stageLog(anna, 0).status(), 1);
    ASSERT_EQ(anna.upload(guid + ".KVX", "f").status(), 1);
    ASSERT_EQ(merge(anna, -1, guid + "_log0").status(), 1);
    EXPECT_EQ(merge(anna, 0, guid + "_log1").status(), 603);
    ASSERT_EQ(stageLog(anna, 1).status(), 1);
    EXPECT_EQ(merge(anna, 0, guid + "_log1").status(), 603);
    ASSERT_EQ(anna.upload(guid + ".KVX", "g").status(), 1);
    EXPECT_EQ(merge(anna, 0, guid + "_log1").status(), 1);
}

TEST_F(Save, TheChainTiesEveryVersionToTheOneBefore)
{
    std::string before;
    for (int v = -1; v < 3; ++v) {
        const std::string chain
            = save(v % 2 ? anna : ben, guid, v, "content " + std::to_string(v)).text("Chain");
        const auto row
            = harness.db().row<std::string, std::string, std::int64_t, Time, std::string>(
                "SELECT blob, file_digest, user_id, at, chain FROM project_log WHERE version = :v",
                { { "v", v + 1 } });
        const auto &[log, file, user, at, stored] = row.value();
        EXPECT_EQ(chain, chainDigest({ before, guid, v + 1, log, file, user, at }));
        EXPECT_EQ(stored, chain);
        EXPECT_EQ(log, sha256(logArchive(logName(guid, v + 1), "content " + std::to_string(v))));
        before = chain;
    }
}

TEST_F(Save, OldProjectFilesAreForgottenAndLogsNever)
{
    for (int v = -1; v < 6; ++v)
        ASSERT_EQ(save(anna, guid, v, std::to_string(v)).status(), 1);
    EXPECT_EQ(number("SELECT count(*) FROM project_log"), 7);
    EXPECT_EQ(number("SELECT count(*) FROM project_log WHERE file_blob IS NOT NULL"), 3);
    EXPECT_EQ(number("SELECT min(version) FROM project_log WHERE file_blob IS NOT NULL"), 4);
    EXPECT_EQ(number("SELECT count(*) FROM project_log WHERE file_digest <> ''"), 7);
    EXPECT_EQ(download(ben, guid + "_log0").status(), 1);
}

TEST_F(Save, AProjectLockOfAnotherStopsASaveUnderWay)
{
    ASSERT_EQ(lock(anna, -1), 1);
    ASSERT_EQ(stageLog(anna, 0).status(), 1);
    ASSERT_EQ(anna.upload(guid + ".KVX", "f").status(), 1);
    ASSERT_EQ(ben.ask(on("projectlock").set("ReleaseLock", false)).status(), 1);
    EXPECT_EQ(merge(anna, -1, guid + "_log0").status(), 314);
    ASSERT_EQ(ben.ask(on("projectlock").set("ReleaseLock", true)).status(), 1);
    EXPECT_EQ(merge(anna, -1, guid + "_log0").status(), 1);
}

TEST_F(Save, HasUploadKnowsTheDigestsOfPublishedLogs)
{
    ASSERT_EQ(save(anna, guid, -1, "first").status(), 1);
    const auto has = [&](const std::string &name, const std::string &md5) {
        return ben.askAs(Message("hasupload").set("FileName", name).set("md5", md5)).status();
    };
    EXPECT_EQ(has(guid + "_log0", md5(logArchive(guid + "_log0", "first"))), 1);
    EXPECT_EQ(has(guid + "_log0", md5("else")), 606);
    EXPECT_EQ(has(guid + ".KVX", md5("file with first")), 1);
    EXPECT_EQ(has(guid + ".KVX", md5("file with second")), 606);
}

TEST_F(Save, ManySaversPublishEverySaveExactlyOnceInDenseVersions)
{
    Watchdog::allow(110);
    constexpr int savers = 8;
    constexpr int savesEach = 12;
    std::string perms;
    std::vector<Session> sessions;
    std::vector<std::pair<std::string, std::string>> levels;
    for (int i = 0; i < savers; ++i) {
        sessions.push_back(harness.join("saver" + std::to_string(i) + "@example.com"));
        levels.emplace_back(sessions.back().email, "1,1,1,1");
    }
    ASSERT_EQ(permit(anna, guid, levels).status(), 1);
    harness.takeSent();

    std::vector<std::vector<std::int64_t>> published(savers);
    std::vector<std::thread> threads;
    for (int i = 0; i < savers; ++i) {
        threads.emplace_back([&, i] {
            const Session &session = sessions[static_cast<std::size_t>(i)];
            for (int n = 0; n < savesEach;) {
                const std::int64_t known = session.ask(on("getlogversion")).integer("LogVersion");
                const Answer answer
                    = save(session, guid, known, std::to_string(i) + '/' + std::to_string(n));
                if (answer.has("Chain")) {
                    published[static_cast<std::size_t>(i)].push_back(answer.integer("LogVersion"));
                    ++n;
                }
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();

    EXPECT_EQ(version(anna), savers * savesEach - 1);
    std::set<std::int64_t> versions;
    for (int i = 0; i < savers; ++i) {
        for (int n = 0; n < savesEach; ++n) {
            const std::int64_t v
                = published[static_cast<std::size_t>(i)][static_cast<std::size_t>(n)];
            EXPECT_TRUE(versions.insert(v).second) << v << " was acknowledged twice";
            const std::string log = logName(guid, v);
            EXPECT_EQ(download(anna, log).fileBytes(),
                logArchive(log, std::to_string(i) + '/' + std::to_string(n)));
        }
    }
    EXPECT_EQ(*versions.begin(), 0);
    EXPECT_EQ(*versions.rbegin(), savers * savesEach - 1);
    std::vector<int> announced;
    for (const auto &sent : harness.takeSent()) {
        rapidjson::Document content;
        content.Parse(sent.content.c_str());
        announced.push_back(content["LogVersion"].GetInt());
    }
    EXPECT_EQ(announced.size(), static_cast<std::size_t>(savers * savesEach));
    EXPECT_TRUE(std::is_sorted(announced.begin(), announced.end()))
        << "in the order of the commits";
    const auto last = harness.db().value<std::string>("SELECT file_blob FROM project").value();
    EXPECT_EQ(download(anna, guid + ".KVX").fileBytes().substr(0, 10), "file with ");
    EXPECT_EQ(sha256(download(anna, guid + ".KVX").fileBytes()), last);
}
