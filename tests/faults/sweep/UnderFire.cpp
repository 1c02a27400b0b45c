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
}

void UnderFire::TearDown()
{
    EXPECT_TRUE(anna().stop());
    EXPECT_TRUE(ben().stop());
    RunTraces traces;
    traces.data = site().dataFolder();
    for (int i = 0; i < team.size(); ++i)
        traces.homes << team.account(i).home;
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
    const QJsonObject result = anna().run(command, 50000);
    const bool struck = run.end();
    EXPECT_FALSE(result.isEmpty()) << "a hang or a crash";
    const bool done = exitOf(result) == 0;
    EXPECT_TRUE(done || struck) << errorOf(result).toStdString();
    EXPECT_TRUE(done || !errorOf(result).isEmpty());
    return done;
}

void UnderFire::expectDone(host::ShellProcess &shell, const QString &command)
{
    const QJsonObject result = shell.run(command);
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
