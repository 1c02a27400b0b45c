#pragma once

#include "client/ShellProcess.h"
#include "demo/Site.h"

#include <QJsonObject>
#include <QStringList>
#include <memory>
#include <vector>

namespace kvx::test {

/// The server and broker that the cases of this program share; started on first use.
demo::Site &site();

/// Several estimators at one server: real processes, one each.
class Team {
public:
    /// Makes the accounts (names unique within the program) and logs everybody in.
    explicit Team(int size);

    int size() const { return static_cast<int>(m_members.size()); }
    host::ShellProcess &member(int index) { return *m_members.at(static_cast<std::size_t>(index)); }
    const QString &email(int index) const { return m_emails.at(index); }
    host::ShellProcess::Account account(int index) const { return site().account(email(index)); }

    /// Starts a member's process again, with the same account and the same local copies.
    bool restart(int index);

private:
    QStringList m_emails;
    std::vector<std::unique_ptr<host::ShellProcess>> m_members;
};

/// "exit" of a result; -1 when there was none.
int exitOf(const QJsonObject &result);
QString errorOf(const QJsonObject &result);
/// A project name that no other case uses.
QString freshName(const QString &stem);
/// A small bill of quantities with so many items, as a file.
QString billFile(int items);

} // namespace kvx::test
