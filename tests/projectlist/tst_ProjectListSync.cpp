#include "ProjectListFixture.h"

#include <KVXCollaboration/KVXCollaborator.h>
#include <QMetaMethod>
#include <atomic>
#include <thread>

using namespace kvx::test;

TEST_F(ProjectListTest, IsFilledWhenItIsMade)
{
    answerList({ project("{a}", "A"), project("{b}", "B", "Estimate") });
    list = new KVXCWProjectListImpl;
    KVXCollaborator::getInstance()->setProjectListManager(list);
    expectJson(host.network.takeRequest(),
        R"({"service":"projectlistsynctolocal","Email":"anna@example.com"})");
    expectNoRequest(host);
    EXPECT_EQ(recordCount(), 2);
    EXPECT_EQ(list->getProjectInfo(text("B"), Estimate)->guid(), text("{b}"));
    EXPECT_FALSE(list->isUpdating());
    EXPECT_TRUE(takeInfos().isEmpty());
}

TEST_F(ProjectListTest, IsMadeEmptyWhenTheServerRefuses)
{
    host.network.answer(text("projectlistsynctolocal"), json(R"({"statuscode":2})"));
    list = new KVXCWProjectListImpl;
    KVXCollaborator::getInstance()->setProjectListManager(list);
    EXPECT_EQ(recordCount(), 0);
    EXPECT_TRUE(takeInfos().isEmpty());
}

TEST_F(ProjectListTest, IsMadeWithoutAServerAndWithoutAMessager)
{
    host.unconfigure();
    KVXCollaborator::getInstance()->setMessager(nullptr);
    {
        KVXCWProjectListImpl made;
        EXPECT_TRUE(made.projects().isEmpty());
    }
    expectNoRequest(host);
}

TEST_F(ProjectListTest, OutlivesTheMessager)
{
    makeList({ project("{a}", "A") });
    KVXCollaborator::getInstance()->setMessager(nullptr);
    KVXCollaborator::getInstance()->setProjectListManager(nullptr);
}

TEST_F(ProjectListTest, SynchronisingReadsTheListAnew)
{
    makeList({ project("{a}", "A"), project("{b}", "B") });
    answerList({ project("{b}", "B2"), project("{c}", "C", "Forecast") });

    EXPECT_TRUE(list->syncProjectList());

    expectJson(host.network.takeRequest(),
        R"({"service":"projectlistsynctolocal","Email":"anna@example.com"})");
    EXPECT_EQ(host.network.lastUrl(), text("http://127.0.0.1:8090/kvx/service"));
    EXPECT_EQ(recordCount(), 2);
    EXPECT_EQ(record("{a}"), nullptr);
    EXPECT_EQ(record("{b}")->name(), text("B2"));
    EXPECT_EQ(list->projects().value(text("Forecast")).size(), 1) << "kept under its own kind";
    EXPECT_EQ(takeSignals(), texts({ "beginUpdate", "endUpdate", "changed" }));
    EXPECT_TRUE(takeInfos().isEmpty());
}

TEST_F(ProjectListTest, RecordsOfAKindKeepTheServersOrder)
{
    makeList({ project("{c}", "C"), project("{a}", "A"), project("{b}", "B") });
    QStringList names;
    for (const KVXProjectInfo *info : list->projects().value(text("Tender")))
        names.append(info->name());
    EXPECT_EQ(names, texts({ "C", "A", "B" }));
}

TEST_F(ProjectListTest, AReplyWithoutDataOrProjectsEmptiesTheList)
{
    for (const char *reply :
        { R"({"statuscode":1})", R"({"statuscode":1,"data":{}})", R"({"statuscode":1,"data":[]})",
            R"({"statuscode":1,"data":null})", R"({"statuscode":1,"data":{"Projects":{}}})",
            R"({"statuscode":1,"data":{"Projects":[]}})" }) {
        makeList({ project("{a}", "A") });
        host.network.answer(text("projectlistsynctolocal"), json(reply));
        EXPECT_TRUE(list->syncProjectList()) << reply;
        EXPECT_EQ(recordCount(), 0) << reply;
        EXPECT_EQ(takeSignals(), texts({ "beginUpdate", "endUpdate", "changed" })) << reply;
    }
}

TEST_F(ProjectListTest, ElementsThatAreNoObjectsDoNoHarm)
{
    makeList({});
    host.network.answer(text("projectlistsynctolocal"),
        json(R"({"statuscode":1,"data":{"Projects":[1,null,"x",[],{"ProjectGUID":"{a}"}]}})"));
    EXPECT_TRUE(list->syncProjectList());
    EXPECT_NE(record("{a}"), nullptr);
}

TEST_F(ProjectListTest, ARefusedSynchronisationKeepsTheList)
{
    makeList({ project("{a}", "A") });
    for (const char *reply : { R"({"statuscode":0})", R"({"statuscode":0.5})",
             R"({"statuscode":"1"})", R"({"statuscode":null})", R"({"statuscode":1e300})",
             R"({"statuscode":2,"data":{"Projects":[]}})", "{}" }) {
        host.network.answer(text("projectlistsynctolocal"), json(reply));
        EXPECT_FALSE(list->syncProjectList()) << reply;
    }
    host.network.failPost(text("projectlistsynctolocal"));
    EXPECT_FALSE(list->syncProjectList());
    EXPECT_EQ(recordCount(), 1);
    EXPECT_TRUE(takeSignals().isEmpty());
    EXPECT_TRUE(takeInfos().isEmpty());
}

TEST_F(ProjectListTest, AStatusOfOnePointNineCountsAsOne)
{
    makeList({ project("{a}", "A") });
    host.network.answer(text("projectlistsynctolocal"), json(R"({"statuscode":1.9})"));
    EXPECT_TRUE(list->syncProjectList());
    EXPECT_EQ(recordCount(), 0);
}

TEST_F(ProjectListTest, WithoutAServerNothingIsSentAndTheListIsKept)
{
    makeList({ project("{a}", "A") });
    host.unconfigure();
    EXPECT_FALSE(list->syncProjectList());
    expectNoRequest(host);
    EXPECT_EQ(recordCount(), 1);
    EXPECT_TRUE(takeSignals().isEmpty());
}

TEST_F(ProjectListTest, AnOpenBracketOfTheHostHoldsChangedBack)
{
    makeList({});
    emit list->beginUpdate();
    takeSignals();
    EXPECT_TRUE(list->syncProjectList());
    EXPECT_EQ(takeSignals(), texts({ "beginUpdate", "endUpdate" }));
    EXPECT_TRUE(list->isUpdating());
    emit list->endUpdate();
    EXPECT_FALSE(list->isUpdating());
}

TEST_F(ProjectListTest, WithoutAUserTheEmailIsEmpty)
{
    makeList({});
    host.removeUser();
    list->syncProjectList();
    expectJson(host.network.takeRequest(), R"({"service":"projectlistsynctolocal","Email":""})");
}

TEST_F(ProjectListTest, AFetchAppendsTheProject)
{
    makeList({ project("{a}", "A") });
    host.network.answer(text("getproject"),
        { { text("statuscode"), 1 }, { text("Project"), project("{n}", "New", "Estimate") } });

    EXPECT_TRUE(list->fetchProject(text("{n}")));

    expectJson(host.network.takeRequest(), R"({"service":"getproject","ProjectGUID":"{n}"})");
    EXPECT_EQ(record("{n}")->type(), text("Estimate"));
    EXPECT_TRUE(takeSignals().isEmpty());
}

TEST_F(ProjectListTest, ASecondFetchOfOneProjectLeavesTwoRecords)
{
    makeList({});
    host.network.answer(text("getproject"),
        { { text("statuscode"), 1 }, { text("Project"), project("{n}", "New") } });
    EXPECT_TRUE(list->fetchProject(text("{n}")));
    EXPECT_TRUE(list->fetchProject(text("{n}")));
    EXPECT_EQ(recordCount(), 2);
}

TEST_F(ProjectListTest, AFetchReadsTheProjectAtTheTopLevelOnly)
{
    makeList({});
    host.network.answer(text("getproject"),
        { { text("statuscode"), 1 },
            { text("data"), QJsonObject { { text("Project"), project("{n}", "New") } } } });
    list->fetchProject(text("{n}"));
    EXPECT_EQ(record("{n}"), nullptr);
}

TEST_F(ProjectListTest, AFailedFetchAppendsNothing)
{
    makeList({});
    host.network.answer(text("getproject"),
        { { text("statuscode"), 310 }, { text("Project"), project("{n}", "New") } });
    EXPECT_FALSE(list->fetchProject(text("{n}")));
    host.network.failPost(text("getproject"));
    EXPECT_FALSE(list->fetchProject(text("{n}")));
    host.network.takeRequests();
    host.unconfigure();
    EXPECT_FALSE(list->fetchProject(text("{n}")));
    expectNoRequest(host);
    EXPECT_EQ(recordCount(), 0);
    EXPECT_TRUE(takeInfos().isEmpty());
}

TEST_F(ProjectListTest, TheReaderHandsOutARecordThatTheCallerOwns)
{
    makeList({});
    const std::unique_ptr<KVXProjectInfo> info(list->readProjectInfo(project("{a}", "A")));
    EXPECT_EQ(info->guid(), text("{a}"));
    EXPECT_EQ(recordCount(), 0);
}

TEST_F(ProjectListTest, ClearingDeletesAllRecordsOfOneProjectHereOnly)
{
    makeList({ project("{a}", "A"), project("{b}", "B"), project("{a}", "A", "Estimate") });
    EXPECT_TRUE(list->clearProject(record("{a}")->guid()));
    EXPECT_FALSE(list->clearProject(text("{a}")));
    EXPECT_EQ(recordCount(), 1);
    expectNoRequest(host);
    EXPECT_TRUE(takeSignals().isEmpty());
}

TEST_F(ProjectListTest, AFetchOnAnotherThreadWaitsForTheWholeSynchronisation)
{
    makeList({ project("{a}", "A") });
    host.network.answer(text("getproject"),
        { { text("statuscode"), 1 }, { text("Project"), project("{n}", "New") } });
    std::atomic<bool> asked { false };
    std::atomic<bool> fetched { false };
    std::thread other;
    QObject::connect(list, &KVXCWProjectList::beginUpdate, list, [&] {
        other = std::thread([&] {
            asked = true;
            list->fetchProject(text("{n}"));
            fetched = true;
        });
    });
    QObject::connect(list, &KVXCWProjectList::changed, list, [&] {
        EXPECT_TRUE(waitUntil([&] { return asked.load(); }));
        for (int round = 0; round < 1000; ++round)
            std::this_thread::yield();
        EXPECT_FALSE(fetched) << "the lock is held over the signals too";
        EXPECT_EQ(record("{n}"), nullptr);
    });
    EXPECT_TRUE(list->syncProjectList());
    other.join();
    EXPECT_NE(record("{n}"), nullptr);
}

TEST_F(ProjectListTest, HasAMetaObjectOfItsOwnWithOneSlot)
{
    const QMetaObject &meta = KVXCWProjectListImpl::staticMetaObject;
    EXPECT_STREQ(meta.className(), "KVXCWProjectListImpl");
    ASSERT_EQ(meta.methodCount() - meta.methodOffset(), 1);
    EXPECT_EQ(
        meta.method(meta.methodOffset()).methodSignature(), QByteArray("onNotify(QJsonObject)"));
}
