#include "FarTeam.h"

#include "invariants/RunCheck.h"

#include <QFile>

namespace kvx::test {

namespace {

constexpr char password[] = "correct horse battery";

ServerProcess::Options through(const FaultProxy &proxy)
{
    ServerProcess::Options options;
    options.brokerUrl = "tcp://" + proxy.address();
    options.settings["broker.publicPort"] = std::to_string(proxy.port());
    options.settings["lock.lease"] = "5s";
    return options;
}

} // namespace

FarSite::FarSite()
    : broker(farBrokerOptions())
    , toBroker(broker.port())
    , server(through(toBroker))
    , toServer(server.port())
{
}

FarSite &farSite()
{
    static FarSite instance;
    return instance;
}

Broker::Options &farBrokerOptions()
{
    static Broker::Options options;
    return options;
}

FarTeam::FarTeam()
    : site(farSite())
{
    static int made = 0;
    number = ++made;
}

FarTeam::~FarTeam()
{
    site.toServer.clear();
    site.toBroker.clear();
    if (!guid.isEmpty()) {
        expectEqualCopies();
        for (const auto &shell : { anna.get(), ben.get() })
            history.noteSynced(email(nameOf(*shell)), guid, status(*shell));
        history.note("converged", { { QStringLiteral("project"), guid } });
    }
    anna.reset();
    ben.reset();
    RunTraces traces;
    traces.data = QString::fromStdString(site.server.dataFolder());
    for (const char *name : { "anna", "ben" })
        traces.homes << homeOf(QLatin1String(name));
    traces.history = history.file();
    traces.projects << guid;
    for (const Fault &fault : checkRun(traces))
        ADD_FAILURE() << fault.line().toStdString();
    const CommandResult judged = site.server.command({ "verify", "--deep" });
    EXPECT_EQ(judged.exitCode, 0) << judged.out << judged.err;
}

void FarTeam::SetUp()
{
    for (const char *name : { "anna", "ben" })
        site.server.addUser(email(QLatin1String(name)).toStdString(), name, password);
    ben = std::make_unique<host::ShellProcess>();
    ASSERT_TRUE(start(*ben, QStringLiteral("ben"), site.server.port()))
        << ben->error().toStdString();
    QFile bill(folder.filePath(QStringLiteral("bill.csv")));
    ASSERT_TRUE(bill.open(QIODevice::WriteOnly));
    bill.write("number;text;unit;quantity;rate\n01;Works;;;\n");
    for (int i = 1; i <= 30; ++i)
        bill.write(QStringLiteral("01.%1;Item %1;m2;%1;2,50\n").arg(i).toUtf8());
    bill.close();
    const QJsonObject made
        = ben->run(QStringLiteral("new far-%1 --from %2").arg(number).arg(bill.fileName()));
    ASSERT_EQ(exitOf(made), 0) << errorOf(made);
    guid = made.value(QLatin1String("guid")).toString();
    const QString base = folder.filePath(QStringLiteral("base"));
    expectDone(*ben, QStringLiteral("download %1.KVX %2").arg(guid, base));
    history.note("base", { { QStringLiteral("project"), guid }, { QStringLiteral("file"), base } });
    expectDone(
        *ben, QStringLiteral("permissions %1 --set %2=1").arg(guid, email(QStringLiteral("anna"))));
    ASSERT_TRUE(restartAnna()) << anna->error().toStdString();
}

bool FarTeam::start(host::ShellProcess &shell, const QString &name, int port)
{
    QFile file(folder.filePath(name + QLatin1String(".password")));
    if (!file.open(QIODevice::WriteOnly) || file.write(password) < 0)
        return false;
    file.close();
    return shell.start(QStringLiteral(KVX_BUILD_FOLDER "/bin/kvx"),
        QStringLiteral("127.0.0.1:%1").arg(port), { email(name), file.fileName(), homeOf(name) });
}

bool FarTeam::restartAnna()
{
    anna = std::make_unique<host::ShellProcess>(); // ends the one before
    if (!start(*anna, QStringLiteral("anna"), site.toServer.port()))
        return false;
    return exitOf(anna->run(QStringLiteral("open ") + guid)) == 0;
}

QString FarTeam::homeOf(const QString &name) const
{
    return folder.filePath(name + QLatin1String(".home"));
}

QString FarTeam::email(const QString &name) const
{
    return QStringLiteral("%1%2@example.com").arg(name).arg(number);
}

void FarTeam::edit(host::ShellProcess &shell, int item, int rate)
{
    expectDone(shell, QStringLiteral("edit %1 01.%2 rate=%3").arg(guid).arg(item).arg(rate));
}

QString FarTeam::nameOf(const host::ShellProcess &shell) const
{
    return &shell == anna.get() ? QStringLiteral("anna") : QStringLiteral("ben");
}

QJsonObject FarTeam::ask(host::ShellProcess &shell, const QString &command, int limitMs)
{
    const QString call = history.begin(nameOf(shell), command, limitMs);
    const QJsonObject result = shell.run(command, limitMs);
    if (!result.isEmpty())
        history.end(call);
    noteSaved(shell, result);
    return result;
}

void FarTeam::noteSaved(const host::ShellProcess &shell, const QJsonObject &result)
{
    history.noteSaved(email(nameOf(shell)), guid, result);
}

void FarTeam::expectDone(host::ShellProcess &shell, const QString &command)
{
    const QJsonObject result = ask(shell, command);
    EXPECT_EQ(exitOf(result), 0) << command.toStdString() << ": " << errorOf(result);
}

QJsonObject FarTeam::status(host::ShellProcess &shell)
{
    return ask(shell, QStringLiteral("status ") + guid);
}

int FarTeam::version(host::ShellProcess &shell)
{
    return status(shell).value(QLatin1String("version")).toInt(-99);
}

int FarTeam::pending(host::ShellProcess &shell)
{
    return status(shell).value(QLatin1String("pending")).toInt(-1);
}

void FarTeam::expectEqualCopies()
{
    expectDone(*anna, QStringLiteral("sync ") + guid);
    expectDone(*ben, QStringLiteral("sync ") + guid);
    const QJsonObject hers = status(*anna);
    const QJsonObject his = status(*ben);
    for (const char *key : { "version", "digest" })
        EXPECT_EQ(hers.value(QLatin1String(key)), his.value(QLatin1String(key))) << key;
}

void FarTeam::expectSavedOnce(const QJsonObject &told, int before)
{
    site.toServer.clear();
    ASSERT_FALSE(told.isEmpty()) << "a hang or a crash";
    const bool saved = exitOf(told) == 0;
    EXPECT_TRUE(saved || !errorOf(told).empty());
    expectDone(*anna, QStringLiteral("sync ") + guid);
    if (!saved && pending(*anna) > 0)
        expectDone(*anna, QStringLiteral("save ") + guid);
    EXPECT_EQ(pending(*anna), 0);
    EXPECT_EQ(version(*anna), before + 1);
}

int exitOf(const QJsonObject &result)
{
    return result.value(QLatin1String("exit")).toInt(-1);
}

std::string errorOf(const QJsonObject &result)
{
    return result.value(QLatin1String("error")).toString().toStdString();
}

} // namespace kvx::test
