#include "ServiceHarness.h"
#include "base/Digest.h"
#include "notify/Janitor.h"
#include "services/Tidying.h"
#include "store/BlobStore.h"
#include "support/WaitFor.h"

#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>

using namespace kvx::test;
using namespace kvx::server;

namespace {

const std::string guid = guidOf(1);
constexpr Time day = 24 * 3'600'000;

struct Tidying : testing::Test {
    ServiceHarness harness;
    Session anna = harness.join("anna@example.com");
    BlobStore blobs { harness.folder() };

    void SetUp() override { ASSERT_EQ(anna.ask(newProject(anna, guid, "School")).status(), 1); }
    void tidy(void (*chore)(const Environment &, Db &), int rounds = 1)
    {
        for (int i = 0; i < rounds; ++i) {
            Transaction transaction(harness.db(), Transaction::Kind::Write);
            chore(harness.environment(), harness.db());
            transaction.commit();
        }
    }
    bool isThere(const std::string &bytes)
    {
        return std::filesystem::exists(blobs.path(sha256(bytes)));
    }
    void age(const std::string &bytes)
    {
        const timespec old[2]
            = { { time(nullptr) - 25 * 3600, 0 }, { time(nullptr) - 25 * 3600, 0 } };
        ASSERT_EQ(utimensat(AT_FDCWD, blobs.path(sha256(bytes)).c_str(), old, 0), 0);
        harness.db().run("UPDATE blob SET created = created - :day WHERE sha256 = :sha",
            { { "day", 25 * 3'600'000 }, { "sha", sha256(bytes) } });
    }
    std::int64_t number(const char *sql) { return harness.db().value<std::int64_t>(sql).value(); }
};

} // namespace

TEST_F(Tidying, ABlobThatNothingNamesGoesAfterADay)
{
    ASSERT_EQ(anna.upload("a.txt", "old").status(), 1);
    ASSERT_EQ(anna.upload("a.txt", "new").status(), 1);
    tidy(sweepBlobs);
    EXPECT_TRUE(isThere("old")) << "it is young";
    age("old");
    age("new");
    tidy(sweepBlobs);
    EXPECT_FALSE(isThere("old"));
    EXPECT_TRUE(isThere("new")) << "it is in use";
    EXPECT_EQ(number("SELECT count(*) FROM blob"), 1);
    ASSERT_EQ(anna.upload("a.txt", "old").status(), 1) << "the bytes can come back";
    EXPECT_TRUE(isThere("old"));
}

TEST_F(Tidying, ABlobThatWasPlacedAgainIsYoungAgain)
{
    ASSERT_EQ(anna.upload("a.txt", "old").status(), 1);
    ASSERT_EQ(anna.upload("a.txt", "new").status(), 1);
    age("old");
    std::ofstream(harness.folder() + "/tmp/x") << "old";
    blobs.place(harness.folder() + "/tmp/x", sha256("old"));
    tidy(sweepBlobs);
    EXPECT_TRUE(isThere("old"));
}

TEST_F(Tidying, AFileThatNeverGotARowGoesAfterADay)
{
    std::ofstream(harness.folder() + "/tmp/x") << "stray";
    blobs.place(harness.folder() + "/tmp/x", sha256("stray"));
    tidy(sweepBlobs, 256);
    EXPECT_TRUE(isThere("stray"));
    age("stray");
    tidy(sweepBlobs, 256);
    EXPECT_FALSE(isThere("stray"));
}

// Files are dated by the wall clock, and the janitor asks on its rounds.
TEST_F(Tidying, AJumpOfTheWallClockSweepsNoFileOfThisRun)
{
    const std::string upload = harness.folder() + "/tmp/upload";
    const std::string old = harness.folder() + "/tmp/old";
    std::ofstream(harness.folder() + "/tmp/x") << "stray";
    blobs.place(harness.folder() + "/tmp/x", sha256("stray"));
    std::ofstream(upload) << "on its way";
    const auto date = [](const std::string &path, Time off) {
        const time_t at = time(nullptr) + static_cast<time_t>(off / 1000);
        const timespec times[2] = { { at, 0 }, { at, 0 } };
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    };
    const auto round = [&] {
        tidy(sweepBlobs, 256);
        const std::string ancient = harness.folder() + "/tmp/ancient";
        std::ofstream(ancient) << "forgotten";
        date(ancient, -1000 * day);
        {
            const Janitor janitor(
                harness.environment(), harness.pool(), [](const std::string &) {});
            ASSERT_TRUE(waitFor([&] { return !std::filesystem::exists(ancient); }));
        }
        EXPECT_TRUE(std::filesystem::exists(upload));
        EXPECT_TRUE(isThere("stray"));
    };
    const Time hour = 3'600'000;
    for (const Time jump : { hour, day, 365 * day }) {
        SCOPED_TRACE(jump);
        harness.setWallOff(jump);
        round();
        harness.setWallOff(-jump);
        round();
        date(upload, -jump); // written under the wrong date
        date(blobs.path(sha256("stray")), -jump);
        round();
        harness.setWallOff(0);
        round();
        // Still a file that is older than all that goes.
        std::ofstream(old) << "forgotten";
        date(old, -jump - 25 * hour);
        round();
        EXPECT_FALSE(std::filesystem::exists(old));
    }
}

TEST_F(Tidying, EverythingThatASaveNamesStays)
{
    for (int v = -1; v < 4; ++v)
        ASSERT_EQ(save(anna, guid, v, std::to_string(v)).status(), 1);
    ASSERT_EQ(anna.ask(Message("loglock")
                           .set("ProjectGUID", guid)
                           .set("LogVersion", 4)
                           .set("ReleaseLock", false))
                  .integer("Lock"),
        1);
    ASSERT_EQ(anna.upload(guid + ".KVX", "staged").status(), 1);
    for (int v = -1; v < 4; ++v) {
        age("file with " + std::to_string(v));
        age(logArchive(guid + "_log" + std::to_string(v + 1), std::to_string(v)));
    }
    age("staged");
    tidy(sweepBlobs, 3);
    EXPECT_TRUE(isThere("staged"));
    for (int v = -1; v < 4; ++v) {
        EXPECT_TRUE(isThere(logArchive(guid + "_log" + std::to_string(v + 1), std::to_string(v))));
        EXPECT_EQ(isThere("file with " + std::to_string(v)), v >= 1) << "the last three are kept";
    }
}

TEST_F(Tidying, TrashIsEmptiedAfterItsTimeAndTheGuidStaysTaken)
{
    ASSERT_EQ(save(anna, guid, -1).status(), 1);
    ASSERT_EQ(anna.upload(guid + "_plan.pdf", "plan").status(), 1);
    ASSERT_EQ(anna.ask(Message("removeproject").set("ProjectGUID", guid)).status(), 1);
    tidy(purgeTrash);
    EXPECT_EQ(number("SELECT count(*) FROM project_log"), 1);
    harness.db().run(
        "UPDATE project SET removed_at = removed_at - :time", { { "time", 30 * day } });
    tidy(purgeTrash, 2);
    EXPECT_EQ(number("SELECT count(*) FROM project_log"), 0);
    EXPECT_EQ(number("SELECT count(*) FROM file"), 0);
    EXPECT_EQ(number("SELECT count(*) FROM project"), 1);
    EXPECT_EQ(anna.ask(newProject(anna, guid, "School")).status(), 312);
}
