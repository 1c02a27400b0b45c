#include "Team.h"
#include "support/WaitFor.h"
#include "support/Watchdog.h"

#include <QJsonArray>
#include <gtest/gtest.h>

using namespace kvx::test;
using kvx::host::ShellProcess;

namespace {

/// The administrator's shell, and roles of this case alone.
class Roles : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_admin.start(site().kvx(), site().server(), site().administrator()))
            << m_admin.error().toStdString();
        m_before = table(m_admin);
    }
    void TearDown() override
    {
        for (const QJsonValue &role : table(m_admin)) {
            const QString name = role.toObject().value(QLatin1String("role")).toString();
            if (name.startsWith(QLatin1String("role-")))
                expectDone(m_admin, QLatin1String("roles remove ") + name);
        }
    }

    static QJsonArray table(ShellProcess &shell)
    {
        return shell.run(QStringLiteral("roles")).value(QLatin1String("roles")).toArray();
    }
    static QJsonObject roleOf(ShellProcess &shell, const QString &name)
    {
        for (const QJsonValue &role : table(shell)) {
            if (role.toObject().value(QLatin1String("role")).toString() == name)
                return role.toObject();
        }
        return {};
    }
    static QStringList textsOf(const QJsonObject &object, const char *key)
    {
        return object.value(QLatin1String(key)).toVariant().toStringList();
    }
    static std::string joined(const QJsonObject &object, const char *key)
    {
        return textsOf(object, key).join(QLatin1Char(' ')).toStdString();
    }
    static void expectDone(ShellProcess &shell, const QString &command)
    {
        const QJsonObject result = shell.run(command);
        EXPECT_EQ(exitOf(result), 0)
            << command.toStdString() << ": " << errorOf(result).toStdString();
    }
    static void expectRefused(
        ShellProcess &shell, const QString &command, int exit, int code, const std::string &error)
    {
        const QJsonObject result = shell.run(command);
        EXPECT_EQ(exitOf(result), exit) << command.toStdString();
        EXPECT_EQ(result.value(QLatin1String("code")).toInt(), code) << command.toStdString();
        EXPECT_EQ(errorOf(result).toStdString(), error) << command.toStdString();
    }
    /// A role of this case: removed at its end.
    QString addRole(const QString &permissions = QString())
    {
        const QString name = freshName(QStringLiteral("role"));
        expectDone(m_admin, QStringLiteral("roles add %1 %2").arg(name, permissions));
        return name;
    }
    /// Until the administrator's table has the new accounts: before that his changes are refused as
    /// those of somebody who has not looked.
    void awaitAccounts(const QStringList &emails)
    {
        for (const QString &email : emails)
            EXPECT_TRUE(waitFor([&] { return rolesOf(email).size() > 0; })) << email.toStdString();
    }
    QStringList rolesOf(const QString &email)
    {
        QStringList names;
        for (const QJsonValue &role : table(m_admin)) {
            if (textsOf(role.toObject(), "users").contains(email))
                names.append(role.toObject().value(QLatin1String("role")).toString());
        }
        return names;
    }
    bool sees(ShellProcess &shell, const QString &guid)
    {
        const QJsonArray projects
            = shell.run(QStringLiteral("projects")).value(QLatin1String("projects")).toArray();
        for (const QJsonValue &project : projects) {
            if (project.toObject().value(QLatin1String("ProjectGUID")).toString() == guid)
                return true;
        }
        return false;
    }

    ShellProcess m_admin;
    QJsonArray m_before;
};

const std::string onlyAdministrators = "Only an administrator can change roles.";

} // namespace

TEST_F(Roles, AreShownInTheOrderThatCounts)
{
    Team team(1);
    awaitAccounts({ team.email(0) });
    const QString name = addRole(QStringLiteral("ExportUnitRate=1 administrator=0"));
    expectDone(m_admin, QStringLiteral("roles assign %1 %2").arg(name, team.email(0)));
    const QJsonObject first = table(m_admin).first().toObject();
    EXPECT_EQ(first.value(QLatin1String("role")).toString().toStdString(), "Administrator");
    EXPECT_EQ(first.value(QLatin1String("place")).toInt(), 1);
    EXPECT_EQ(joined(first, "permissions"), "Administrator");

    const QJsonObject last = table(m_admin).last().toObject();
    EXPECT_EQ(last.value(QLatin1String("role")).toString(), name);
    EXPECT_EQ(last.value(QLatin1String("place")).toInt(), m_before.size() + 1);
    EXPECT_EQ(joined(last, "permissions"), "ExportUnitRate");
    EXPECT_EQ(joined(last, "users"), team.email(0).toStdString());
    const QJsonObject shown = m_admin.run(QStringLiteral("roles show ") + name.toUpper());
    EXPECT_EQ(shown.value(QLatin1String("role")).toString(), name);
}

TEST_F(Roles, AreShownToAPersonAsTables)
{
    Team team(1);
    const Ended all = runKvx(as(team.account(0), { QStringLiteral("roles") }));
    EXPECT_EQ(all.exit, 0) << all.err.toStdString();
    EXPECT_TRUE(all.out.contains(QLatin1String("PERMISSIONS"))) << all.out.toStdString();
    EXPECT_TRUE(
        all.out.endsWith(QLatin1String("Of several roles of a user the first one decides.\n")))
        << all.out.toStdString();
    const Ended one = runKvx(as(team.account(0),
        { QStringLiteral("roles"), QStringLiteral("show"), QStringLiteral("Estimator") }));
    EXPECT_EQ(one.exit, 0) << one.err.toStdString();
    EXPECT_TRUE(one.out.contains(team.email(0))) << one.out.toStdString();
    const Ended refused = runKvx(as(team.account(0),
        { QStringLiteral("roles"), QStringLiteral("remove"), QStringLiteral("Estimator") }));
    EXPECT_EQ(refused.exit, 1);
    EXPECT_EQ(refused.err.toStdString(), "kvx: " + onlyAdministrators + '\n');
}

TEST_F(Roles, AreAddedChangedMovedAndRemoved)
{
    const QString name = addRole();
    expectDone(
        m_admin, QStringLiteral("roles set %1 AllProjectReview=1 UploadReportSetting=1").arg(name));
    expectDone(m_admin, QStringLiteral("roles set %1 UploadReportSetting=0").arg(name));
    EXPECT_EQ(joined(roleOf(m_admin, name), "permissions"), "AllProjectReview");

    const QString renamed = freshName(QStringLiteral("role"));
    expectDone(m_admin, QStringLiteral("roles rename %1 %2").arg(name, renamed));
    EXPECT_TRUE(roleOf(m_admin, name).isEmpty());
    EXPECT_EQ(textsOf(roleOf(m_admin, renamed), "permissions").size(), 1);

    expectDone(m_admin, QStringLiteral("roles move %1 2").arg(renamed));
    EXPECT_EQ(table(m_admin).at(1).toObject().value(QLatin1String("role")).toString(), renamed);
    expectDone(m_admin, QStringLiteral("roles remove ") + renamed);
    EXPECT_EQ(table(m_admin), m_before);

    const QString second = freshName(QStringLiteral("role"));
    expectDone(m_admin, QStringLiteral("roles add %1 --at 1").arg(second));
    EXPECT_EQ(table(m_admin).at(0).toObject().value(QLatin1String("role")).toString(), second);
}

TEST_F(Roles, AreChangedByAdministratorsOnly)
{
    Team team(1);
    awaitAccounts({ team.email(0) });
    ShellProcess &user = team.member(0);
    const QJsonArray before = table(user);
    for (const char *command : { "roles add role-x", "roles set Estimator Administrator=1",
             "roles rename Estimator role-x", "roles remove Reviewer", "roles move Reviewer 1" })
        expectRefused(user, QLatin1String(command), 1, 300, onlyAdministrators);
    expectRefused(user, QStringLiteral("roles assign Administrator ") + team.email(0), 1, 300,
        onlyAdministrators);
    EXPECT_EQ(table(user), before) << "what was not taken is not shown either";
    EXPECT_EQ(table(m_admin), before);
}

TEST_F(Roles, LeaveAnAdministrator)
{
    const std::string error = "This would leave the server without an administrator.";
    for (const char *command : { "roles unassign Administrator admin@localhost",
             "roles set Administrator Administrator=0", "roles remove Administrator" })
        expectRefused(m_admin, QLatin1String(command), 1, 303, error);
    // Another role in front would decide for him.
    const QString name = freshName(QStringLiteral("role"));
    expectDone(m_admin, QStringLiteral("roles add %1 --at 1").arg(name));
    expectRefused(
        m_admin, QStringLiteral("roles assign %1 admin@localhost").arg(name), 1, 303, error);
    EXPECT_TRUE(textsOf(roleOf(m_admin, name), "users").isEmpty());
}

TEST_F(Roles, NameAnEMailThatHasNoAccount)
{
    const QString name = addRole();
    expectRefused(m_admin, QStringLiteral("roles assign %1 Nobody@Example.com").arg(name), 1, 302,
        "There is no account \"nobody@example.com\". Accounts are made on the server, with "
        "\"kvx-server user add\".");
    EXPECT_TRUE(textsOf(roleOf(m_admin, name), "users").isEmpty());
}

TEST_F(Roles, NameWhatIsWrongWithACommand)
{
    const QString name = addRole();
    expectRefused(
        m_admin, QStringLiteral("roles show role-none"), 1, 0, "There is no role \"role-none\".");
    expectRefused(m_admin, QStringLiteral("roles add ") + name.toUpper(), 1, 0,
        "There is a role \"" + name.toStdString() + "\" already.");
    expectRefused(m_admin, QStringLiteral("roles rename %1 estimator").arg(name), 1, 0,
        "There is a role \"Estimator\" already.");
    expectRefused(m_admin, QStringLiteral("roles unassign %1 admin@localhost").arg(name), 1, 0,
        "admin@localhost does not have the role \"" + name.toStdString() + "\".");
    expectRefused(m_admin, QStringLiteral("roles move %1 99").arg(name), 2, 0,
        "Places are 1 to " + std::to_string(m_before.size() + 1) + '.');
    for (const char *wrong : { "Fly=1", "Administrator", "Administrator=2", "Administrator=1=1" }) {
        const QJsonObject result
            = m_admin.run(QStringLiteral("roles set %1 ").arg(name) + QLatin1String(wrong));
        EXPECT_EQ(exitOf(result), 2) << wrong;
        EXPECT_TRUE(errorOf(result).startsWith(
            QStringLiteral("\"%1\" is not a permission with =0 or =1 (AllProjectReadWrite, ")
                .arg(QLatin1String(wrong))))
            << errorOf(result).toStdString();
    }
    EXPECT_EQ(exitOf(m_admin.run(QStringLiteral("roles fly"))), 2);
    EXPECT_EQ(exitOf(m_admin.run(QStringLiteral("roles set ") + name)), 2);
}

TEST_F(Roles, OfTwoAdministratorsAtOnceTheSecondLooksAgain)
{
    Watchdog::allow(240);
    const QString email = QStringLiteral("second-admin@example.com");
    ASSERT_TRUE(site().addUser(email, QStringLiteral("Second"), QStringLiteral("Administrator")))
        << site().error().toStdString();
    ShellProcess second;
    ASSERT_TRUE(second.start(site().kvx(), site().server(), site().account(email)))
        << second.error().toStdString();
    awaitAccounts({ email });
    const QString name = addRole();
    ASSERT_TRUE(waitFor([&] { return !roleOf(second, name).isEmpty(); }));

    // Neither hears of the other while the broker is away.
    m_admin.takeEvents();
    second.takeEvents();
    site().stopBroker();
    expectDone(second, QStringLiteral("roles set %1 ExportProject=1").arg(name));
    const std::string error = "Somebody else changed the roles since you looked at them. Nothing "
                              "was changed; look at them again before you repeat it.";
    expectRefused(
        m_admin, QStringLiteral("roles rename %1 role-overwritten").arg(name), 1, 690, error);
    EXPECT_EQ(joined(roleOf(m_admin, name), "permissions"), "ExportProject");
    // The second's own changes follow each other.
    expectDone(second, QStringLiteral("roles set %1 ExportUnitRate=1").arg(name));
    expectRefused(m_admin, QStringLiteral("roles remove ") + name, 1, 690, error);
    expectDone(m_admin, QStringLiteral("roles set %1 UploadReportSetting=1").arg(name));
    EXPECT_EQ(textsOf(roleOf(m_admin, name), "permissions").size(), 3);

    ASSERT_TRUE(site().startBroker()) << site().error().toStdString();
    EXPECT_TRUE(m_admin.waitForEvent(QStringLiteral("connected"), 60000));
    EXPECT_TRUE(second.waitForEvent(QStringLiteral("connected"), 60000));
    EXPECT_EQ(table(second), table(m_admin)) << "made good after the connection came back";
}

TEST_F(Roles, ATableThatCouldNotBeReadIsReadAgainBeforeAChange)
{
    Watchdog::allow(180);
    const QString name = addRole();
    const QJsonArray before = table(m_admin);
    site().stopServer();
    // Fails, and the synchronisation after it empties the table here.
    const QJsonObject failed
        = m_admin.run(QStringLiteral("roles set %1 ExportProject=1").arg(name));
    EXPECT_EQ(exitOf(failed), 3) << errorOf(failed).toStdString();
    EXPECT_EQ(exitOf(m_admin.run(QStringLiteral("roles"))), 3);
    ASSERT_TRUE(site().startServer()) << site().error().toStdString();
    expectDone(m_admin, QStringLiteral("roles set %1 ExportUnitRate=1").arg(name));
    EXPECT_EQ(table(m_admin).size(), before.size());
    EXPECT_EQ(joined(roleOf(m_admin, name), "permissions"), "ExportUnitRate");
}

TEST_F(Roles, OpenAndCloseProjectsWhileTheUserIsAtWork)
{
    Team team(1);
    const QString guestEmail = freshName(QStringLiteral("guest")) + QLatin1String("@example.com");
    ASSERT_TRUE(site().addUser(guestEmail, QStringLiteral("Guest"), QString()));
    ShellProcess guest;
    ASSERT_TRUE(guest.start(site().kvx(), site().server(), site().account(guestEmail)))
        << guest.error().toStdString();
    const QJsonObject made = team.member(0).run(
        QStringLiteral("new %1 --from %2").arg(freshName(QStringLiteral("seen")), billFile(5)));
    const QString guid = made.value(QLatin1String("guid")).toString();
    ASSERT_FALSE(sees(guest, guid));

    awaitAccounts({ team.email(0) });
    // Given by role, and opened.
    const QString name = addRole(QStringLiteral("AllProjectReadWrite=1"));
    expectDone(m_admin, QStringLiteral("roles assign %1 %2").arg(name, guestEmail));
    ASSERT_TRUE(guest.waitForEvent(QStringLiteral("rightsChanged")));
    EXPECT_TRUE(sees(guest, guid));
    expectDone(guest, QStringLiteral("edit %1 01.1 rate=9").arg(guid));
    const QJsonObject open = guest.run(QStringLiteral("who ") + guid);
    EXPECT_EQ(
        textsOf(open.value(QLatin1String("projects")).toArray().at(0).toObject(), "editors").size(),
        2);

    guest.takeEvents();
    // Taken again while it is open: closed here, the edits stay on disk.
    expectDone(m_admin, QStringLiteral("roles unassign %1 %2").arg(name, guestEmail));
    ASSERT_TRUE(guest.waitForEvent(QStringLiteral("projectClosed")));
    ASSERT_TRUE(guest.waitForEvent(QStringLiteral("rightsChanged")));
    EXPECT_FALSE(sees(guest, guid));
    EXPECT_EQ(exitOf(guest.run(QStringLiteral("save ") + guid)), 1);
    EXPECT_EQ(exitOf(team.member(0).run(QStringLiteral("edit %1 01.1 rate=7").arg(guid))), 0)
        << "what he held is free";

    guest.takeEvents();
    // Given back for reading alone.
    expectDone(
        m_admin, QStringLiteral("roles set %1 AllProjectReadWrite=0 AllProjectReview=1").arg(name));
    expectDone(m_admin, QStringLiteral("roles assign %1 %2").arg(name, guestEmail));
    ASSERT_TRUE(guest.waitForEvent(QStringLiteral("rightsChanged")));
    const QJsonObject status = guest.run(QStringLiteral("status ") + guid);
    EXPECT_EQ(status.value(QLatin1String("pending")).toInt(), 1) << errorOf(status).toStdString();
    EXPECT_EQ(exitOf(guest.run(QStringLiteral("save ") + guid)), 5) << "a reader publishes nothing";
    EXPECT_EQ(errorOf(guest.run(QStringLiteral("edit %1 01.2 rate=8").arg(guid))).toStdString(),
        "You may read this project, but not change it.");
}

TEST_F(Roles, OfAUserInTwoRolesTheFirstOneDecides)
{
    Team team(2);
    const QJsonObject made
        = team.member(0).run(QStringLiteral("new ") + freshName(QStringLiteral("two")));
    const QString guid = made.value(QLatin1String("guid")).toString();
    awaitAccounts({ team.email(0), team.email(1) });
    ShellProcess &user = team.member(1); // an estimator
    const QString name = addRole(QStringLiteral("AllProjectReview=1"));
    expectDone(m_admin, QStringLiteral("roles assign %1 %2").arg(name, team.email(1)));
    ASSERT_TRUE(waitFor([&] { return textsOf(roleOf(user, name), "users").size() == 1; }));
    EXPECT_FALSE(sees(user, guid));
    user.takeEvents();
    expectDone(m_admin, QStringLiteral("roles move %1 2").arg(name));
    ASSERT_TRUE(user.waitForEvent(QStringLiteral("rightsChanged")));
    EXPECT_TRUE(sees(user, guid));
}

TEST_F(Roles, TheOwnChangeOfAnAdministratorIsAppliedAtOnce)
{
    Team team(1);
    const QString email = freshName(QStringLiteral("admin")) + QLatin1String("@example.com");
    ASSERT_TRUE(site().addUser(email, QStringLiteral("Third"), QStringLiteral("Administrator")));
    ShellProcess third;
    ASSERT_TRUE(third.start(site().kvx(), site().server(), site().account(email)));
    const QJsonObject made
        = team.member(0).run(QStringLiteral("new ") + freshName(QStringLiteral("own")));
    const QString guid = made.value(QLatin1String("guid")).toString();
    ASSERT_TRUE(waitFor([&] { return sees(third, guid); }));
    expectDone(third, QStringLiteral("roles unassign Administrator ") + email);
    EXPECT_FALSE(sees(third, guid));
    expectRefused(third, QStringLiteral("roles add role-x"), 1, 300, onlyAdministrators);
}

TEST_F(Roles, AreListedByUser)
{
    Team team(1);
    awaitAccounts({ team.email(0) });
    const QString name = addRole();
    expectDone(m_admin, QStringLiteral("roles assign %1 %2").arg(name, team.email(0)));
    expectDone(team.member(0),
        QStringLiteral("users version %1 Professional").arg(team.email(0).toUpper()));
    expectDone(m_admin, QStringLiteral("roles move %1 1").arg(name)); // reads the table again
    QJsonObject found;
    const QJsonObject listed = m_admin.run(QStringLiteral("users"));
    EXPECT_EQ(exitOf(listed), 0);
    for (const QJsonValue &user : listed.value(QLatin1String("users")).toArray()) {
        if (user.toObject().value(QLatin1String("email")).toString() == team.email(0))
            found = user.toObject();
    }
    EXPECT_EQ(joined(found, "roles"), name.toStdString() + " Estimator");
    EXPECT_EQ(found.value(QLatin1String("version")).toString().toStdString(), "professional");
    EXPECT_EQ(found.value(QLatin1String("name")).toString().isEmpty(), false);

    EXPECT_EQ(exitOf(team.member(0).run(QStringLiteral("users version admin@localhost basic"))), 1);
    EXPECT_EQ(exitOf(m_admin.run(QStringLiteral("users version nobody@example.com basic"))), 1);
    const QJsonObject wrong
        = team.member(0).run(QStringLiteral("users version %1 golden").arg(team.email(0)));
    EXPECT_EQ(exitOf(wrong), 2);
    EXPECT_EQ(errorOf(wrong).toStdString(),
        "\"golden\" is not a product version (unknown, basic, standard, professional).");
}

TEST_F(Roles, WhoHasAProjectOpenIsListed)
{
    Team team(2);
    const QString name = freshName(QStringLiteral("who"));
    const QJsonObject made = team.member(0).run(QStringLiteral("new ") + name);
    ASSERT_EQ(exitOf(made), 0);
    expectDone(team.member(0), QStringLiteral("new ") + freshName(QStringLiteral("who")));
    const QJsonObject all = team.member(0).run(QStringLiteral("who"));
    EXPECT_EQ(all.value(QLatin1String("projects")).toArray().size(), 2);
    expectDone(team.member(0), QStringLiteral("close ") + name);
    const QJsonObject none = team.member(0).run(QStringLiteral("who ") + name);
    EXPECT_EQ(exitOf(none), 0);
    EXPECT_TRUE(none.value(QLatin1String("projects")).toArray().isEmpty());
    EXPECT_EQ(errorOf(team.member(1).run(QStringLiteral("who ") + name)).toStdString(),
        "There is no project \"" + name.toStdString() + "\" in your list.");
}

TEST_F(Roles, ASessionThatEndedIsBegunAgain)
{
    Watchdog::allow(240);
    Team team(1);
    ShellProcess &user = team.member(0);
    // Disabling an account ends its sessions; the client learns it when it keeps them alive.
    ASSERT_TRUE(
        site().administer({ QStringLiteral("user"), QStringLiteral("disable"), team.email(0) }));
    ASSERT_TRUE(
        site().administer({ QStringLiteral("user"), QStringLiteral("enable"), team.email(0) }));
    EXPECT_EQ(exitOf(user.run(QStringLiteral("new ") + freshName(QStringLiteral("ended")))), 1);
    ASSERT_TRUE(user.waitForEvent(QStringLiteral("connected"), 120000));
    expectDone(user, QStringLiteral("new ") + freshName(QStringLiteral("begun")));
}

TEST(KeepAlive, FindsOutThatTheSessionHasEndedAndBeginsAnother)
{
    Watchdog::allow(300);
    // A guarded broker would cut the connection and so tell the client at once.
    const auto own = siteWithoutGuard();
    ASSERT_TRUE(own->start()) << own->error().toStdString();
    const QString email = QStringLiteral("alone@example.com");
    ASSERT_TRUE(own->addUser(email, QStringLiteral("Alone"))) << own->error().toStdString();
    ShellProcess user;
    ASSERT_TRUE(user.start(own->kvx(), own->server(), own->account(email)));
    for (const char *command : { "disable", "enable" })
        ASSERT_TRUE(own->administer({ QStringLiteral("user"), QLatin1String(command), email }));
    EXPECT_EQ(exitOf(user.run(QStringLiteral("new Ended"))), 1);
    ASSERT_TRUE(user.waitForEvent(QStringLiteral("connected"), 150000));
    EXPECT_EQ(exitOf(user.run(QStringLiteral("new Begun"))), 0);
}
