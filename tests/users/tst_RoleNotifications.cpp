#include "UsersFixture.h"

#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCollaboration/KVXPermissionControl.h>
#include <QCoreApplication>
#include <stdexcept>
#include <thread>

using namespace kvx::test;

namespace {

class RoleNotifications : public UsersTest {
protected:
    RoleNotifications()
    {
        makeUsers({ role("Chief", { "Administrator" }, { "carla@example.com" }),
            role("Estimator", { "ExportProject" }, { "anna@example.com" }) });
    }
};

/// Logs out by destroying what a host destroys then.
class LoggedOut : public FakeLogin {
public:
    bool logout(const QString &) override
    {
        KVXCollaborator::getInstance()->messager()->stop();
        return true;
    }
};

} // namespace

TEST_F(RoleNotifications, AChangeByAnotherUserReadsTheTableAnew)
{
    answerRoles({ role("Estimator", { "ReadOnlyRateLibrary" }, { "anna@example.com" }) });
    EXPECT_EQ(notify(roleMessage()), QStringList({ text("ExportProject > ReadOnlyRateLibrary") }));
    expectJson(host.network.takeRequest(), R"({"service":"getroles"})");
    expectNoRequest(host);
    EXPECT_EQ(takeInfos(), QStringList({ text("syncRolesToLocal: Result=1") }));
    EXPECT_TRUE(KVXPermissionControl::getInstance()->canReadRateLibrary());
}

TEST_F(RoleNotifications, TheSignalComesAlsoWhenNothingChangedForTheUser)
{
    EXPECT_EQ(notify(roleMessage()), QStringList({ text("ExportProject > ExportProject") }));
}

TEST_F(RoleNotifications, TheServersOwnChangeIsSomebodyElses)
{
    EXPECT_EQ(notify(roleMessage("")), QStringList({ text("ExportProject > ExportProject") }));
}

TEST_F(RoleNotifications, AChangeByTheCurrentUserChangesNothing)
{
    answerRoles({});
    EXPECT_TRUE(notify(roleMessage("anna@example.com")).isEmpty());
    expectNoRequest(host);
    EXPECT_EQ(users->roles().size(), 2);
    EXPECT_TRUE(takeInfos().isEmpty());
}

TEST_F(RoleNotifications, TheSenderIsComparedLetterByLetter)
{
    EXPECT_EQ(notify(roleMessage("Anna@example.com")).size(), 1);
}

TEST_F(RoleNotifications, WhileTheApplicationUpdatesAMessageIsLoggedAndDropped)
{
    users->beginUpdate();
    users->beginUpdate();
    users->endUpdate();
    EXPECT_TRUE(notify(roleMessage()).isEmpty());
    expectNoRequest(host);
    EXPECT_EQ(takeInfos(),
        QStringList({ text("IsUpdating @ KVXCWUserImpl::onNotify, Message is ignored.") }));
    users->endUpdate();
    users->endUpdate(); // never below zero
    EXPECT_FALSE(users->isUpdating());
    EXPECT_EQ(notify(roleMessage()).size(), 1);
}

TEST_F(RoleNotifications, WhileTheApplicationUpdatesEveryMessageIsDropped)
{
    users->beginUpdate();
    notify({ { text("notifymsg_type"), text("notifymsg_projectlist") } });
    notify(roleMessage("anna@example.com"));
    EXPECT_EQ(takeInfos().size(), 2);
    users->endUpdate();
}

TEST_F(RoleNotifications, OtherKindsAreIgnoredWithoutALogLine)
{
    for (const char *kind : { "notifymsg_projectlist", "notifymsg_checkout",
             "notifymsg_reportTemplate", "notifymsg_connection", "notifymsg_Role", "role", "" }) {
        QJsonObject message = roleMessage();
        message.insert(text("notifymsg_type"), text(kind));
        EXPECT_TRUE(notify(message).isEmpty()) << kind;
    }
    QJsonObject message = roleMessage();
    message.insert(text("notifymsg_type"), 5);
    EXPECT_TRUE(notify(message).isEmpty());
    EXPECT_TRUE(notify({}).isEmpty());
    expectNoRequest(host);
    EXPECT_TRUE(takeInfos().isEmpty());
}

TEST_F(RoleNotifications, ASenderThatIsNoTextIsSomebodyElse)
{
    QJsonObject message = roleMessage();
    message.insert(text("notifymsg_from"), QJsonObject());
    EXPECT_EQ(notify(message).size(), 1);
}

TEST_F(RoleNotifications, AUserRemovedFromEveryRoleKeepsHisCopyAndIsToldAnEmptyMap)
{
    const KVXRole *copy = user()->role();
    answerRoles({ role("Estimator", { "ExportProject" }, { "ben@example.com" }) });
    EXPECT_EQ(notify(roleMessage()), QStringList({ text("ExportProject > ") }));
    EXPECT_EQ(user()->role(), copy);
    EXPECT_EQ(granted(copy->permissions()), text("ExportProject"));

    answerRoles({ role("Estimator", {}, { "anna@example.com" }) });
    EXPECT_EQ(notify(roleMessage()), QStringList({ text(" > none") })) << "given one again";
    EXPECT_EQ(granted(user()->role()->permissions()), text("none"));
}

TEST_F(RoleNotifications, AUserOfTwoRolesGoesByTheFirstInTheServersOrder)
{
    answerRoles(
        { role("Reviewer", { "AllProjectReview" }, { "ben@example.com", "anna@example.com" }),
            role("Estimator", { "ExportProject" }, { "anna@example.com" }) });
    EXPECT_EQ(notify(roleMessage()), QStringList({ text("ExportProject > AllProjectReview") }));
    EXPECT_EQ(user()->role()->name(), text("Reviewer"));

    answerRoles({ role("Estimator", { "ExportProject" }, { "anna@example.com" }),
        role("Reviewer", { "AllProjectReview" }, { "anna@example.com" }) });
    EXPECT_EQ(notify(roleMessage()), QStringList({ text("AllProjectReview > ExportProject") }))
        << "only the order changed";
    EXPECT_EQ(user()->role()->name(), text("Estimator"));
}

TEST_F(RoleNotifications, AnUnreadableTableIsToldAsTheLossOfEverything)
{
    host.network.answer(text("getroles"), json(R"({"statuscode":2})"));
    EXPECT_EQ(notify(roleMessage()), QStringList({ text("ExportProject > ") }));
    EXPECT_TRUE(users->roles().isEmpty());
    EXPECT_EQ(granted(user()->role()->permissions()), text("ExportProject"));
    EXPECT_EQ(takeInfos(), QStringList({ text("syncRolesToLocal: Result=0") }));
}

TEST_F(RoleNotifications, WithoutAServerTheTableIsEmptiedAndTheLossIsTold)
{
    host.unconfigure();
    EXPECT_EQ(notify(roleMessage()), QStringList({ text("ExportProject > ") }));
    expectNoRequest(host);
}

TEST_F(RoleNotifications, WithoutAUserTheSignalCarriesNothing)
{
    host.removeUser();
    EXPECT_EQ(notify(roleMessage()), QStringList({ text(" > ") }));
}

TEST_F(RoleNotifications, TheSynchronisationIsTheVirtualOne)
{
    class Counting : public KVXCWUserImpl {
    public:
        int synchronised = 0;
        bool syncToLocal() override
        {
            ++synchronised;
            return KVXCWUserImpl::syncToLocal();
        }
    };
    auto *counting = new Counting;
    EXPECT_EQ(counting->synchronised, 0);
    KVXCollaborator::getInstance()->setUserManager(counting);
    host.notifyFromBroker(roleMessage());
    EXPECT_EQ(counting->synchronised, 1);
}

TEST_F(RoleNotifications, TheBrokersThreadDoesNotWaitForTheTable)
{
    // The event loop does not run here until the emission has returned.
    std::thread broker([this] { emit host.messager->notify(roleMessage()); });
    broker.join();
    EXPECT_EQ(host.network.postCount(text("getroles")), 1) << "the one of the beginning";
    EXPECT_TRUE(waitUntil([this] { return host.network.postCount(text("getroles")) == 2; }));
}

TEST_F(RoleNotifications, AReceiverSeesTheNewTable)
{
    answerRoles({ role("New", {}, { "anna@example.com" }) });
    QStringList seen;
    QObject::connect(users, &KVXCWUser::currentUserPermissionChanged, users,
        [&] { seen = roleTexts() << user()->role()->name(); });
    notify(roleMessage());
    EXPECT_EQ(seen, QStringList({ text("New: anna@example.com"), text("New") }));
}

TEST_F(RoleNotifications, AReceiverMayCallTheManagerAgain)
{
    int depth = 0;
    QObject::connect(users, &KVXCWUser::currentUserPermissionChanged, users, [&] {
        if (++depth > 5)
            return;
        EXPECT_TRUE(users->syncToLocal());
        EXPECT_TRUE(users->updateRoles());
        EXPECT_EQ(users->keepAlive(), 1);
        users->removeRole(users->roles().value(0));
        users->onNotify(roleMessage());
    });
    notify(roleMessage());
    EXPECT_EQ(depth, 6);
    EXPECT_EQ(users->roles().size(), 2);
}

TEST_F(RoleNotifications, AReceiverMayLogOut)
{
    auto *login = new LoggedOut;
    login->user = std::move(host.login->user);
    KVXCollaborator::getInstance()->setLoginManager(login);
    host.login = nullptr;
    int loggedOut = 0;
    QObject::connect(users, &KVXCWUser::currentUserPermissionChanged, users, [&] {
        ++loggedOut;
        EXPECT_TRUE(login->logout(text("anna@example.com")));
    });
    EXPECT_EQ(notify(roleMessage()).size(), 1);
    EXPECT_EQ(loggedOut, 1);
    EXPECT_EQ(host.messager->stops, 1);
    EXPECT_EQ(notify(roleMessage()).size(), 1) << "what was on its way is still harmless";
}

TEST_F(RoleNotifications, AnExceptionOfAReceiverStaysInside)
{
    answerRoles({ role("New", {}, { "anna@example.com" }) });
    const auto connection = QObject::connect(
        users, &KVXCWUser::currentUserPermissionChanged, [] { throw std::runtime_error("x%1"); });
    EXPECT_NO_THROW(users->onNotify(roleMessage()));
    EXPECT_EQ(roleTexts(), QStringList({ text("New: anna@example.com") }));
    EXPECT_TRUE(host.logged(40000, text("Deal role message failed: exception=x%1")));
    for (const LogRecord &line : host.takeLog()) {
        if (line.level == 40000) {
            EXPECT_TRUE(line.function.contains(text("KVXCWUserImpl::onNotify(")));
        }
    }
    QObject::disconnect(connection);
    EXPECT_EQ(notify(roleMessage()).size(), 1) << "the next one is as ever";
}

TEST_F(RoleNotifications, AnExceptionOfTheSynchronisationStaysInsideAndTheUserIsTold)
{
    class Throwing : public KVXCWUserImpl {
    public:
        bool syncToLocal() override { throw 5; }
    };
    auto *throwing = new Throwing;
    KVXCollaborator::getInstance()->setUserManager(throwing);
    int told = 0;
    QObject::connect(throwing, &KVXCWUser::currentUserPermissionChanged, [&told] { ++told; });
    EXPECT_NO_THROW(throwing->onNotify(roleMessage()));
    EXPECT_EQ(told, 1);
    EXPECT_TRUE(host.logged(40000, text("Deal role message failed: exception=unknown")));
}

TEST_F(RoleNotifications, AReceiverMayEndTheManager)
{
    QObject::connect(users, &KVXCWUser::currentUserPermissionChanged, users, [this] {
        KVXCollaborator::getInstance()->setUserManager(nullptr);
        users = nullptr;
    });
    EXPECT_EQ(notify(roleMessage()).size(), 1);
    EXPECT_EQ(users, nullptr);
    EXPECT_TRUE(notify(roleMessage()).isEmpty());
}

TEST_F(RoleNotifications, AMessageForAManagerThatHasEndedIsDropped)
{
    std::thread broker([this] {
        for (int i = 0; i < 10; ++i)
            emit host.messager->notify(roleMessage());
    });
    broker.join();
    KVXCollaborator::getInstance()->setUserManager(nullptr);
    QCoreApplication::processEvents();
    EXPECT_EQ(host.network.postCount(text("getroles")), 1);
}

TEST_F(RoleNotifications, TenThousandOfThemLeaveNothingBehind)
{
    // Roles, their users and the user's copies come and go; the address sanitizer counts them.
    QList<QJsonObject> messages;
    for (int i = 0; i < 10000; ++i)
        messages.append(roleMessage());
    int round = 0;
    host.network.handle(text("getroles"), [&round](const QJsonObject &, QJsonObject &reply) {
        ++round;
        if (round % 7 == 0)
            return false;
        reply = table({ role("Chief", { "Administrator" }, { "carla@example.com" }),
            round % 3 == 0 ? role("Reviewer", { "AllProjectReview" }, { "anna@example.com" })
                           : role("Reviewer"),
            role("Estimator", {}, { "ben@example.com", "anna@example.com" }) });
        return true;
    });
    int told = 0;
    QObject::connect(users, &KVXCWUser::currentUserPermissionChanged, users, [&told] { ++told; });
    EXPECT_TRUE(host.notifyFromBroker(messages));
    EXPECT_TRUE(waitUntil([&told] { return told == 10000; }, 50000));
    EXPECT_EQ(round, 10000);
    EXPECT_EQ(users->users().size(), 3);
    EXPECT_EQ(user()->role()->name(), text("Estimator"));
}
