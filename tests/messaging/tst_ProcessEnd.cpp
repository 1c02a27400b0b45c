#include "MessagingFixture.h"

#include "support/Watchdog.h"

#include <QElapsedTimer>
#include <QProcess>

namespace kvx::test {

class ProcessEnd : public MessagingFixture {
protected:
    /// The process ends by itself, cleanly and in time, while notifications are being delivered.
    void expectEnds(const char *way)
    {
        const int rounds = longRun() ? 200 : 3;
        Watchdog::allow(rounds * 3 + 60);
        for (int round = 0; round < rounds; ++round) {
            SCOPED_TRACE(std::string(way) + ", round " + std::to_string(round));
            QProcess process;
            process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
            process.start(QStringLiteral(KVX_MESSAGING_CLIENT),
                { QLatin1String(way), QString::number(broker().port()), email });
            ASSERT_TRUE(process.waitForReadyRead(20000)) << process.errorString().toStdString();
            QElapsedTimer timer;
            timer.start();
            const QByteArray said = process.readLine();
            ASSERT_EQ(said, "ending\n");
            ASSERT_TRUE(process.waitForFinished(10000));
            EXPECT_LT(timer.elapsed(), 3000);
            EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
            EXPECT_EQ(process.exitCode(), 0);
        }
    }
};

TEST_F(ProcessEnd, returningFromMain)
{
    expectEnds("return");
}

TEST_F(ProcessEnd, quittingFromInsideAReceiver)
{
    expectEnds("quit-in-receiver");
}

TEST_F(ProcessEnd, exitFromInsideAReceiver)
{
    expectEnds("exit-in-receiver");
}

TEST_F(ProcessEnd, withAMessagerThatIsNeverDestroyed)
{
    expectEnds("forget");
}

} // namespace kvx::test
