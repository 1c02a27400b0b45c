#include "Ring.h"
#include "Rows.h"
#include "support/WaitFor.h"

#include <QDir>
#include <QFileInfo>

using namespace kvx::test;

namespace {

enum class Scene {
    Save, ///< anna saves an edit
    NewItem, ///< anna saves an item that she made
    ColleagueSaved ///< anna has an edit while ben's save reaches her; then she saves
};

using ClientRow = Row<Scene>;

/// The client's steps from the first question to the release of the lock.
const std::vector<ClientRow> steps {
    { "sync/asking for the version", 1, Scene::Save, Then::Unchanged },
    { "sync/version known", 1, Scene::Save, Then::Unchanged },
    { "download/part written", 1, Scene::ColleagueSaved, Then::Unchanged },
    { "merge/unpacking", 1, Scene::ColleagueSaved, Then::Unchanged },
    { "unpack/entry opened", 1, Scene::ColleagueSaved, Then::Unchanged },
    { "apply/changes made", 1, Scene::ColleagueSaved, Then::Unchanged },
    { "merge/log applied", 1, Scene::ColleagueSaved, Then::Unchanged },
    { "save/asking for the lock", 1, Scene::Save, Then::Unchanged },
    { "save/lock answered", 1, Scene::Save, Then::Unchanged },
    { "save/packing", 1, Scene::Save, Then::Unchanged },
    { "pack/entries added", 1, Scene::Save, Then::Unchanged },
    { "upload/part read", 1, Scene::Save, Then::Unchanged }, // the log
    { "save/log uploaded", 1, Scene::Save, Then::Unchanged },
    { "upload/part read", 2, Scene::Save, Then::Unchanged }, // the project file
    { "save/file uploaded", 1, Scene::Save, Then::Unchanged },
    { "answer of: sendservertomerge", 1, Scene::Save, Then::Published },
    { "save/merge answered", 1, Scene::Save, Then::Published },
    { "save/checking new items out", 1, Scene::NewItem, Then::Published },
    { "check-out/answered", 1, Scene::NewItem, Then::Published },
    { "save/releasing the lock", 1, Scene::Save, Then::Published },
    { "save/lock released", 1, Scene::Save, Then::Published },
};

/// The client's step fails; what the server has, what the client keeps, and whether the colleague
/// can go on.
class ClientStep : public Ring, public testing::WithParamInterface<ClientRow> {
protected:
    void SetUp() override
    {
        Ring::SetUp();
        ASSERT_FALSE(HasFatalFailure());
        ASSERT_TRUE(edit(0, 2, 22));
        if (row.scene == Scene::NewItem) {
            const QJsonObject added = ask(0,
                QStringLiteral("add %1 01.900 --chapter 01 text=New unit=m quantity=1 rate=8")
                    .arg(guid));
            ASSERT_EQ(exitOf(added), 0) << errorOf(added).toStdString();
        }
        if (row.scene == Scene::ColleagueSaved) {
            client().arm(row.armed());
            ASSERT_TRUE(edit(1, 5, 55));
            ASSERT_EQ(exitOf(save(1)), 0);
            before = published();
            // It must fail while she is idle: failing inside her save, it refuses the save.
            if (row.deed == Deed::Error) {
                ASSERT_TRUE(client().waitFor(row.noted()));
            }
        } else {
            before = published();
            client().arm(row.armed());
        }
        pid = anna().pid();
    }
    void expectPublished()
    {
        const Published now = published();
        EXPECT_EQ(now.version, before.version + (row.then == Then::Published ? 1 : 0));
        EXPECT_EQ(now.file == before.file, row.then == Then::Unchanged);
    }
    /// Both saved in the end, whoever had trouble.
    void expectAllEdits()
    {
        for (const int member : { 0, 1 }) {
            EXPECT_EQ(rate(member, 2).toStdString(), "22.00");
            EXPECT_EQ(rate(member, 15).toStdString(), "115.00");
        }
        if (row.scene == Scene::NewItem) {
            const char *left = isHeld() ? "8.00" : "7.00";
            EXPECT_EQ(rate(1, 900).toStdString(), row.deed == Deed::Kill ? "9.00" : left);
        }
        if (row.scene == Scene::ColleagueSaved) {
            EXPECT_EQ(rate(0, 5).toStdString(), "55.00");
        }
    }

    /// Whether the server gave anna the item that she made.
    bool isHeld() const
    {
        return row.deed == Deed::Delay
            || QLatin1String(row.point) == QLatin1String("check-out/answered");
    }
    void expectDone(int member, const QString &command)
    {
        const QJsonObject result = ask(member, command.arg(guid));
        EXPECT_EQ(exitOf(result), 0) << errorOf(result).toStdString();
    }
    /// Published and not checked out, it is his to take while she is away; else he reads who has
    /// it.
    void colleagueWantsNewItem()
    {
        if (isHeld()) {
            const QJsonObject refused = ask(1, QStringLiteral("checkout %1 01.900").arg(guid));
            EXPECT_EQ(exitOf(refused), 1);
            // "User 3" is user3@example.com.
            const QString anna = email(0).section(QLatin1Char('@'), 0, 0).mid(4);
            EXPECT_EQ(errorOf(refused).toStdString(),
                "Nothing was checked out. Held: 01.900 by User " + anna.toStdString() + '.');
            return;
        }
        ASSERT_TRUE(edit(1, 900, 7));
        const QJsonObject saved = save(1);
        EXPECT_EQ(exitOf(saved), 0) << errorOf(saved).toStdString();
        expectDone(1, QStringLiteral("checkin %1 01.900"));
    }
    void newItemPassesToColleague()
    {
        expectDone(0, QStringLiteral("checkin %1 --all"));
        ASSERT_TRUE(edit(1, 900, 10));
        converge();
        EXPECT_EQ(rate(0, 900).toStdString(), "10.00");
    }

    const ClientRow row = GetParam();
    Published before;
    qint64 pid = 0;
};

} // namespace

TEST_P(ClientStep, HarmsNobody)
{
    send(0, QStringLiteral("save ") + guid);
    const QJsonObject result = answer(0);
    ASSERT_EQ(client().passed(row.noted()), 1) << "the step was never reached";
    if (row.deed == Deed::Kill) {
        ASSERT_TRUE(result.isEmpty());
        killed(0);
    } else {
        ASSERT_TRUE(anna().isRunning());
        noteSaved(0, result);
        client().disarm();
    }
    if (row.deed == Deed::Delay
        || (row.deed == Deed::Error && row.scene == Scene::ColleagueSaved)) {
        // What failed in the background was made good by the save.
        EXPECT_EQ(exitOf(result), 0) << errorOf(result).toStdString();
        EXPECT_EQ(published().version, before.version + 1);
    } else {
        expectPublished();
    }

    ASSERT_TRUE(edit(1, 15, 115));
    const QJsonObject bens = save(1);
    EXPECT_EQ(exitOf(bens), 0) << errorOf(bens).toStdString();
    if (row.scene == Scene::NewItem)
        colleagueWantsNewItem();

    if (row.deed == Deed::Kill) {
        restartAnna();
        ASSERT_FALSE(HasFatalFailure());
        EXPECT_TRUE(isSwept(pid));
        EXPECT_EQ(pending(0) > 0, row.then == Then::Unchanged);
        // What she made stays hers to change, checked out or not.
        if (row.scene == Scene::NewItem) {
            ASSERT_TRUE(edit(0, 900, 9));
        }
    }
    converge();
    expectAllEdits();
    if (row.scene == Scene::NewItem)
        newItemPassesToColleague();
}

TEST_F(Ring, ASaveThatCouldNotBeFetchedWhenItWasAnnouncedIsFetchedAgain)
{
    const QString line = QStringLiteral("download/part written=error");
    client().arm(line + QStringLiteral("@*"));
    ASSERT_TRUE(edit(1, 5, 55));
    const QJsonObject saved = save(1);
    ASSERT_EQ(exitOf(saved), 0) << errorOf(saved).toStdString();
    const int version = saved.value(QLatin1String("version")).toInt();
    // By the save's notification, by the one that frees its items, and then of her own accord.
    ASSERT_TRUE(waitFor([&] { return client().passed(line) >= 3; }));
    client().disarm();
    const QJsonObject waited = ask(0, QStringLiteral("wait %1 %2").arg(guid).arg(version));
    EXPECT_EQ(exitOf(waited), 0) << errorOf(waited).toStdString();
    EXPECT_TRUE(anna().waitForEvent(QStringLiteral("projectFetched")));
    EXPECT_EQ(rate(0, 5).toStdString(), "55.00");
    converge();
}

TEST_F(Ring, AFirstDownloadThatWasKilledLeavesNothingBehind)
{
    const QString copy
        = ask(0, QStringLiteral("open ") + guid).value(QLatin1String("path")).toString();
    ASSERT_TRUE(anna().stop());
    QDir folder = QFileInfo(copy).dir();
    ASSERT_TRUE(folder.removeRecursively());
    ASSERT_TRUE(startAnna()) << anna().error().toStdString();
    const QString line = QStringLiteral("download/part written=kill");
    client().arm(line + QStringLiteral("@1"));
    ASSERT_TRUE(ask(0, QStringLiteral("open ") + guid).isEmpty());
    ASSERT_EQ(client().passed(line), 1);
    killed(0);
    const QStringList unfinished { QStringLiteral("project.kvx.*") };
    ASSERT_EQ(folder.entryList(unfinished).size(), 1);
    ASSERT_FALSE(folder.exists(QStringLiteral("project.kvx")));

    // What only looks alike stays.
    const QStringList others { QStringLiteral("project.kvx.0123456"),
        QStringLiteral("project.kvx.01234567"), QStringLiteral("project.kvx.012345678"),
        QStringLiteral("project.kvx.0123456G") };
    ASSERT_TRUE(folder.mkdir(others.at(1)));
    for (const int i : { 0, 2, 3 })
        written(folder.filePath(others.at(i)), "mine");
    restartAnna();
    ASSERT_FALSE(HasFatalFailure());
    QStringList left = folder.entryList(unfinished);
    left.sort();
    EXPECT_EQ(
        left.join(QLatin1Char(' ')).toStdString(), others.join(QLatin1Char(' ')).toStdString());
    EXPECT_EQ(rate(0, 1).toStdString(), "10.00");
    ASSERT_TRUE(folder.rmdir(others.at(1)));
    for (const int i : { 0, 2, 3 })
        folder.remove(others.at(i));
    converge();
}

INSTANTIATE_TEST_SUITE_P(Step, ClientStep, testing::ValuesIn(allRows(steps)),
    [](const auto &info) { return rowName(info.param); });
