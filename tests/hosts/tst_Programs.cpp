#include "support/FreePort.h"
#include "support/WaitFor.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <csignal>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using kvx::test::freePort;
using kvx::test::isListening;
using kvx::test::waitFor;

namespace {

/// A script whose words go to a file: what it started may speak after its own end.
class Script {
public:
    void start(const QString &program, const QStringList &arguments,
        const QMap<QString, QString> &environment = {})
    {
        QProcessEnvironment variables = QProcessEnvironment::systemEnvironment();
        for (auto entry = environment.begin(); entry != environment.end(); ++entry)
            variables.insert(entry.key(), entry.value());
        m_process.setProcessEnvironment(variables);
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        m_process.setStandardOutputFile(m_folder.filePath(QStringLiteral("out")));
        m_process.start(program, arguments);
        ASSERT_TRUE(m_process.waitForStarted());
    }
    ~Script()
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.terminate();
            if (!m_process.waitForFinished(20000))
                m_process.kill();
            m_process.waitForFinished();
        }
    }
    void signal(int number) { ::kill(static_cast<pid_t>(m_process.processId()), number); }
    int exitCode()
    {
        return m_process.state() == QProcess::NotRunning || m_process.waitForFinished(60000)
            ? m_process.exitCode()
            : -1;
    }
    QString said() const
    {
        QFile file(m_folder.filePath(QStringLiteral("out")));
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    }
    bool says(const QString &text)
    {
        return waitFor([&] { return said().contains(text); });
    }

private:
    QTemporaryDir m_folder;
    QProcess m_process;
};

/// Somebody else on a loopback port.
class Occupant {
public:
    Occupant()
        : port(freePort())
        , m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<in_port_t>(port));
        EXPECT_EQ(::bind(m_socket, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(m_socket, 8), 0);
    }
    ~Occupant() { ::close(m_socket); }

    const int port;

private:
    int m_socket;
};

class BrokerScript : public testing::Test {
protected:
    QString data() const { return folder.filePath(QStringLiteral("data")); }
    QStringList usual() const
    {
        return { QStringLiteral("--port"), QString::number(freePort()), QStringLiteral("--data"),
            data() };
    }
    /// It ends with this code and exactly this line.
    void expectRefusal(const QStringList &arguments, const QString &line,
        const QMap<QString, QString> &environment = {})
    {
        Script script;
        script.start(QStringLiteral(KVX_BROKER_SCRIPT), arguments, environment);
        EXPECT_EQ(script.exitCode(), 2) << line.toStdString();
        EXPECT_EQ(script.said().toStdString(), "kvx-broker: " + line.toStdString() + "\n");
    }

    const QTemporaryDir folder;
};

class Serve : public testing::Test {
protected:
    void start()
    {
        script.start(QStringLiteral(KVX_SERVE_SCRIPT),
            { QStringLiteral(KVX_BUILD_FOLDER), QStringLiteral("--data"),
                folder.filePath(QStringLiteral("data")), QStringLiteral("--broker-port"),
                QString::number(brokerPort), QStringLiteral("--listen"), address(port),
                QStringLiteral("--admin.listen"), address(adminPort) });
    }
    static QString address(int port) { return QStringLiteral("127.0.0.1:%1").arg(port); }
    /// The administrator with the password that was printed.
    QString login()
    {
        const auto printed
            = QRegularExpression(QStringLiteral("password: (\\S+)")).match(script.said());
        QFile password(folder.filePath(QStringLiteral("password")));
        if (printed.hasMatch() && password.open(QIODevice::WriteOnly))
            password.write(printed.captured(1).toUtf8() + '\n');
        password.close();
        QProcess kvx;
        kvx.setProcessChannelMode(QProcess::MergedChannels);
        kvx.start(QStringLiteral(KVX_BUILD_FOLDER "/bin/kvx"),
            { QStringLiteral("--server"), address(port), QStringLiteral("--user"),
                QStringLiteral("admin@localhost"), QStringLiteral("--password-file"),
                password.fileName(), QStringLiteral("--home"), folder.path(),
                QStringLiteral("login") });
        kvx.waitForFinished(30000);
        return QString::fromUtf8(kvx.readAll());
    }
    bool everythingEnded()
    {
        return waitFor([this] { return !isListening(port) && !isListening(brokerPort); });
    }

    const QTemporaryDir folder;
    int brokerPort = freePort();
    const int port = freePort();
    const int adminPort = freePort();
    Script script;
};

} // namespace

TEST_F(BrokerScript, WhatIsWrongIsSaidInOneLine)
{
    expectRefusal({ QStringLiteral("--data"), data() }, QStringLiteral("--port is missing"));
    expectRefusal(
        { QStringLiteral("--port"), QStringLiteral("1") }, QStringLiteral("--data is missing"));
    expectRefusal({ QStringLiteral("--nosuch"), QStringLiteral("1") },
        QStringLiteral("--nosuch is not known"));
    expectRefusal(
        { QStringLiteral("--port") }, QStringLiteral("--port needs a value (or is not known)"));
    expectRefusal({ QStringLiteral("--port"), QStringLiteral("x") },
        QStringLiteral("--port needs a number, not \"x\""));
    expectRefusal({ QStringLiteral("--port"), QStringLiteral("65536") },
        QStringLiteral("--port needs a port from 1 to 65535, not \"65536\""));
    const QString missing = folder.filePath(QStringLiteral("missing"));
    expectRefusal(usual() << QStringLiteral("--auth") << QLatin1String("anna:") + missing,
        missing + QLatin1String(" cannot be read"));
    EXPECT_FALSE(isListening(61616)) << "nothing was started";
}

TEST_F(BrokerScript, AFolderThatCannotBeUsedIsNamed)
{
    QFile file(data());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    Script script;
    script.start(QStringLiteral(KVX_BROKER_SCRIPT), usual());
    EXPECT_EQ(script.exitCode(), 2);
    EXPECT_TRUE(
        script.said().startsWith(QStringLiteral("kvx-broker: %1 cannot be used: ").arg(data())))
        << script.said().toStdString();
}

TEST_F(BrokerScript, MissingJavaOrActiveMqIsNamed)
{
    // A PATH with what the script itself needs up to there.
    const QString tools = folder.filePath(QStringLiteral("tools"));
    ASSERT_TRUE(QDir().mkdir(tools));
    for (const char *tool : { "dirname", "readlink" })
        ASSERT_TRUE(QFile::link(QLatin1String("/usr/bin/") + QLatin1String(tool),
            tools + QLatin1Char('/') + QLatin1String(tool)));
    expectRefusal(usual(), QStringLiteral("java is not installed (not found in PATH)"),
        { { QStringLiteral("PATH"), tools } });
    expectRefusal(usual(),
        QStringLiteral("the package activemq is not installed (%1/lib/activemq-broker.jar is "
                       "missing)")
            .arg(tools),
        { { QStringLiteral("ACTIVEMQ_HOME"), tools } });
}

TEST_F(BrokerScript, APortInUseIsNamed)
{
    const Occupant other;
    Script script;
    script.start(QStringLiteral(KVX_BROKER_SCRIPT),
        { QStringLiteral("--port"), QString::number(other.port), QStringLiteral("--data"),
            data() });
    EXPECT_EQ(script.exitCode(), 1);
    EXPECT_TRUE(script.says(QStringLiteral(
        "kvx-broker: cannot listen on 127.0.0.1:%1: Address already in use (more in ")
                                .arg(other.port)))
        << script.said().toStdString();
}

TEST_F(Serve, TakesTheFirstAdministratorAndEndsWholeOnCtrlC)
{
    start();
    ASSERT_TRUE(script.says(QStringLiteral("broker connected"))) << script.said().toStdString();
    EXPECT_EQ(login().toStdString(),
        "Logged in as Administrator <admin@localhost>, role: Administrator. Notifications "
        "arrive.\n");
    script.signal(SIGINT);
    EXPECT_EQ(script.exitCode(), 0);
    EXPECT_TRUE(everythingEnded());
    EXPECT_TRUE(script.said().contains(QLatin1String("stopped"))) << script.said().toStdString();
}

TEST_F(Serve, EndsWholeOnTermination)
{
    start();
    ASSERT_TRUE(script.says(QStringLiteral("broker connected"))) << script.said().toStdString();
    script.signal(SIGTERM);
    EXPECT_EQ(script.exitCode(), 0);
    EXPECT_TRUE(everythingEnded());
}

TEST_F(Serve, LeavesNothingBehindWhenItIsKilled)
{
    start();
    ASSERT_TRUE(script.says(QStringLiteral("broker connected"))) << script.said().toStdString();
    script.signal(SIGKILL);
    EXPECT_TRUE(everythingEnded());
}

TEST_F(Serve, EndsWithTheBrokersReasonWhenThatCannotStart)
{
    const Occupant other;
    brokerPort = other.port;
    start();
    EXPECT_NE(script.exitCode(), 0);
    EXPECT_TRUE(script.says(QStringLiteral("cannot listen on 127.0.0.1:%1").arg(other.port)))
        << script.said().toStdString();
    EXPECT_TRUE(waitFor([this] { return !isListening(port); }));
}
