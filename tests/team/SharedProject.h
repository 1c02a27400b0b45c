#pragma once

#include "Team.h"

#include <gtest/gtest.h>

namespace kvx::test {

/// Two members with one shared project of 30 items that both have open.
class SharedProject : public testing::Test {
protected:
    /// homes: see Team.
    explicit SharedProject(const QString &homes = {});
    void SetUp() override;

    host::ShellProcess &anna() { return team.member(0); }
    host::ShellProcess &ben() { return team.member(1); }
    QJsonObject status(host::ShellProcess &shell);
    int pending(host::ShellProcess &shell);
    int version(host::ShellProcess &shell);
    QString digest(host::ShellProcess &shell);
    void edit(host::ShellProcess &shell, int item, int rate);
    void save(host::ShellProcess &shell);
    void expectEqualCopies();

    Team team;
    QString guid;
};

} // namespace kvx::test
