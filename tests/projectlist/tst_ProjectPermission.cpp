#include "projectlist/KVXCWProjectPermissionImpl.h"

#include "ProjectListFixture.h"

using namespace kvx::test;

namespace {

class ProjectPermission : public testing::Test {
protected:
    ProjectPermission()
        : info(text("A"), text("Tender"), KVXProjectInfo::Closed, {})
    {
        info.setGuid(text("{a}"));
    }

    FakeHost host;
    KVXCWProjectPermissionImpl manager;
    KVXProjectInfo info;
};

} // namespace

TEST_F(ProjectPermission, SendsOneFlatObjectForEachCollaborator)
{
    const KVXUser ben(text("Ben"), text("ben%1@example.com"));
    info.setPermission(ben, KVXProjectInfo::ProjectRW, 1);
    info.setPermission(ben, KVXProjectInfo::Money, 2);
    info.setPermission(ben, KVXProjectInfo::Addendum, 3);
    info.setPermission(ben, KVXProjectInfo::Report, 0);
    info.addCollaborator(KVXUser(text("Anna"), text("anna@example.com")));
    const QJsonObject before = info.toJson();

    EXPECT_TRUE(manager.updatePermissions(&info));

    expectJson(host.network.takeRequest(), R"({"service":"projectpermission",
        "Email":"anna@example.com","ProjectGUID":"{a}","userperms":[
        {"Email":"ben%1@example.com","ProjectRW":1,"Money":2,"Addendum":3,"Report":0},
        {"Email":"anna@example.com","ProjectRW":-1,"Money":-1,"Addendum":-1,"Report":-1}]})");
    EXPECT_EQ(info.toJson(), before);
}

TEST_F(ProjectPermission, AProjectWithoutCollaboratorsSendsAnEmptyArray)
{
    EXPECT_TRUE(manager.updatePermissions(&info));
    expectJson(host.network.takeRequest(), R"({"service":"projectpermission",
        "Email":"anna@example.com","ProjectGUID":"{a}","userperms":[]})");
}

TEST_F(ProjectPermission, EveryStatusButOneIsAFailureThatChangesNothing)
{
    info.setPermission(KVXUser(text("Ben"), text("ben@example.com")), KVXProjectInfo::ProjectRW, 1);
    const QJsonObject before = info.toJson();
    for (const char *reply : { R"({"statuscode":0,"error":"e"})", R"({"statuscode":0.9})",
             R"({"statuscode":320})", R"({"statuscode":"1"})", R"({"statuscode":1e300})", "{}" }) {
        host.network.answer(text("projectpermission"), json(reply));
        EXPECT_FALSE(manager.updatePermissions(&info)) << reply;
    }
    host.network.answer(text("projectpermission"), json(R"({"statuscode":1.9})"));
    EXPECT_TRUE(manager.updatePermissions(&info));
    host.network.failPost(text("projectpermission"));
    EXPECT_FALSE(manager.updatePermissions(&info));
    EXPECT_EQ(info.toJson(), before);
    EXPECT_TRUE(host.takeLog().isEmpty());
}

TEST_F(ProjectPermission, WithoutAServerOrAProjectNothingIsSent)
{
    EXPECT_FALSE(manager.updatePermissions(nullptr));
    host.unconfigure();
    EXPECT_FALSE(manager.updatePermissions(&info));
    expectNoRequest(host);
    EXPECT_TRUE(host.takeLog().isEmpty());
}
