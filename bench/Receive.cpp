#include "Report.h"
#include "Stand.h"
#include "Topic.h"
#include "Workloads.h"

#include <QProcess>

namespace kvx::bench {

namespace {

/// The Java client in a process of its own. Its clock is the one of this process: on Linux both
/// read the monotonic one.
class JavaReceiver {
public:
    JavaReceiver(int brokerPort, const QString &topic)
    {
        m_process.start(QStringLiteral(KVX_JAVA),
            { QStringLiteral("-cp"), QStringLiteral(KVX_JAVA_CLASSPATH),
                QStringLiteral("TopicReceiver"),
                QStringLiteral("tcp://127.0.0.1:%1").arg(brokerPort), topic });
        require(line() == "ready", QStringLiteral("the Java client did not connect"));
    }
    ~JavaReceiver()
    {
        m_process.closeWriteChannel();
        m_process.waitForFinished();
    }
    JavaReceiver(const JavaReceiver &) = delete;
    JavaReceiver &operator=(const JavaReceiver &) = delete;

    /// When the next message arrived.
    Moment next()
    {
        return Moment(std::chrono::duration_cast<Moment::duration>(
            std::chrono::nanoseconds(line().toLongLong())));
    }

private:
    QByteArray line()
    {
        while (!m_process.canReadLine()) {
            const bool said = m_process.waitForReadyRead(30'000);
            require(said,
                QStringLiteral("the Java client is silent: ")
                    + QString::fromLocal8Bit(m_process.readAllStandardError()));
        }
        return m_process.readLine().trimmed();
    }

    QProcess m_process;
};

double millisecondsBetween(Moment begin, Moment end)
{
    return std::chrono::duration<double, std::milli>(end - begin).count();
}

} // namespace

/// Both receive messages of their own, in turns: neither takes the other's processor time.
void measureReceive(Stand &stand, Report &report)
{
    constexpr int warmUp = 400; // the virtual machine compiles what it runs often
    constexpr int turns = 400;
    const int port = stand.bareBrokerPort();
    BareTopic forUs(port, "bench-ours");
    BareTopic forJava(port, "bench-java");
    BareReceiver us(port, "bench-ours");
    JavaReceiver java(port, QStringLiteral("bench-java"));
    std::vector<double> ours;
    std::vector<double> floor;
    for (int i = 0; i < warmUp + turns; ++i) {
        const Moment first = forUs.publish();
        const double mine = millisecondsBetween(first, us.next());
        const Moment second = forJava.publish();
        const double theirs = millisecondsBetween(second, java.next());
        if (i < warmUp)
            continue;
        ours.push_back(mine);
        floor.push_back(theirs);
    }
    for (const int percent : { 50, 99 })
        report.addRatio(
            QStringLiteral("notification received, beside a Java client, p%1").arg(percent),
            percentile(floor, percent), percentile(ours, percent), 1.2);
}

} // namespace kvx::bench
