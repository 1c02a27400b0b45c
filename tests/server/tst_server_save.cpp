#include "ServiceHarness.h"
#include "base/Digest.h"
#include "services/FileNames.h"
#include "services/LogArchive.h"

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
    std::int64_t version(const Session &session)
    {
        return session.ask(Message("getlogversion").set("ProjectGUID", guid)).integer("LogVersion");
    }
    Answer lock(const Session &session, std::int64_t version)
    {
        return session.ask(Message("loglock").set("ProjectGUID", guid).set("LogVersion", version).set("ReleaseLock", false));
    }
    Answer merge(const Session &session, std::int64_t version, const std::string &log)
    {
        return session.ask(Message("sendservertomerge").set("ProjectGUID", guid)
                               .set("LogVersion", version).set("LogFilename", log).set("Amount", "99"));
    }
    Answer download(const Session &session, const std::string &name)
    {
        return session.askAs(Message("download").set("FileName", name));
    }
};

} // namespace

TEST_F(Save, PublishesLogFileVersionAndRecordTogether)
{
    const Answer merged = save(anna, guid, -1, "first");
    EXPECT_EQ(merged.status(), 1) << merged.json();
    EXPECT_EQ(merged.keys(), "statuscode LogVersion Chain");
    EXPECT_EQ(merged.integer("LogVersion"), 0);
    EXPECT_EQ(version(ben), 0);

    const Answer file = download(ben, guid + ".KVX");
    EXPECT_TRUE(file.isFile());
    EXPECT_EQ(file.fileBytes(), "file with first");
    EXPECT_EQ(file.integer("LogVersion"), 0);
    EXPECT_FALSE(faultOfLogArchive(harness.config().blobFolder(), "x") == std::nullopt);
    EXPECT_EQ(download(ben, guid + "_log0").fileBytes(), logArchive(guid + "_log0", "first"));

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
    EXPECT_FALSE(content.HasMember("users"));
    EXPECT_FALSE(content.HasMember("AdditionalInfo"));
}

TEST_F(Save, StagedBytesAreSeenByNobody)
{
    ASSERT_EQ(save(anna, guid, -1, "first").status(), 1);
    const std::string log = logName(guid, 1);
    ASSERT_EQ(lock(anna, 0).integer("Lock"), 1);
    ASSERT_EQ(anna.upload(log, logArchive(log, "second")).status(), 1);
    ASSERT_EQ(anna.upload(guid + ".KVX", "file with second").status(), 1);
    for (const Session &session : { anna, ben }) {
        EXPECT_EQ(download(session, log).status(), 606);
        EXPECT_EQ(download(session, guid + ".KVX").fileBytes(), "file with first");
        EXPECT_EQ(session.askAs(Message("hasupload").set("FileName", log)).status(), 606);
        EXPECT_EQ(version(session), 0);
    }
}
