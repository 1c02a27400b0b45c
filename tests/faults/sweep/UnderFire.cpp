#include "UnderFire.h"

#include "invariants/RunCheck.h"
#include "support/Watchdog.h"

#include <QFile>
#include <QJsonDocument>

namespace kvx::test {

void UnderFire::SetUp()
{
    Watchdog::allow(1500);
    SharedProject::SetUp();
    ASSERT_FALSE(HasFatalFailure());
    const QString base = m_folder.filePath(QStringLiteral("base"));
    expectDone(ben(), QStringLiteral("download %1.KVX %2").arg(guid, base));
    m_history.note(
        "base", { { QStringLiteral("project"), guid }, { QStringLiteral("file"), base } });
}

void UnderFire::TearDown()
{
    for (int i = 0; i < team.size() && !guid.isEmpty(); ++i) {
        // Who was stopped under way has said his last word.
        if (team.member(i).isRunning() && exitOf(status(team.member(i))) == 0)
            m_history.noteSynced(team.email(i), guid, status(team.member(i)));
    }
    EXPECT_TRUE(anna().stop());
    EXPECT_TRUE(ben().stop());
    RunTraces traces;
    traces.data = site().dataFolder();
    for (int i = 0; i < team.size(); ++i)
        traces.homes << team.account(i).home;
    traces.history = m_history.file();
    traces.projects << guid;
    for (const Fault &fault : checkRun(traces))
        ADD_FAILURE() << fault.line().toStdString();
}

Sweep &UnderFire::sweep()
{
    static Sweep instance;
    return instance;
}

bool UnderFire::done(const Sweep::Run &run, const QString &command)
{
    run.begin();
    const QJsonObject result = ask(anna(), command, 50000);
    const bool struck = run.end();
    EXPECT_FALSE(result.isEmpty()) << "a hang or a crash";
    const bool done = exitOf(result) == 0;
    EXPECT_TRUE(done || struck) << errorOf(result).toStdString();
    EXPECT_TRUE(done || !errorOf(result).isEmpty());
    return done;
}

QJsonObject UnderFire::ask(host::ShellProcess &shell, const QString &command, int limitMs)
{
    const int member = &shell == &anna() ? 0 : 1;
    const QString call = m_history.begin(team.email(member), command, limitMs);
    const QJsonObject result = shell.run(command, limitMs);
    if (!result.isEmpty())
        m_history.end(call);
    m_history.noteSaved(team.email(member), guid, result);
    return result;
}

void UnderFire::save(host::ShellProcess &shell)
{
    expectDone(shell, QStringLiteral("save ") + guid);
}

void UnderFire::expectDone(host::ShellProcess &shell, const QString &command)
{
    const QJsonObject result = ask(shell, command);
    EXPECT_EQ(exitOf(result), 0) << command.toStdString() << ": " << errorOf(result).toStdString();
}

void UnderFire::sweepSave(const QString &name, CallCounter::Scope scope, int selected)
{
    int published = version(anna());
    sweep().over(name, scope, selected, [&](const Sweep::Run &run) {
        edit(anna(), 1 + rounds % 30, 100 + rounds);
        const bool saved = done(run, QStringLiteral("save ") + guid);
        expectDone(anna(), QStringLiteral("sync ") + guid);
        if (!saved && pending(anna()) > 0)
            save(anna());
        EXPECT_EQ(pending(anna()), 0);
        EXPECT_EQ(version(anna()), ++published);
        if (++rounds % 25 == 0)
            expectEqualCopies();
    });
    expectEqualCopies();
}

void UnderFire::sweepTemplateUpload(const QString &name, CallCounter::Scope scope, int selected)
{
    const QTemporaryDir folder;
    const QString up = folder.filePath(QStringLiteral("up.json"));
    const QString down = folder.filePath(QStringLiteral("down.json"));
    const QString cover = freshName(QStringLiteral("cover"));
    const QString upload = QStringLiteral("templates upload %1 --name %2").arg(up, cover);
    const auto shared = [&] {
        expectDone(ben(), QStringLiteral("templates download %1 %2").arg(cover, down));
        return templateNumber(down);
    };
    written(up, templateText(0, 10));
    expectDone(anna(), upload);
    sweep().over(name, scope, selected, [&](const Sweep::Run &run) {
        ++rounds;
        written(up, templateText(rounds, 200000));
        const bool uploaded = done(run, upload);
        const int number = shared();
        EXPECT_TRUE(number == rounds || (number == rounds - 1 && !uploaded)) << number;
        expectDone(anna(), upload);
        EXPECT_EQ(shared(), rounds);
    });
    expectStoreInOrder();
}

QByteArray templateText(int number, int bytes)
{
    return "{\"n\":" + QByteArray::number(number) + ",\"x\":\"" + QByteArray(bytes, 'x') + "\"}";
}

int templateNumber(const QString &file)
{
    QFile content(file);
    EXPECT_TRUE(content.open(QIODevice::ReadOnly));
    return QJsonDocument::fromJson(content.readAll()).object().value(QLatin1String("n")).toInt(-1);
}

} // namespace kvx::test
