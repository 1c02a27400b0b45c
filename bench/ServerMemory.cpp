#include "Memory.h"
#include "Report.h"
#include "Stand.h"
#include "Workloads.h"

#include <QFile>
#include <QUuid>
#include <atomic>
#include <exception>
#include <thread>

namespace kvx::bench {

/// Everybody has read the list of projects and goes on asking while the large file is on its way.
void measureServerMemory(Stand &stand, Report &report)
{
    const int projects = stand.isQuick() ? 1'000 : 10'000;
    constexpr int people = 50;
    constexpr qint64 megabytes = 200;
    stand.haveProjects(projects);
    QFile file(stand.path(QStringLiteral("large.kvx")));
    require(
        file.open(QIODevice::WriteOnly) && file.resize(megabytes * 1'000'000), file.errorString());
    file.close();

    std::vector<std::unique_ptr<Wire>> wires;
    for (int i = 0; i < people; ++i)
        wires.push_back(stand.newSession());
    const MemoryPeak peak(stand.site().serverPid());
    const auto ask = [email = stand.email()](Wire &wire, const char *service) {
        wire.call({ { QStringLiteral("service"), QLatin1String(service) },
            { QStringLiteral("Email"), email } });
    };
    for (const auto &wire : wires)
        ask(*wire, "projectlistsynctolocal");
    std::atomic<bool> uploaded { false };
    std::exception_ptr failure;
    std::thread others([&] {
        try {
            while (!uploaded) {
                for (const auto &wire : wires)
                    ask(*wire, "keepactive");
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            }
        } catch (...) {
            failure = std::current_exception();
        }
    });
    try {
        stand.shareFile(QStringLiteral("large"), QUuid::createUuid().toString(), file.fileName());
    } catch (...) {
        uploaded = true;
        others.join();
        throw;
    }
    uploaded = true;
    others.join();
    if (failure)
        std::rethrow_exception(failure);
    report.add({ QStringLiteral("server, %1 users, %2 projects, an upload of %3 MB, memory")
                     .arg(QString::number(people), QString::number(projects),
                         QString::number(megabytes)),
        0, peak.most(), QStringLiteral("at most 64 MB"), peak.most() <= 64, QStringLiteral("MB") });
}

} // namespace kvx::bench
