#include "Ring.h"
#include "Rows.h"

#include "store/Db.h"

#include <QDir>

using namespace kvx::test;

namespace {

enum class Scene {
    Save, ///< anna saves an edit
    CheckOut, ///< anna checks an item out
    Numbers, ///< ben, who has no numbers for the project yet, makes an item
    Login, ///< ben logs in
    Logout ///< ben logs out, with a global lock that ends with his session
};

using ServerRow = Row<Scene>;

/// The server's steps. A login counts the try first; an upload is judged before its bytes come,
/// then again, and then kept.
const std::vector<ServerRow> steps {
    { "request read: sendservertomerge", 1, Scene::Save, Then::Unchanged },
    { "session known: sendservertomerge", 1, Scene::Save, Then::Unchanged },
    { "lock/row written", 1, Scene::Save, Then::Unchanged },
    { "committed: loglock", 1, Scene::Save, Then::Unchanged },
    { "upload/file created", 1, Scene::Save, Then::Unchanged },
    { "upload/part written", 2, Scene::Save, Then::Unchanged },
    { "content/named", 1, Scene::Save, Then::Unchanged },
    { "content/synced", 2, Scene::Save, Then::Unchanged },
    { "committed: upload", 2, Scene::Save, Then::Unchanged },
    { "publish/begun", 1, Scene::Save, Then::Unchanged },
    { "publish/checked", 1, Scene::Save, Then::Unchanged },
    { "publish/applied", 1, Scene::Save, Then::Unchanged },
    { "publish/before the commit", 1, Scene::Save, Then::Unchanged },
    { "committed: sendservertomerge", 1, Scene::Save, Then::Published },
    { "publisher/rows taken", 1, Scene::Save, Then::Published },
    { "publisher/sent", 1, Scene::Save, Then::Published },
    { "publisher/marked", 1, Scene::Save, Then::Published },
    { "answering: sendservertomerge", 1, Scene::Save, Then::Published },
    { "committed: checkout", 1, Scene::CheckOut, Then::Unchanged },
    { "committed: allocateidrange", 1, Scene::Numbers, Then::Unchanged },
    { "committed: login", 2, Scene::Login, Then::Unchanged },
    { "logout/tidied", 1, Scene::Logout, Then::Unchanged },
};

class ServerStep : public Ring, public testing::WithParamInterface<ServerRow> {
protected:
    void SetUp() override
    {
        Ring::SetUp();
        ASSERT_FALSE(HasFatalFailure());
        if (row.scene == Scene::Save) {
            ASSERT_TRUE(edit(0, 2, 22));
        }
        if (row.scene == Scene::Logout) {
            ASSERT_EQ(exitOf(ask(1, QStringLiteral("global-lock take 7 --until-logout"))), 0);
        }
        if (row.scene == Scene::Numbers) {
            makeAnotherProject();
        }
        awaitAnnounced();
        ASSERT_FALSE(HasFatalFailure());
        before = published();
        server().arm(row.armed());
    }
    void TearDown() override
    {
        if (!ben().isRunning())
            restartBen();
        Ring::TearDown();
    }

    /// One that ben has not opened.
    void makeAnotherProject()
    {
        ask(0, QStringLiteral("close ") + guid);
        ask(1, QStringLiteral("close ") + guid);
        const QString name = freshName(QStringLiteral("another"));
        const QJsonObject made = ask(0, QStringLiteral("new %1 --from %2").arg(name, billFile(3)));
        ASSERT_EQ(exitOf(made), 0) << errorOf(made).toStdString();
        guid = made.value(QLatin1String("guid")).toString();
        shareWithBen();
    }
    /// What leads to the step; whether it went well for the one who did it.
    bool act()
    {
        switch (row.scene) {
        case Scene::Save: {
            const QJsonObject result = save(0);
            EXPECT_FALSE(result.isEmpty());
            return exitOf(result) == 0;
        }
        case Scene::CheckOut:
            return exitOf(ask(0, QStringLiteral("edit %1 01.2 rate=22").arg(guid))) == 0;
        case Scene::Numbers:
            return exitOf(ask(1, QStringLiteral("open ") + guid)) == 0 && exitOf(addItem()) == 0;
        case Scene::Login:
            ben().stop();
            if (restartBen())
                return true;
            ben().kill(); // it is about to end
            return false;
        case Scene::Logout:
            return ben().stop();
        }
        return false;
    }
    QJsonObject addItem()
    {
        return ask(1,
            QStringLiteral("add %1 01.900 --chapter 01 text=New unit=m quantity=1 rate=9")
                .arg(guid));
    }
    /// The same once more, by the same person.
    void repeat()
    {
        switch (row.scene) {
        case Scene::Save:
            break; // converge() does
        case Scene::CheckOut:
            EXPECT_TRUE(edit(0, 2, 22));
            break;
        case Scene::Numbers:
            if (rate(1, 900).isEmpty()) {
                EXPECT_EQ(exitOf(addItem()), 0);
            }
            break;
        case Scene::Login:
        case Scene::Logout:
            if (!ben().isRunning()) {
                ASSERT_TRUE(restartBen()) << ben().error().toStdString();
            }
            ASSERT_EQ(exitOf(ask(1, QStringLiteral("open ") + guid)), 0);
            break;
        }
    }
    /// A lock that ends with a session is there until the session has ended, and not longer.
    void expectLockEndsWithTheSession(bool loggedOut)
    {
        const QString take = QStringLiteral("global-lock take 7 --until-logout");
        EXPECT_EQ(exitOf(ask(0, take)) == 0, loggedOut);
        EXPECT_TRUE(site().administer({ QStringLiteral("session"), QStringLiteral("end"),
            QStringLiteral("--user"), email(1) }))
            << site().error().toStdString();
        EXPECT_EQ(exitOf(ask(0, take)), 0);
        EXPECT_EQ(exitOf(ask(0, QStringLiteral("global-lock release 7"))), 0);
    }
    static QStringList temporaries()
    {
        return QDir(dataFolder() + QStringLiteral("/tmp")).entryList(QDir::Files | QDir::Hidden);
    }

    const ServerRow row = GetParam();
    Published before;
};

} // namespace

TEST_P(ServerStep, HarmsNobody)
{
    const bool went = act();
    ASSERT_TRUE(server().waitFor(row.noted())) << "the step was never reached";
    if (row.deed == Deed::Kill) {
        restartServer();
        ASSERT_FALSE(HasFatalFailure());
        EXPECT_EQ(temporaries().join(QLatin1Char(' ')).toStdString(), "");
    } else {
        server().disarm();
    }
    const Published now = published();
    if (row.deed == Deed::Delay) {
        EXPECT_TRUE(went);
    } else {
        EXPECT_EQ(now.version, before.version + (row.then == Then::Published ? 1 : 0));
        EXPECT_EQ(now.file == before.file, row.then == Then::Unchanged);
    }
    if (row.scene == Scene::Save && now.version > before.version) {
        // Whatever happened on the way: who has the project open hears of it.
        const QJsonObject heard = ask(1, QStringLiteral("wait %1 %2").arg(guid).arg(now.version));
        EXPECT_EQ(exitOf(heard), 0) << errorOf(heard).toStdString();
    }
    if (row.scene == Scene::Logout)
        expectLockEndsWithTheSession(row.deed == Deed::Delay);
    repeat();
    ASSERT_FALSE(HasFatalFailure());
    converge();
    if (row.scene == Scene::Save || row.scene == Scene::CheckOut) {
        EXPECT_EQ(rate(1, 2).toStdString(), "22.00");
    }
    if (row.scene == Scene::Numbers) {
        EXPECT_EQ(rate(0, 900).toStdString(), "9.00");
    }
}

INSTANTIATE_TEST_SUITE_P(Step, ServerStep, testing::ValuesIn(allRows(steps)),
    [](const auto &info) { return rowName(info.param); });
