#include "ServiceHarness.h"
#include "base/Text.h"
#include "services/Tables.h"
#include "services/TemplateDocument.h"
#include "store/ResourceStore.h"
#include "store/TableStore.h"
#include "store/WorkingTimeStore.h"

using namespace kvx::test;
using namespace kvx::server;

namespace {

struct Tables : testing::Test {
    ServiceHarness harness;
    Session admin = harness.join("root@example.com", "Administrator");
    Session writer = harness.join("wanda@example.com", "Library writer");
    Session reader = harness.join("rita@example.com", "Reviewer");

    Answer get(const std::string &name)
    {
        return reader.ask(Message("gettable").set("tablename", name));
    }
    Answer put(const Session &who, const std::string &name, const std::string &data)
    {
        return who.ask(
            Message("updatetable")
                .raw("Table", "{\"tablename\":\"" + name + "\",\"tabledata\":" + data + "}"));
    }
};

} // namespace

TEST_F(Tables, ThatNobodyMadeAreEmpty)
{
    const Answer unknown = get("Currencies");
    EXPECT_EQ(unknown.json(), R"({"statuscode":1,"Currencies":{}})");
    EXPECT_EQ(unknown.httpStatus, 200);
}

TEST_F(Tables, AreMadeByAnAdministratorAndWrittenByThoseWithTheRight)
{
    const std::string data = R"({"columns":["Code","Rate"],"rows":[["EUR","1"]]})";
    const Answer missing = put(writer, "Currencies", data);
    EXPECT_EQ(missing.status(), 660);
    EXPECT_EQ(missing.httpStatus, 404);
    EXPECT_EQ(put(admin, "Currencies", data).integer("revision"), 1);
    EXPECT_EQ(get("Currencies").json(),
        R"({"statuscode":1,"Currencies":{"revision":1,"columns":["Code","Rate"],"rows":[["EUR","1"]]}})");
    EXPECT_EQ(put(writer, "Currencies", R"({"columns":[],"rows":[]})").integer("revision"), 2);
    const Answer refused = put(reader, "Currencies", data);
    EXPECT_EQ(refused.status(), 300);
    EXPECT_EQ(refused.httpStatus, 403);
}

TEST_F(Tables, MayHaveARightOfTheirOwn)
{
    ASSERT_EQ(put(admin, "Offices", "{}").status(), 1);
    Transaction transaction(harness.db(), Transaction::Kind::Write);
    TableStore(harness.db()).setWriteRight("Offices", "AllProjectReview");
    transaction.commit();
    EXPECT_EQ(put(writer, "Offices", R"({"rows":[]})").status(), 300);
    EXPECT_EQ(put(reader, "Offices", R"({"rows":[]})").status(), 1);
}

TEST_F(Tables, AreNotOverwrittenUnseen)
{
    ASSERT_EQ(put(admin, "Rates", R"({"rows":[["1"]]})").status(), 1);
    ASSERT_EQ(put(writer, "Rates", R"({"revision":1,"rows":[["2"]]})").integer("revision"), 2);
    const Answer stale = put(writer, "Rates", R"({"revision":1,"rows":[["3"]]})");
    EXPECT_EQ(stale.status(), 661);
    EXPECT_EQ(stale.httpStatus, 409);
    EXPECT_EQ(put(writer, "Rates", R"({"revision":1,"rows":[["2"]]})").integer("revision"), 2)
        << "the same data again: its reply was lost";
    EXPECT_EQ(put(writer, "Rates", R"({"rows":[["4"]]})").integer("revision"), 3)
        << "without a revision the last writer wins";
    EXPECT_EQ(put(writer, "Rates", R"({"revision":"3","rows":[]})").status(), 100);
}

TEST_F(Tables, KeepTwentyRevisions)
{
    for (int i = 0; i < 25; ++i)
        ASSERT_EQ(put(admin, "Rates", "{\"n\":" + std::to_string(i) + "}").status(), 1);
    EXPECT_EQ(*harness.db().value<std::int64_t>("SELECT COUNT(*) FROM shared_table_revision"), 20);
    EXPECT_EQ(
        *harness.db().value<std::int64_t>("SELECT MIN(revision) FROM shared_table_revision"), 6);
}

TEST_F(Tables, RefuseNamesThatAReplyUsesItself)
{
    for (const char *name : { "", "statuscode", "error", "message", "data", "requestId", "1st",
             "a-b", "a b", "\xC3\xA4" }) {
        const Answer answer = get(name);
        EXPECT_EQ(answer.status(), 100) << name;
        EXPECT_EQ(answer.httpStatus, 400);
        EXPECT_EQ(put(admin, name, "{}").status(), 100);
    }
    EXPECT_FALSE(isTableName(std::string(65, 'a')));
    EXPECT_TRUE(isTableName(std::string(64, 'a')));
    EXPECT_EQ(put(admin, "Rates", "[]").status(), 100);
}

TEST_F(Tables, AnswerByTheHttpStatusToo)
{
    const Answer other
        = reader.askAs(Message("gettable").set("tablename", "A").set("Email", writer.email));
    EXPECT_EQ(other.status(), 301);
    EXPECT_EQ(other.httpStatus, 403);
    EXPECT_EQ(reader.ask(Message("logout")).status(), 1);
    EXPECT_EQ(get("A").httpStatus, 401);
    harness.db().execute("INSERT INTO meta (name, value) VALUES ('read_only', '1')");
    EXPECT_EQ(put(admin, "A", "{}").httpStatus, 503);
}

TEST_F(Tables, OfMoreThanEightMebibytesAreTooLarge)
{
    ASSERT_EQ(put(admin, "Big", "{\"x\":\"" + std::string(8'000'000, 'x') + "\"}").status(), 1);
    EXPECT_EQ(get("Big")["Big"]["x"].GetStringLength(), 8'000'000U);
    const Answer large = put(admin, "Big", "{\"x\":\"" + std::string(8U << 20, 'x') + "\"}");
    EXPECT_EQ(large.status(), 102);
    EXPECT_EQ(large.httpStatus, 413);
}

namespace {

struct WorkingTime : testing::Test {
    ServiceHarness harness;
    Session anna = harness.join("anna@example.com");
    const std::string today = secondText(wallTime()).substr(0, 10);

    Answer report(const std::string &minutes)
    {
        return anna.askAs(
            Message("logworkingtime").set("email", anna.email).raw("workingTime", minutes));
    }
    std::int64_t worked()
    {
        const auto rows = WorkingTimeStore(harness.db()).between("2000-01-01", "2999-12-31");
        return rows.empty() ? 0 : rows.front().minutes;
    }
    void age(int minutes)
    {
        harness.db().run(
            "UPDATE session SET created = created - :ms", { { "ms", minutes * 60'000 } });
    }
};

} // namespace

TEST_F(WorkingTime, IsAddedUpByUserAndDay)
{
    age(60);
    EXPECT_EQ(report("5").json(), R"({"statuscode":1})");
    EXPECT_EQ(report("6").status(), 1);
    const auto rows = WorkingTimeStore(harness.db()).between("2000-01-01", "2999-12-31");
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0].minutes, 11);
    EXPECT_EQ(rows[0].email, "anna@example.com");
    EXPECT_GE(rows[0].day, today);
}

TEST_F(WorkingTime, NeverRunsAwayFromTheSessionsAge)
{
    EXPECT_EQ(report("5").status(), 1);
    EXPECT_EQ(report("5").status(), 1);
    EXPECT_EQ(report("5").status(), 1) << "delivered, though cut";
    EXPECT_EQ(worked(), 10);
    age(3);
    EXPECT_EQ(report("1440").status(), 1);
    EXPECT_EQ(worked(), 13);
}

TEST_F(WorkingTime, OfADayIsNeverAboveADay)
{
    age(5000);
    report("1440");
    report("1440");
    EXPECT_EQ(worked(), 1440);
}

TEST_F(WorkingTime, RefusesWhatIsNoTime)
{
    for (const char *minutes : { "0", "-5", "1441", "1.5", "\"5\"", "null" }) {
        const Answer answer = report(minutes);
        EXPECT_EQ(answer.status(), 100) << minutes;
        EXPECT_EQ(answer.httpStatus, 400);
    }
    const Answer other = anna.askAs(
        Message("logworkingtime").set("email", "ben@example.com").set("workingTime", 5));
    EXPECT_EQ(other.httpStatus, 403);
    EXPECT_EQ(anna.askAs(Message("logworkingtime").set("workingTime", 5)).httpStatus, 400);
    anna.ask(Message("logout"));
    EXPECT_EQ(report("5").httpStatus, 401);
    EXPECT_EQ(worked(), 0);
}

namespace {

struct Resources : testing::Test {
    ServiceHarness harness;
    Session anna = harness.join("anna@example.com");

    Answer version() { return anna.askAs(Message("comresource/version")); }
    Answer download() { return anna.askAs(Message("comresource/download")); }
    void publish(const std::string &name)
    {
        Transaction transaction(harness.db(), Transaction::Kind::Write);
        const std::string digest(64, 'a');
        harness.db().run("INSERT INTO blob (sha256, size, created) VALUES (:sha, 3, 0)"
                         " ON CONFLICT (sha256) DO NOTHING",
            { { "sha", digest } });
        ResourceStore(harness.db()).publish(name, digest, wallTime());
        transaction.commit();
    }
};

} // namespace

TEST_F(Resources, HaveNoVersionBeforeOneIsPublished)
{
    const Answer none = version();
    EXPECT_EQ(none.status(), 670);
    EXPECT_EQ(none.httpStatus, 404);
    EXPECT_EQ(download().status(), 670);
    EXPECT_EQ(download().httpStatus, 200);
    publish("2026.10");
    publish("2026.11");
    EXPECT_EQ(version().json(), R"({"statuscode":1,"data":{"version":"2026.11"}})");
    publish("2026.10");
    EXPECT_EQ(version().json(), R"({"statuscode":1,"data":{"version":"2026.10"}})");
}

TEST_F(Resources, AreDownloadedByUsersAndByAllWhereThatIsAllowed)
{
    publish("2026.11");
    const Answer file = download();
    EXPECT_TRUE(file.isFile());
    EXPECT_EQ(file.text("version"), "2026.11");
    anna.ask(Message("logout"));
    EXPECT_EQ(version().status(), 1) << "needs nobody";
    EXPECT_EQ(download().status(), 2);
    harness.config().resourceAnonymous = true;
    EXPECT_TRUE(download().isFile());
}
