#include "SharedProject.h"

namespace kvx::test {

SharedProject::SharedProject(const QString &homes)
    : team(2, homes)
{
}

void SharedProject::SetUp()
{
    const QJsonObject made = anna().run(
        QStringLiteral("new %1 --from %2").arg(freshName(QStringLiteral("shared")), billFile(30)));
    ASSERT_EQ(exitOf(made), 0) << errorOf(made).toStdString();
    guid = made.value(QLatin1String("guid")).toString();
    ASSERT_EQ(
        exitOf(anna().run(QStringLiteral("permissions %1 --set %2=1").arg(guid, team.email(1)))),
        0);
    ASSERT_TRUE(ben().waitForEvent(QStringLiteral("projectNew")));
    ASSERT_EQ(exitOf(ben().run(QStringLiteral("open ") + guid)), 0);
}

QJsonObject SharedProject::status(host::ShellProcess &shell)
{
    return shell.run(QStringLiteral("status ") + guid);
}

int SharedProject::pending(host::ShellProcess &shell)
{
    return status(shell).value(QLatin1String("pending")).toInt(-1);
}

int SharedProject::version(host::ShellProcess &shell)
{
    return status(shell).value(QLatin1String("version")).toInt(-99);
}

QString SharedProject::digest(host::ShellProcess &shell)
{
    return status(shell).value(QLatin1String("digest")).toString();
}

void SharedProject::edit(host::ShellProcess &shell, int item, int rate)
{
    const QJsonObject result
        = shell.run(QStringLiteral("edit %1 01.%2 rate=%3").arg(guid).arg(item).arg(rate));
    ASSERT_EQ(exitOf(result), 0) << errorOf(result).toStdString();
}

void SharedProject::save(host::ShellProcess &shell)
{
    const QJsonObject result = shell.run(QStringLiteral("save ") + guid, 180000);
    ASSERT_EQ(exitOf(result), 0) << errorOf(result).toStdString();
}

void SharedProject::expectEqualCopies()
{
    ASSERT_EQ(exitOf(anna().run(QStringLiteral("sync ") + guid)), 0);
    ASSERT_EQ(exitOf(ben().run(QStringLiteral("sync ") + guid)), 0);
    EXPECT_EQ(version(anna()), version(ben()));
    EXPECT_EQ(digest(anna()).toStdString(), digest(ben()).toStdString());
    expectStoreInOrder();
}

} // namespace kvx::test
