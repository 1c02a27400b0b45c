#include "Report.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace kvx::bench {

namespace {

void printLine(const QString &text)
{
    std::printf("%s\n", qUtf8Printable(text));
    std::fflush(stdout);
}

QString load()
{
    QFile file(QStringLiteral("/proc/loadavg"));
    return file.open(QIODevice::ReadOnly)
        ? QString::fromLatin1(file.readAll()).section(QLatin1Char(' '), 0, 2)
        : QStringLiteral("unknown");
}

QString figure(double value)
{
    return QString::number(value, 'f', value < 10 ? 2 : value < 1000 ? 1 : 0);
}

QString columns(const QString &name, const QString &floor, const QString &ours,
    const QString &ratio, const QString &goal)
{
    return name.leftJustified(58) + floor.rightJustified(12) + ours.rightJustified(12)
        + ratio.rightJustified(8) + QLatin1String("  ") + goal;
}

void printJson(const QJsonObject &object)
{
    printLine(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)));
}

} // namespace

void Report::begin() const
{
    if (m_json) {
        printJson({ { QStringLiteral("cores"), QThread::idealThreadCount() },
            { QStringLiteral("load"), load() } });
        return;
    }
    printLine(QStringLiteral("%1 cores, load %2 before the first measurement\n")
                  .arg(QString::number(QThread::idealThreadCount()), load()));
    printLine(columns(QStringLiteral("workload"), QStringLiteral("floor"), QStringLiteral("ours"),
        QStringLiteral("ratio"), QStringLiteral("goal")));
}

void Report::add(const Row &row)
{
    m_rows.push_back(row);
    if (m_json) {
        printJson({ { QStringLiteral("workload"), row.name },
            { QStringLiteral("floor"), row.floor }, { QStringLiteral("ours"), row.ours },
            { QStringLiteral("unit"), row.unit }, { QStringLiteral("ratio"), row.ratio() },
            { QStringLiteral("goal"), row.goal }, { QStringLiteral("met"), row.met } });
        return;
    }
    const QString unit = QLatin1Char(' ') + row.unit;
    QString goal = row.goal;
    if (!row.met)
        goal += QLatin1String(" (missed)");
    printLine(columns(row.name, row.floor > 0 ? figure(row.floor) + unit : QStringLiteral("-"),
        figure(row.ours) + unit, row.floor > 0 ? figure(row.ratio()) : QStringLiteral("-"), goal));
}

void Report::addRatio(const QString &name, double floor, double ours, double limit)
{
    add({ name, floor, ours, QStringLiteral("at most %1 times the floor").arg(limit),
        ours <= limit * floor });
}

void Report::note(const QString &text) const
{
    if (!m_json)
        printLine(QLatin1String("  ") + text);
}

void Report::end() const
{
    const auto worst = std::max_element(m_rows.begin(), m_rows.end(),
        [](const Row &a, const Row &b) { return a.ratio() < b.ratio(); });
    if (worst == m_rows.end())
        return;
    if (m_json) {
        printJson({ { QStringLiteral("worst"), worst->name },
            { QStringLiteral("ratio"), worst->ratio() }, { QStringLiteral("load"), load() } });
        return;
    }
    printLine(QStringLiteral("\nload %1 after the last measurement").arg(load()));
    printLine(QStringLiteral("worst ratio: %1 (%2)").arg(figure(worst->ratio()), worst->name));
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const std::size_t half = values.size() / 2;
    if (values.empty())
        return 0;
    return values.size() % 2 ? values[half] : (values[half - 1] + values[half]) / 2;
}

double percentile(std::vector<double> values, double percent)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const double place = std::ceil(percent / 100 * static_cast<double>(values.size()));
    return values[static_cast<std::size_t>(std::max(place, 1.0)) - 1];
}

double milliseconds(const std::function<void()> &work)
{
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin)
        .count();
}

} // namespace kvx::bench
