#include "projectdata/LossyNetwork.h"
#include "projectdata/ProjectServer.h"
#include "projectdata/KVXCWIDManagerImpl.h"
#include "projectdata/KVXCWProjectDataImpl.h"
#include "resources/KVXCWFileServiceImpl.h"
#include "support/FakeHost.h"

#include <KVXCollaboration/IKVXCWProjectAdditionalInfo.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXSQLite/KVXProjectDatabase.h>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <sqlite3.h>

namespace kvx::test {

namespace {

const QString guid = QStringLiteral("{0d9c3c62-51b6-4f0e-9a3e-7b1f5f0c2a44}");
const QString schema = QStringLiteral("CREATE TABLE item(id INTEGER PRIMARY KEY, text TEXT)");

/// One estimator: a project file of his own and his synchroniser. The scripted host is one process,
/// so he steps forward before he acts.
class Client : public IKVXCWProjectAdditionalInfo {
public:
    Client(FakeHost &host, const QString &folder, const QString &name)
        : m_host(host)
        , m_name(name)
        , m_path(folder + QLatin1Char('/') + name + QStringLiteral(".KVX"))
        , m_commandFile(folder + QLatin1Char('/') + name + QStringLiteral(".changes"))
    {
    }

    std::unique_ptr<KVXProjectDatabase> database;
    std::unique_ptr<KVXCWProjectDataImpl> synchronizer;
    bool prepared = false;

    void stepForward() { m_host.setUser(m_name, m_name + QStringLiteral("@example.com")); }

    void create(ProjectServer &server)
    {
        stepForward();
        QString error;
        database = KVXProjectDatabase::create(m_path, guid, schema, &error);
        ASSERT_TRUE(database) << error.toStdString();
        ASSERT_TRUE(database->sealBase());
        server.files.insert(server.projectFileName(), readFile(m_path));
        attach();
    }

    /// The synchroniser first, then the download: the file is never older than the version.
    void open(ProjectServer &server)
    {
        stepForward();
        attach();
        ASSERT_TRUE(writeFile(m_path, server.files.value(server.projectFileName())));
        QString error;
        database = KVXProjectDatabase::open(
            m_path, guid, KVXProjectDatabase::Origin::Downloaded, schema, &error);
        ASSERT_TRUE(database) << error.toStdString();
        synchronizer->setProjectDatabase(database.get());
    }

    bool set(int id, const QString &text)
    {
        return database->edit([&](sqlite3 *connection) {
            const QByteArray sql
                = QStringLiteral("INSERT INTO item VALUES(%1, '%2') "
                                 "ON CONFLICT(id) DO UPDATE SET text = excluded.text")
                      .arg(QString::number(id), text)
                      .toUtf8();
            return sqlite3_exec(connection, sql.constData(), nullptr, nullptr, nullptr)
                == SQLITE_OK;
        });
    }

    KVXCWProjectData::ErrorCode sync()
    {
        stepForward();
        return synchronizer->syncLogs();
    }

    /// As a host saves: the edits count as published exactly when the files were asked for and the
    /// result is 1 or 5.
    KVXCWProjectData::ErrorCode save()
    {
        stepForward();
        prepared = false;
        const KVXCWProjectData::ErrorCode result = synchronizer->saveProject(this);
        const bool reported
            = result == KVXCWProjectData::Success || result == KVXCWProjectData::CheckOutFailed;
        EXPECT_TRUE(!prepared || !reported || database->published(synchronizer->logVersion()))
            << database->errorText().toStdString();
        return result;
    }

    QByteArray digest() const { return database->contentDigest(); }

    bool isReady() override { return true; }
    void additionalInfo(QMap<QString, QVariant> &info) override
    {
        prepared = database->prepareSave(m_commandFile, m_name + QStringLiteral("@example.com"));
        EXPECT_TRUE(prepared) << database->errorText().toStdString();
        info.insert(QStringLiteral("ProjectLogFile"), m_commandFile);
        info.insert(QStringLiteral("ProjectFile"), m_path);
        info.insert(QStringLiteral("Amount"), QStringLiteral("1.00"));
    }

private:
    void attach()
    {
        synchronizer = std::make_unique<KVXCWProjectDataImpl>();
        synchronizer->setProjectGuid(guid);
        synchronizer->setProjectDatabase(database.get());
    }

    FakeHost &m_host;
    QString m_name;
    QString m_path;
    QString m_commandFile;
};

class Exchange : public testing::Test {
protected:
    Exchange()
    {
        KVXCollaborator *registry = KVXCollaborator::getInstance();
        registry->setFileService(new KVXCWFileServiceImpl);
        registry->setIdManager(guid, new KVXCWIDManagerImpl);
        anna.create(server);
        ben.open(server);
    }
    void TearDown() override
    {
        for (const QString &name : QDir(QDir::tempPath()).entryList({ guid + QLatin1Char('*') }))
            QFile::remove(QDir::tempPath() + QLatin1Char('/') + name);
    }
    void expectEqualProjects()
    {
        EXPECT_EQ(anna.sync(), KVXCWProjectData::Success);
        EXPECT_EQ(ben.sync(), KVXCWProjectData::Success);
        EXPECT_FALSE(anna.digest().isEmpty());
        EXPECT_EQ(anna.digest(), ben.digest());
        EXPECT_EQ(anna.synchronizer->logVersion(), server.version);
        EXPECT_EQ(anna.database->logVersion(), server.version);
        EXPECT_EQ(ben.database->logVersion(), server.version);
    }

    FakeHost host;
    ProjectServer server { host.network, guid };
    QTemporaryDir folder;
    Client anna { host, folder.path(), QStringLiteral("anna") };
    Client ben { host, folder.path(), QStringLiteral("ben") };
};

} // namespace

TEST_F(Exchange, twoEstimatorsSeeEachOthersSaves)
{
    ASSERT_TRUE(anna.set(1, QStringLiteral("Excavation")));
    ASSERT_TRUE(ben.set(2, QStringLiteral("Formwork")));
    EXPECT_EQ(anna.save(), KVXCWProjectData::Success);
    EXPECT_EQ(ben.save(), KVXCWProjectData::Success); // fetches the other log first
    EXPECT_EQ(server.version, 1);
    expectEqualProjects();
    ASSERT_TRUE(ben.set(1, QStringLiteral("Excavation, rock")));
    EXPECT_EQ(ben.save(), KVXCWProjectData::Success);
    expectEqualProjects();
    EXPECT_EQ(anna.database->pendingCount(), 0);
}

TEST_F(Exchange, aSaveWithoutChangesIsAVersionToo)
{
    EXPECT_EQ(anna.save(), KVXCWProjectData::Success);
    EXPECT_EQ(server.version, 0);
    expectEqualProjects();
}

TEST_F(Exchange, aLateComerStartsFromTheLastProjectFile)
{
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(anna.set(i, QStringLiteral("Item")));
        ASSERT_EQ(anna.save(), KVXCWProjectData::Success);
    }
    Client cora(host, folder.path(), QStringLiteral("cora"));
    cora.open(server);
    EXPECT_EQ(cora.digest(), anna.digest());
    EXPECT_EQ(cora.synchronizer->logVersion(), 4);
    EXPECT_EQ(cora.database->logVersion(), 4);
    ASSERT_TRUE(cora.set(77, QStringLiteral("Late")));
    EXPECT_EQ(cora.save(), KVXCWProjectData::Success);
    expectEqualProjects();
    EXPECT_EQ(cora.digest(), anna.digest());
}

TEST_F(Exchange, aMergeWhoseReplyWasLostIsNotAppliedTwice)
{
    ASSERT_TRUE(anna.set(1, QStringLiteral("Once")));
    {
        LossyNetwork network(host.network);
        network.fault = [&](int) {
            return !network.exchanges.isEmpty()
                    && network.exchanges.last()
                           .request.value(QLatin1String("FileName"))
                           .toString()
                           .endsWith(QLatin1String(".KVX"))
                ? LossyNetwork::ReplyLost // of the merge, which follows the project file
                : LossyNetwork::None;
        };
        EXPECT_EQ(anna.save(), KVXCWProjectData::SendToMergeFailed);
    }
    EXPECT_EQ(server.version, 0);
    EXPECT_EQ(anna.synchronizer->logVersion(), -1);
    EXPECT_EQ(anna.database->pendingCount(), 1);

    ASSERT_TRUE(ben.set(1, QStringLiteral("Twice")));
    EXPECT_EQ(ben.save(), KVXCWProjectData::MergeLogsFailed); // both made item 1
    ben.database->setClashChoice(KVXProjectDatabase::ClashChoice::Theirs);
    EXPECT_EQ(ben.save(), KVXCWProjectData::Success);
    expectEqualProjects();
    EXPECT_EQ(anna.database->pendingCount(), 0);
    EXPECT_EQ(anna.save(), KVXCWProjectData::Success);
    expectEqualProjects();
}

TEST_F(Exchange, aClashChangesNothingUntilTheUserHasChosen)
{
    ASSERT_TRUE(anna.set(1, QStringLiteral("of Anna")));
    ASSERT_TRUE(ben.set(1, QStringLiteral("of Ben")));
    ASSERT_TRUE(ben.set(2, QStringLiteral("also of Ben")));
    EXPECT_EQ(anna.save(), KVXCWProjectData::Success);
    const QByteArray before = ben.digest();
    EXPECT_EQ(ben.save(), KVXCWProjectData::MergeLogsFailed);
    EXPECT_EQ(ben.digest(), before);
    EXPECT_EQ(ben.synchronizer->logVersion(), -1);
    EXPECT_EQ(ben.database->logVersion(), -1);
    EXPECT_EQ(ben.database->pendingCount(), 2);

    ben.database->setClashChoice(KVXProjectDatabase::ClashChoice::Mine);
    EXPECT_EQ(ben.save(), KVXCWProjectData::Success);
    expectEqualProjects();
    EXPECT_TRUE(QFile::exists(ben.database->conflictsFile()));
}

TEST_F(Exchange, aDamagedLogStopsThePassAndLaterLogsWait)
{
    for (int id = 0; id < 3; ++id) {
        ASSERT_TRUE(anna.set(id, QStringLiteral("Item")));
        ASSERT_EQ(anna.save(), KVXCWProjectData::Success);
    }
    const QByteArray good = server.files.value(server.logName(1));
    // The packed content lies between the entry's head and the archive's directory.
    const int contentEnd = good.lastIndexOf("PK\x01\x02") - 32;
    ASSERT_GT(contentEnd, 200);
    for (int at = contentEnd; at > contentEnd - 60; at -= 5) {
        QByteArray bad = good;
        bad[at] = static_cast<char>(bad.at(at) ^ 0x55);
        server.files.insert(server.logName(1), bad);
        EXPECT_EQ(ben.sync(), KVXCWProjectData::MergeLogsFailed) << at;
        EXPECT_EQ(ben.synchronizer->logVersion(), 0) << at;
        EXPECT_EQ(ben.database->logVersion(), 0) << at;
    }
    server.files.insert(server.logName(1), good.left(good.size() / 2));
    EXPECT_EQ(ben.sync(), KVXCWProjectData::MergeLogsFailed);
    server.files.insert(server.logName(1), good);
    expectEqualProjects();
}

TEST_F(Exchange, aLogOfAnotherProjectIsRefused)
{
    ASSERT_TRUE(anna.set(1, QStringLiteral("a")));
    ASSERT_EQ(anna.save(), KVXCWProjectData::Success);
    QString error;
    const auto foreign = KVXProjectDatabase::create(folder.filePath(QStringLiteral("f.KVX")),
        QStringLiteral("{11111111-51b6-4f0e-9a3e-7b1f5f0c2a44}"), schema, &error);
    ASSERT_TRUE(foreign) << error.toStdString();
    ASSERT_TRUE(foreign->sealBase());
    const QString changes = folder.filePath(QStringLiteral("f.changes"));
    ASSERT_TRUE(foreign->prepareSave(changes, QStringLiteral("eve@example.com")));
    const QByteArray good = server.files.value(server.logName(0));
    server.publishLog(0, changes);
    EXPECT_EQ(ben.sync(), KVXCWProjectData::MergeLogsFailed);
    EXPECT_EQ(ben.synchronizer->logVersion(), -1);
    server.files.insert(server.logName(0), good);
    expectEqualProjects();
}

TEST_F(Exchange, aRandomHistoryWithFaultsConverges)
{
    std::mt19937 random(20240917);
    const auto upTo
        = [&](int most) { return static_cast<int>(random() % static_cast<unsigned>(most)); };
    Client *clients[] = { &anna, &ben };
    for (int round = 0; round < 60; ++round) {
        const int which = upTo(2);
        Client &client = *clients[which];
        for (int edits = upTo(3); edits >= 0; --edits)
            ASSERT_TRUE(client.set(which * 1000 + upTo(20), QString::number(round)));
        LossyNetwork network(host.network);
        const int failing = upTo(14);
        const auto fault = static_cast<LossyNetwork::Fault>(upTo(4));
        network.fault = [&](int number) { return number == failing ? fault : LossyNetwork::None; };
        client.save();
    }
    EXPECT_EQ(anna.save(), KVXCWProjectData::Success);
    EXPECT_EQ(ben.save(), KVXCWProjectData::Success);
    expectEqualProjects();
    EXPECT_EQ(anna.database->pendingCount() + ben.database->pendingCount(), 0);
}

} // namespace kvx::test
