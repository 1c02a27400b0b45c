#include "FarTeam.h"
#include "support/Watchdog.h"

#include <QElapsedTimer>
#include <QFile>
#include <csignal>
#include <cstdio>

using namespace kvx::test;

// A client that stands still for longer than the broker waits: the limit of ten minutes made short.

namespace {

constexpr int slowLimitMs = 1500;
constexpr int limitMs = 20000; ///< well before half a minute of silence

class SlowClient : public FarTeam {
protected:
    static void SetUpTestSuite() { farBrokerOptions().slowLimit = slowLimitMs; }

    /// Connections to the broker that stand, on the clients' side. A client that stands still
    /// leaves the one that it has lost half open.
    int standing() const
    {
        QFile table(QStringLiteral("/proc/net/tcp"));
        EXPECT_TRUE(table.open(QIODevice::ReadOnly));
        const QByteArray port
            = ':' + QByteArray::number(site.toBroker.port(), 16).rightJustified(4, '0').toUpper();
        int count = 0;
        for (const QByteArray &line : table.readAll().split('\n')) {
            const QList<QByteArray> fields = line.simplified().split(' ');
            const bool established = fields.value(3) == "01";
            count += established && fields.value(2).endsWith(port) ? 1 : 0;
        }
        return count;
    }
};

} // namespace

TEST_F(SlowClient, ThatIsCutOffSynchronisesWhenItGoesOn)
{
    Watchdog::allow(150);
    edit(*anna, 30, 999); // of her own, when she stops
    anna->takeEvents();
    const auto process = static_cast<pid_t>(anna->pid());
    const int before = standing();
    ASSERT_EQ(::kill(process, SIGSTOP), 0);
    QElapsedTimer timer;
    timer.start();
    int saves = 0;
    while (standing() == before && timer.elapsed() < limitMs) {
        edit(*ben, 1 + saves % 20, 100 + saves);
        expectDone(*ben, QStringLiteral("save ") + guid);
        ++saves;
    }
    EXPECT_EQ(standing(), before - 1);
    std::printf("cut off after %lld ms and %d saves\n", timer.elapsed(), saves);
    ASSERT_EQ(::kill(process, SIGCONT), 0);
    EXPECT_TRUE(anna->waitForEvent(QStringLiteral("connectionLost"), 30000));
    EXPECT_TRUE(anna->waitForEvent(QStringLiteral("connected"), 60000));
    // Without a command of hers.
    expectDone(*anna, QStringLiteral("wait %1 %2").arg(guid).arg(version(*ben)));
    EXPECT_EQ(pending(*anna), 1);
    const int published = version(*anna);
    expectSavedOnce(anna->run(QStringLiteral("save ") + guid), published);
    expectEqualCopies();
}
