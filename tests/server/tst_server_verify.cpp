#include "ServiceHarness.h"
#include "store/BlobStore.h"
#include "store/StoreCheck.h"

#include <fstream>

using namespace kvx::test;
using namespace kvx::server;

namespace {

/// A store in which somebody has saved three times, checked items out and asked for numbers.
struct Verify : testing::Test {
    const std::string guid = guidOf(1);
    ServiceHarness harness;
    Session admin = harness.join("root@example.com", "Administrator");
    Session anna = harness.join("anna@example.com");

    void SetUp() override
    {
        ASSERT_EQ(anna.ask(newProject(anna, guid, "School")).status(), 1);
        ASSERT_EQ(anna.upload(guid + ".KVX", "base").status(), 1);
        for (int version = -1; version < 2; ++version)
            ASSERT_EQ(save(anna, guid, version, "change " + std::to_string(version)).status(), 1);
        for (int i = 0; i < 2; ++i)
            ASSERT_EQ(
                anna.ask(Message("allocateidrange").set("ProjectGUID", guid).set("NewRange", true))
                    .status(),
                1);
        ASSERT_TRUE(faults(true).empty()) << faults(true).front();
    }
    std::vector<std::string> faults(bool deep = false)
    {
        std::vector<std::string> found;
        StoreCheck(harness.db(), harness.folder(), [&found](const std::string &fault) {
            found.push_back(fault);
        }).run(deep);
        return found;
    }
    /// The one fault after that change; all of them when they are not one.
    std::string faultAfter(const std::string &sql)
    {
        harness.db().execute(sql);
        std::string all;
        for (const std::string &fault : faults())
            all += (all.empty() ? "" : " | ") + fault;
        return all;
    }
    std::string pathOfSomeBlob()
    {
        return BlobStore(harness.folder())
            .path(
                *harness.db().value<std::string>("SELECT blob FROM project_log WHERE version = 1"));
    }
};

} // namespace

TEST_F(Verify, FindsAVersionThatIsMissing)
{
    const std::string found = faultAfter("DELETE FROM project_log WHERE version = 1");
    EXPECT_NE(found.find("project " + guid + ": version 2 follows 0"), std::string::npos) << found;
}

TEST_F(Verify, FindsAVersionThatTheProjectDoesNotCount)
{
    EXPECT_EQ(faultAfter("UPDATE project SET log_version = 1"),
        "project " + guid + " stands at version 1, its last log is 2");
}

TEST_F(Verify, AcceptsTheBarrierOfARestore)
{
    harness.db().execute("INSERT INTO barrier (project_id, version, before, epoch, at)"
                         " SELECT id, 2000, 2, 'e', 0 FROM project");
    EXPECT_EQ(faultAfter("UPDATE project SET log_version = 2000"), "");
}

TEST_F(Verify, FindsAHistoryThatWasAltered)
{
    const std::string found = faultAfter("UPDATE project_log SET at = at + 1 WHERE version = 1");
    EXPECT_EQ(found, "project " + guid + ": the chain of digests breaks at version 1");
    EXPECT_NE(faultAfter("UPDATE project SET chain = 'x'").find("is not that of its last version"),
        std::string::npos);
}

TEST_F(Verify, FindsALockWithoutASession)
{
    EXPECT_EQ(faultAfter("UPDATE project SET lock_session = 4711, lock_user = 1"),
        "project " + guid + ": its save lock belongs to a session that is over");
    EXPECT_EQ(
        faultAfter("UPDATE project SET lock_session = NULL"), "project " + guid + ": half a lock");
}

TEST_F(Verify, FindsAnUploadThatWaitsWithoutALock)
{
    EXPECT_EQ(faultAfter("INSERT INTO stage (project_id, part, generation, session_id, blob, md5,"
                         " size, at) SELECT p.id, 'log', 1, 1, b.sha256, '', 1, 0"
                         " FROM project p, blob b LIMIT 1"),
        "project " + guid + ": an upload (log) waits without a lock");
}

TEST_F(Verify, FindsNumbersThatWereGivenTwice)
{
    const std::string found = faultAfter("UPDATE item_block SET max_id = max_id + 1");
    EXPECT_NE(found.find("were given twice"), std::string::npos) << found;
    EXPECT_NE(found.find("do not fit the counter"), std::string::npos) << found;
}

TEST_F(Verify, FindsLevelsOutOfRangeAndAServerWithoutAdministrator)
{
    EXPECT_EQ(faultAfter("UPDATE project_permission SET rw = 9"),
        "project " + guid + ": the levels of anna@example.com are out of range");
    harness.db().execute("UPDATE project_permission SET rw = 1");
    EXPECT_EQ(faultAfter("DELETE FROM role_user"), "no enabled user is an administrator");
}

TEST_F(Verify, FindsAnAlteredAuditLog)
{
    const std::string found = faultAfter("UPDATE audit SET detail = 'nothing' WHERE number = 2");
    EXPECT_EQ(found, "the audit log of process 1 breaks at entry 2");
    EXPECT_NE(faultAfter("DELETE FROM audit WHERE number = 3").find("breaks at entry 4"),
        std::string::npos);
    EXPECT_EQ(faultAfter("DELETE FROM audit WHERE number < 4"), "") << "gone by age";
}

TEST_F(Verify, FindsContentsThatAreMissingShortOrDamaged)
{
    const std::string path = pathOfSomeBlob();
    std::fstream(path, std::ios::in | std::ios::out | std::ios::binary).seekp(3).put('#');
    EXPECT_TRUE(faults().empty()) << "only seen when it is read";
    ASSERT_EQ(faults(true).size(), 1U);
    EXPECT_NE(faults(true)[0].find("is damaged"), std::string::npos);
    std::ofstream(path, std::ios::trunc) << "x";
    EXPECT_NE(faults()[0].find("has 1 bytes instead of"), std::string::npos);
    std::filesystem::remove(path);
    EXPECT_NE(faults()[0].find("is missing"), std::string::npos);
}

TEST_F(Verify, FindsARowWhoseParentIsGone)
{
    harness.db().execute("PRAGMA foreign_keys = OFF");
    const std::string found = faultAfter("DELETE FROM blob WHERE sha256 ="
                                         " (SELECT blob FROM project_log WHERE version = 2)");
    EXPECT_NE(
        found.find("of project_log refers to a row of blob that is not there"), std::string::npos)
        << found;
}

TEST_F(Verify, AcceptsAPurgedProject)
{
    harness.db().execute("DELETE FROM project_log");
    EXPECT_EQ(faultAfter("UPDATE project SET removed_at = 1, file_blob = NULL"), "");
}
