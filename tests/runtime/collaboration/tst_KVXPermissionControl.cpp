#include "support/PlainManagers.h"

#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCollaboration/KVXPermissionControl.h>
#include <KVXCollaboration/KVXRole.h>

#include <gtest/gtest.h>

using kvx::test::FakeLogin;

namespace {

class PermissionControl : public testing::Test {
protected:
    PermissionControl() { KVXCollaborator::getInstance()->setLoginManager(login); }
    ~PermissionControl() override { KVXCollaborator::getInstance()->setLoginManager(nullptr); }

    void expectRights(bool read, bool readWrite)
    {
        EXPECT_EQ(KVXPermissionControl::getInstance()->canReadRateLibrary(), read);
        EXPECT_EQ(KVXPermissionControl::getInstance()->canReadWriteRateLibrary(), readWrite);
    }

    FakeLogin *login = new FakeLogin;
};

} // namespace

TEST_F(PermissionControl, NoRightsWithoutALoginManagerAUserOrARole)
{
    expectRights(false, false);
    login->user = std::make_unique<KVXUser>(QStringLiteral("A"), QStringLiteral("a@example.com"));
    expectRights(false, false);
    KVXCollaborator::getInstance()->setLoginManager(nullptr);
    expectRights(false, false);
}

TEST_F(PermissionControl, FollowsTheRoleAtEachCall)
{
    login->user = std::make_unique<KVXUser>(QStringLiteral("A"), QStringLiteral("a@example.com"));
    for (int type = 0; type < 9; ++type) {
        auto *role = new KVXRole;
        role->setPermission(static_cast<KVXRole::RolePermissionType>(type), 1);
        login->user->setRole(role);
        const bool readWrite
            = type == KVXRole::ReadWriteRateLibrary || type == KVXRole::Administrator;
        expectRights(readWrite || type == KVXRole::ReadOnlyRateLibrary, readWrite);
    }
    login->user->setRole(nullptr);
    expectRights(false, false);
}
