#pragma once

#include "client/ShellProcess.h"
#include "demo/Site.h"

#include <QJsonObject>
#include <QStringList>
#include <memory>
#include <vector>

namespace kvx::test {

/// More options for the server, before the first use of site().
QStringList &siteOptions();

/// The server and broker that the cases of this program share; started on first use.
demo::Site &site();
/// The server's own judgement of its whole store, while it runs.
void expectStoreInOrder(int limitMs = 30000);

/// One of the case's own, whose broker goes without its guard; not started.
std::unique_ptr<demo::Site> siteWithoutGuard();

/// Several estimators at one server: real processes, one each.
class Team {
public:
    /// Makes the accounts (names unique within the program) and logs everybody in.
    /// homes: where the local copies lie; with the server's data unless said.
    explicit Team(int size, const QString &homes = {});

    int size() const { return static_cast<int>(m_members.size()); }
    host::ShellProcess &member(int index) { return *m_members.at(static_cast<std::size_t>(index)); }
    const QString &email(int index) const { return m_emails.at(index); }
    host::ShellProcess::Account account(int index) const;

    /// Starts a member's process again, with the same account and the same local copies.
    bool restart(int index);

private:
    QString m_homes;
    QStringList m_emails;
    std::vector<std::unique_ptr<host::ShellProcess>> m_members;
};

/// What a command in a process of its own left behind, as a person sees it.
struct Ended {
    int exit = -1;
    QString out;
    QString err;
};
Ended runKvx(const QStringList &arguments, const QByteArray &input = {});
/// The arguments of that command for that user.
QStringList as(const host::ShellProcess::Account &account, const QStringList &command);

/// "exit" of a result; -1 when there was none.
int exitOf(const QJsonObject &result);
QString errorOf(const QJsonObject &result);
/// A project name that no other case uses.
QString freshName(const QString &stem);
/// A small bill of quantities with so many items, as a file.
QString billFile(int items);
/// Writes a file; its path.
QString written(const QString &path, const QByteArray &content);

} // namespace kvx::test
