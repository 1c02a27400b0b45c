#pragma once

#include "FaultProxy.h"
#include "client/ShellProcess.h"
#include "invariants/History.h"
#include "support/Broker.h"
#include "support/ServerProcess.h"

#include <QJsonObject>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <memory>

namespace kvx::test {

/// Server and broker of a program's cases, each with a proxy in front of it. The server speaks to
/// the broker through a proxy, too.
struct FarSite {
    FarSite();

    Broker broker;
    FaultProxy toBroker;
    ServerProcess server;
    FaultProxy toServer;
};

FarSite &farSite();
/// Of its broker, before the first use of farSite().
Broker::Options &farBrokerOptions();

/// Anna works through the proxies; Ben reaches the server without one. Both have a project of 30
/// items open.
class FarTeam : public testing::Test {
protected:
    FarTeam();
    /// The proxies are well, both end up with equal copies, and the server finds its store in
    /// order.
    ~FarTeam() override;
    void SetUp() override;

    bool start(host::ShellProcess &shell, const QString &name, int port);
    bool restartAnna();
    QString email(const QString &name) const;
    QString homeOf(const QString &name) const;
    QString nameOf(const host::ShellProcess &shell) const;
    void edit(host::ShellProcess &shell, int item, int rate);
    /// A command of that project, with its begin and end in the history, and what it saved.
    QJsonObject ask(host::ShellProcess &shell, const QString &command, int limitMs = 60000);
    void noteSaved(const host::ShellProcess &shell, const QJsonObject &result);
    void expectDone(host::ShellProcess &shell, const QString &command);
    QJsonObject status(host::ShellProcess &shell);
    int version(host::ShellProcess &shell);
    int pending(host::ShellProcess &shell);
    void expectEqualCopies();
    /// Anna's save was published once, whatever she was told; her edits are not lost.
    void expectSavedOnce(const QJsonObject &told, int before);

    FarSite &site;
    QTemporaryDir folder;
    History history { folder.filePath(QStringLiteral("history")) };
    int number;
    std::unique_ptr<host::ShellProcess> anna;
    std::unique_ptr<host::ShellProcess> ben;
    QString guid;
};

int exitOf(const QJsonObject &result);
std::string errorOf(const QJsonObject &result);

} // namespace kvx::test
