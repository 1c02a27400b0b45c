#include "UsersFixture.h"

#include <QSet>

using namespace kvx::test;

// Changes of the local table, as an application makes them before it sends the table.

namespace {

class RoleTable : public UsersTest {
protected:
    RoleTable()
    {
        makeUsers({ role("A", {}, { "anna@example.com", "ben@example.com" }),
            role("B", {}, { "ben@example.com" }), role("C") });
    }
    KVXRole *at(int place) const { return users->roles().value(place); }
    /// Every user of every role, and nobody else.
    void expectUsersOfTheRoles() const
    {
        QList<KVXUser *> expected;
        for (const KVXRole *role : users->roles())
            expected.append(role->users());
        EXPECT_EQ(QSet<KVXUser *>(expected.begin(), expected.end()),
            QSet<KVXUser *>(users->users().begin(), users->users().end()));
        EXPECT_EQ(expected.size(), users->users().size());
    }
};

} // namespace

TEST_F(RoleTable, ANewRoleComesLast)
{
    auto *made = new KVXRole(text("D"));
    made->add(new KVXUser(QString(), text("eva@example.com")));
    users->addRole(made);
    users->addRole(made); // once is enough
    users->addRole(nullptr);
    EXPECT_EQ(roleTexts().mid(2), QStringList({ text("C:"), text("D: eva@example.com") }));
    expectUsersOfTheRoles();
}

TEST_F(RoleTable, ARoleIsRemovedWithItsUsers)
{
    users->removeRole(at(0));
    KVXRole stranger;
    users->removeRole(&stranger);
    users->removeRole(nullptr);
    EXPECT_EQ(roleTexts(), QStringList({ text("B: ben@example.com"), text("C:") }));
    expectUsersOfTheRoles();
}

TEST_F(RoleTable, ARoleIsMovedWithinTheOrder)
{
    users->moveRole(at(2), 0);
    EXPECT_EQ(at(0)->name(), text("C"));
    users->moveRole(at(0), 1);
    EXPECT_EQ(at(1)->name(), text("C"));
    users->moveRole(at(0), 99);
    EXPECT_EQ(at(2)->name(), text("A"));
    users->moveRole(at(2), -5);
    EXPECT_EQ(at(0)->name(), text("A"));
    users->moveRole(nullptr, 0);
    EXPECT_EQ(users->roles().size(), 3);
}

TEST_F(RoleTable, AUserIsGivenARoleOnce)
{
    users->addUser(at(2), text("anna@example.com"));
    users->addUser(at(2), text("anna@example.com"));
    EXPECT_EQ(roleTexts().last(), text("C: anna@example.com"));
    expectUsersOfTheRoles();
    users->addUser(nullptr, text("anna@example.com"));
    expectUsersOfTheRoles();
}

TEST_F(RoleTable, ARoleIsTakenFromAUser)
{
    users->removeUser(at(0), at(0)->users().value(1)->email()); // a text that dies with the user
    users->removeUser(at(0), text("eva@example.com"));
    users->removeUser(nullptr, text("anna@example.com"));
    EXPECT_EQ(roleTexts().first(), text("A: anna@example.com"));
    EXPECT_EQ(at(1)->users().size(), 1) << "his other role stays";
    expectUsersOfTheRoles();
}

TEST_F(RoleTable, WhatWasNotSentIsUndoneByASynchronisation)
{
    users->addRole(new KVXRole(text("D")));
    users->removeRole(at(0));
    users->addUser(at(0), text("eva@example.com"));
    EXPECT_TRUE(users->syncToLocal());
    EXPECT_EQ(roleTexts(),
        QStringList({ text("A: anna@example.com ben@example.com"), text("B: ben@example.com"),
            text("C:") }));
    expectUsersOfTheRoles();
}
