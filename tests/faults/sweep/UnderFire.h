#pragma once

#include "Sweep.h"
#include "invariants/History.h"
#include "team/SharedProject.h"

namespace kvx::test {

/// Two members with one project, of whom one process, Anna's or the server's, is under fire while
/// Anna works.
class UnderFire : public SharedProject {
protected:
    void SetUp() override;
    /// Ends both processes and judges what they and the server have left behind.
    void TearDown() override;

    /// Shared by the cases of the program: the server outlives them.
    static Sweep &sweep();

    /// Anna's command under fire; whether it was done. What fails says so in words.
    bool done(const Sweep::Run &run, const QString &command);
    /// A command with its begin and end in the history, and what it saved.
    QJsonObject ask(host::ShellProcess &shell, const QString &command, int limitMs = 60000);
    void save(host::ShellProcess &shell);
    void expectDone(host::ShellProcess &shell, const QString &command);
    /// Uploads versions of a template; each is stored whole or not at all.
    void sweepTemplateUpload(const QString &name, CallCounter::Scope scope, int selected);
    /// Saves; each is published once, or its edits are kept.
    void sweepSave(const QString &name, CallCounter::Scope scope, int selected);

    int rounds = 0;

private:
    QTemporaryDir m_folder;
    History m_history { m_folder.filePath(QStringLiteral("history")) };
};

/// A template with a number in it and so many bytes beside it.
QByteArray templateText(int number, int bytes);
int templateNumber(const QString &file);

} // namespace kvx::test
