// What the product's main jobs cost, each beside the least that the same work can cost on this
// machine, in one run.

#include "Report.h"
#include "Stand.h"
#include "Workloads.h"
#include "client/TimeZone.h"

#include <CLI/CLI.hpp>
#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>
#include <csignal>

namespace {

using namespace kvx::bench;

struct Workload {
    const char *name;
    void (*measure)(Stand &, Report &);
    bool onlyByName = false;
};

constexpr Workload workloads[] = {
    { "login", measureLogin },
    { "requests", measureRequests },
    { "lock", measureLockHandOver },
    { "checkout", measureCheckOut },
    { "save", measureSave },
    { "large", measureLargeSave, true },
    { "catchup", measureCatchUp },
    { "receive", measureReceive },
    { "notify", measureNotify },
    { "list", measureProjectList },
    { "memory", measureServerMemory },
    { "restart", measureRestart },
};

/// Takes in what the broker has sent meanwhile.
void settle()
{
    QEventLoop loop;
    QTimer::singleShot(300, &loop, &QEventLoop::quit);
    loop.exec();
}

/// Without names: all but those that take long.
void measure(const std::vector<std::string> &only, Stand &stand, Report &report)
{
    for (const Workload &workload : workloads) {
        const bool named = std::find(only.begin(), only.end(), workload.name) != only.end();
        if (!named && (!only.empty() || workload.onlyByName))
            continue;
        workload.measure(stand, report);
        settle();
    }
}

} // namespace

int main(int argc, char **argv)
{
    kvx::host::nameTimeZone();
    std::signal(SIGPIPE, SIG_IGN);
    const QCoreApplication application(argc, argv);

    CLI::App app("Measures the product's main jobs against floors of the same run", "kvx-bench");
    std::vector<std::string> names;
    for (const Workload &workload : workloads)
        names.emplace_back(workload.name);
    std::vector<std::string> only;
    bool quick = false;
    bool unguarded = false;
    bool json = false;
    bool peers = false;
    std::string nginx = "nginx";
    app.add_option("--only", only, "Only these workloads")->check(CLI::IsMember(names));
    app.add_flag(
        "--quick", quick, "Fewer repeats, smaller crowds: for trying out, not for figures");
    app.add_flag("--unguarded", unguarded, "The broker without its guard, to see what that costs");
    app.add_flag("--json", json, "One JSON object a line, for programs");
    app.add_flag("--peers", peers, "Instead: the same work done by Subversion and nginx");
    app.add_option("--nginx", nginx, "The program, for --peers");
    CLI11_PARSE(app, argc, argv);

    try {
        Report report(json);
        Stand stand(quick, !unguarded);
        report.begin();
        if (peers)
            measurePeers(stand, report, QString::fromStdString(nginx));
        else
            measure(only, stand, report);
        report.end();
    } catch (const std::exception &error) {
        std::fprintf(stderr, "kvx-bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
