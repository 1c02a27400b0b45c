#include "UsersFixture.h"

#include <QJsonArray>
#include <QJsonDocument>

using namespace kvx::test;

TEST_F(UsersTest, AnUpdateSendsTheWholeTableInItsOrder)
{
    QJsonObject chief = role("Chief", { "Administrator" }, { "anna@example.com" });
    chief.insert(text("RoleID"), 3);
    chief.insert(text("Revision"), 9);
    makeUsers({ chief, role("Estimator", {}, { "ben@example.com", "eva@example.com" }) });

    EXPECT_TRUE(users->updateRoles());

    const QJsonObject request = host.network.takeRequest();
    EXPECT_EQ(request.keys(), QStringList({ text("Email"), text("Roles"), text("service") }));
    EXPECT_EQ(request.value(text("service")).toString(), text("updateroles"));
    EXPECT_EQ(request.value(text("Email")).toString(), text("anna@example.com"));
    const QJsonArray sent = request.value(text("Roles")).toArray();
    ASSERT_EQ(sent.size(), 2);
    EXPECT_EQ(sent.at(0).toObject(), chief);
    EXPECT_EQ(sent.at(1).toObject().value(text("users")).toArray().size(), 2);
    EXPECT_FALSE(sent.at(1).toObject().contains(text("Revision")));
    EXPECT_EQ(host.network.lastUrl(), text("http://127.0.0.1:8090/kvx/service"));
    expectNoRequest(host);
    EXPECT_EQ(users->roles().size(), 2);
    EXPECT_EQ(users->statusCode(), 1);
    EXPECT_TRUE(takeInfos().isEmpty());
    EXPECT_TRUE(takeSignals().isEmpty());
}

TEST_F(UsersTest, ATableWithoutRolesIsSentAsAnEmptyArray)
{
    makeUsers({});
    EXPECT_TRUE(users->updateRoles());
    expectJson(host.network.takeRequest(),
        R"({"service":"updateroles","Email":"anna@example.com","Roles":[]})");
}

TEST_F(UsersTest, AnUpdateNeverSendsAPassword)
{
    makeUsers({ role("Chief", {}, { "anna@example.com" }) });
    users->users().value(0)->setPassword(text("secret"));
    user()->setPassword(text("secret"));
    users->updateRoles();
    users->keepAlive();
    for (const QJsonObject &request : host.network.takeRequests())
        EXPECT_FALSE(QJsonDocument(request).toJson().contains("secret"));
}

TEST_F(UsersTest, ARefusedUpdateKeepsTheTableAndTellsTheCode)
{
    makeUsers({ role("Chief", {}, { "anna@example.com" }) });
    const struct {
        const char *reply;
        int code;
    } refusals[] = { { R"({"statuscode":690,"error":"RolesChanged"})", 690 },
        { R"({"statuscode":303})", 303 }, { R"({"statuscode":0.5})", 0 }, { "{}", 0 } };
    for (const auto &refusal : refusals) {
        host.network.answer(text("updateroles"), json(refusal.reply));
        EXPECT_FALSE(users->updateRoles()) << refusal.reply;
        EXPECT_EQ(users->statusCode(), refusal.code) << refusal.reply;
    }
    host.network.failPost(text("updateroles"));
    EXPECT_FALSE(users->updateRoles());
    EXPECT_EQ(users->statusCode(), 0);
    EXPECT_EQ(roleTexts(), QStringList({ text("Chief: anna@example.com") }));
    EXPECT_TRUE(takeInfos().isEmpty());
}

TEST_F(UsersTest, WithoutAServerAnUpdateFailsAtOnceWithoutALogLine)
{
    makeUsers({ role("Chief") });
    users->updateRoles();
    host.network.takeRequests();
    host.unconfigure();
    EXPECT_FALSE(users->updateRoles());
    EXPECT_EQ(users->statusCode(), 0);
    EXPECT_EQ(users->roles().size(), 1);
    expectNoRequest(host);
    EXPECT_TRUE(takeInfos().isEmpty());
}

TEST_F(UsersTest, KeepingAliveReturnsTheStatusAsItStands)
{
    makeUsers({});
    EXPECT_EQ(users->keepAlive(), 1);
    expectJson(
        host.network.takeRequest(), R"({"service":"keepactive","Email":"anna@example.com"})");
    const struct {
        const char *reply;
        int status;
    } replies[] = { { R"({"statuscode":0})", 0 }, { R"({"statuscode":2})", 2 },
        { R"({"statuscode":-3})", -3 }, { R"({"statuscode":301.9})", 301 },
        { R"({"statuscode":1.9})", 1 }, { R"({"statuscode":1e300})", 2147483647 },
        { R"({"statuscode":"2"})", 0 }, { "{}", 0 } };
    for (const auto &[reply, status] : replies) {
        host.network.answer(text("keepactive"), json(reply));
        EXPECT_EQ(users->keepAlive(), status) << reply;
    }
    host.network.failPost(text("keepactive"));
    EXPECT_EQ(users->keepAlive(), 0);
    EXPECT_TRUE(takeInfos().isEmpty());
}

TEST_F(UsersTest, WithoutAServerNobodyIsKeptAlive)
{
    makeUsers({});
    host.unconfigure();
    EXPECT_EQ(users->keepAlive(), 0);
    expectNoRequest(host);
    EXPECT_TRUE(takeInfos().isEmpty());
}

TEST_F(UsersTest, WithoutAUserTheEMailIsEmpty)
{
    makeUsers({});
    host.removeUser();
    users->keepAlive();
    expectJson(host.network.takeRequest(), R"({"service":"keepactive","Email":""})");
    users->updateRoles();
    expectJson(host.network.takeRequest(), R"({"service":"updateroles","Email":"","Roles":[]})");
}

TEST_F(UsersTest, AProductVersionIsStoredWhenTheServerAgrees)
{
    makeUsers({});
    KVXUser ben(text("Ben Ito"), text("ben@example.com"));
    EXPECT_TRUE(users->updateUserProductVersion(&ben, KVXUser::Professional));
    expectJson(host.network.takeRequest(),
        R"({"service":"updateuserproductversion","Email":"ben@example.com",
            "UserProductVersion":3})");
    EXPECT_EQ(ben.version(), KVXUser::Professional);
    EXPECT_TRUE(takeInfos().isEmpty());
}

TEST_F(UsersTest, ARefusedProductVersionLeavesTheUserAsHeWas)
{
    makeUsers({});
    KVXUser ben(text("Ben Ito"), text("ben@example.com"));
    ben.setVersion(KVXUser::Basic);
    for (const char *reply : { R"({"statuscode":300})", R"({"statuscode":0})", "{}" }) {
        host.network.answer(text("updateuserproductversion"), json(reply));
        EXPECT_FALSE(users->updateUserProductVersion(&ben, KVXUser::Standard)) << reply;
        EXPECT_EQ(ben.version(), KVXUser::Basic) << reply;
    }
    EXPECT_TRUE(takeInfos().isEmpty());
}

TEST_F(UsersTest, WithoutAServerOrWithoutAUserNoProductVersionIsSent)
{
    makeUsers({});
    EXPECT_FALSE(users->updateUserProductVersion(nullptr, KVXUser::Basic));
    host.unconfigure();
    KVXUser ben(text("Ben Ito"), text("ben@example.com"));
    EXPECT_FALSE(users->updateUserProductVersion(&ben, KVXUser::Basic));
    EXPECT_EQ(ben.version(), KVXUser::UnknownVersion);
    expectNoRequest(host);
    EXPECT_TRUE(takeInfos().isEmpty());
}

TEST_F(UsersTest, ThereIsNoExtraInformation)
{
    makeUsers({ role("Chief") });
    EXPECT_EQ(users->extraInfo(), QString());
    expectNoRequest(host);
}
