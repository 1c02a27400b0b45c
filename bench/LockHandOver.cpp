#include "Report.h"
#include "Stand.h"
#include "Workloads.h"

#include <chrono>
#include <thread>

namespace kvx::bench {

/// One session holds the lock of a project, another one's request for it is being held. The floor
/// is a round trip of a small request.
void measureLockHandOver(Stand &stand, Report &report)
{
    QString base;
    const QString guid = stand.share(QStringLiteral("hand-over"), bareTender, &base);
    const auto request = [&](const char *service, bool release) {
        return QJsonObject { { QStringLiteral("service"), QLatin1String(service) },
            { QStringLiteral("Email"), stand.email() }, { QStringLiteral("ProjectGUID"), guid },
            { QStringLiteral("LogVersion"), -1 }, { QStringLiteral("ReleaseLock"), release } };
    };
    const auto holder = stand.newSession();
    const auto waiter = stand.newSession();
    std::vector<double> floor;
    std::vector<double> ours;
    for (int i = 0; i < stand.repeats(9); ++i) {
        floor.push_back(milliseconds([&] { holder->call(request("getlogversion", false)); }));
        holder->call(request("loglock", false));
        std::chrono::steady_clock::time_point released;
        std::thread release([&] {
            // Long enough that the waiter's request has been put aside.
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            holder->call(request("loglock", true));
            released = std::chrono::steady_clock::now();
        });
        QJsonObject reply;
        try {
            reply = waiter->call(request("loglock", false));
        } catch (...) {
            release.join();
            throw;
        }
        const auto got = std::chrono::steady_clock::now();
        release.join();
        require(reply.value(QLatin1String("Lock")).toInt() == 1,
            QStringLiteral("the waiting session did not get the lock"));
        waiter->call(request("loglock", true));
        ours.push_back(
            std::max(0.0, std::chrono::duration<double, std::milli>(got - released).count()));
    }
    report.add({ QStringLiteral("lock handed over to a waiting session"), median(floor),
        median(ours), QStringLiteral("at most 50 ms after the release"), median(ours) <= 50 });
}

} // namespace kvx::bench
