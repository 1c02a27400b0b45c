#include "Report.h"
#include "Sink.h"
#include "Stand.h"
#include "Workloads.h"

#include <QJsonDocument>
#include <poll.h>

namespace kvx::bench {

namespace {

constexpr int connections = 16;
constexpr int requestsOfRound = 8'000; // within what the server lets a session send at once

using Wires = std::vector<std::unique_ptr<Wire>>;

/// Keeps one request under way on every connection; the time of one request, taken together.
double timeOfOne(Wires &wires, const QByteArray &body)
{
    std::vector<pollfd> ready;
    for (const auto &wire : wires)
        ready.push_back({ wire->descriptor(), POLLIN, 0 });
    return milliseconds([&] {
        int sent = 0;
        for (const auto &wire : wires) {
            wire->send(wire->message(body));
            ++sent;
        }
        for (int done = 0; done < requestsOfRound;) {
            poll(ready.data(), ready.size(), 10'000);
            for (std::size_t i = 0; i < ready.size(); ++i) {
                QByteArray reply;
                if (!ready[i].revents || !wires[i]->receive(&reply))
                    continue;
                require(reply.contains("\"statuscode\":1"), QString::fromUtf8(reply));
                ++done;
                if (sent < requestsOfRound) {
                    wires[i]->send(wires[i]->message(body));
                    ++sent;
                }
            }
        }
    }) / requestsOfRound;
}

} // namespace

/// The floor is a server that reads the head, parses nothing and answers with a constant.
void measureRequests(Stand &stand, Report &report)
{
    QString base;
    const QString guid = stand.share(QStringLiteral("requests"), bareTender, &base);
    const QByteArray body = QJsonDocument(
        QJsonObject { { QStringLiteral("service"), QStringLiteral("getlogversion") },
            { QStringLiteral("Email"), stand.email() },
            { QStringLiteral("ProjectGUID"),
                guid } }).toJson(QJsonDocument::Compact);
    const Sink sink(stand.path(QString()));
    Wires bare;
    Wires real;
    for (int i = 0; i < connections; ++i) {
        bare.push_back(std::make_unique<Wire>(sink.address()));
        real.push_back(stand.newSession());
    }
    std::vector<double> floor;
    std::vector<double> ours;
    for (int i = 0; i < stand.repeats(5); ++i) {
        floor.push_back(timeOfOne(bare, body) * 1000);
        ours.push_back(timeOfOne(real, body) * 1000);
    }
    const double each = median(ours);
    report.add({ QStringLiteral("read-only request, 16 connections, time of one"), median(floor),
        each, QStringLiteral("at most 2 times the floor"), each <= 2 * median(floor),
        QStringLiteral("us") });
    report.note(QStringLiteral("%1 requests a second").arg(1e6 / each, 0, 'f', 0));
}

} // namespace kvx::bench
