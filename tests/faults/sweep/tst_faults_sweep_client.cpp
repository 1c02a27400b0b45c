#include "UnderFire.h"

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>

using namespace kvx::test;

namespace {

/// Anna's process is under fire; Ben sees what becomes of it.
class ClientUnderFire : public UnderFire {
protected:
    void SetUp() override
    {
        UnderFire::SetUp();
        if (HasFatalFailure())
            return;
        const Sweep::Counted counted(sweep());
        ASSERT_TRUE(team.restart(0)) << anna().error().toStdString();
        ASSERT_EQ(exitOf(openAnna()), 0);
    }

    QJsonObject openAnna() { return anna().run(QStringLiteral("open ") + guid); }

    /// She is back where she was, and nothing had to be put aside.
    void expectOpens()
    {
        const QJsonObject opened = openAnna();
        EXPECT_EQ(exitOf(opened), 0) << errorOf(opened).toStdString();
        EXPECT_EQ(opened.value(QLatin1String("notice")).toString().toStdString(), "");
    }

    /// An edit that Anna has not seen yet: without the broker no push goes out.
    void benSaves()
    {
        ++rounds;
        edit(ben(), 1 + rounds % 20, 100 + rounds);
        save(ben());
    }

    void withoutBroker()
    {
        site().stopBroker();
        EXPECT_TRUE(anna().waitForEvent(QStringLiteral("connectionLost")));
    }

    void withBroker()
    {
        ASSERT_TRUE(site().startBroker()) << site().error().toStdString();
        expectEqualCopies();
    }
};

} // namespace

TEST_F(ClientUnderFire, ASaveIsPublishedOnceOrKept)
{
    sweepSave(QStringLiteral("save"), CallCounter::MainThread, 2);
}

TEST_F(ClientUnderFire, ASynchronisationAppliesALogWholeOrNotAtAll)
{
    edit(anna(), 30, 7);
    withoutBroker();
    sweep().over(QStringLiteral("sync"), CallCounter::MainThread, 2, [&](const Sweep::Run &run) {
        const int before = version(anna());
        benSaves();
        const bool synchronised = done(run, QStringLiteral("sync ") + guid);
        const int now = version(anna());
        EXPECT_TRUE(now == before + 1 || (now == before && !synchronised)) << now - before;
        expectDone(anna(), QStringLiteral("sync ") + guid);
        EXPECT_EQ(version(anna()), before + 1);
        EXPECT_EQ(pending(anna()), 1);
    });
    save(anna());
    withBroker();
}

TEST_F(ClientUnderFire, OpeningCatchesUpAndKeepsUnsavedEdits)
{
    edit(anna(), 30, 7);
    withoutBroker();
    sweep().over(
        QStringLiteral("open a copy"), CallCounter::MainThread, 4, [&](const Sweep::Run &run) {
            expectDone(anna(), QStringLiteral("close ") + guid);
            benSaves();
            done(run, QStringLiteral("open ") + guid);
            expectOpens();
            EXPECT_EQ(version(anna()), version(ben()));
            EXPECT_EQ(pending(anna()), 1);
        });
    save(anna());
    withBroker();
}

TEST_F(ClientUnderFire, AFirstOpeningFetchesTheProjectWholeOrNotAtAll)
{
    QDir copy = QFileInfo(openAnna().value(QLatin1String("path")).toString()).dir();
    sweep().over(
        QStringLiteral("open anew"), CallCounter::MainThread, 3, [&](const Sweep::Run &run) {
            expectDone(anna(), QStringLiteral("close ") + guid);
            ASSERT_TRUE(copy.removeRecursively());
            done(run, QStringLiteral("open ") + guid);
            expectOpens();
            EXPECT_EQ(digest(anna()).toStdString(), digest(ben()).toStdString());
            for (const QString &file : copy.entryList(QDir::Files | QDir::Hidden))
                EXPECT_TRUE(
                    file == QLatin1String("lock") || file.startsWith(QLatin1String("project.kvx")))
                    << file.toStdString();
        });
    expectEqualCopies();
}

TEST_F(ClientUnderFire, ATemplateIsSharedWholeOrNotAtAll)
{
    sweepTemplateUpload(QStringLiteral("template upload"), CallCounter::MainThread, 1);
}

TEST_F(ClientUnderFire, ATemplateIsFetchedWholeOrNotAtAll)
{
    const QTemporaryDir folder;
    const QString up = written(folder.filePath(QStringLiteral("up.json")), templateText(7, 200000));
    const QString down = folder.filePath(QStringLiteral("down.json"));
    const QString name = freshName(QStringLiteral("cover"));
    expectDone(ben(), QStringLiteral("templates upload %1 --name %2").arg(up, name));
    const QString download = QStringLiteral("templates download %1 %2").arg(name, down);
    const QStringList files { QStringLiteral("down.json"), QStringLiteral("up.json") };
    sweep().over(QStringLiteral("template download"), CallCounter::MainThread, 1,
        [&](const Sweep::Run &run) {
            written(down, templateText(1, 10));
            EXPECT_EQ(templateNumber(down), done(run, download) ? 7 : 1);
            EXPECT_EQ(QDir(folder.path()).entryList(QDir::Files | QDir::Hidden, QDir::Name), files);
            expectDone(anna(), download);
            EXPECT_EQ(templateNumber(down), 7);
        });
}

TEST_F(ClientUnderFire, ALoginFailsInWordsAndTheNextOneSucceeds)
{
    ASSERT_TRUE(anna().stop());
    const QStringList login = as(team.account(0), { QStringLiteral("login") });
    sweep().over(QStringLiteral("login"), CallCounter::AllThreads, 6, [&](const Sweep::Run &run) {
        Ended under;
        {
            const Sweep::Counted counted(sweep());
            run.begin();
            under = runKvx(login);
        }
        const bool struck = run.end();
        EXPECT_GE(under.exit, 0) << "a hang or a crash";
        EXPECT_TRUE(under.exit == 0 || struck);
        EXPECT_TRUE(under.exit == 0 || !under.err.isEmpty()) << under.out.toStdString();
        const Ended after = runKvx(login);
        EXPECT_EQ(after.exit, 0) << after.err.toStdString();
        EXPECT_TRUE(after.out.contains(QLatin1String("Notifications arrive.")))
            << after.out.toStdString();
    });
}
