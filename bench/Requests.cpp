#include "PeerServer.h"
#include "Report.h"
#include "Sink.h"
#include "Stand.h"
#include "Workloads.h"

#include <QJsonDocument>
#include <poll.h>

namespace kvx::bench {

namespace {

constexpr int connections = 16;
constexpr int rounds = 21;
constexpr int requestsOfRound = 1'900; // with the rounds: what a session may send at once

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

/// The server beside one at that address, which gives a constant answer.
void compare(Stand &stand, Report &report, const QString &line, const QString &bareAddress)
{
    QString base;
    const QString guid = stand.share(line, bareTender, &base);
    const QByteArray body = QJsonDocument(
        QJsonObject { { QStringLiteral("service"), QStringLiteral("getlogversion") },
            { QStringLiteral("Email"), stand.email() },
            { QStringLiteral("ProjectGUID"),
                guid } }).toJson(QJsonDocument::Compact);
    Wires bare;
    Wires real;
    for (int i = 0; i < connections; ++i) {
        bare.push_back(std::make_unique<Wire>(bareAddress));
        real.push_back(stand.newSession());
    }
    std::vector<double> floor;
    std::vector<double> ours;
    for (int i = 0; i < stand.repeats(rounds); ++i) {
        floor.push_back(timeOfOne(bare, body) * 1000);
        ours.push_back(timeOfOne(real, body) * 1000);
    }
    const double each = median(ours);
    report.add({ line, median(floor), each, QStringLiteral("at most 2 times the floor"),
        each <= 2 * median(floor), QStringLiteral("us") });
    report.note(QStringLiteral("%1 requests a second").arg(1e6 / each, 0, 'f', 0));
}

} // namespace

/// The floor is a server that reads the head, parses nothing and answers with a constant.
void measureRequests(Stand &stand, Report &report)
{
    const Sink sink(stand.path(QString()));
    compare(stand, report, QStringLiteral("read-only request, 16 connections, time of one"),
        sink.address());
}

void measureRequestsBeside(Stand &stand, Report &report, const QString &nginx)
{
    const QString folder = stand.path(QString());
    const PeerServer server(nginx,
        { QStringLiteral("-p"), folder, QStringLiteral("-e"), QStringLiteral("stderr"),
            QStringLiteral("-c"), QStringLiteral("CONFIG") },
        folder + QStringLiteral("/nginx.conf"),
        QStringLiteral("daemon off; pid nginx.pid; worker_processes auto;\n"
                       "events { }\n"
                       "http { access_log off; keepalive_requests 100000000;\n"
                       "client_body_temp_path t1; proxy_temp_path t2; fastcgi_temp_path t3;\n"
                       "uwsgi_temp_path t4; scgi_temp_path t5;\n"
                       "server { listen 127.0.0.1:PORT;\n"
                       "location / { default_type application/json;\n"
                       "return 200 '{\"statuscode\":1,\"LogVersion\":1}'; } } }\n"));
    compare(stand, report, QStringLiteral("read-only request, 16 connections, beside nginx"),
        server.address());
}

} // namespace kvx::bench
