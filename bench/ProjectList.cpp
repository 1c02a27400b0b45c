#include "Memory.h"
#include "Report.h"
#include "Stand.h"
#include "Workloads.h"

#include <KVXCollaboration/KVXCWProjectList.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <QJsonDocument>

namespace kvx::bench {

/// The floor is the time that QJsonDocument takes to parse the same reply.
void measureProjectList(Stand &stand, Report &report)
{
    const int count = stand.isQuick() ? 1'000 : 10'000;
    stand.haveProjects(count);

    const QByteArray request = QJsonDocument(
        QJsonObject { { QStringLiteral("service"), QStringLiteral("projectlistsynctolocal") },
            { QStringLiteral("Email"),
                stand.email() } }).toJson(QJsonDocument::Compact);
    const auto wire = stand.newSession();
    KVXCWProjectList *list = KVXCollaborator::getInstance()->projectListManager();
    double size = 0;
    std::vector<double> parsed;
    std::vector<double> fetched;
    std::vector<double> applied;
    require(list->syncProjectList(), QStringLiteral("the list was refused"));
    for (int i = 0; i < stand.repeats(); ++i) {
        {
            QByteArray body;
            fetched.push_back(milliseconds([&] { body = wire->post(request); }));
            size = body.size() / 1e6;
            bool isObject = false;
            // With its release: what was made must go again, whoever made it.
            parsed.push_back(
                milliseconds([&] { isObject = QJsonDocument::fromJson(body).isObject(); }));
            require(isObject, QStringLiteral("the list is no JSON object"));
        }
        applied.push_back(milliseconds(
            [&] { require(list->syncProjectList(), QStringLiteral("the list was refused")); }));
    }
    // Apart from the timed ones: a heap that was trimmed costs time to grow again.
    double bareMemory = 0;
    {
        const MemoryPeak peak;
        const QByteArray body = wire->post(request);
        require(QJsonDocument::fromJson(body).isObject(), QStringLiteral("no JSON object"));
        bareMemory = peak.growth();
    }
    const MemoryPeak peak;
    require(list->syncProjectList(), QStringLiteral("the list was refused"));
    const double memory = peak.growth();
    const double floor = median(parsed);
    const QString name = QStringLiteral("project list, projects: %1, ").arg(count);
    report.note(QStringLiteral("%1 MB of JSON").arg(size, 0, 'f', 1));
    report.addRatio(name + QLatin1String("applied"), floor, median(applied) - median(fetched), 1.5);
    report.add({ name + QLatin1String("server and way"), floor, median(fetched), QString() });
    report.add({ name + QLatin1String("in all"), floor, median(applied), QString() });
    report.add({ name + QLatin1String("memory"), bareMemory, memory,
        QStringLiteral("at most 4 times the JSON"), memory <= 4 * size, QStringLiteral("MB") });
    report.note(QStringLiteral("%1 times the JSON").arg(memory / size, 0, 'f', 1));
}

} // namespace kvx::bench
