#pragma once

#include "support/FakeHost.h"
#include "users/KVXCWUserImpl.h"

#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <vector>

inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}

namespace kvx::test {

inline QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

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
class UsersTest : public testing::Test {
protected:
    /// Makes the manager; its first synchronisation brings these roles. The request and the log
    /// line of the beginning are dropped.
    void makeUsers(const QList<QJsonObject> &roles);
    void answerRoles(const QList<QJsonObject> &roles);
    /// Delivers the message as the broker does and returns the signals that it led to.
    QStringList notify(const QJsonObject &message);
    QStringList takeSignals();
    /// Texts of the log lines since the last call; each must be an INFO line of the manager.
    QStringList takeInfos();
    /// "name: e-mail e-mail" of every role.
    QStringList roleTexts() const;
    KVXUser *user() const { return host.login->user.get(); }

    FakeHost host;
    KVXCWUserImpl *users = nullptr; ///< owned by the registry

private:
    QStringList m_signals;
};

} // namespace kvx::test
