#include "Team.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <gtest/gtest.h>

namespace kvx::test {

QStringList &siteOptions()
{
    // A killed host's save lock is free after its lease, which need not take two minutes here.
    static QStringList options { QStringLiteral("--lock.lease"), QStringLiteral("5s") };
    return options;
}

demo::Site &site()
{
    // Ended by the destructor at the program's end.
    static demo::Site instance(
        QStringLiteral(KVX_BUILD_FOLDER), QStringLiteral(KVX_BROKER_SCRIPT), siteOptions());
    static const bool started = instance.start();
    EXPECT_TRUE(started) << instance.error().toStdString();
    return instance;
}

std::unique_ptr<demo::Site> siteWithoutGuard()
{
    auto own = std::make_unique<demo::Site>(
        QStringLiteral(KVX_BUILD_FOLDER), QStringLiteral(KVX_BROKER_SCRIPT));
    own->withoutGuard();
    return own;
}

void expectStoreInOrder(int limitMs)
{
    EXPECT_TRUE(
        site().administer({ QStringLiteral("verify"), QStringLiteral("--deep") }, {}, limitMs))
        << site().error().toStdString();
}

Team::Team(int size, const QString &homes)
    : m_homes(homes)
{
    static int made = 0;
    for (int i = 0; i < size; ++i) {
        const QString email = QStringLiteral("user%1@example.com").arg(++made);
        m_emails.append(email);
        EXPECT_TRUE(site().addUser(email, QStringLiteral("User %1").arg(made)))
            << site().error().toStdString();
        m_members.push_back(std::make_unique<host::ShellProcess>());
        EXPECT_TRUE(m_members.back()->start(site().kvx(), site().server(), account(i)))
            << m_members.back()->error().toStdString();
    }
}

host::ShellProcess::Account Team::account(int index) const
{
    host::ShellProcess::Account account = site().account(email(index));
    if (!m_homes.isEmpty())
        account.home = m_homes + QLatin1Char('/') + email(index);
    return account;
}

bool Team::restart(int index)
{
    auto &slot = m_members.at(static_cast<std::size_t>(index));
    slot = std::make_unique<host::ShellProcess>();
    return slot->start(site().kvx(), site().server(), account(index));
}

Ended runKvx(const QStringList &arguments, const QByteArray &input)
{
    QProcess process;
    process.start(site().kvx(), arguments);
    process.write(input);
    process.closeWriteChannel();
    Ended ended;
    if (!process.waitForFinished(60000))
        return ended;
    ended.exit = process.exitCode();
    ended.out = QString::fromUtf8(process.readAllStandardOutput());
    ended.err = QString::fromUtf8(process.readAllStandardError());
    return ended;
}

QStringList as(const host::ShellProcess::Account &account, const QStringList &command)
{
    return QStringList { QStringLiteral("--server"), site().server(), QStringLiteral("--user"),
        account.email, QStringLiteral("--password-file"), account.passwordFile,
        QStringLiteral("--home"), account.home }
    + command;
}

int exitOf(const QJsonObject &result)
{
    return result.value(QLatin1String("exit")).toInt(-1);
}

QString errorOf(const QJsonObject &result)
{
    return result.value(QLatin1String("error")).toString();
}

QString freshName(const QString &stem)
{
    static int used = 0;
    return QStringLiteral("%1-%2").arg(stem).arg(++used);
}

QString billFile(int items)
{
    const QString path = QDir::tempPath() + QStringLiteral("/bill-%1.csv").arg(items);
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("number;text;unit;quantity;rate\n01;Works;;;\n");
    for (int i = 1; i <= items; ++i)
        file.write(QStringLiteral("01.%1;Item %1;m2;%1;2,50\n").arg(i).toUtf8());
    return path;
}

QString written(const QString &path, const QByteArray &content)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    EXPECT_EQ(file.write(content), content.size());
    return path;
}

} // namespace kvx::test
