#include "login/CurrentUser.h"
#include "support/FakeHost.h"

#include <KVXCollaboration/KVXCollaborator.h>
#include <gtest/gtest.h>

using kvx::test::FakeHost;

TEST(CurrentUser, isTheLoginManagersUser)
{
    const FakeHost host;

    EXPECT_EQ(kvx::currentUser(), host.login->user.get());
    EXPECT_EQ(kvx::currentUserEmail(), QStringLiteral("anna@example.com"));
    EXPECT_EQ(kvx::currentUserName(), QStringLiteral("Anna Weiss"));
}

TEST(CurrentUser, isEmptyWithoutAUser)
{
    FakeHost host;
    host.removeUser();

    EXPECT_EQ(kvx::currentUser(), nullptr);
    EXPECT_EQ(kvx::currentUserEmail(), QString());
    EXPECT_EQ(kvx::currentUserName(), QString());
}

TEST(CurrentUser, isEmptyWithoutALoginManager)
{
    const FakeHost host;
    KVXCollaborator::getInstance()->setLoginManager(nullptr);

    EXPECT_EQ(kvx::currentUser(), nullptr);
    EXPECT_EQ(kvx::currentUserEmail(), QString());
    EXPECT_EQ(kvx::currentUserName(), QString());
}
