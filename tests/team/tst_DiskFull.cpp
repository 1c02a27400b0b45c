#include "SharedProject.h"
#include "SmallDisk.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <algorithm>
#include <gtest/gtest.h>

using namespace kvx::test;

namespace {

/// The server's data and the users' files lie on a small disk each.
struct Disks : testing::Environment {
    void SetUp() override
    {
        qputenv("TMPDIR", QFile::encodeName(server.path()));
        siteOptions() << QStringLiteral("--disk.reserve") << QStringLiteral("64KiB");
        site(); // takes its folder there
        QDir().mkpath(clients.path(QStringLiteral("tmp")));
        qputenv("TMPDIR", QFile::encodeName(clients.path(QStringLiteral("tmp"))));
    }

    SmallDisk server { 96 };
    SmallDisk clients { 48 };
};

Disks *disks = static_cast<Disks *>(testing::AddGlobalTestEnvironment(new Disks));

class FullDisk : public SharedProject {
protected:
    FullDisk()
        : SharedProject(disks->clients.path())
    {
    }
    ~FullDisk() override
    {
        disks->clients.makeSpace();
        disks->server.makeSpace();
    }

    void fillClients(qint64 left = 0) { disks->clients.fill({ anna().pid(), ben().pid() }, left); }
    void fillServer(qint64 left = 0) { disks->server.fill({ site().serverPid() }, left); }
    QString large(const QString &name) const
    {
        return written(files.filePath(name), QByteArray(6 * 1024 * 1024, 'x'));
    }
    bool namesCause(const QJsonObject &result, const SmallDisk &disk) const
    {
        QStringList causes { disk.cause(), QStringLiteral("disk is full"),
            QStringLiteral("The server has no space left") };
        // The database and the server have no words of their own for a limit on files.
        if (!disk.isMounted())
            causes << QStringLiteral("disk I/O error")
                   << QStringLiteral("could not carry out the request");
        return std::any_of(causes.cbegin(), causes.cend(),
            [&](const QString &cause) { return errorOf(result).contains(cause); });
    }

    const QTemporaryDir files { QStringLiteral("/var/tmp/kvx-files-XXXXXX") };
};

} // namespace

TEST_F(FullDisk, ASaveKeepsItsEditsAndGoesThroughOnceThereIsSpace)
{
    edit(anna(), 1, 11);
    edit(anna(), 2, 12);
    fillClients();
    const QJsonObject failed = anna().run(QStringLiteral("save ") + guid);
    EXPECT_EQ(exitOf(failed), 5);
    EXPECT_TRUE(namesCause(failed, disks->clients)) << errorOf(failed).toStdString();
    EXPECT_EQ(pending(anna()), 2);
    disks->clients.makeSpace();
    save(anna());
    EXPECT_EQ(version(anna()), 0);
    expectEqualCopies();
}

TEST_F(FullDisk, AnEditIsRefusedAndLeavesTheRowAsItWas)
{
    const QString before = digest(anna());
    fillClients();
    // A page or two may still fit; a bill does not.
    const QJsonObject failed
        = anna().run(QStringLiteral("import %1 %2").arg(guid, QStringLiteral(KVX_TENDER)));
    EXPECT_EQ(exitOf(failed), 1);
    EXPECT_TRUE(namesCause(failed, disks->clients)) << errorOf(failed).toStdString();
    disks->clients.makeSpace();
    EXPECT_EQ(pending(anna()), 0);
    EXPECT_EQ(digest(anna()).toStdString(), before.toStdString());
    EXPECT_EQ(
        exitOf(anna().run(QStringLiteral("import %1 %2").arg(guid, QStringLiteral(KVX_TENDER)))),
        0);
}

TEST_F(FullDisk, ASynchronisationFailsWholeAndGoesOnOnceThereIsSpace)
{
    ASSERT_EQ(
        exitOf(ben().run(QStringLiteral("import %1 %2").arg(guid, QStringLiteral(KVX_TENDER)))), 0);
    edit(anna(), 30, 99);
    ASSERT_TRUE(anna().stop()); // or the push would bring the save
    save(ben());
    ASSERT_TRUE(team.restart(0)) << anna().error().toStdString();
    // At the first byte, and in the middle of the work.
    for (const qint64 left : { 0, 32 * 1024, 96 * 1024 }) {
        fillClients(left);
        const QJsonObject failed = anna().run(QStringLiteral("sync ") + guid);
        EXPECT_EQ(exitOf(failed), 1) << left;
        EXPECT_TRUE(namesCause(failed, disks->clients)) << left << errorOf(failed).toStdString();
        disks->clients.makeSpace();
    }
    EXPECT_EQ(pending(anna()), 1);
    save(anna());
    expectEqualCopies();
}

TEST_F(FullDisk, ADownloadLeavesWhatWasThere)
{
    ASSERT_EQ(exitOf(ben().run(QStringLiteral("upload ") + large(QStringLiteral("plan.bin")))), 0);
    const QString target = written(disks->clients.path(QStringLiteral("plan.bin")), "older");
    const QStringList before = QDir(disks->clients.path()).entryList(QDir::Files);
    fillClients(64 * 1024);
    const QJsonObject failed = ben().run(QStringLiteral("download plan.bin ") + target);
    EXPECT_EQ(exitOf(failed), 1);
    EXPECT_TRUE(namesCause(failed, disks->clients)) << errorOf(failed).toStdString();
    disks->clients.makeSpace();
    EXPECT_EQ(QDir(disks->clients.path()).entryList(QDir::Files), before);
    QFile file(target);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), "older");
    EXPECT_EQ(exitOf(ben().run(QStringLiteral("download plan.bin ") + target)), 0);
    EXPECT_EQ(QFileInfo(target).size(), 6 * 1024 * 1024);
}

TEST_F(FullDisk, TheServerRefusesAnUploadAndTakesItOnceThereIsSpace)
{
    const QString file = large(QStringLiteral("up.bin"));
    fillServer(1024 * 1024);
    const QJsonObject failed = anna().run(QStringLiteral("upload ") + file);
    EXPECT_EQ(exitOf(failed), 1);
    EXPECT_TRUE(namesCause(failed, disks->server)) << errorOf(failed).toStdString();
    disks->server.makeSpace();
    const QJsonObject taken = anna().run(QStringLiteral("upload ") + file);
    EXPECT_EQ(exitOf(taken), 0) << errorOf(taken).toStdString();
}

TEST_F(FullDisk, TheServerPublishesNothingInPartAndGoesOnOnceThereIsSpace)
{
    edit(anna(), 3, 33);
    fillServer();
    const QJsonObject failed = anna().run(QStringLiteral("save ") + guid);
    EXPECT_EQ(exitOf(failed), 5);
    EXPECT_TRUE(namesCause(failed, disks->server)) << errorOf(failed).toStdString();
    disks->server.makeSpace();
    EXPECT_EQ(pending(anna()), 1);
    EXPECT_EQ(version(ben()), -1);
    save(anna());
    EXPECT_EQ(version(anna()), 0);
    expectEqualCopies();
}
