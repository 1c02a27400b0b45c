#pragma once

#include "support/ManagerTest.h"
#include "users/KVXCWUserImpl.h"

namespace kvx::test {

/// A role in the server's form: these permissions are 1, the users have these e-mails.
QJsonObject role(const char *name, std::initializer_list<const char *> permissions = {},
    std::initializer_list<const char *> emails = {});
/// A successful reply of "getroles".
QJsonObject table(const QList<QJsonObject> &roles);
/// A role notification.
QJsonObject roleMessage(const char *from = "ben@example.com");

/// The permissions that are set, joined by blanks; "none" when none of the nine is, and empty for
/// an empty map.
QString granted(const KVXCWUserImpl::Permissions &permissions);

/// A host with a user manager whose signal is recorded as "old > new".
class UsersTest : public ManagerTest {
protected:
    UsersTest()
        : ManagerTest("KVXCWUserImpl::", "KVXCWUserImpl.cpp")
    {
    }

    /// Makes the manager; its first synchronisation brings these roles. The request and the log
    /// line of the beginning are dropped.
    void makeUsers(const QList<QJsonObject> &roles);
    void answerRoles(const QList<QJsonObject> &roles);
    /// "name: e-mail e-mail" of every role.
    QStringList roleTexts() const;
    KVXUser *user() const { return host.login->user.get(); }

    KVXCWUserImpl *users = nullptr; ///< owned by the registry
};

} // namespace kvx::test
