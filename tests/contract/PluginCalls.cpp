#include "PluginBench.h"

namespace kvx::test {

namespace {

const Operations &allOperations()
{
    static const Operations all = [] {
        Operations joined = projectOperations();
        for (const Operations *more : { &resourceOperations(), &recognitionOperations() }) {
            for (auto one = more->begin(); one != more->end(); ++one)
                joined.insert(one.key(), one.value());
        }
        return joined;
    }();
    return all;
}

} // namespace

CallOutcome performCall(const Exchange &exchange)
{
    const QString name = QString::fromStdString(textOf(exchange["call"]["operation"]));
    const auto operation = allOperations().value(name);
    if (!operation)
        throw std::runtime_error("there is no operation " + name.toStdString());
    PluginBench bench(exchange);
    CallOutcome outcome;
    outcome.result = operation(bench);
    outcome.requests = bench.host.network.takeRequests();
    outcome.url = bench.host.network.lastUrl();
    for (const auto &[url, request] : qAsConst(bench.host.network.httpRequests)) {
        outcome.requests.append(request);
        outcome.url = url;
    }
    return outcome;
}

QStringList knownOperations()
{
    return allOperations().keys();
}

} // namespace kvx::test
