#include <KVXCollaboration/KVXCWLogin.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCollaboration/KVXPermissionControl.h>
#include <KVXCollaboration/KVXRole.h>
#include <KVXCollaboration/KVXUser.h>

#include <gtest/gtest.h>

namespace {

class LoginWithUser : public KVXCWLogin {
public:
    std::unique_ptr<KVXUser> user;

    void searchServer(const QStringList &, int) override { }
    QString serverVersion(const QString &, int) override { return {}; }
    bool ping(const QString &, int) override { return false; }
    void setProxy(int, const QString &, int, const QString &, const QString &) override { }
    void setServer(const QString &, const QString &) override { }
    void setServer(const QString &, const QString &, int, const QString &, int, const QString &,
        const QString &) override
    {
    }
    KVXErrorCode login(const QString &, const QString &, const QString &, const QString &,
        const QString &) override
    {
        return KVXFailed;
    }
    int leftCount() const override { return 0; }
    bool logout(const QString &) override { return false; }
    KVXUser *currentUser() const override { return user.get(); }
    void cancelSearch() override { }
    QString companyAccount() const override { return {}; }
    KVXErrorCode serverLogin(const QString &, const QString &, const QString &, const QString &,
        const QString &) override
    {
        return KVXFailed;
    }
};

class PermissionControl : public testing::Test {
protected:
    PermissionControl() { KVXCollaborator::getInstance()->setLoginManager(login); }
    ~PermissionControl() override { KVXCollaborator::getInstance()->setLoginManager(nullptr); }

    void expectRights(bool read, bool readWrite)
    {
        EXPECT_EQ(KVXPermissionControl::getInstance()->canReadRateLibrary(), read);
        EXPECT_EQ(KVXPermissionControl::getInstance()->canReadWriteRateLibrary(), readWrite);
    }

    LoginWithUser *login = new LoginWithUser;
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
