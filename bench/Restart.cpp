#include "Report.h"
#include "Stand.h"
#include "Workloads.h"

namespace kvx::bench {

/// From the start of a server that was killed until it has answered a request of a session that it
/// had before.
void measureRestart(Stand &stand, Report &report)
{
    const int projects = stand.isQuick() ? 1'000 : 10'000;
    stand.haveProjects(projects);
    std::vector<double> taken;
    for (int i = 0; i < stand.repeats(5); ++i) {
        stand.site().killServer();
        taken.push_back(milliseconds([&] {
            require(stand.site().startServer(), stand.site().error());
            stand.service("keepactive", { { QStringLiteral("Email"), stand.email() } });
        }));
    }
    const double time = median(taken);
    report.add({ QStringLiteral("server, restart after a crash, %1 projects, ready").arg(projects),
        0, time, QStringLiteral("under 5 s"), time < 5000 });
}

} // namespace kvx::bench
