#include "PeerServer.h"

#include "Stand.h"
#include "support/FreePort.h"

#include <QElapsedTimer>
#include <QFile>
#include <csignal>
#include <sys/prctl.h>

namespace kvx::bench {

namespace {

class Child : public QProcess {
protected:
    void setupChildProcess() override { prctl(PR_SET_PDEATHSIG, SIGTERM); }
};

} // namespace

PeerServer::PeerServer(
    const QString &program, QStringList arguments, const QString &configFile, QString config)
    : m_process(std::make_unique<Child>())
    , m_port(test::freePort())
{
    const QString port = QString::number(m_port);
    if (!configFile.isEmpty()) {
        QFile file(configFile);
        require(file.open(QIODevice::WriteOnly)
                && file.write(config.replace(QLatin1String("PORT"), port).toUtf8()) > 0,
            configFile);
    }
    arguments.replaceInStrings(QStringLiteral("PORT"), port);
    arguments.replaceInStrings(QStringLiteral("CONFIG"), configFile);
    m_process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process->start(program, arguments);
    require(m_process->waitForStarted(), program + QLatin1String(" cannot be started"));
    QElapsedTimer timer;
    timer.start();
    while (!test::isListening(m_port)) {
        require(timer.elapsed() < 10'000 && !m_process->waitForFinished(20),
            program + QLatin1String(" does not listen"));
    }
}

PeerServer::~PeerServer()
{
    m_process->terminate();
    m_process->waitForFinished(5'000);
}

} // namespace kvx::bench
