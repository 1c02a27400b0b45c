#include <KVXCollaboration/KVXCWIDManager.h>
#include <KVXCollaboration/KVXCWLogin.h>
#include <KVXCollaboration/KVXCWMessage.h>
#include <KVXCollaboration/KVXCWProjectData.h>
#include <KVXCollaboration/KVXCollaborator.h>

#include <QCoreApplication>
#include <QPointer>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

class Collaborator : public testing::Test {
protected:
    ~Collaborator() override
    {
        registry->unload();
        qApp->setProperty("kvx.without", QVariant());
        qApp->setProperty("kvx.events", QVariant());
    }

    static bool load()
    {
        return KVXCollaborator::getInstance()->load(QStringLiteral(KVX_RECORDING_PLUGIN));
    }

    // What the managers noted since the last call, in one line.
    static std::string takeEvents()
    {
        const QStringList events = qApp->property("kvx.events").toStringList();
        qApp->setProperty("kvx.events", QVariant());
        return events.join(QLatin1Char(' ')).toStdString();
    }

    KVXCollaborator *registry = KVXCollaborator::getInstance();
};

} // namespace

TEST_F(Collaborator, LoadingCreatesTheMessagerAndThenTheLoginManager)
{
    ASSERT_TRUE(load()) << registry->errorString().toStdString();
    EXPECT_EQ(takeEvents(), "+Message +LoginManager");
    EXPECT_NE(registry->messager(), nullptr);
    EXPECT_NE(registry->loginManager(), nullptr);
    EXPECT_EQ(registry->projectListManager(), nullptr);
    EXPECT_TRUE(registry->errorString().isEmpty());
}

TEST_F(Collaborator, TheOtherManagersComeInTheirOrderAndGoInReverse)
{
    ASSERT_TRUE(load());
    registry->initialise();
    EXPECT_EQ(takeEvents(),
        "+Message +LoginManager +UserManager +ReportTemplateMgr +GlobalLockMgr "
        "+ProjectListManager +ProjectPermissionManager +Ocr +FileService +Common "
        "ServerStatusChecker");

    registry->unload();
    EXPECT_EQ(takeEvents(),
        "-Common -FileService -Ocr -ProjectPermissionManager -ProjectListManager -GlobalLockMgr "
        "-ReportTemplateMgr -UserManager -LoginManager -Message");
    EXPECT_EQ(registry->messager(), nullptr);
    EXPECT_EQ(registry->common(), nullptr);
}

TEST_F(Collaborator, ProjectManagersGoBeforeTheOthers)
{
    ASSERT_TRUE(load());
    registry->initialise();
    registry->projectDataSynchronizer(QStringLiteral("{g}"));
    registry->idManager(QStringLiteral("{g}"));
    takeEvents();

    registry->unload();

    EXPECT_EQ(takeEvents().rfind("-IdManager -ProjectDataSynchronizer -Common", 0), 0u);
}

TEST_F(Collaborator, AManagerThatThePluginDoesNotOfferIsNull)
{
    qApp->setProperty("kvx.without", QStringLiteral("initOcr"));
    ASSERT_TRUE(load());
    registry->initialise();
    EXPECT_EQ(registry->ocr(), nullptr);
    EXPECT_NE(registry->fileService(), nullptr);
    EXPECT_NE(registry->common(), nullptr);
}

TEST_F(Collaborator, WithoutAMessagerOrALoginManagerLoadingFailsAndLeavesNothing)
{
    for (const char *entryPoint : { "initMessage", "initLoginManager" }) {
        qApp->setProperty("kvx.without", QLatin1String(entryPoint));
        EXPECT_FALSE(load());
        EXPECT_EQ(registry->messager(), nullptr);
        EXPECT_EQ(registry->loginManager(), nullptr);
        const QString word = QLatin1String(entryPoint) == QLatin1String("initMessage")
            ? QStringLiteral("offers no messager.")
            : QStringLiteral("offers no login manager.");
        EXPECT_TRUE(registry->errorString().endsWith(word))
            << registry->errorString().toStdString();
        qApp->setProperty("kvx.without", QVariant());
        EXPECT_TRUE(load()) << "a failed attempt must not block the next";
        registry->unload();
    }
}

TEST_F(Collaborator, AMissingPluginIsNamedInTheError)
{
    const QTemporaryDir folder;
    EXPECT_FALSE(registry->load(folder.filePath(QStringLiteral("absent.so"))));
    EXPECT_TRUE(registry->errorString().contains(QStringLiteral("absent")));
}

TEST_F(Collaborator, ASecondLoadIsRefusedAndKeepsTheFirst)
{
    ASSERT_TRUE(load());
    const KVXCWMessage *messager = registry->messager();
    EXPECT_FALSE(load());
    EXPECT_TRUE(registry->errorString().startsWith(QStringLiteral("A plug-in is loaded already")));
    EXPECT_EQ(registry->messager(), messager);
}

TEST_F(Collaborator, InitialisingTwiceCreatesNothingTwice)
{
    ASSERT_TRUE(load());
    registry->initialise();
    takeEvents();
    registry->initialise();
    EXPECT_EQ(takeEvents(), "");
}

TEST_F(Collaborator, TheServerStatusCheckerIsInitialisedOnceForEachLoad)
{
    for (int time = 0; time < 2; ++time) {
        ASSERT_TRUE(load());
        registry->unload();
        EXPECT_EQ(takeEvents(), "+Message +LoginManager -LoginManager -Message");
        registry->initialise();
        EXPECT_EQ(takeEvents(), "") << "the function went with the plug-in";
        ASSERT_TRUE(load());
        registry->initialise();
        registry->initialise();
        EXPECT_EQ(QString::fromStdString(takeEvents()).count(QStringLiteral("StatusChecker")), 1);
        registry->unload();
        takeEvents();
    }
}

TEST_F(Collaborator, InitialisingWithoutAPluginDoesNothing)
{
    registry->initialise();
    EXPECT_EQ(registry->common(), nullptr);
}

TEST_F(Collaborator, ProjectManagersComeOnFirstUseAndLearnTheirProjectOnce)
{
    ASSERT_TRUE(load());
    takeEvents();
    KVXCWProjectData *synchronizer = registry->projectDataSynchronizer(QStringLiteral("{g}"));
    ASSERT_NE(synchronizer, nullptr);
    EXPECT_EQ(registry->projectDataSynchronizer(QStringLiteral("{g}")), synchronizer);
    EXPECT_EQ(takeEvents(), "+ProjectDataSynchronizer ProjectDataSynchronizer={g}");

    KVXCWIDManager *manager = registry->idManager(QStringLiteral("{g}"));
    EXPECT_EQ(registry->idManager(QStringLiteral("{g}")), manager);
    EXPECT_EQ(takeEvents(), "+IdManager IdManager={g}");

    EXPECT_NE(registry->projectDataSynchronizer(QStringLiteral("{other}")), synchronizer);
}

TEST_F(Collaborator, NoProjectManagersWithoutAProjectOrAPlugin)
{
    EXPECT_EQ(registry->projectDataSynchronizer(QStringLiteral("{g}")), nullptr);
    EXPECT_EQ(registry->idManager(QStringLiteral("{g}")), nullptr);
    ASSERT_TRUE(load());
    EXPECT_EQ(registry->projectDataSynchronizer(QString()), nullptr);
    EXPECT_EQ(registry->idManager(QString()), nullptr);
}

TEST_F(Collaborator, ResetOfOneProjectDropsItsTwoManagersTheIdManagerFirst)
{
    ASSERT_TRUE(load());
    const QPointer<KVXCWProjectData> kept
        = registry->projectDataSynchronizer(QStringLiteral("{kept}"));
    const QPointer<KVXCWProjectData> synchronizer
        = registry->projectDataSynchronizer(QStringLiteral("{g}"));
    const QPointer<KVXCWIDManager> manager = registry->idManager(QStringLiteral("{g}"));
    takeEvents();

    registry->reset(true, QStringLiteral("{g}"));

    EXPECT_EQ(takeEvents(), "-IdManager -ProjectDataSynchronizer");
    EXPECT_TRUE(synchronizer.isNull());
    EXPECT_TRUE(manager.isNull());
    EXPECT_FALSE(kept.isNull());

    registry->reset(true, QStringLiteral("{unknown}"));
    EXPECT_EQ(takeEvents(), "");
    registry->projectDataSynchronizer(QStringLiteral("{g}"));
    EXPECT_EQ(takeEvents(), "+ProjectDataSynchronizer ProjectDataSynchronizer={g}");
}

TEST_F(Collaborator, ResetWithoutAProjectDropsThoseOfAllProjects)
{
    ASSERT_TRUE(load());
    for (const auto &guid : { QStringLiteral("{a}"), QStringLiteral("{b}") }) {
        registry->idManager(guid);
        registry->projectDataSynchronizer(guid);
    }
    takeEvents();
    registry->reset(false, QString());
    EXPECT_EQ(
        takeEvents(), "-IdManager -ProjectDataSynchronizer -IdManager -ProjectDataSynchronizer");
    EXPECT_NE(registry->messager(), nullptr);
}

TEST_F(Collaborator, ReplacingAManagerDestroysTheOldOneAndNullOnlyDestroys)
{
    ASSERT_TRUE(load());
    const QPointer<KVXCWLogin> first = registry->loginManager();
    registry->setLoginManager(first);
    EXPECT_FALSE(first.isNull()) << "the same object is no replacement";
    takeEvents();
    registry->setLoginManager(nullptr);
    EXPECT_TRUE(first.isNull());
    EXPECT_EQ(registry->loginManager(), nullptr);
    EXPECT_EQ(takeEvents(), "-LoginManager");
    registry->setLoginManager(nullptr);
    EXPECT_EQ(takeEvents(), "");
}
