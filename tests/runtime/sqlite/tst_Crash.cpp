#include "Fixture.h"

#include "support/Watchdog.h"

#include <QDir>
#include <QFile>
#include <functional>
#include <random>
#include <sys/wait.h>
#include <unistd.h>

using namespace kvx::test;

namespace {

class Crash : public ProjectFiles {
protected:
    /// Runs the function in a process of its own and kills it at a random moment: up to
    /// `microseconds` after its report number `reports`, so that load does not decide how far it
    /// gets. Returns the last number it reported, or -1.
    int killed(unsigned reports, unsigned microseconds,
        const std::function<void(const std::function<void(int)> &report)> &work)
    {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        const pid_t child = fork();
        if (child == 0) {
            close(ends[0]);
            work([&](int number) {
                if (write(ends[1], &number, sizeof number) != sizeof number)
                    _exit(2);
            });
            _exit(0);
        }
        close(ends[1]);
        int last = -1;
        int number = 0;
        while (reports-- > 0 && read(ends[0], &number, sizeof number) == sizeof number)
            last = number;
        usleep(static_cast<useconds_t>(random() % microseconds));
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        while (read(ends[0], &number, sizeof number) == sizeof number)
            last = number;
        close(ends[0]);
        EXPECT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 0) << "child: " << status;
        return last;
    }
    std::minstd_rand random { 20 };
};

TEST_F(Crash, DuringEditsLosesNoAcknowledgedEditAndDoublesNone)
{
    kvx::test::Watchdog::allow(200);
    project("ann").reset();
    const Database ben = open(copyOf(file("ann"), "ben"), KVXProjectDatabase::Origin::Downloaded);
    int made = 0;
    for (int round = 0; round < 60; ++round) {
        const int acknowledged
            = killed(static_cast<unsigned>(1 + random() % 4), 3'000, [&](const auto &report) {
                  const Database ann = open(file("ann"));
                  report(made);
                  for (int next = made + 1; next < made + 2000; ++next) {
                      const std::string number = std::to_string(next);
                      if (!sql(ann,
                              "INSERT INTO items(id, chapter, text) VALUES (1000 + " + number
                                  + ", 1, 'x');"
                                    "UPDATE chapters SET title = "
                                  + number + " WHERE id = 1"))
                          _exit(3);
                      report(next);
                  }
              });
        const Database ann = open(file("ann"));
        ASSERT_TRUE(ann) << error.toStdString();
        const int present = std::stoi(value(ann, "SELECT count(*) FROM items WHERE id > 1000"));
        ASSERT_GE(present, acknowledged);
        ASSERT_LE(present, acknowledged + 1);
        ASSERT_EQ(ann->pendingCount(), present);
        made = present;
        ASSERT_EQ(value(ann, "SELECT title FROM chapters WHERE id = 1"),
            made > 0 ? std::to_string(made) : "Earthworks");
    }
    EXPECT_GT(made, 20);
    const Database ann = open(file("ann"));
    ASSERT_EQ(execute(ben, publish(ann)), 1) << ben->errorText().toStdString();
    EXPECT_EQ(ann->contentDigest(), ben->contentDigest());
}

TEST_F(Crash, DuringALogLeavesAllOrNothingWithItsVersion)
{
    const int rounds = qEnvironmentVariableIsSet("KVX_TEST_LONG") ? 600 : 50;
    kvx::test::Watchdog::allow(4 * rounds);
    Database ann = project("ann");
    const Database before = download(ann, "before");
    ASSERT_TRUE(sql(ann,
        "WITH RECURSIVE n(i) AS (SELECT 1000 UNION ALL SELECT i + 1 FROM n WHERE i < 9000)"
        " INSERT INTO items(id, chapter, text) SELECT i, 1, hex(randomblob(200)) FROM n"));
    const QString log = publish(ann);
    const QByteArray with = ann->contentDigest();
    const QByteArray without = before->contentDigest();
    ASSERT_TRUE(before->close());
    int applied = 0;
    for (int round = 0; round < rounds; ++round) {
        for (const char *side : { "ben-wal", "ben-shm" })
            QFile::remove(file(side));
        copyOf(file("before"), "ben");
        killed(1, 90'000, [&](const auto &report) {
            const Database ben = open(file("ben"));
            report(0);
            if (execute(ben, log) != 1)
                _exit(3);
            ben->checkpoint();
        });
        const Database ben = open(file("ben"));
        ASSERT_TRUE(ben) << error.toStdString();
        const bool whole = ben->logVersion() == 0;
        applied += whole ? 1 : 0;
        ASSERT_EQ(ben->contentDigest(), whole ? with : without) << "version " << ben->logVersion();
        ASSERT_EQ(execute(ben, log), 1) << "and it goes on from there";
        ASSERT_EQ(ben->contentDigest(), with);
    }
    RecordProperty("applied", applied);
}

TEST_F(Crash, BetweenWritingALogAndItsConfirmationNeitherLosesNorRepeatsIt)
{
    kvx::test::Watchdog::allow(200);
    project("ann").reset();
    Database ben = open(copyOf(file("ann"), "ben"), KVXProjectDatabase::Origin::Downloaded);
    ASSERT_TRUE(QDir().mkpath(file("server")));
    const auto logOnServer
        = [this](int version) { return file(("server/log" + std::to_string(version)).c_str()); };
    int made = 0;
    int lostReplies = 0;
    for (int round = 0; round < 60; ++round) {
        killed(static_cast<unsigned>(1 + random() % 3), 6'000, [&](const auto &report) {
            const Database ann = open(file("ann"));
            report(0);
            for (int next = made + 1; next < made + 1000; ++next) {
                if (!sql(ann,
                        "INSERT INTO items(id, chapter) VALUES (" + std::to_string(1000 + next)
                            + ", 1)"))
                    _exit(3);
                const int version = ann->logVersion() + 1;
                if (!ann->prepareSave(file("outgoing"), QStringLiteral("ann@example.org")))
                    _exit(4);
                // The merge: the log has its final name, or it has not.
                if (rename(file("outgoing").toUtf8().constData(),
                        logOnServer(version).toUtf8().constData())
                    != 0)
                    _exit(5);
                if (!ann->published(version))
                    _exit(6);
                report(next);
            }
        });
        const Database ann = open(file("ann"));
        ASSERT_TRUE(ann) << error.toStdString();
        if (QFile::exists(logOnServer(ann->logVersion() + 1))) {
            ++lostReplies;
            ASSERT_EQ(execute(ann, logOnServer(ann->logVersion() + 1)), 1)
                << ann->errorText().toStdString();
        }
        ASSERT_FALSE(QFile::exists(logOnServer(ann->logVersion() + 1)));
        while (QFile::exists(logOnServer(ben->logVersion() + 1)))
            ASSERT_EQ(execute(ben, logOnServer(ben->logVersion() + 1)), 1)
                << ben->errorText().toStdString();
        ASSERT_EQ(ann->logVersion(), ben->logVersion());
        made = std::stoi(value(ann, "SELECT max(id) - 1000 FROM items WHERE id > 1000 OR id = 20"));
        made = std::max(made, 0);
        ASSERT_EQ(value(ann, "SELECT count(*) FROM items WHERE id > 1000"), std::to_string(made));
        const int published = std::stoi(value(ben, "SELECT count(*) FROM items WHERE id > 1000"));
        ASSERT_EQ(published + ann->pendingCount(), made);
    }
    EXPECT_GT(made, 10);
    const Database ann = open(file("ann"));
    ASSERT_EQ(execute(ben, publish(ann)), 1);
    EXPECT_EQ(ann->contentDigest(), ben->contentDigest());
    RecordProperty("lostReplies", lostReplies);
}

} // namespace
