#include "ServiceHarness.h"
#include "FolderSnapshot.h"
#include "History.h"
#include "RunCheck.h"
#include "store/BlobStore.h"

#include <KVXSQLite/KVXProjectDatabase.h>
#include <QDateTime>
#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <sqlite3.h>

using namespace kvx::test;

namespace {

std::string bytesOf(const QString &path)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
    return file.readAll().toStdString();
}

/// A small run that went well: a real store with a base and three saves, the saver's own copy and a
/// colleague's, and the history of it all. Every case damages one thing.
struct Invariants : testing::Test {
    const std::string guid = guidOf(1);
    ServiceHarness harness;
    Session admin = harness.join("root@example.com", "Administrator");
    Session anna = harness.join("anna@example.com");
    QTemporaryDir folder;
    History history { folder.filePath(QStringLiteral("history")) };
    QString annasHome = folder.filePath(QStringLiteral("anna"));
    QString bensHome = folder.filePath(QStringLiteral("ben"));
    std::unique_ptr<KVXProjectDatabase> project;
    QByteArray digest; // of the last content

    QString copyIn(const QString &home) const { return home + QStringLiteral("/p/project.kvx"); }
    QString qGuid() const { return QString::fromStdString(guid); }

    void SetUp() override
    {
        ASSERT_TRUE(QDir().mkpath(annasHome + QStringLiteral("/p")));
        ASSERT_TRUE(QDir().mkpath(bensHome + QStringLiteral("/p")));
        ASSERT_EQ(anna.ask(newProject(anna, guid, "School")).status(), 1);
        QString error;
        project = KVXProjectDatabase::create(copyIn(annasHome), qGuid(),
            QStringLiteral("CREATE TABLE item(id INTEGER PRIMARY KEY NOT NULL, text TEXT)"),
            &error);
        ASSERT_TRUE(project) << error.toStdString();
        write("INSERT INTO item VALUES (1, 'base')");
        ASSERT_TRUE(project->sealBase());
        ASSERT_EQ(anna.upload(guid + ".KVX", bytesOf(copyIn(annasHome))).status(), 1);
        const QString base = folder.filePath(QStringLiteral("base"));
        ASSERT_TRUE(QFile::copy(copyIn(annasHome), base));
        note("base", { { QStringLiteral("file"), base } });
        for (int version = 0; version < 3; ++version)
            save(version);
        ASSERT_TRUE(project->close());
        ASSERT_TRUE(QFile::copy(copyIn(annasHome), copyIn(bensHome)));
        note("synced",
            { user("ben@example.com"), { QStringLiteral("version"), 2 },
                { QStringLiteral("digest"), QString::fromLatin1(digest) } });
        note("converged", {});
        noteArchives(data(), history);
        ASSERT_TRUE(found().isEmpty()) << found().first().line().toStdString();
    }
    QString data() const { return QString::fromStdString(harness.folder()); }
    static std::pair<QString, QJsonValue> user(const char *email)
    {
        return { QStringLiteral("user"), QString::fromLatin1(email) };
    }
    void note(const char *event, std::initializer_list<std::pair<QString, QJsonValue>> fields)
    {
        QJsonObject object { { QStringLiteral("project"), qGuid() } };
        for (const auto &[key, value] : fields)
            object.insert(key, value);
        history.note(event, object);
    }
    void write(const char *sql)
    {
        ASSERT_TRUE(project->edit([sql](sqlite3 *connection) {
            return sqlite3_exec(connection, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
        })) << project->errorText().toStdString();
    }
    void save(int version)
    {
        write(("INSERT INTO item VALUES (" + std::to_string(10 + version) + ", 'new')").c_str());
        const QString log = folder.filePath(QStringLiteral("log"));
        ASSERT_TRUE(project->prepareSave(log, QStringLiteral("anna@example.com")));
        const std::string name = guid + "_log" + std::to_string(version);
        const Message lock
            = Message("loglock").set("ProjectGUID", guid).set("LogVersion", version - 1);
        ASSERT_EQ(anna.ask(Message(lock).set("ReleaseLock", false)).integer("Lock"), 1);
        ASSERT_EQ(anna.upload(name, logArchive(name, bytesOf(log))).status(), 1);
        ASSERT_EQ(anna.upload(guid + ".KVX", bytesOf(copyIn(annasHome))).status(), 1);
        ASSERT_EQ(anna.ask(Message("sendservertomerge")
                               .set("ProjectGUID", guid)
                               .set("LogVersion", version - 1)
                               .set("LogFilename", name)
                               .set("Amount", "1"))
                      .status(),
            1);
        anna.ask(Message(lock).set("ReleaseLock", true));
        ASSERT_TRUE(project->published(version));
        digest = project->contentDigest().toHex();
        note("saved",
            { user("anna@example.com"), { QStringLiteral("version"), version },
                { QStringLiteral("digest"), QString::fromLatin1(digest) } });
    }
    RunTraces traces() const
    {
        RunTraces traces;
        traces.data = data();
        traces.homes = QStringList { annasHome, bensHome };
        traces.history = history.file();
        return traces;
    }
    QVector<Fault> found() const { return checkRun(traces()); }
    /// Whether that invariant is named among what is found, with these words.
    testing::AssertionResult names(Invariant invariant, const char *words = "") const
    {
        std::string all;
        for (const Fault &fault : found()) {
            if (fault.invariant == invariant && fault.text.contains(QLatin1String(words)))
                return testing::AssertionSuccess();
            all += "\n" + fault.line().toStdString();
        }
        return testing::AssertionFailure() << "found: " << all;
    }
    void change(const QString &file, const char *sql)
    {
        sqlite3 *database = nullptr;
        ASSERT_EQ(sqlite3_open(QFile::encodeName(file).constData(), &database), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(database, sql, nullptr, nullptr, nullptr), SQLITE_OK);
        sqlite3_close(database);
    }
    QString blobOf(const char *sql)
    {
        const auto sha256 = harness.db().value<std::string>(sql);
        EXPECT_TRUE(sha256);
        return QString::fromStdString(
            kvx::server::BlobStore(harness.folder()).path(sha256.value_or("")));
    }
    static void overwrite(const QString &path, const QByteArray &bytes)
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        ASSERT_EQ(file.write(bytes), bytes.size());
    }
    static void age(const QString &path)
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::ReadWrite));
        ASSERT_TRUE(file.setFileTime(
            QDateTime::currentDateTime().addDays(-2), QFileDevice::FileModificationTime));
    }
};

} // namespace

TEST_F(Invariants, AnAcknowledgedSaveThatIsGoneIsFound)
{
    note("saved", { user("anna@example.com"), { QStringLiteral("version"), 3 } });
    EXPECT_TRUE(names(Invariant::SavesKept, "version 3, which was acknowledged"));
}

TEST_F(Invariants, AnAcknowledgedSaveUnderAnothersNameIsFound)
{
    note("saved", { user("ben@example.com"), { QStringLiteral("version"), 2 } });
    EXPECT_TRUE(names(Invariant::SavesKept, "is of anna@example.com"));
}

TEST_F(Invariants, AnAcknowledgedSaveWithAnotherContentIsFound)
{
    note("saved",
        { user("anna@example.com"), { QStringLiteral("version"), 1 },
            { QStringLiteral("digest"), QString::fromLatin1(digest) } });
    EXPECT_TRUE(names(Invariant::SavesKept, "another content at version 1"));
}

TEST_F(Invariants, AGapInTheVersionsIsFound)
{
    harness.db().execute("DELETE FROM project_log WHERE version = 1");
    EXPECT_TRUE(names(Invariant::VersionsDense, "version 2 follows 0"));
    EXPECT_TRUE(names(Invariant::SavesKept, "version 1, which was acknowledged"));
}

TEST_F(Invariants, AnArchiveThatChangedIsFound)
{
    harness.db().execute("UPDATE project_log SET blob = (SELECT blob FROM project_log"
                         " WHERE version = 0) WHERE version = 1");
    EXPECT_TRUE(names(Invariant::VersionsDense, "log 1 was"));
}

TEST_F(Invariants, AProjectFileOfAnotherContentIsFound)
{
    harness.db().execute("UPDATE project SET file_blob = (SELECT file_blob FROM project_log"
                         " WHERE version = 1)");
    EXPECT_TRUE(names(Invariant::FileIsBaseAndLogs, "it says that it is version 1"));
}

TEST_F(Invariants, ALogThatDoesNotFitTheBaseIsFound)
{
    harness.db().execute("UPDATE project_log SET blob = (SELECT blob FROM project_log"
                         " WHERE version = 2) WHERE version = 1");
    EXPECT_TRUE(names(Invariant::FileIsBaseAndLogs, "log 1"));
}

TEST_F(Invariants, ACopyThatStayedBehindIsFound)
{
    change(copyIn(bensHome), "UPDATE kvx_meta SET value = 1 WHERE key = 'version'");
    EXPECT_TRUE(names(Invariant::CopiesEqual, "stayed at version 1"));
}

TEST_F(Invariants, ACopyAheadOfTheServerIsFound)
{
    change(copyIn(bensHome), "UPDATE kvx_meta SET value = 3 WHERE key = 'version'");
    EXPECT_TRUE(names(Invariant::CopiesEqual, "the server at 2"));
}

TEST_F(Invariants, ASynchronisedCopyWithAnotherContentIsFound)
{
    note("synced",
        { user("ben@example.com"), { QStringLiteral("version"), 0 },
            { QStringLiteral("digest"), QString::fromLatin1(digest) } });
    EXPECT_TRUE(names(Invariant::CopiesEqual, "ben@example.com had another content"));
}

TEST_F(Invariants, EditsThatWereNeverPublishedAreFound)
{
    QString error;
    project = KVXProjectDatabase::open(
        copyIn(bensHome), qGuid(), KVXProjectDatabase::Origin::Local, QString(), &error);
    ASSERT_TRUE(project) << error.toStdString();
    write("UPDATE item SET text = 'mine' WHERE id = 1");
    ASSERT_TRUE(project->close());
    EXPECT_TRUE(names(Invariant::CopiesEqual, "1 edits were never published"));
}

TEST_F(Invariants, TwoLockHoldersAtATimeAreFound)
{
    note("locked", { user("anna@example.com"), { QStringLiteral("lease"), 120000 } });
    note("locked", { user("ben@example.com"), { QStringLiteral("lease"), 120000 } });
    EXPECT_TRUE(names(Invariant::OneLockHolder, "got the save lock of anna@example.com"));
}

TEST_F(Invariants, ALockAfterReleaseOrTheEndOfASessionIsNoFault)
{
    note("locked", { user("anna@example.com"), { QStringLiteral("lease"), 120000 } });
    note("released", { user("anna@example.com") });
    note("locked", { user("ben@example.com"), { QStringLiteral("lease"), 120000 } });
    note("ended", { user("ben@example.com") });
    note("locked", { user("anna@example.com"), { QStringLiteral("lease"), 120000 } });
    EXPECT_TRUE(found().isEmpty());
}

TEST_F(Invariants, AHolderBeyondHisLeaseIsFound)
{
    note("locked", { user("anna@example.com"), { QStringLiteral("lease"), -10000 } });
    note("busy",
        { user("ben@example.com"), { QStringLiteral("holder"), QStringLiteral("anna@example.com") },
            { QStringLiteral("hold"), 0 } });
    EXPECT_TRUE(names(Invariant::OneLockHolder, "beyond his lease"));
}

TEST_F(Invariants, ASaveUnderTheLockOfAnotherIsFound)
{
    harness.db().execute("UPDATE project_log SET lock_gen = 99 WHERE version = 1");
    EXPECT_TRUE(names(Invariant::OneLockHolder, "log 2 was saved under the lock of another"));
}

TEST_F(Invariants, ALockWhoseSessionIsGoneIsFound)
{
    harness.db().execute("UPDATE project SET lock_session = 4711, lock_user = 1");
    EXPECT_TRUE(names(Invariant::OneLockHolder));
}

TEST_F(Invariants, NumbersGivenTwiceAreFoundInTheHistory)
{
    for (const char *email : { "anna@example.com", "ben@example.com" })
        note("range",
            { user(email), { QStringLiteral("device"), QStringLiteral("desk") },
                { QStringLiteral("min"), 1 }, { QStringLiteral("max"), 100 } });
    EXPECT_TRUE(names(Invariant::NumbersDisjoint, "overlap"));
}

TEST_F(Invariants, NumbersThatTheStoreForgotAreFound)
{
    const Answer answer
        = anna.ask(Message("allocateidrange").set("ProjectGUID", guid).set("NewRange", true));
    note("range",
        { user("anna@example.com"), { QStringLiteral("device"), QStringLiteral("desk") },
            { QStringLiteral("min"), static_cast<double>(answer.integer("MinID")) },
            { QStringLiteral("max"), static_cast<double>(answer.integer("MaxID")) } });
    EXPECT_TRUE(found().isEmpty());
    harness.db().execute("DELETE FROM item_block");
    EXPECT_TRUE(names(Invariant::NumbersDisjoint, "nobody"));
}

TEST_F(Invariants, ACallBeyondItsLimitIsFound)
{
    note("begin",
        { { QStringLiteral("call"), QStringLiteral("save 1") },
            { QStringLiteral("process"), QStringLiteral("anna") },
            { QStringLiteral("limit"), -1 } });
    note("end", { { QStringLiteral("call"), QStringLiteral("save 1") } });
    EXPECT_TRUE(names(Invariant::CallsInTime, "save 1 took"));
}

TEST_F(Invariants, ACallThatNeverReturnsIsFoundUnlessItsProcessWasKilled)
{
    note("begin",
        { { QStringLiteral("call"), QStringLiteral("save 1") },
            { QStringLiteral("process"), QStringLiteral("anna") },
            { QStringLiteral("limit"), 1000 } });
    EXPECT_TRUE(names(Invariant::CallsInTime, "save 1 never returned"));
    note("killed", { { QStringLiteral("process"), QStringLiteral("anna") } });
    EXPECT_TRUE(found().isEmpty());
}

TEST_F(Invariants, APartOfAContentUnderItsNameIsFound)
{
    const QString blob = blobOf("SELECT blob FROM project_log WHERE version = 1");
    ASSERT_TRUE(QFile::setPermissions(blob, QFile::ReadOwner | QFile::WriteOwner));
    overwrite(blob, bytesOf(blob).substr(0, 20).c_str());
    EXPECT_TRUE(names(Invariant::FilesWhole, "instead of"));
}

TEST_F(Invariants, APartOfAContentThatNoRowNamesIsFound)
{
    const QString stray = QFileInfo(blobOf("SELECT blob FROM project_log WHERE version = 1")).path()
        + QLatin1Char('/') + QString(64, QLatin1Char('a'));
    overwrite(stray, "part");
    EXPECT_TRUE(names(Invariant::FilesWhole, "is not what its name says"));
}

TEST_F(Invariants, ATemporaryFileOfTheDayBeforeYesterdayIsFound)
{
    const QString left = data() + QStringLiteral("/tmp/left");
    ASSERT_TRUE(QDir().mkpath(data() + QStringLiteral("/tmp")));
    overwrite(left, "part");
    EXPECT_TRUE(found().isEmpty());
    age(left);
    EXPECT_TRUE(names(Invariant::FilesWhole, "older than a day"));
}

TEST_F(Invariants, AnOldHalfDownloadInAHomeIsFound)
{
    const QString left = copyIn(bensHome) + QStringLiteral(".0123abcd");
    overwrite(left, "part");
    age(left);
    EXPECT_TRUE(names(Invariant::FilesWhole, "0123abcd is older than a day"));
}

TEST_F(Invariants, ADamagedCopyIsFound)
{
    QFile file(copyIn(bensHome));
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    ASSERT_TRUE(file.seek(4096));
    file.write(QByteArray(4096, 'x'));
    file.close();
    EXPECT_TRUE(names(Invariant::CopiesSound));
}

TEST_F(Invariants, ACopyWhoseContentIsNotThatOfItsVersionIsFound)
{
    change(copyIn(bensHome), "UPDATE item SET text = 'other' WHERE id = 1");
    EXPECT_TRUE(names(Invariant::CopiesSound, "not that of version 2"));
}

TEST_F(Invariants, AFileOutsideIsFound)
{
    const QString outside = folder.filePath(QStringLiteral("outside"));
    ASSERT_TRUE(QDir().mkpath(outside + QStringLiteral("/inside")));
    overwrite(outside + QStringLiteral("/old"), "old");
    const QString snapshot = folder.filePath(QStringLiteral("snapshot"));
    ASSERT_TRUE(FolderSnapshot::take(outside, { outside + QStringLiteral("/inside") }, snapshot));
    note("outside",
        { { QStringLiteral("folder"), outside }, { QStringLiteral("snapshot"), snapshot } });
    overwrite(outside + QStringLiteral("/inside/new"), "new");
    EXPECT_TRUE(found().isEmpty());
    overwrite(outside + QStringLiteral("/new"), "new");
    EXPECT_TRUE(names(Invariant::NothingOutside, "outside/new was changed"));
    QFile::remove(outside + QStringLiteral("/new"));
    overwrite(outside + QStringLiteral("/old"), "other");
    EXPECT_TRUE(names(Invariant::NothingOutside, "outside/old was changed"));
}

TEST_F(Invariants, MemoryBeyondItsLimitIsFound)
{
    note("memory",
        { { QStringLiteral("process"), QStringLiteral("kvx-server") },
            { QStringLiteral("bytes"), 3e9 }, { QStringLiteral("limit"), 1e9 } });
    EXPECT_TRUE(names(Invariant::MemoryInBounds, "kvx-server had 2861 MiB"));
}

TEST_F(Invariants, ReportsInAnErrorLogAreFound)
{
    const QString log = folder.filePath(QStringLiteral("stderr"));
    overwrite(log, "all is well\n");
    note("stderr", { { QStringLiteral("file"), log } });
    EXPECT_TRUE(found().isEmpty());
    for (const char *line : { "==1==ERROR: AddressSanitizer: heap-use-after-free",
             "WARNING: ThreadSanitizer: data race", "a.cpp:1:2: runtime error: signed overflow",
             "Qt: Dead lock detected while activating a BlockingQueuedConnection" }) {
        overwrite(log, line);
        EXPECT_TRUE(names(Invariant::LogsClean, line));
    }
}

TEST_F(Invariants, AHistoryThatCannotBeReadIsAFault)
{
    history.note("saved", {});
    EXPECT_TRUE(names(Invariant::SavesKept, "\"saved\" without \"user\""));
}

TEST_F(Invariants, OnlyTheProjectsAskedForAreJudged)
{
    note("saved", { user("anna@example.com"), { QStringLiteral("version"), 3 } });
    RunTraces other = traces();
    other.projects = QStringList { QString::fromStdString(guidOf(2)) };
    EXPECT_TRUE(checkRun(other).isEmpty());
    other.projects.append(qGuid());
    EXPECT_FALSE(checkRun(other).isEmpty());
}

TEST_F(Invariants, TheProgramSaysWhatTheLibraryFinds)
{
    const QStringList arguments { QStringLiteral("--data"), data(), QStringLiteral("--home"),
        annasHome, QStringLiteral("--home"), bensHome, QStringLiteral("--history"),
        history.file() };
    QProcess program;
    program.start(QStringLiteral(KVX_CHECK_RUN), arguments);
    ASSERT_TRUE(program.waitForFinished());
    EXPECT_EQ(program.exitCode(), 0) << program.readAll().toStdString();
    note("saved", { user("anna@example.com"), { QStringLiteral("version"), 3 } });
    program.start(QStringLiteral(KVX_CHECK_RUN), arguments);
    ASSERT_TRUE(program.waitForFinished());
    EXPECT_EQ(program.exitCode(), 1);
    EXPECT_TRUE(program.readAll().startsWith("saves kept: project "));
    program.start(QStringLiteral(KVX_CHECK_RUN), QStringList());
    ASSERT_TRUE(program.waitForFinished());
    EXPECT_EQ(program.exitCode(), 2);
}
